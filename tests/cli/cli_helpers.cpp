#include "cli/cli_helpers.h"

#include <algorithm>
#include <regex>

namespace kzclitest {

kztest::CommandResult Kz(const std::vector<std::string>& args, const std::string& workdir) {
  std::vector<std::string> argv = {kztest::CliPath()};
  argv.insert(argv.end(), args.begin(), args.end());
  return kztest::Run(argv, workdir);
}

std::vector<fs::path> SharedArchives() {
  std::vector<fs::path> out;
  for (const auto& dir : fs::directory_iterator(kztest::SharedArchive(""))) {
    if (!dir.is_directory()) continue;
    for (const auto& f : fs::directory_iterator(dir.path()))
      if (f.is_regular_file()) out.push_back(f.path());
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::map<std::string, Bytes> RegularFiles(const fs::path& root) {
  std::map<std::string, Bytes> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::end(it); it.increment(ec)) {
    if (it->is_symlink() || !it->is_regular_file()) continue;
    out[fs::relative(it->path(), root).generic_string()] = kztest::ReadFile(it->path());
  }
  return out;
}

// One member at a time: "key": then a string (escapes \" \\ \/ \b \f \n
// \r \t \uXXXX, no raw control byte), a number, true or false. Values are
// kept as written: the escapes themselves are format_test's.
JsonObject ParseJsonLine(const std::string& line) {
  static const std::string kString = R"re("((?:[^"\\\x00-\x1f]|\\["\\/bfnrt]|\\u[0-9a-fA-F]{4})*)")re";
  static const std::regex kMember("\\s*" + kString + "\\s*:\\s*(?:" + kString +
                                  "|(-?[0-9][0-9.]*)|(true|false))\\s*([,}])");
  JsonObject obj;
  size_t pos = line.find_first_not_of(" \t");
  if (pos == std::string::npos || line[pos++] != '{') return obj;
  std::smatch m;
  for (;;) {
    const std::string rest = line.substr(pos);
    if (!std::regex_search(rest, m, kMember, std::regex_constants::match_continuous)) return obj;
    if (obj.fields.count(m[1])) return obj;
    obj.fields[m[1]] = m[2].matched ? m[2].str() : m[3].matched ? m[3].str() : m[4].str();
    pos += static_cast<size_t>(m.length(0));
    if (m[5] == "}") break;
  }
  obj.ok = line.find_first_not_of(" \t", pos) == std::string::npos;
  return obj;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  for (size_t start = 0; start < text.size();) {
    size_t end = std::min(text.find('\n', start), text.size());
    out.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

}  // namespace kzclitest
