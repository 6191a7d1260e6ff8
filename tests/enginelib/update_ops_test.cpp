// The library's update operations: members that stay come out byte for
// byte, and nothing is lost when an update cannot finish.
#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "enginelib/names.h"
#include "enginelib/safe_path.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;

const uint32_t kMemberTime = kztest::DosTime(2020, 1, 1, 12, 0, 0);

MemberSpec Stored(const std::string& name, const std::string& content) {
  return kztest::StoredSpec(name, content, kMemberTime);
}

using W = std::vector<std::wstring>;
W NamesIn(const fs::path& archive) { return Names(RawMembers(archive)); }

class UpdateTest : public ::testing::Test {
 protected:
  // Three members, optionally behind a stub; `second` replaces dir\m2.
  void MakeArchive(const Bytes& stub = {}, MemberSpec second = Stored("dir\\m2", "two")) {
    ArchiveBuilder b;
    if (!stub.empty()) b.Stub(stub);
    b.Member(Stored("m1", "one")).Member(second).Member(Stored("m3", "three")).End();
    b.WriteTo(archive());
    old_ = b.Bytes();
    Reopen();
  }
  void SetUp() override { ASSERT_EQ(engine_.Init(), 0); }
  void Reopen() { ASSERT_EQ(engine_.InitArchive(EnginePath(archive()).c_str(), 0, 0), 0); }
  fs::path archive() const { return dir_ / "arc.lzh"; }
  fs::path src() const { return dir_ / "src"; }
  void Source(const std::string& rel, const std::string& content, int64_t time = 0) {
    kztest::WriteFile(src() / rel, content);
    if (time != 0) SetModificationTime(src() / rel, time);
  }
  HRESULT Add(const std::vector<std::wstring>& items, uint32_t flags = 0, bool base = true) {
    return kztest::AddItems(engine_, base ? src() : fs::path(), items, flags);
  }
  HRESULT Delete(const std::vector<std::wstring>& names, intptr_t flags = KZ_SELECT_EXACT) {
    return kztest::DeleteItems(engine_, names, flags);
  }
  void ExpectUntouched() {
    EXPECT_EQ(kztest::ReadFile(archive()), old_);
    EXPECT_FALSE(HasTempFiles(dir_.path()));
  }

  TempDir dir_;
  KzLhaArchiver engine_;
  Bytes old_;
};

TEST_F(UpdateTest, UpdateReplacesOnlyMembersWithANewerSource) {
  MakeArchive();
  const int64_t memberTime = kz::DosToUnixTime(kMemberTime);
  Source("m1", "older", memberTime - 100);
  Source("m3", "same second", memberTime + 1);  // DOS times keep even seconds: not newer
  ASSERT_EQ(Add({L"m1", L"m3"}, KZ_ADD_UPDATE), 0);
  ExpectUntouched();  // nothing newer: the archive was not rewritten
  kztest::WriteFile(dir_ / "old.lzh", old_);

  // A newer source replaces its member whatever the case and separators of its name.
  Source("DIR/M2", "newer", memberTime + 100);
  ASSERT_EQ(Add({L"m1", L"DIR/M2", L"m3"}, KZ_ADD_UPDATE), 0);
  auto after = RawMembers(archive());
  EXPECT_EQ(Names(after), (W{L"m1", L"m3", L"DIR\\M2"}));
  const auto before = RawMembers(dir_ / "old.lzh");
  for (const wchar_t* kept : {L"m1", L"m3"}) EXPECT_EQ(*FindRaw(after, kept), *FindRaw(before, kept));
  EXPECT_EQ(Contents(archive())[L"DIR\\M2"], "newer");
}

TEST_F(UpdateTest, CreateRebuildsTheArchiveFromTheSourcesAlone) {
  MakeArchive(Bytes(100, 'S'));
  Source("only", "o");
  ASSERT_EQ(Add({L"only"}, KZ_ADD_CREATE), 0);
  EXPECT_EQ(NamesIn(archive()), (W{L"only"}));
  EXPECT_EQ(engine_.FirstHeaderPos, 0u);
}

TEST_F(UpdateTest, ANewArchiveIsCreatedOnlyWhenThereIsAFileToAdd) {
  Reopen();
  fs::create_directories(src() / "empty");
  ASSERT_EQ(Add({L"empty"}), 0);
  EXPECT_FALSE(fs::exists(archive()));
  Source("f", "x");
  ASSERT_EQ(Add({L"f"}), 0);
  EXPECT_EQ(NamesIn(archive()), (W{L"f"}));
  EXPECT_EQ(engine_.NewArchive, 0u);
  // The object now knows the archive exists: a second add appends.
  Source("g", "y");
  ASSERT_EQ(Add({L"g"}), 0);
  EXPECT_EQ(NamesIn(archive()), (W{L"f", L"g"}));
}

#ifndef _WIN32  // links and a FIFO among the sources
TEST_F(UpdateTest, DirectoriesAreWalkedSortedWithoutFollowingLinksToDirectories) {
  Reopen();
  for (const char* f : {"tree/b.txt", "tree/a.txt", "tree/sub/z.txt"}) Source(f, f);
  fs::create_directories(src() / "tree" / "empty");
  fs::create_symlink(src() / "tree" / "a.txt", src() / "tree" / "c-link.txt");
  fs::create_symlink(src() / "tree", src() / "tree" / "loop");
  ASSERT_EQ(mkfifo((src() / "tree" / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(Add({L"tree"}), 0);
  EXPECT_EQ(NamesIn(archive()), (W{L"tree\\a.txt", L"tree\\b.txt", L"tree\\c-link.txt", L"tree\\sub\\z.txt"}));
  EXPECT_EQ(Contents(archive())[L"tree\\c-link.txt"], "tree/a.txt");
}
#endif

TEST_F(UpdateTest, ExcludedNamesAreLeftOut) {
  Reopen();
  for (const char* f : {"p/keep.c", "p/drop.o", "p/skipdir/x.c"}) Source(f, "x");
  for (const wchar_t* pattern : {L"*.o", L"p\\skipdir"}) {
    ASSERT_EQ(engine_.SetOptions(KZ_OPT_EXCLUDE, reinterpret_cast<intptr_t>(pattern), 0), 0);
  }
  ASSERT_EQ(Add({L"p"}), 0);
  EXPECT_EQ(NamesIn(archive()), (W{L"p\\keep.c"}));
}

TEST_F(UpdateTest, NamesAreRelativeToTheBaseDirectory) {
  Reopen();
  Source("d/f.txt", "f");
  std::wstring absolute = EnginePath(src() / "d" / "f.txt");
  struct Case { std::wstring item; bool base; uint32_t paths; std::wstring name; } cases[] = {
      {L"d/f.txt", true, KZ_PATHS_RELATIVE, L"d\\f.txt"},
      {absolute, true, KZ_PATHS_RELATIVE, L"d\\f.txt"},
      {absolute, false, KZ_PATHS_RELATIVE, kz::MakeRelativeName(absolute.c_str())},
      {L"d/f.txt", true, KZ_PATHS_NONE, L"f.txt"},
  };
  for (const Case& c : cases) {
    fs::remove(archive());
    Reopen();
    ASSERT_EQ(engine_.SetOptions(KZ_OPT_PATHS, c.paths, 0), 0);
    ASSERT_EQ(Add({c.item}, 0, c.base), 0) << kztest::Narrow(c.item);
    EXPECT_EQ(NamesIn(archive()), (W{c.name})) << kztest::Narrow(c.item);
  }
}

TEST_F(UpdateTest, TheArchiveIsNeverAddedToItself) {
  fs::create_directories(src());
  ArchiveBuilder().Member(Stored("m1", "one")).End().WriteTo(src() / "self.lzh");
  ASSERT_EQ(engine_.InitArchive(EnginePath(src() / "self.lzh").c_str(), 0, 0), 0);
  Source("f", "x");
  ASSERT_EQ(Add({L"."}), 0);
  EXPECT_EQ(NamesIn(src() / "self.lzh"), (W{L"m1", L"f"}));
}

TEST_F(UpdateTest, MoveDeletesTheAddedSourcesOnlyOnceTheArchiveIsInPlace) {
  MakeArchive();
  for (const char* f : {"mv/a", "mv/b"}) Source(f, f);
  ASSERT_EQ(Add({L"mv"}, KZ_ADD_MOVE), 0);
  EXPECT_EQ(kztest::Tree(src()), (std::vector<std::string>{"mv/"}));  // directories stay
  EXPECT_EQ(Contents(archive())[L"mv\\b"], "mv/b");
}

// A move too: its sources go only once the archive is in place.
TEST_F(UpdateTest, AMissingSourceStopsTheUpdateAndNamesTheSource) {
  MakeArchive();
  Source("here", "h");
  for (uint32_t flags : {0u, uint32_t{KZ_ADD_MOVE}}) {
    EXPECT_EQ(Add({L"here", L"gone"}, flags), kz::HresultFromWin32(ERROR_FILE_NOT_FOUND)) << flags;
    ASSERT_NE(engine_.ErrorFileName, nullptr);
    EXPECT_EQ(engine_.ErrorFileName, EnginePath(src() / "gone"));
    ExpectUntouched();
    EXPECT_TRUE(fs::exists(src() / "here"));
  }
}

TEST_F(UpdateTest, AStopFromProgressLeavesTheOldArchive) {
  MakeArchive();
  Source("big", std::string(300000, 'b'));
  uint64_t stopPast = 100000;
  KzCallbacks cb{};
  cb.Size = sizeof cb;
  cb.Progress = [](void* limit, const wchar_t*, uint64_t done, uint64_t) -> int {
    return done >= *static_cast<uint64_t*>(limit);
  };
  engine_.SetCallbacks(&cb, &stopPast);
  EXPECT_EQ(Add({L"big"}), KZ_E_ABORT);
  ExpectUntouched();
  stopPast = 0;  // a delete reports its way through the archive, and stops too
  EXPECT_EQ(Delete({L"m1"}), KZ_E_ABORT);
  ExpectUntouched();
}

TEST_F(UpdateTest, DeletingNothingLeavesTheArchiveAndWarns) {
  MakeArchive();
  EXPECT_EQ(Delete({L"nope"}), 0);
  ExpectUntouched();
  bool warned = false;
  for (void* item : KzListItems(engine_.GetLogList())) {
    const auto* e = static_cast<const KzLogEntry*>(item);
    warned |= e->Level == KZ_LOG_WARNING && std::wstring(e->Text).find(L"no member matched") == 0;
  }
  EXPECT_TRUE(warned);
  // Selection flags reach the delete: the case of a name can be ignored.
  ASSERT_EQ(Delete({L"DIR/M2"}, KZ_SELECT_NOCASE), 0);
  EXPECT_EQ(NamesIn(archive()), (W{L"m1", L"m3"}));
}

TEST_F(UpdateTest, AnArchiveWithAnUnreadableHeaderInsideIsLeftAlone) {
  MemberSpec broken = Stored("m2", "two");
  broken.checksumDelta = 1;
  MakeArchive({}, broken);
  Source("x", "x");
  EXPECT_EQ(Add({L"x"}), KZ_ARC_E_BADHEADER);
  ExpectUntouched();
  EXPECT_EQ(Delete({L"m1"}), KZ_ARC_E_BADHEADER);
  ExpectUntouched();
}

TEST_F(UpdateTest, AnArchiveThatEndsInsideAMemberIsLeftAlone) {
  ArchiveBuilder b;
  b.Member(Stored("m1", "one")).Member(Stored("m2", std::string(1000, 'x')));
  Bytes cut(b.Bytes().begin(), b.Bytes().end() - 10);
  kztest::WriteFile(archive(), cut);
  old_ = cut;
  Reopen();
  EXPECT_EQ(Delete({L"m1"}), kz::HresultFromWin32(ERROR_HANDLE_EOF));
  ExpectUntouched();
}

#ifndef _WIN32  // POSIX modes and a link to the archive
TEST_F(UpdateTest, TheArchiveKeepsItsPermissionsAndALinkToItStaysALink) {
  fs::create_directories(dir_ / "real");
  ArchiveBuilder().Member(Stored("m1", "one")).Member(Stored("m2", "two")).End().WriteTo(dir_ / "real" / "arc.lzh");
  chmod((dir_ / "real" / "arc.lzh").c_str(), 0640);
  fs::create_symlink(dir_ / "real" / "arc.lzh", archive());
  Reopen();
  ASSERT_EQ(Delete({L"m1"}), 0);
  EXPECT_TRUE(fs::is_symlink(archive()));
  EXPECT_EQ(NamesIn(dir_ / "real" / "arc.lzh"), (W{L"m2"}));
  struct stat st;
  ASSERT_EQ(stat((dir_ / "real" / "arc.lzh").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_FALSE(HasTempFiles(dir_ / "real"));
  EXPECT_EQ(engine_.ArchivePath.c_str(), EnginePath(archive()));
}
#endif

TEST_F(UpdateTest, AnArchiveThatAppearedAfterOpeningIsNotTakenOver) {
  Reopen();  // opened as new
  kztest::WriteFile(archive(), std::string("someone else's file"));
  old_ = kztest::ReadFile(archive());
  Source("f", "x");
  EXPECT_EQ(Add({L"f"}), kz::HresultFromWin32(ERROR_FILE_EXISTS));
  ExpectUntouched();
}

// ---- through the engine, on archives made by other tools

// What an independent tool makes of a member.
std::string OracleContent(const fs::path& archive, const std::string& name) {
  return kztest::Run({"lhasa", "pq", archive.string(), name}).Out;
}

struct EngineArchive {
  const char* what;
  std::string shared;  // under the shared archives, or "" for a jlha archive
  int jlhaLevel;
};

void PrintTo(const EngineArchive& c, std::ostream* os) { *os << c.what; }

class EngineUpdateTest : public ::testing::TestWithParam<EngineArchive> {
 protected:
  void SetUp() override {
    if (!kztest::HaveTool("lhasa")) GTEST_SKIP() << "lhasa is not installed";
    const EngineArchive& c = GetParam();
    if (c.shared.empty()) {
      if (!kztest::HaveTool("jlha")) GTEST_SKIP() << "jlha is not installed";
      kztest::WriteFile(dir_ / "j" / "a.txt", std::string("hello\n"));
      kztest::WriteFile(dir_ / "j" / "d" / "b.txt", kztest::TextBytes(20000, 5));
      kztest::WriteFile(dir_ / "j" / "c.bin", kztest::RandomBytes(3000, 9));
      auto r = kztest::Run({"jlha", "c" + std::to_string(c.jlhaLevel), "../arc.lzh", "a.txt", "d/b.txt", "c.bin"},
                           (dir_ / "j").string());
      ASSERT_EQ(r.ExitCode, 0) << r.Err;
    } else {
      archive_ = dir_ / ("arc" + fs::path(c.shared).extension().string());
      fs::copy_file(kztest::SharedArchive(c.shared), archive_);
    }
    old_ = kztest::ReadFile(archive_);
    members_ = RawMembers(archive_);
    ASSERT_FALSE(members_.empty());
    ASSERT_EQ(kztest::OpenArchive(engine_, archive_), 0);
  }
  // Every member of the original but `except` is in the archive, byte for
  // byte, and so is the stub before the first header.
  void ExpectOthersIdentical(const std::wstring& except, const char* step) {
    SCOPED_TRACE(step);
    const auto after = RawMembers(archive_);
    for (const auto& m : members_) {
      if (kz::SameMemberName(m.Name.c_str(), except.c_str())) continue;
      const Bytes* now = FindRaw(after, m.Name);
      ASSERT_NE(now, nullptr) << kztest::Narrow(m.Name);
      EXPECT_EQ(*now, m.Raw) << kztest::Narrow(m.Name);
    }
    const Bytes bytes = kztest::ReadFile(archive_);
    const auto stub = static_cast<ptrdiff_t>(engine_.FirstHeaderPos);
    ASSERT_GE(bytes.size(), static_cast<size_t>(stub));
    EXPECT_TRUE(std::equal(old_.begin(), old_.begin() + stub, bytes.begin()));
    EXPECT_EQ(kztest::Run({"lhasa", "t", archive_.string()}).ExitCode, 0);
  }
  HRESULT Add(const std::string& item, const std::string& content, uint32_t flags, int64_t time = 0) {
    kztest::WriteFile(dir_ / "src" / item, content);
    if (time != 0) SetModificationTime(dir_ / "src" / item, time);
    return kztest::AddItems(engine_, dir_ / "src", {kztest::Wide(item)}, flags);
  }

  TempDir dir_;
  fs::path archive_ = dir_ / "arc.lzh";
  KzLhaArchiver engine_;
  Bytes old_;
  std::vector<kztest::RawMember> members_;
};

// Update, replace, add, delete one and delete all, in turn on one archive
// made by another tool.
TEST_P(EngineUpdateTest, EveryUntouchedMemberStaysByteForByte) {
  const auto file = std::find_if(members_.begin(), members_.end(), [](const auto& m) { return m.File; });
  const std::wstring victim = file == members_.end() ? L"" : file->Name;
  std::string rel = kztest::Narrow(victim);
  std::replace(rel.begin(), rel.end(), '\\', '/');
  if (!victim.empty()) {
    ASSERT_EQ(Add(rel, "older", KZ_ADD_UPDATE, 315532800), 0);  // 1980-01-01: older than any member
    EXPECT_EQ(kztest::ReadFile(archive_), old_);
    ASSERT_EQ(Add(rel, "replaced by kzlha", KZ_ADD_REPLACE), 0);
    ExpectOthersIdentical(victim, "replace");
    EXPECT_EQ(RawMembers(archive_).size(), members_.size());
    EXPECT_EQ(OracleContent(archive_, rel), "replaced by kzlha");
  }
  const Bytes added = kztest::TextBytes(9000, 1);
  ASSERT_EQ(Add("added.txt", std::string(added.begin(), added.end()), KZ_ADD_REPLACE), 0);
  ExpectOthersIdentical(victim, "add");
  EXPECT_TRUE(OracleContent(archive_, "added.txt") == std::string(added.begin(), added.end()));
  if (!victim.empty()) {
    ASSERT_EQ(kztest::DeleteItems(engine_, {victim}, KZ_SELECT_EXACT), 0);
    ExpectOthersIdentical(victim, "delete");
    EXPECT_EQ(RawMembers(archive_).size(), members_.size());  // one gone, one added
  }
  const HRESULT all = kztest::DeleteItems(engine_, {L"*"}, KZ_SELECT_WILDCARD);
  EXPECT_FALSE(HasTempFiles(dir_.path()));
  if (engine_.FirstHeaderPos > 0) {  // a stub is more than an empty archive: it stays
    EXPECT_EQ(all, 0);
    Bytes stubAndEnd(old_.begin(), old_.begin() + static_cast<ptrdiff_t>(engine_.FirstHeaderPos));
    stubAndEnd.push_back(0);
    EXPECT_EQ(kztest::ReadFile(archive_), stubAndEnd);
    return;
  }
  EXPECT_EQ(all, KZ_ARC_E_EMPTYARCHIVE);
  EXPECT_FALSE(fs::exists(archive_));
  EXPECT_EQ(engine_.ErrorFileName, EnginePath(archive_));
  EXPECT_EQ(engine_.NewArchive, 1u);
}

INSTANTIATE_TEST_SUITE_P(
    OtherTools, EngineUpdateTest,
    ::testing::Values(EngineArchive{"unix_level0_lh5", "lha_unix114i/h0_lh5.lzh", 0},
                      EngineArchive{"unix_level1_subdir", "lha_unix114i/h1_subdir.lzh", 0},
                      EngineArchive{"unix_level2_subdir", "lha_unix114i/h2_subdir.lzh", 0},
                      EngineArchive{"unix_level2_lh7", "lha_unix114i/h2_lh7.lzh", 0},
                      EngineArchive{"unix_level1_symlink", "lha_unix114i/h1_symlink2.lzh", 0},
                      EngineArchive{"amiga_level2", "lha_amiga_122/level2.lzh", 0},
                      EngineArchive{"amiga_subdir", "lha_amiga_122/subdir.lzh", 0},
                      EngineArchive{"dos_lha213_subdir", "lha213/subdir.lzh", 0},
                      EngineArchive{"dos_lha213_sfx", "lha213/sfx.exe", 0},
                      EngineArchive{"dos_lharc_lh1", "lharc113/lh1.lzh", 0},
                      EngineArchive{"jlha_level0", "", 0}, EngineArchive{"jlha_level1", "", 1},
                      EngineArchive{"jlha_level2", "", 2}),
    kztest::CaseNameFromWhat());

}  // namespace
