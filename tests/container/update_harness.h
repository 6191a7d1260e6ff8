// Shared by the compression-driver and archive-update tests: an archiver
// with its encode buffers, source files in a temporary directory, the
// members of a written archive read back, and lhasa as an independent
// reader of what was written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "archiver/lha_archiver.h"
#include "support/engine_harness.h"

namespace kztest {

// Extracts the archive with lhasa into `into` and expects each file there
// with its contents. Without lhasa nothing is checked: the oracle is
// optional, the engine's own reader still checks.
void ExpectLhasaReproduces(const std::filesystem::path& archive, const std::filesystem::path& into,
                           const std::vector<std::pair<std::string, Bytes>>& files);

// Host callbacks that count progress reports and can ask for a stop.
struct ProgressProbe {
  int Calls = 0;
  int StopAtCall = 0;  // 0: never
  uint64_t LastDone = 0;
  static int KZ_CALL Progress(void* context, const wchar_t*, uint64_t done, uint64_t);
  void Attach(KzArchiver& a);
};

class UpdateRig {
 public:
  UpdateRig();
  ~UpdateRig();
  KzLhaArchiver& A() { return archiver_; }
  const std::filesystem::path& Dir() const { return dir_.path(); }
  std::filesystem::path ArchivePath() const { return dir_ / "out.lzh"; }
  // A source file under src/.
  std::filesystem::path Source(const std::string& name, const Bytes& content);
  // Creates the output archive file as OutputStream (read and write).
  void CreateOutput();
  int32_t Compress(const std::string& archiveName, const std::filesystem::path& source,
                   uint8_t attributes = 0x20);
  // Appends the end marker and closes the output.
  void FinishOutput();

 private:
  TempDir dir_;
  KzLhaArchiver archiver_;
};

}  // namespace kztest
