#ifdef _WIN32

#include <filesystem>

#include "cli/files.h"
#include "cli/text.h"

namespace kzcli {

namespace {

// Windows would read a narrow path in the ANSI code page: the wide text.
std::filesystem::path NativePath(const std::string& bytes) { return std::filesystem::path(FromNative(bytes)); }

}  // namespace

bool PathExists(const std::string& path) {
  std::error_code ec;
  return std::filesystem::exists(NativePath(path), ec);
}

bool CreateDirectories(const std::string& path, std::string* why) {
  std::error_code ec;
  std::filesystem::create_directories(NativePath(path), ec);
  if (!ec) return true;
  *why = ec.message();
  return false;
}

std::wstring EngineArchivePath(const std::string& path) {
  std::error_code ec;
  std::filesystem::path full = std::filesystem::absolute(NativePath(path), ec);
  return ec ? FromNative(path) : full.wstring();
}

std::wstring EngineSourceBase() {
  std::error_code ec;
  std::filesystem::path cwd = std::filesystem::current_path(ec);
  return ec ? std::wstring() : cwd.wstring();
}

}  // namespace kzcli

#endif  // _WIN32
