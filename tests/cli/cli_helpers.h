// Helpers for the end-to-end tests of kzlha: running the real binary,
// walking trees, splitting written archives into member records, and a
// small JSON reader for --json lines.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kzclitest {

namespace fs = std::filesystem;
using kztest::Bytes;

inline bool Contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

// Runs kzlha with args, in workdir when given.
kztest::CommandResult Kz(const std::vector<std::string>& args, const std::string& workdir = "");

// Every archive of the shared corpus (README excluded), sorted.
std::vector<fs::path> SharedArchives();

// Regular files below root (symbolic links not followed), by relative path.
std::map<std::string, Bytes> RegularFiles(const fs::path& root);

// The member records (header and data) of a level-0/1 archive, in order.
std::vector<Bytes> MemberRecords(const Bytes& archive);

// A flat JSON object: member name -> value text (strings unescaped,
// numbers and literals as written) and its kind: 's' string, 'n' number,
// 'b' bool. ok is false for anything malformed.
struct JsonObject {
  std::map<std::string, std::string> fields;
  std::map<std::string, char> kinds;
  bool ok = false;
};
JsonObject ParseJsonLine(const std::string& line);
std::vector<std::string> Lines(const std::string& text);

}  // namespace kzclitest
