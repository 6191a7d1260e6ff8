#include "cli/cli_helpers.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

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
    for (const auto& f : fs::directory_iterator(dir.path())) {
      if (f.is_regular_file()) out.push_back(f.path());
    }
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

std::vector<Bytes> MemberRecords(const Bytes& a) {
  std::vector<Bytes> out;
  size_t pos = 0;
  while (pos + 22 <= a.size() && a[pos] != 0) {
    const size_t headerLength = a[pos] + 2u;
    const size_t packed = a[pos + 7] | a[pos + 8] << 8 | a[pos + 9] << 16 | static_cast<size_t>(a[pos + 10]) << 24;
    const size_t end = std::min(a.size(), pos + headerLength + packed);
    out.emplace_back(a.begin() + static_cast<long>(pos), a.begin() + static_cast<long>(end));
    pos = end;
  }
  return out;
}

namespace {

class JsonReader {
 public:
  explicit JsonReader(const std::string& s) : s_(s) {}

  JsonObject Object() {
    JsonObject obj;
    Space();
    if (!Eat('{')) return obj;
    Space();
    if (Eat('}')) return Done(obj);
    do {
      Space();
      std::string key, value;
      if (!String(&key)) return obj;
      Space();
      if (!Eat(':')) return obj;
      Space();
      char kind = 0;
      if (!Value(&value, &kind) || obj.fields.count(key) != 0) return obj;
      obj.fields[key] = value;
      obj.kinds[key] = kind;
      Space();
    } while (Eat(','));
    if (!Eat('}')) return obj;
    return Done(obj);
  }

 private:
  JsonObject Done(JsonObject& obj) {
    Space();
    obj.ok = pos_ == s_.size();
    return obj;
  }
  bool Eat(char c) {
    if (pos_ < s_.size() && s_[pos_] == c) return ++pos_, true;
    return false;
  }
  void Space() {
    while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t')) ++pos_;
  }
  bool String(std::string* out) {
    if (!Eat('"')) return false;
    while (pos_ < s_.size() && s_[pos_] != '"') {
      const auto c = static_cast<unsigned char>(s_[pos_++]);
      if (c < 0x20) return false;
      if (c != '\\') {
        out->push_back(static_cast<char>(c));
        continue;
      }
      if (pos_ >= s_.size()) return false;
      const char e = s_[pos_++];
      if (e == 'u') {
        if (pos_ + 4 > s_.size()) return false;
        const unsigned long cp = std::strtoul(s_.substr(pos_, 4).c_str(), nullptr, 16);
        pos_ += 4;
        out->push_back(cp < 0x80 ? static_cast<char>(cp) : '?');
      } else if (std::string("\"\\/bfnrt").find(e) != std::string::npos) {
        out->push_back(e == 'n' ? '\n' : e == 't' ? '\t' : e);
      } else {
        return false;
      }
    }
    return Eat('"');
  }
  bool Value(std::string* out, char* kind) {
    if (pos_ < s_.size() && s_[pos_] == '"') return *kind = 's', String(out);
    for (const char* literal : {"true", "false"}) {
      if (s_.compare(pos_, std::string(literal).size(), literal) == 0) {
        pos_ += std::string(literal).size();
        *out = literal;
        *kind = 'b';
        return true;
      }
    }
    const size_t start = pos_;
    Eat('-');
    while (pos_ < s_.size() && (std::isdigit(static_cast<unsigned char>(s_[pos_])) || s_[pos_] == '.')) ++pos_;
    *out = s_.substr(start, pos_ - start);
    *kind = 'n';
    return !out->empty() && *out != "-";
  }

  const std::string& s_;
  size_t pos_ = 0;
};

}  // namespace

JsonObject ParseJsonLine(const std::string& line) { return JsonReader(line).Object(); }

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    out.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

}  // namespace kzclitest
