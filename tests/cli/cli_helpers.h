// Helpers for the end-to-end tests of kzlha: running the real binary,
// walking trees, and a small JSON reader for --json lines.
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

// A flat JSON object: member name -> value text as written (no quotes).
// ok is false for anything malformed.
struct JsonObject {
  std::map<std::string, std::string> fields;
  bool ok = false;
};
JsonObject ParseJsonLine(const std::string& line);
std::vector<std::string> Lines(const std::string& text);

}  // namespace kzclitest
