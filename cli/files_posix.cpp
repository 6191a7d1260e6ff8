#ifndef _WIN32

#include <errno.h>
#include <sys/stat.h>

#include <cstring>

#include "cli/files.h"
#include "cli/text.h"

namespace kzcli {

bool PathExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

bool CreateDirectories(const std::string& path, std::string* why) {
  // Every prefix that ends before a separator, then the whole path. A
  // prefix that exists is passed over; the last step's failure, or a
  // path that is no directory, is the reason given.
  int error = 0;
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    error = mkdir(path.substr(0, end).c_str(), 0777) != 0 && errno != EEXIST ? errno : 0;
    if (end == std::string::npos) break;
  }
  struct stat st;
  if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
  *why = std::strerror(error != 0 ? error : ENOTDIR);
  return false;
}

std::wstring EngineArchivePath(const std::string& path) { return FromNative(path); }

std::wstring EngineSourceBase() { return {}; }

}  // namespace kzcli

#endif  // !_WIN32
