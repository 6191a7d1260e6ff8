// kzlha's reading commands end to end, with lhasa as the oracle for
// extracted bytes.
#include <gtest/gtest.h>

#include <regex>

#include "cli/cli_helpers.h"

namespace kzclitest {
namespace {

bool IsTruncated(const fs::path& p) { return p.filename() == "truncated.lzh"; }

// lhasa lower-cases the all-capital names of MS-DOS archives; we keep the
// stored case, so names are compared without case.
std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::map<std::string, Bytes> LowerNames(const std::map<std::string, Bytes>& files) {
  std::map<std::string, Bytes> out;
  for (const auto& [name, bytes] : files) out[Lower(name)] = bytes;
  return out;
}

TEST(Program, HelpVersionAndUsageErrors) {
  EXPECT_TRUE(Contains(Kz({"--help"}).Out, "Usage: kzlha"));
  EXPECT_EQ(Kz({"--version"}).ExitCode, 0);
  for (const auto& args : std::vector<std::vector<std::string>>{{}, {"k", "a.lzh"}, {"x", "--json", "a"}}) {
    auto r = Kz(args);
    EXPECT_EQ(r.ExitCode, 2);
    EXPECT_TRUE(Contains(r.Err, "Try 'kzlha --help'")) << r.Err;
    EXPECT_TRUE(r.Out.empty());
  }
}

TEST(Program, ArchivesOrModulesThatCannotBeOpenedExitTwoNamingTheFile) {
  kztest::TempDir dir;
  kztest::WriteFile(dir / "notes.txt", std::string(200, 'x'));
  fs::create_directories(dir / "folder.lzh");
  struct Case { std::string archive, message; } cases[] = {
      {"missing.lzh", "missing.lzh: no such file or directory"}, {"notes.txt", "notes.txt: not an LHA archive"},
      {"folder.lzh", "folder.lzh: "}};
  for (const Case& c : cases) {
    for (const char* cmd : {"l", "t", "x"}) {
      auto r = Kz({cmd, c.archive}, dir.path().string());
      EXPECT_EQ(r.ExitCode, 2) << cmd << " " << c.archive << "\n" << r.Err;
      EXPECT_TRUE(Contains(r.Err, "kzlha: ") && Contains(r.Err, c.message)) << r.Err;
    }
  }
  auto r = Kz({"--module=/nonexistent/libKzLha73.so", "l", kztest::SharedArchive("regression/multiple.lzh").string()});
  EXPECT_EQ(r.ExitCode, 2);
  EXPECT_TRUE(Contains(r.Err, "kzlha: /nonexistent/libKzLha73.so: cannot load")) << r.Err;
}

class Corpus : public ::testing::TestWithParam<fs::path> {};

std::string ArchiveName(const ::testing::TestParamInfo<fs::path>& info) {
  return kztest::CaseName(info.param.parent_path().filename().string() + "_" + info.param.filename().string());
}

TEST_P(Corpus, TestPassesOrFailsNamingTheMember) {
  auto r = Kz({"t", GetParam().string()});
  if (!IsTruncated(GetParam())) {
    EXPECT_EQ(r.ExitCode, 0) << r.Out << r.Err;
    EXPECT_TRUE(Contains(r.Out, "tested, all OK")) << r.Out;
    for (const std::string& line : Lines(r.Err)) {
      EXPECT_TRUE(Contains(line, ": warning: ")) << "not a warning: " << line;
    }
    return;
  }
  EXPECT_EQ(r.ExitCode, 1) << r.Out << r.Err;
  std::smatch m;
  EXPECT_TRUE(std::regex_search(r.Out, m, std::regex("gpl-2  [a-z]", std::regex::icase))) << r.Out;
  EXPECT_FALSE(Contains(Lower(r.Out), "gpl-2  ok")) << r.Out;
  EXPECT_TRUE(Contains(r.Err, "1 of 1 members failed")) << r.Err;
  // Quiet: the failure alone, naming the member.
  auto q = Kz({"tq", GetParam().string()});
  EXPECT_EQ(q.ExitCode, 1);
  EXPECT_TRUE(q.Out.empty()) << q.Out;
  EXPECT_TRUE(Contains(Lower(q.Err), "kzlha: gpl-2: ")) << q.Err;
}

// lhasa reads sfx.run past the member our lowest-offset search finds in its
// stub, lists nothing of h0_subdir's nameless level-0 directories, and stops
// after two members of lh0_dirs_bug.lzh, where ours go on.
bool LhasaIsNoOracle(const fs::path& p) {
  const std::string n = p.filename().string();
  return n == "sfx.run" || n == "h0_subdir.lzh";
}
bool LhasaListsFewer(const fs::path& p) { return p.filename() == "lh0_dirs_bug.lzh"; }

TEST_P(Corpus, ExtractMatchesLhasaByteForByte) {
  if (!kztest::HaveTool("lhasa")) GTEST_SKIP() << "lhasa not installed";
  const std::string dir = GetParam().parent_path().filename().string();
  if (dir == "regression" && !Contains("multiple.lzh unixsep.lzh dir.lzh truncated.lzh", GetParam().filename().string()))
    GTEST_SKIP() << "hostile archive: covered by the safety tests";
  if (LhasaIsNoOracle(GetParam())) GTEST_SKIP() << "lhasa reads this archive differently";
  kztest::TempDir ours, theirs;
  auto r = Kz({"x", "-f", "-w=" + (ours / "out").string(), GetParam().string()});
  kztest::Run({"lhasa", "xfw=" + (theirs / "out").string(), GetParam().string()});
  std::map<std::string, Bytes> expected = LowerNames(RegularFiles(theirs / "out"));
  std::map<std::string, Bytes> got = LowerNames(RegularFiles(ours / "out"));
  if (IsTruncated(GetParam())) {
    EXPECT_EQ(r.ExitCode, 1) << r.Err;
    EXPECT_TRUE(Contains(Lower(r.Err), "gpl-2")) << r.Err;
    return;
  }
  EXPECT_EQ(r.ExitCode, 0) << r.Out << r.Err;
  EXPECT_FALSE(expected.empty() && got.empty() && !Contains(GetParam().string(), "symlink") &&
               !Contains(GetParam().string(), "dir"))
      << "nothing extracted by either tool";
  for (const auto& [name, bytes] : expected) EXPECT_TRUE(got.count(name) && got[name] == bytes) << name << " differs";
  for (const auto& [name, bytes] : got) EXPECT_TRUE(expected.count(name) || LhasaListsFewer(GetParam())) << name;
}

TEST_P(Corpus, JsonListingGivesParseableLines) {
  auto r = Kz({"l", "--json", GetParam().string()});
  EXPECT_EQ(r.ExitCode, 0) << r.Err;
  const std::vector<std::string> lines = Lines(r.Out);
  ASSERT_FALSE(lines.empty());
  for (const std::string& line : lines) EXPECT_TRUE(ParseJsonLine(line).ok) << line;
  JsonObject totals = ParseJsonLine(lines.back());
  EXPECT_EQ(totals.fields["kind"], "totals");
  EXPECT_EQ(totals.fields["members"], std::to_string(lines.size() - 1));
}

INSTANTIATE_TEST_SUITE_P(Shared, Corpus, ::testing::ValuesIn(SharedArchives()), ArchiveName);

const fs::path Multiple() { return kztest::SharedArchive("regression/multiple.lzh"); }

TEST(Select, WildcardsNamesDirectoriesAndNoMatch) {
  kztest::TempDir d;
  auto r = Kz({"xq", "-w=" + (d / "o").string(), Multiple().string(), "file2*", "file4.txt"});
  EXPECT_EQ(r.ExitCode, 0) << r.Err;
  std::map<std::string, Bytes> files = RegularFiles(d / "o");
  EXPECT_EQ(files.size(), 3u);
  EXPECT_TRUE(files.count("file2-1.txt") && files.count("file2-2.txt") && files.count("file4.txt"));
  auto none = Kz({"t", Multiple().string(), "nothing*", "file1.txt"});
  EXPECT_EQ(none.ExitCode, 1);
  EXPECT_TRUE(Contains(none.Err, "kzlha: nothing*: no member matches")) << none.Err;
  EXPECT_TRUE(Contains(none.Out, "file1.txt  OK")) << none.Out;
  EXPECT_FALSE(Contains(none.Out, "file3.txt")) << none.Out;
  auto sub = Kz({"x", "-w=" + d.path().string(), kztest::SharedArchive("lha_unix114i/h2_subdir.lzh").string(), "subdir"});
  EXPECT_EQ(sub.ExitCode, 0) << sub.Err;
  EXPECT_TRUE(fs::exists(d / "subdir/subdir2/hello.txt"));  // a directory name selects its subtree
}

TEST(Destination, MissingParentsAreMadeAndAFileInTheWayIsNamed) {
  kztest::TempDir d;
  auto nested = Kz({"xq", "-w=" + (d / "a/b/c/").string(), Multiple().string(), "file1.txt"});
  EXPECT_EQ(nested.ExitCode, 0) << nested.Err;
  EXPECT_EQ(kztest::ReadFile(d / "a/b/c/file1.txt"), kztest::ToBytes("first file\n"));
  kztest::WriteFile(d / "plain", std::string("x"));
  for (const fs::path& blocked : {d / "plain", d / "plain/sub"}) {
    auto r = Kz({"x", "-w=" + blocked.string(), Multiple().string()});
    EXPECT_EQ(r.ExitCode, 1) << blocked;
    EXPECT_TRUE(Contains(r.Err, blocked.generic_string() + ": cannot create the directory: ")) << r.Err;
  }
}

TEST(Print, MembersGoToStandardOutputWithBannersUnlessQuiet) {
  auto q = Kz({"pq", Multiple().string(), "file1.txt", "file3.txt"});
  EXPECT_EQ(q.ExitCode, 0) << q.Err;
  EXPECT_EQ(q.Out, "first file\nthird file\n");
  auto banner = Kz({"p", Multiple().string(), "file1.txt"});
  EXPECT_EQ(banner.Out, "::::::::\nfile1.txt\n::::::::\nfirst file\n");
}

TEST(Overwrite, ExistingFilesAreSkippedWithANoteUnlessForced) {
  kztest::TempDir d;
  const std::string out = "-w=" + (d / "o").string();
  ASSERT_EQ(Kz({"x", out, Multiple().string()}).ExitCode, 0);
  kztest::WriteFile(d / "o/file1.txt", std::string("mine"));
  auto skip = Kz({"x", out, Multiple().string(), "file1.txt"});
  EXPECT_EQ(skip.ExitCode, 0) << skip.Err;
  EXPECT_TRUE(Contains(skip.Err, "file1.txt: exists; skipped")) << skip.Err;
  EXPECT_TRUE(Contains(skip.Out, "0 of 1 member extracted")) << skip.Out;
  EXPECT_EQ(kztest::ReadFile(d / "o/file1.txt"), kztest::ToBytes("mine"));
  auto force = Kz({"xf", out, Multiple().string(), "file1.txt"});
  EXPECT_EQ(force.ExitCode, 0) << force.Err;
  EXPECT_TRUE(force.Err.empty()) << force.Err;
  EXPECT_EQ(kztest::ReadFile(d / "o/file1.txt"), kztest::ToBytes("first file\n"));
}

TEST(Paths, IgnorePathsDropsTheDirectories) {
  kztest::TempDir d;
  auto r = Kz({"xi", "-w=" + d.path().string(), kztest::SharedArchive("regression/unixsep.lzh").string()});
  EXPECT_EQ(r.ExitCode, 0) << r.Err;
  const std::map<std::string, Bytes> files = LowerNames(RegularFiles(d.path()));
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files.begin()->first, "hello.txt");
}

// The fields' form is format_test's; here: the engine's values reach them.
TEST(Json, MembersAndTotalsOfAKnownArchive) {
  auto r = Kz({"l", "--json", Multiple().string()});
  ASSERT_EQ(r.ExitCode, 0) << r.Err;
  const std::vector<std::string> lines = Lines(r.Out);
  ASSERT_EQ(lines.size(), 6u) << r.Out;
  const char* const names[] = {"file1.txt", "file2-1.txt", "file2-2.txt", "file3.txt", "file4.txt"};
  const char* const crcs[] = {"3245", "59f1", "39a9", "7225", "abbe"};
  for (size_t i = 0; i < 5; ++i) {
    auto f = ParseJsonLine(lines[i]).fields;
    EXPECT_EQ(f["name"] + " " + f["crc"] + " " + f["method"], std::string(names[i]) + " " + crcs[i] + " -lh0-");
    EXPECT_EQ(f["packed"], f["original"]);
  }
  auto t = ParseJsonLine(lines[5]).fields;
  EXPECT_EQ(t["members"] + " " + t["packed"] + " " + t["ratio_percent"], "5 64 100");
  EXPECT_EQ(Kz({"v", "--json", Multiple().string()}).Out, r.Out);
}

// Where hostile archives' files land: enginelib/extract_ops_test.
TEST(HostileNames, NoRawEscapeReachesTheTerminal) {
  kztest::TempDir d;
  const std::string archive = kztest::SharedArchive("regression/badterm.lzh").string();
  const std::vector<std::vector<std::string>> runs = {
      {"l", archive}, {"v", archive}, {"l", "--json", archive}, {"t", archive},
      {"x", "-w=" + d.path().string(), archive}, {"x", "-w=" + d.path().string(), archive},  // 2nd: skip note
      {"p", archive}, {"t", archive, "no\x1b[31mmatch"}};
  for (const auto& args : runs) {
    auto r = Kz(args);
    EXPECT_EQ(r.Out.find('\x1b'), std::string::npos) << args[0] << ": " << r.Out;
    EXPECT_EQ(r.Err.find('\x1b'), std::string::npos) << args[0] << ": " << r.Err;
    EXPECT_EQ(r.Out.find('\x07'), std::string::npos) << args[0];
  }
  // The member is still listed, its name made harmless.
  auto list = Kz({"l", archive});
  EXPECT_NE(list.Out.find("]2;malicious"), std::string::npos) << list.Out;
}

}  // namespace
}  // namespace kzclitest
