// Archives made by other LHA tools, listed by the engine and compared with
// what an independent lister (lhasa) reports for each member: name, sizes,
// method and CRC.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "archiver/lha_archiver.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;

struct Entry {
  std::string name;  // canonical: '/' separators, "name -> target" for links
  uint64_t packed = 0;
  uint64_t original = 0;
  std::string method;
  uint16_t crc = 0;
};

// The comparison form of a path: '/' separators, no empty or "." parts, and
// ".." resolved lexically. Listers differ in how they show paths that reach
// outside (lhasa drops what extraction would drop), not in what remains.
std::string CanonicalPath(const std::string& path) {
  std::vector<std::string> parts;
  std::stringstream in(path);
  for (std::string part; std::getline(in, part, '/');) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : "/") + p;
  return out;
}

// "name -> target" (the listers' form of a Unix link) with the name made
// canonical; the target is kept as stored.
std::string CanonicalEntryName(const std::string& shown) {
  const size_t arrow = shown.find(" -> ");
  return arrow == std::string::npos ? CanonicalPath(shown)
                                    : CanonicalPath(shown.substr(0, arrow)) + " -> " + shown.substr(arrow + 4);
}

// Parses the member lines of an `lhasa v` or `lha v` listing.
std::vector<Entry> ParseListing(const std::string& text) {
  static const std::regex kLine(
      R"((\d+)\s+(\d+)\s+\S+\s+(-l..-) ([0-9a-f]{4}) .{12} ?(.*)$)");
  std::vector<Entry> entries;
  std::stringstream in(text);
  int rules = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("----------", 0) == 0) {
      ++rules;
      continue;
    }
    if (rules != 1) continue;
    std::smatch m;
    if (!std::regex_search(line, m, kLine)) {
      ADD_FAILURE() << "unparsed listing line: " << line;
      continue;
    }
    entries.push_back(Entry{CanonicalEntryName(m[5]), std::stoull(m[1]), std::stoull(m[2]), m[3],
                            static_cast<uint16_t>(std::stoul(m[4], nullptr, 16))});
  }
  return entries;
}

// The engine's name in the listers' form: '/' separators and the link
// target after " -> " instead of after '|'.
std::string ShownName(const std::wstring& engineName) {
  std::string name = kztest::Narrow(engineName);
  std::replace(name.begin(), name.end(), '\\', '/');
  const size_t bar = name.find('|');
  if (bar != std::string::npos) name = name.substr(0, bar) + " -> " + name.substr(bar + 1);
  return CanonicalEntryName(name);
}

struct EngineListing {
  HRESULT status = 0;
  uint64_t firstHeader = 0;
  std::vector<Entry> entries;
  std::vector<std::wstring> rawNames;
};

EngineListing ListWithEngine(const fs::path& path) {
  EngineListing out;
  const kztest::Bytes bytes = kztest::ReadFile(path);
  KzLhaArchiver archiver;
  EXPECT_EQ(archiver.Init(), 0);
  const std::wstring wide = kztest::Wide(path.string());
  out.status = archiver.InitArchive(wide.c_str(), 0, 0);
  if (out.status < 0) return out;
  out.firstHeader = archiver.FirstHeaderPos;
  KzList* selection = KzList::Create(KZ_LIST_NAMES);
  KzList* members = KzList::Create(KZ_LIST_MEMBERS);
  ArchiveInfo info{};
  out.status = archiver.ListArchive(selection, 0, 0, members, &info);
  for (void* item : KzListItems(members)) {
    const auto& m = *static_cast<const LhaHeader*>(item);
    // The method as stored (a level-2 "-lhd-" reads as method 0).
    const std::string method(bytes.begin() + static_cast<long>(m.HeaderPos) + 2,
                             bytes.begin() + static_cast<long>(m.HeaderPos) + 7);
    out.entries.push_back(Entry{ShownName(m.Name), m.PackedSize - m.ExtendedLength,
                                m.OriginalSize, method, static_cast<uint16_t>(m.Crc)});
    out.rawNames.emplace_back(m.Name);
    const char digit = method[3];
    const bool level2Directory = digit == 'd' && bytes[m.HeaderPos + 20] >= 2;
    EXPECT_EQ(m.Method, level2Directory ? 0u : static_cast<uint32_t>(digit - '0')) << method;
  }
  KzList::Free(members);
  KzList::Free(selection);
  return out;
}

// lhasa stops listing at a header without a name; these archives hold
// such headers (directory entries) before other members, which lha lists.
const std::map<std::string, std::string> kOracleFor = {
    {"lha_unix114i/h0_subdir.lzh", "lha"},
    {"lha_amiga_122/lh0_dirs_bug.lzh", "lha"},
};

// This stub carries a small archive of its own (its usage text, ended by a
// zero byte) before the real one. The lowest passing offset wins, so the
// engine lists the stub's archive; the oracle is shown the same bytes.
const std::map<std::string, uint64_t> kStubArchiveAt = {
    {"lha_amiga_122/sfx.run", 5596},
};

// lhasa shows a control character in a name as '?' and MS-DOS names in
// lower case.
bool SameName(const std::string& oracle, const std::string& ours) {
  if (oracle.size() != ours.size()) return false;
  for (size_t i = 0; i < oracle.size(); ++i) {
    if (oracle[i] == '?') continue;
    if (std::tolower(static_cast<unsigned char>(oracle[i])) !=
        std::tolower(static_cast<unsigned char>(ours[i]))) {
      return false;
    }
  }
  return true;
}

std::vector<std::string> SharedArchives() {
  std::vector<std::string> out;
  const fs::path root = kztest::SharedArchive("");
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::end(it);
       it.increment(ec)) {
    if (it->is_regular_file() && it->path().filename() != "README.md") {
      out.push_back(fs::relative(it->path(), root).generic_string());
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

class RealArchive : public ::testing::TestWithParam<std::string> {};

TEST_P(RealArchive, ListsWhatAnIndependentListerReports) {
  const std::string oracle = kOracleFor.count(GetParam()) ? kOracleFor.at(GetParam()) : "lhasa";
  if (!kztest::HaveTool(oracle)) GTEST_SKIP() << oracle << " is not installed";
  const fs::path path = kztest::SharedArchive(GetParam());
  const EngineListing ours = ListWithEngine(path);
  ASSERT_EQ(ours.status, 0);

  kztest::TempDir tail;
  fs::path shownPath = path;
  if (kStubArchiveAt.count(GetParam())) {
    const uint64_t at = kStubArchiveAt.at(GetParam());
    ASSERT_EQ(ours.firstHeader, at);
    const kztest::Bytes bytes = kztest::ReadFile(path);
    shownPath = tail / "tail.lzh";
    kztest::WriteFile(shownPath, kztest::Bytes(bytes.begin() + static_cast<long>(at), bytes.end()));
  }
  const kztest::CommandResult shown = kztest::Run({oracle, "v", shownPath.string()});
  ASSERT_EQ(shown.ExitCode, 0) << shown.Err;
  const std::vector<Entry> expected = ParseListing(shown.Out);

  ASSERT_EQ(ours.entries.size(), expected.size()) << shown.Out;
  for (size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i].name);
    const Entry& e = ours.entries[i];
    EXPECT_TRUE(SameName(expected[i].name, e.name)) << e.name;
    EXPECT_EQ(e.packed, expected[i].packed);
    EXPECT_EQ(e.original, expected[i].original);
    EXPECT_EQ(e.method, expected[i].method);
    EXPECT_EQ(e.crc, expected[i].crc);
  }
}

INSTANTIATE_TEST_SUITE_P(Shared, RealArchive, ::testing::ValuesIn(SharedArchives()),
                         [](const auto& info) { return kztest::CaseName(info.param); });

// lhasa shows an escape byte as '?', which any byte matches above.
TEST(RealArchives, TheEscapeSequenceNameIsListedWithoutItsEscape) {
  const EngineListing ours = ListWithEngine(kztest::SharedArchive("regression/badterm.lzh"));
  ASSERT_EQ(ours.rawNames.size(), 1u);
  EXPECT_EQ(ours.rawNames[0].find(L'\x1b'), std::wstring::npos);
  EXPECT_NE(ours.rawNames[0].find(L"]2;malicious"), std::wstring::npos);
}

}  // namespace
