// Extraction and test through the library's per-item operations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "enginelib/names.h"
#include "platform/fs.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;
MemberSpec Stored(const std::string& name, const std::string& content, uint32_t time = 0) {
  return kztest::StoredSpec(name, content, time);
}
// A member whose data fails its CRC, one of an unknown method, a directory.
MemberSpec Damaged(const std::string& name, const std::string& content) {
  MemberSpec m = Stored(name, content);
  m.crc ^= 1;
  return m;
}
MemberSpec Unknown(const std::string& name) {
  MemberSpec m = Stored(name, "???");
  m.method = "-lh9-";
  return m;
}
MemberSpec Directory(const std::string& name, uint32_t time = 0) {
  MemberSpec m = Stored(name, "", time);
  m.attributes = 0x10;
  return m;
}
using Names = std::vector<std::string>;

// What the host's callbacks saw and what they answer.
struct Host {
  std::vector<int> replies;
  std::vector<std::wstring> asked;
  std::vector<std::pair<uint64_t, uint64_t>> progress;
  std::map<std::wstring, std::string> data;
  size_t stopAfterProgress = SIZE_MAX, stopAfterData = SIZE_MAX;

  void Attach(KzArchiver& a, bool ask) {
    KzCallbacks cb{};
    cb.Size = sizeof cb;
    cb.Progress = [](void* c, const wchar_t*, uint64_t done, uint64_t total) {
      auto* h = static_cast<Host*>(c);
      h->progress.emplace_back(done, total);
      return int{h->progress.size() > h->stopAfterProgress};
    };
    if (ask) {
      cb.AskOverwrite = [](void* c, const wchar_t* path, const LhaHeader*) {
        auto* h = static_cast<Host*>(c);
        h->asked.push_back(path);
        return h->asked.size() <= h->replies.size() ? h->replies[h->asked.size() - 1] : int{KZ_REPLY_SKIP};
      };
    }
    cb.Data = [](void* c, const LhaHeader* member, const void* bytes, size_t size) {
      auto* h = static_cast<Host*>(c);
      h->data[member->Name].append(static_cast<const char*>(bytes), size);
      return int{h->data.size() > h->stopAfterData};
    };
    a.SetCallbacks(&cb, this);
  }
};

// An archive in its own directory and a destination beside it.
class ExtractTest : public ::testing::Test {
 protected:
  void Make(std::initializer_list<MemberSpec> members) {
    ArchiveBuilder b;
    for (const MemberSpec& m : members) b.Member(m);
    b.End().WriteTo(dir_ / "a.lzh");
    ASSERT_EQ(kztest::OpenArchive(engine_, dir_ / "a.lzh"), 0);
  }
  HRESULT Extract(uint32_t flags = 0) { return kztest::ExtractAll(engine_, dest(), flags); }
  fs::path dest() const { return dir_ / "dest"; }
  std::string Read(const std::string& rel) {
    Bytes b = kztest::ReadFile(dest() / rel);
    return std::string(b.begin(), b.end());
  }

  TempDir dir_;
  KzLhaArchiver engine_;
};

TEST_F(ExtractTest, HostileNamesAllLandInsideTheDestination) {
  Make({Stored("..\\escape.txt", "1"), Stored("/abs/x.txt", "2"), Stored("C:\\drive.txt", "3"),
        Stored("a\\..\\..\\b.txt", "4"), Stored("ok/f.txt", "5"), Stored("..\\", "6"),
        Stored("\\\\?\\UNC\\srv\\share\\u.txt", "7")});
  EXPECT_EQ(Extract(), 0);
  EXPECT_EQ(Tree(dir_.path()), (Names{"a.lzh", "dest/", "dest/a/", "dest/a/b.txt", "dest/abs/", "dest/abs/x.txt",
                                      "dest/drive.txt", "dest/escape.txt", "dest/ok/", "dest/ok/f.txt", "dest/srv/",
                                      "dest/srv/share/", "dest/srv/share/u.txt"}));
  EXPECT_EQ(Read("escape.txt"), "1");
  EXPECT_EQ(Read("a/b.txt"), "4");
  EXPECT_TRUE(LogHas(engine_, L"nothing usable as a path"));
  EXPECT_TRUE(LogHas(engine_, L"\"..\" parts of the name were removed | ..\\escape.txt"));
}

TEST_F(ExtractTest, NothingIsWrittenThroughALinkInTheDestination) {
  fs::create_directories(dir_ / "outside");
  kztest::WriteFile(dir_ / "outside" / "victim", std::string("precious"));
  fs::create_directories(dest());
  fs::create_symlink(dir_ / "outside", dest() / "dirlink");
  fs::create_symlink(dir_ / "outside" / "victim", dest() / "filelink");
  Make({Stored("dirlink\\victim", "evil"), Stored("dirlink\\new.txt", "evil"), Stored("filelink", "evil"),
        Stored("fine.txt", "fine")});
  EXPECT_EQ(Extract(), KZ_ARC_E_UNSAFEPATH);
  ASSERT_NE(engine_.ErrorFileName, nullptr);
  EXPECT_STREQ(engine_.ErrorFileName, L"dirlink\\victim");  // the first refused member
  EXPECT_EQ(Tree(dir_ / "outside"), (Names{"victim"}));
  EXPECT_EQ(kztest::ReadFile(dir_ / "outside" / "victim"), ToBytes("precious"));
  EXPECT_TRUE(fs::is_symlink(dest() / "filelink"));
  EXPECT_EQ(Read("fine.txt"), "fine");
  EXPECT_FALSE(HasTempFiles(dir_.path()));
}

TEST_F(ExtractTest, SymbolicLinkMembersAreNeverCreated) {
  MemberSpec link = Stored("ln|/etc/passwd", "");
  link.method = "-lhd-";
  link.attributes = 0x10;
  Make({link, Stored("after.txt", "x")});
  EXPECT_EQ(Extract(), 0);
  EXPECT_EQ(Tree(dest()), (Names{"after.txt"}));
  EXPECT_TRUE(LogHas(engine_, L"symbolic link not extracted"));
}

struct OverwriteCase {
  const char* what;
  uint32_t option;
  bool callback;
  std::vector<int> replies;
  std::string expected;  // a b c d: N = new contents, O = old, - = absent
  size_t asked;
  HRESULT status;
};

void PrintTo(const OverwriteCase& c, std::ostream* os) { *os << c.what; }

class OverwriteTest : public ExtractTest, public ::testing::WithParamInterface<OverwriteCase> {};

TEST_P(OverwriteTest, PolicyAndRepliesDecide) {
  const OverwriteCase& c = GetParam();
  for (const char* n : {"a", "b", "c"}) kztest::WriteFile(dest() / n, std::string("old"));
  Make({Stored("a", "new"), Stored("b", "new"), Stored("c", "new"), Stored("d", "new")});
  Host host;
  host.replies = c.replies;
  host.Attach(engine_, c.callback);
  ASSERT_EQ(engine_.SetOptions(KZ_OPT_OVERWRITE, c.option, 0), 0);

  EXPECT_EQ(Extract(), c.status) << c.what;
  std::string got;
  for (const char* n : {"a", "b", "c", "d"}) got += !fs::exists(dest() / n) ? '-' : Read(n) == "new" ? 'N' : 'O';
  EXPECT_EQ(got, c.expected) << c.what;
  EXPECT_EQ(host.asked.size(), c.asked) << c.what;
  EXPECT_FALSE(HasTempFiles(dir_.path())) << c.what;
  if (!c.callback) {
    EXPECT_TRUE(LogHas(engine_, L"no one to ask; skipped | " + EnginePath(dest() / "a"))) << c.what;
  }
  if (c.status == KZ_E_ABORT) {
    ASSERT_NE(engine_.ErrorFileName, nullptr);
    EXPECT_EQ(engine_.ErrorFileName, EnginePath(dest() / "b"));
  }
}

constexpr uint32_t kAsk = KZ_OVERWRITE_ASK;
INSTANTIATE_TEST_SUITE_P(
    Replies, OverwriteTest,
    ::testing::Values(
        OverwriteCase{"all", KZ_OVERWRITE_ALL, true, {}, "NNNN", 0, 0},
        OverwriteCase{"skip", KZ_OVERWRITE_SKIP, true, {}, "OOON", 0, 0},
        OverwriteCase{"ask without callback", kAsk, false, {}, "OOON", 0, 0},
        OverwriteCase{"ask: overwrite, skip, overwrite", kAsk, true,
                      {KZ_REPLY_OVERWRITE, KZ_REPLY_SKIP, KZ_REPLY_OVERWRITE}, "NONN", 3, 0},
        OverwriteCase{"ask: skip all", kAsk, true, {KZ_REPLY_SKIP_ALL}, "OOON", 1, 0},
        OverwriteCase{"ask: overwrite all", kAsk, true, {KZ_REPLY_OVERWRITE_ALL}, "NNNN", 1, 0},
        OverwriteCase{"ask: unknown reply skips", kAsk, true, {77, 77, 77}, "OOON", 3, 0},
        OverwriteCase{"ask: overwrite, cancel", kAsk, true, {KZ_REPLY_OVERWRITE, KZ_REPLY_CANCEL}, "NOO-", 2,
                      KZ_E_ABORT}));

// A failed member leaves no file, under a free name ("new") or beside an
// older file ("bad", kept); the run goes on and names the first failure.
TEST_F(ExtractTest, FailedMembersLeaveNothingAndTheRunGoesOn) {
  kztest::WriteFile(dest() / "bad", std::string("old"));
  Make({Stored("good1", "1"), Damaged("bad", "corrupted"), Unknown("unknown"),
        Damaged("new", "corrupted too"), Stored("good2", "2")});
  ASSERT_EQ(engine_.SetOptions(KZ_OPT_OVERWRITE, KZ_OVERWRITE_ALL, 0), 0);
  EXPECT_EQ(Extract(), KZ_E_CRC);
  ASSERT_NE(engine_.ErrorFileName, nullptr);
  EXPECT_STREQ(engine_.ErrorFileName, L"bad");
  EXPECT_EQ(Tree(dest()), (Names{"bad", "good1", "good2"}));
  EXPECT_EQ(Read("bad"), "old");
  EXPECT_EQ(Read("good2"), "2");
  for (const wchar_t* m : {L"bad", L"unknown", L"new"}) {
    EXPECT_TRUE(LogHas(engine_, L"going on with the next | " + std::wstring(m)));
  }
  EXPECT_FALSE(HasTempFiles(dir_.path()));
}

TEST_F(ExtractTest, KeepDamagedKeepsTheOutputOfAFailedMember) {
  Make({Damaged("bad", "corrupted"), Stored("good", "g")});
  ASSERT_EQ(engine_.SetOptions(KZ_OPT_KEEP_DAMAGED, 1, 0), 0);
  EXPECT_EQ(Extract(), KZ_E_CRC);
  EXPECT_EQ(Read("bad"), "corrupted");
  EXPECT_EQ(Read("good"), "g");
  EXPECT_TRUE(LogHas(engine_, L"damaged member kept"));
  EXPECT_FALSE(HasTempFiles(dir_.path()));
}

TEST_F(ExtractTest, TimesAndPermissionsAreRestoredDirectoriesLast) {
  const uint32_t dirTime = kztest::DosTime(2001, 2, 3, 4, 5, 6);
  const uint32_t fileTime = kztest::DosTime(1999, 12, 31, 23, 59, 58);
  MemberSpec ro = Stored("d\\ro.txt", "r", fileTime);
  ro.attributes = 0x21;  // read-only
  Make({Directory("d", dirTime), ro, Stored("d\\rw.txt", "w", fileTime)});
  EXPECT_EQ(Extract(), 0);
  auto entry = [](const fs::path& p) {
    kz::fs::EntryInfo info;
    EXPECT_TRUE(kz::fs::QueryEntry(EnginePath(p).c_str(), info));
    return info;
  };
  EXPECT_EQ(entry(dest() / "d").ModTime, kz::DosToUnixTime(dirTime));  // not moved by the files written into it
  EXPECT_EQ(entry(dest() / "d" / "ro.txt").ModTime, kz::DosToUnixTime(fileTime));
  EXPECT_EQ(entry(dest() / "d" / "ro.txt").Permissions & 0777, 0444u);
  EXPECT_EQ(entry(dest() / "d" / "rw.txt").Permissions & 0777, 0644u);
}

TEST_F(ExtractTest, ProgressEndsAtTheTotalAcrossSkippedAndDirectoryMembers) {
  kztest::WriteFile(dest() / "skipped", std::string("old"));
  Make({Stored("one", "1111111"), Stored("skipped", "22"), Directory("d"), Damaged("bad", "bbbb"),
        Stored("last", "333")});
  Host host;
  host.Attach(engine_, false);
  EXPECT_EQ(Extract(), KZ_E_CRC);
  ASSERT_FALSE(host.progress.empty());
  const uint64_t total = 7 + 2 + 4 + 3;
  uint64_t previous = 0;
  for (auto [done, all] : host.progress) {
    EXPECT_EQ(all, total);
    EXPECT_GE(done, previous);
    EXPECT_LE(done, total);
    previous = done;
  }
  EXPECT_EQ(host.progress.back().first, total);
}

TEST_F(ExtractTest, AStopFromProgressEndsTheRunWithoutAPartialFile) {
  Make({Stored("big", std::string(200000, 'x')), Stored("after", "a")});
  Host host;
  host.stopAfterProgress = 1;  // during the second chunk of "big"
  host.Attach(engine_, false);
  EXPECT_EQ(Extract(), KZ_E_ABORT);
  EXPECT_TRUE(Tree(dest()).empty());
}

TEST_F(ExtractTest, ToCallbackHandsTheDataOverAndCreatesNothing) {
  Make({Stored("a\\one", "first"), Stored("../two", "second")});
  Host host;
  host.Attach(engine_, false);
  EXPECT_EQ(Extract(KZ_EXTRACT_TO_CALLBACK), 0);
  EXPECT_FALSE(fs::exists(dest()));
  EXPECT_EQ(host.data[L"a\\one"], "first");
  EXPECT_EQ(host.data[L"..\\two"], "second");

  host.data.clear();
  host.stopAfterData = 0;  // stop at the first block
  EXPECT_EQ(Extract(KZ_EXTRACT_TO_CALLBACK), KZ_E_ABORT);
  EXPECT_EQ(host.data.size(), 1u);
}

TEST_F(ExtractTest, TestModeDecodesEveryMemberAndWritesNothing) {
  Make({Stored("../a", "1"), Damaged("bad", "b"), Unknown("c")});
  for (bool emptyList : {false, true}) {
    KzList* none = emptyList ? kztest::NamesList({}) : nullptr;
    EXPECT_EQ(engine_.TestArchive(none, 0), KZ_E_CRC);
    KzList::Free(none);
    EXPECT_STREQ(engine_.ErrorFileName, L"bad");
    EXPECT_TRUE(LogHas(engine_, L"going on with the next | c"));  // the run went past "bad"
  }
  EXPECT_EQ(Tree(dir_.path()), (Names{"a.lzh"}));
}

TEST_F(ExtractTest, AFileInTheWayOfADirectoryRefusesOnlyThatMember) {
  kztest::WriteFile(dest() / "d", std::string("a file"));
  Make({Stored("d\\inside.txt", "x"), Stored("other.txt", "o")});
  EXPECT_EQ(Extract(), kz::HresultFromWin32(ERROR_DIRECTORY));
  EXPECT_EQ(Tree(dest()), (Names{"d", "other.txt"}));
}

TEST_F(ExtractTest, AnOutputThatCannotBeCreatedEndsTheRunAndNamesTheFile) {
  fs::create_directories(dest() / "sub");
  Make({Stored("sub\\x.txt", "x"), Stored("y.txt", "y")});
  kz::fault::Arm(1, kz::fault::kCreate);  // the first file created: x.txt's
  HRESULT hr = Extract();
  kz::fault::Disarm();
  EXPECT_EQ(hr, kz::HresultFromWin32(ERROR_GEN_FAILURE));
  EXPECT_EQ(engine_.ErrorFileName, EnginePath(dest() / "sub" / "x.txt"));
  EXPECT_EQ(Tree(dest()), (Names{"sub/"}));
}

// ---- through the engine, on the hostile and damaged archives

struct RegressionCase {
  const char* file;
  Names links;                         // planted in the destination, pointing outside
  Names tree;                          // the destination afterwards
  HRESULT status;                      // 1: any failure
  const wchar_t* errorFile = nullptr;  // the member a failure names
};

void PrintTo(const RegressionCase& c, std::ostream* os) {
  *os << c.file << (c.links.empty() ? "" : " with planted links");
}

class RegressionTest : public ::testing::TestWithParam<RegressionCase> {};

TEST_P(RegressionTest, NothingLeavesTheDestination) {
  const RegressionCase& c = GetParam();
  TempDir box;
  fs::create_directories(box / "outside");
  kztest::WriteFile(box / "outside" / "victim", std::string("precious"));
  fs::create_directories(box / "dest");
  for (const std::string& link : c.links) fs::create_symlink(box / "outside", box / "dest" / link);
  fs::copy_file(kztest::SharedArchive(std::string("regression/") + c.file), box / "arc.lzh");

  KzLhaArchiver a;
  ASSERT_EQ(kztest::OpenArchive(a, box / "arc.lzh"), 0);
  HRESULT hr = kztest::ExtractAll(a, box / "dest");

  if (c.status == 1) {
    EXPECT_LT(hr, 0);
    ASSERT_NE(a.ErrorFileName, nullptr);
    EXPECT_STREQ(a.ErrorFileName, c.errorFile);
  } else {
    EXPECT_EQ(hr, c.status);
  }
  EXPECT_EQ(Tree(box / "outside"), (Names{"victim"}));
  EXPECT_EQ(kztest::ReadFile(box / "outside" / "victim"), ToBytes("precious"));
  for (const std::string& e : Tree(box.path())) {
    EXPECT_TRUE(e == "arc.lzh" || e.rfind("dest/", 0) == 0 || e.rfind("outside/", 0) == 0) << e;
  }
  EXPECT_EQ(Tree(box / "dest"), c.tree);  // names with no terminal escape left in them
  EXPECT_FALSE(HasTempFiles(box / "dest"));
}

INSTANTIATE_TEST_SUITE_P(
    Archives, RegressionTest,
    ::testing::Values(
        RegressionCase{"abspath.lzh", {}, {"tmp/", "tmp/absolute_path.txt"}, 0},
        RegressionCase{"dotdot.lzh", {}, {"evil1.txt", "foo/", "foo/evil2.txt"}, 0},
        RegressionCase{"symlink1.lzh", {}, {"foo.txt"}, 0},
        RegressionCase{"symlink1.lzh", {"foo.txt"}, {"foo.txt@"}, KZ_ARC_E_UNSAFEPATH},
        RegressionCase{"symlink2.lzh", {}, {"etc/", "etc/passwd"}, 0},
        RegressionCase{"symlink2.lzh", {"etc"}, {"etc@"}, KZ_ARC_E_UNSAFEPATH},
        RegressionCase{"symlink3.lzh", {}, {"etc/", "etc/passwd"}, 0},
        RegressionCase{"symlink3.lzh", {"etc"}, {"etc@"}, KZ_ARC_E_UNSAFEPATH},
        RegressionCase{"unixsep.lzh", {}, {"SUBDIR/", "SUBDIR/SUBDIR2/", "SUBDIR/SUBDIR2/HELLO.TXT"}, 0},
        RegressionCase{"dir.lzh", {}, {"dir/"}, 0},
        RegressionCase{"multiple.lzh", {}, {"file1.txt", "file2-1.txt", "file2-2.txt", "file3.txt", "file4.txt"}, 0},
        RegressionCase{"truncated.lzh", {}, {}, 1, L"GPL-2"},
        RegressionCase{"badterm.lzh", {}, {"tmp/", "tmp/_]2;malicious__"}, 0}));

}  // namespace
