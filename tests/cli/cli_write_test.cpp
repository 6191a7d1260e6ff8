// kzlha a, c, u, m and d end to end: the options reach the engine and
// lhasa reads back what kzlha writes.
#include <gtest/gtest.h>

#include <fstream>

#include "cli/cli_helpers.h"
#include "support/engine_harness.h"

namespace kzclitest {
namespace {

void MakeTree(const fs::path& root) {
  kztest::WriteFile(root / "text.txt", kztest::TextBytes(120000, 1));
  kztest::WriteFile(root / "random.bin", kztest::RandomBytes(30000, 2));
  kztest::WriteFile(root / "empty.txt", kztest::Bytes{});
  kztest::WriteFile(root / "sub/inner.txt", kztest::TextBytes(5000, 3));
  kztest::WriteFile(root / "sub/deeper/last.c", kztest::TextBytes(777, 4));
}

std::map<std::string, std::string> MethodsByName(const fs::path& archive) {
  std::map<std::string, std::string> out;
  for (const std::string& line : Lines(Kz({"l", "--json", archive.string()}).Out)) {
    JsonObject o = ParseJsonLine(line);
    if (o.fields["kind"] == "member") out[o.fields["name"]] = o.fields["method"];
  }
  return out;
}

struct MethodCase { std::string option; std::string textMethod; };

class CreateWith : public ::testing::TestWithParam<MethodCase> {};

TEST_P(CreateWith, LhasaReadsBackEveryFile) {
  if (!kztest::HaveTool("lhasa")) GTEST_SKIP() << "lhasa not installed";
  kztest::TempDir d;
  MakeTree(d / "src");
  std::vector<std::string> args = {"cq"};
  if (!GetParam().option.empty()) args.push_back(GetParam().option);
  for (const char* a : {"../a.lzh", "text.txt", "random.bin", "empty.txt", "sub"}) args.push_back(a);
  auto r = Kz(args, (d / "src").string());
  ASSERT_EQ(r.ExitCode, 0) << r.Err;
  EXPECT_EQ(kztest::Run({"lhasa", "t", (d / "a.lzh").string()}).ExitCode, 0);
  kztest::Run({"lhasa", "xqfw=" + (d / "out").string(), (d / "a.lzh").string()});
  EXPECT_EQ(RegularFiles(d / "out"), RegularFiles(d / "src"));
  std::map<std::string, std::string> methods = MethodsByName(d / "a.lzh");
  EXPECT_EQ(methods["text.txt"], GetParam().textMethod);
  EXPECT_EQ(methods["random.bin"], "-lh0-");  // compression does not pay
  EXPECT_EQ(methods["empty.txt"], "-lh0-");
  EXPECT_EQ(methods["sub/deeper/last.c"], GetParam().textMethod);
}

INSTANTIATE_TEST_SUITE_P(Methods, CreateWith,
                         ::testing::Values(MethodCase{"", "-lh5-"}, MethodCase{"-o6", "-lh6-"},
                                           MethodCase{"--method=lh7", "-lh7-"}, MethodCase{"-z", "-lh0-"},
                                           MethodCase{"-l4", "-lh5-"}),
                         [](const auto& info) { return "case" + std::to_string(info.index); });

TEST(Create, GluedFormWithAHeaderLevelNote) {
  kztest::TempDir d;
  MakeTree(d.path());
  auto two = Kz({"c2o6", "x.lzh", "text.txt"}, d.path().string());
  EXPECT_EQ(two.ExitCode, 0) << two.Err;
  EXPECT_TRUE(Contains(two.Err, "note: header level 2 requested; kzlha writes level-1 headers")) << two.Err;
  auto json = Kz({"v", "--json", (d / "x.lzh").string()});
  EXPECT_TRUE(Contains(json.Out, "\"method\":\"-lh6-\"")) << json.Out;
  EXPECT_TRUE(Contains(json.Out, "\"level\":1")) << json.Out;
  auto one = Kz({"a1q", "x.lzh", "empty.txt"}, d.path().string());
  EXPECT_EQ(one.ExitCode, 0);
  EXPECT_TRUE(one.Err.empty()) << one.Err;
}

TEST(Create, JapaneseNamesRoundTripInCodePage932) {
  kztest::TempDir d;
  const std::string name = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt";  // 日本語.txt
  kztest::WriteFile(d / "src" / fs::path(reinterpret_cast<const char8_t*>(name.c_str())), kztest::TextBytes(3000, 9));
  auto r = Kz({"c", "--code-page=932", "../j.lzh", name}, (d / "src").string());
  ASSERT_EQ(r.ExitCode, 0) << r.Err;
  // The header holds the Shift_JIS bytes of the name.
  const Bytes archive = kztest::ReadFile(d / "j.lzh");
  const Bytes sjis = {0x93, 0xFA, 0x96, 0x7B, 0x8C, 0xEA, '.', 't', 'x', 't'};
  EXPECT_NE(std::search(archive.begin(), archive.end(), sjis.begin(), sjis.end()), archive.end());
  EXPECT_TRUE(Contains(Kz({"l", (d / "j.lzh").string()}).Out, " " + name + "\n"));
  auto x = Kz({"x", "-w=" + (d / "out").string(), (d / "j.lzh").string()});
  EXPECT_EQ(x.ExitCode, 0) << x.Err;
  EXPECT_EQ(RegularFiles(d / "out"), RegularFiles(d / "src"));
}

TEST(Update, ReplacesOnlyNewerFiles) {
  kztest::TempDir d;
  const int64_t t0 = 1577836800;  // 2020-01-01
  auto write = [&](const char* name, const std::string& text, int64_t time) {
    kztest::WriteFile(d / name, text);
    kztest::SetModificationTime(d / name, time);
  };
  write("a.txt", "a, first", t0);
  write("b.txt", "b, first", t0);
  ASSERT_EQ(Kz({"cq", "u.lzh", "a.txt", "b.txt"}, d.path().string()).ExitCode, 0);
  write("a.txt", "a, second", t0 + 86400);
  write("b.txt", "b, second", t0 - 86400);
  write("c.txt", "c, new", t0);
  auto r = Kz({"u", "u.lzh", "a.txt", "b.txt", "c.txt"}, d.path().string());
  EXPECT_EQ(r.ExitCode, 0) << r.Err;
  const std::pair<const char*, const char*> expected[] = {
      {"a.txt", "a, second"}, {"b.txt", "b, first"}, {"c.txt", "c, new"}};
  for (const auto& [name, text] : expected) EXPECT_EQ(Kz({"pq", (d / "u.lzh").string(), name}).Out, text);
}

TEST(Add, ReplacesAndExcludes) {
  kztest::TempDir d;
  kztest::WriteFile(d / "keep.txt", std::string("keep"));
  kztest::WriteFile(d / "skip.tmp", std::string("temporary"));
  ASSERT_EQ(Kz({"a", "-x=*.tmp", "r.lzh", "keep.txt", "skip.tmp"}, d.path().string()).ExitCode, 0);
  std::map<std::string, std::string> methods = MethodsByName(d / "r.lzh");
  EXPECT_EQ(methods.size(), 1u);
  EXPECT_TRUE(methods.count("keep.txt"));
  kztest::WriteFile(d / "keep.txt", std::string("changed"));
  ASSERT_EQ(Kz({"aq", "r.lzh", "keep.txt"}, d.path().string()).ExitCode, 0);
  EXPECT_EQ(MethodsByName(d / "r.lzh").size(), 1u);
  EXPECT_EQ(Kz({"pq", (d / "r.lzh").string(), "keep.txt"}).Out, "changed");
}

// Which members stay byte for byte is the library's business
// (enginelib/update_ops_test); here: the selection and what kzlha says.
TEST(Delete, RemovesSelectedMembersAndTheArchiveWithTheLast) {
  kztest::TempDir d;
  MakeTree(d.path());
  ASSERT_EQ(Kz({"cq", "d.lzh", "text.txt", "random.bin", "sub"}, d.path().string()).ExitCode, 0);
  auto r = Kz({"d", (d / "d.lzh").string(), "random.bin", "sub/deeper"});
  EXPECT_EQ(r.ExitCode, 0) << r.Err;
  EXPECT_TRUE(Contains(r.Out, "2 members deleted")) << r.Out;
  auto left = [&] {
    std::set<std::string> names;
    for (const auto& [name, method] : MethodsByName(d / "d.lzh")) names.insert(name);
    return names;
  };
  EXPECT_EQ(left(), (std::set<std::string>{"text.txt", "sub/inner.txt"}));
  auto none = Kz({"d", (d / "d.lzh").string(), "nothing.here"});
  EXPECT_EQ(none.ExitCode, 1);
  EXPECT_TRUE(Contains(none.Err, "nothing.here: no member matches")) << none.Err;
  EXPECT_EQ(left().size(), 2u);
  auto all = Kz({"d", "d.lzh", "*"}, d.path().string());
  EXPECT_EQ(all.ExitCode, 0) << all.Err;
  EXPECT_TRUE(Contains(all.Err, "kzlha: d.lzh: all members deleted; archive removed")) << all.Err;
  EXPECT_FALSE(fs::exists(d / "d.lzh"));
}

TEST(Move, SourcesGoOnceArchived) {
  kztest::TempDir d;
  MakeTree(d / "src");
  const std::map<std::string, Bytes> original = RegularFiles(d / "src");
  auto r = Kz({"m", "../m.lzh", "text.txt", "sub"}, (d / "src").string());
  ASSERT_EQ(r.ExitCode, 0) << r.Err;
  EXPECT_FALSE(fs::exists(d / "src/text.txt"));
  EXPECT_FALSE(fs::exists(d / "src/sub/inner.txt"));
  EXPECT_TRUE(fs::exists(d / "src/random.bin"));
  ASSERT_EQ(Kz({"xq", "-w=" + (d / "out").string(), (d / "m.lzh").string()}).ExitCode, 0);
  const std::map<std::string, Bytes> got = RegularFiles(d / "out");
  EXPECT_EQ(got.size(), 3u);
  for (const auto& [name, bytes] : got) EXPECT_TRUE(original.at(name) == bytes) << name;
}

// A source of 4 GiB or more does not fit a level-1 header: refused naming
// it, nothing written or deleted. The sparse sources are never read.
struct TooLargeCase {
  const char* Label;
  const char* Command;       // kzlha command letter
  const char* Option;        // one option or ""
  uint64_t HugeSize;         // the sparse source's size
  bool ExistingArchive;      // add into an archive that already has members
  bool SmallSourceFirst;     // a small source precedes the huge one
};

std::ostream& operator<<(std::ostream& os, const TooLargeCase& c) { return os << c.Label; }

class TooLargeSource : public ::testing::TestWithParam<TooLargeCase> {};

constexpr uint64_t k4GiB = uint64_t{1} << 32;

TEST_P(TooLargeSource, IsRefusedAndNothingChanges) {
#ifdef _WIN32
  GTEST_SKIP() << "a 4 GiB file is not sparse on NTFS without asking";
#endif
  const TooLargeCase& c = GetParam();
  kztest::TempDir dir;
  const fs::path archive = dir / "out.lzh";
  kztest::WriteFile(dir / "small.txt", kztest::TextBytes(3000, 1));
  kztest::WriteFile(dir / "kept.txt", kztest::TextBytes(5000, 2));
  if (c.ExistingArchive) {
    const auto made = Kz({"a", "-q", archive.string(), "kept.txt"}, dir.path().string());
    ASSERT_EQ(made.ExitCode, 0) << made.Err;
  }
  const kztest::Bytes before = c.ExistingArchive ? kztest::ReadFile(archive) : kztest::Bytes{};
  { std::ofstream(dir / "huge.bin"); }
  fs::resize_file(dir / "huge.bin", c.HugeSize);
  const std::vector<std::string> entriesBefore = kztest::Tree(dir.path());

  std::vector<std::string> argv = {c.Command};
  if (*c.Option != 0) argv.push_back(c.Option);
  argv.push_back(archive.string());
  if (c.SmallSourceFirst) argv.push_back("small.txt");
  argv.push_back("huge.bin");
  const auto r = Kz(argv, dir.path().string());

  EXPECT_EQ(r.ExitCode, 1);  // a failed member, not a usage error
  EXPECT_NE(r.Err.find("huge.bin"), std::string::npos) << r.Err;
  EXPECT_NE(r.Err.find("too large"), std::string::npos) << r.Err;
  if (c.ExistingArchive) {
    EXPECT_EQ(kztest::ReadFile(archive), before);
  } else {
    EXPECT_FALSE(fs::exists(archive));
  }
  // No temporary archive left, and a move deleted none of its sources.
  EXPECT_EQ(kztest::Tree(dir.path()), entriesBefore);
  EXPECT_EQ(fs::file_size(dir / "huge.bin"), c.HugeSize);
}

INSTANTIATE_TEST_SUITE_P(
    Hardening, TooLargeSource,
    ::testing::Values(TooLargeCase{"ExactlyFourGiBIntoNewArchive", "a", "", k4GiB, false, false},
                      TooLargeCase{"AboveFourGiBStoredIntoNewArchive", "a", "-z", k4GiB + 12345, false, false},
                      TooLargeCase{"AfterASmallSourceIntoNewArchive", "c", "", k4GiB, false, true},
                      TooLargeCase{"AfterASmallSourceIntoExistingArchive", "a", "-o7", k4GiB, true, true},
                      TooLargeCase{"UpdateOfExistingArchive", "u", "", k4GiB, true, true},
                      TooLargeCase{"MoveKeepsTheSources", "m", "", k4GiB, true, true}),
    [](const ::testing::TestParamInfo<TooLargeCase>& info) { return std::string(info.param.Label); });

}  // namespace
}  // namespace kzclitest
