// Small helpers shared by the tests: temporary directories that clean up,
// whole-file reads and writes, running a command and capturing its output.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kztest {

using Bytes = std::vector<uint8_t>;

// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

Bytes ReadFile(const std::filesystem::path& path);
// Sets a file's modification time (Unix seconds) on either system.
void SetModificationTime(const std::filesystem::path& path, int64_t unixSeconds);
void WriteFile(const std::filesystem::path& path, const Bytes& data);
void WriteFile(const std::filesystem::path& path, const std::string& text);
Bytes ToBytes(const std::string& text);

// Deterministic pseudo-random bytes.
Bytes RandomBytes(size_t n, uint32_t seed);
// Text-like bytes that compress (words from a small vocabulary).
Bytes TextBytes(size_t n, uint32_t seed);

struct CommandResult {
  int ExitCode = -1;
  std::string Out;
  std::string Err;
};
// Runs argv (no shell), optionally in a working directory, feeding no input.
CommandResult Run(const std::vector<std::string>& argv, const std::string& workdir = "");
bool HaveTool(const std::string& name);

// Paths of the shared real-world archives and of the built modules.
std::filesystem::path SharedArchive(const std::string& relative);
std::string EngineModulePath();
std::string CliPath();

// A parameterized case's name from its text: anything but a letter or a
// digit becomes '_'. CaseNameFromWhat names a case by its `what` field.
std::string CaseName(std::string text);
struct CaseNameFromWhat {
  template <typename Info>
  std::string operator()(const Info& info) const {
    return CaseName(info.param.what);
  }
};

// Wide <-> UTF-8 for building engine paths in tests.
std::wstring Wide(const std::string& s);
std::string Narrow(const std::wstring& s);

}  // namespace kztest
