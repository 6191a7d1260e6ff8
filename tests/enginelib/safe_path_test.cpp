// Member names made into paths; file-system calls that never act through a link.
#include "enginelib/safe_path.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <filesystem>
#include <functional>
#include <string>

#include "enginelib/file_stream.h"
#include "platform/fs.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using kztest::EnginePath;
using kztest::TempDir;

struct SanitizeCase { const wchar_t* name; uint32_t mode; const wchar_t* path; bool dropped; };

void PrintTo(const SanitizeCase& c, std::ostream* os) { *os << kztest::Narrow(c.name); }

class SanitizeTest : public ::testing::TestWithParam<SanitizeCase> {};

TEST_P(SanitizeTest, StaysBelowTheDestination) {
  const SanitizeCase& c = GetParam();
  kz::SanitizeResult r = kz::SanitizeMemberPath(c.name, c.mode);
  EXPECT_EQ(r.Path, c.path);
  EXPECT_EQ(r.Dropped, c.dropped);
  // Whatever came in, no component of what goes out can be empty, climb or root.
  if (r.Path.empty()) return;
  const std::wstring wrapped = L"\\" + r.Path + L"\\";
  for (const wchar_t* bad : {L"\\\\", L"\\..\\", L"\\.\\"}) EXPECT_EQ(wrapped.find(bad), std::wstring::npos);
}

constexpr uint32_t R = KZ_PATHS_RELATIVE;
constexpr uint32_t N = KZ_PATHS_NONE;

INSTANTIATE_TEST_SUITE_P(
    Names, SanitizeTest,
    ::testing::Values(
        SanitizeCase{L"a\\b.txt", R, L"a\\b.txt", false}, SanitizeCase{L"a/b.txt", R, L"a\\b.txt", false},
        SanitizeCase{L"/etc/passwd", R, L"etc\\passwd", true}, SanitizeCase{L"\\etc\\passwd", R, L"etc\\passwd", true},
        SanitizeCase{L"C:\\Windows\\win.ini", R, L"Windows\\win.ini", true},
        SanitizeCase{L"c:relative.txt", R, L"relative.txt", true}, SanitizeCase{L"\\\\?\\C:\\x\\y", R, L"x\\y", true},
        SanitizeCase{L"\\\\?\\UNC\\server\\share\\f", R, L"server\\share\\f", true},
        SanitizeCase{L"\\\\?\\unc\\server\\f", R, L"server\\f", true},
        SanitizeCase{L"\\\\.\\pipe\\x", R, L"pipe\\x", true},
        SanitizeCase{L"\\\\server\\share\\f", R, L"server\\share\\f", true},
        SanitizeCase{L"//server/share/f", R, L"server\\share\\f", true},
        SanitizeCase{L"..\\..\\etc\\x", R, L"etc\\x", true}, SanitizeCase{L"a\\..\\..\\b", R, L"a\\b", true},
        SanitizeCase{L"a/../../../../tmp/x", R, L"a\\tmp\\x", true}, SanitizeCase{L"./a/./b", R, L"a\\b", false},
        SanitizeCase{L"a//b\\\\c\\", R, L"a\\b\\c", false}, SanitizeCase{L"a\\...\\b", R, L"a\\b", true},
        SanitizeCase{L"a\\.. \\b", R, L"a\\b", true}, SanitizeCase{L"..", R, L"", true},
        SanitizeCase{L"\\", R, L"", true}, SanitizeCase{L"C:", R, L"", true}, SanitizeCase{L"", R, L"", false},
        SanitizeCase{L"x\x1b[31my", R, L"x_[31my", false}, SanitizeCase{L"tab\there\nline", R, L"tab_here_line", false},
        SanitizeCase{L"del\x7f", R, L"del_", false}, SanitizeCase{L"csi\x9b" L"2J", R, L"csi_2J", false},
        SanitizeCase{L".hidden\\f", R, L".hidden\\f", false}, SanitizeCase{L"dir\\sub\\f.txt", N, L"f.txt", false},
        SanitizeCase{L"../../x", N, L"x", true}, SanitizeCase{L"dir\\", N, L"dir", false},
        SanitizeCase{L"/abs/..", N, L"abs", true}));

TEST(SafePathTest, ArchiveNamesLoseRootsAndClimbsButKeepTheirCharacters) {
  struct Case {
    const wchar_t* path;
    const wchar_t* name;
  } cases[] = {{L"/home/u/a.txt", L"home\\u\\a.txt"}, {L"C:\\x\\y", L"x\\y"}, {L"\\\\?\\C:\\x", L"x"},
               {L"./a", L"a"}, {L"../a", L"a"}, {L"a/./b/../c", L"a\\b\\c"}, {L"x\x01y", L"x\x01y"},
               {L"dir/", L"dir"}, {L"/", L""}};
  for (const Case& c : cases) EXPECT_EQ(kz::MakeRelativeName(c.path), c.name) << c.path;
  EXPECT_TRUE(kz::MakeRelativeName(nullptr).empty());
  EXPECT_TRUE(kz::SanitizeMemberPath(nullptr, R).Path.empty());
}

TEST(SafePathTest, AbsolutePaths) {
  for (const wchar_t* path : {L"/x", L"\\x", L"C:\\x", L"C:x"}) EXPECT_TRUE(kz::IsAbsolutePath(path)) << path;
  for (const wchar_t* path : {L"x", L"./x", L"", static_cast<const wchar_t*>(nullptr)}) {
    EXPECT_FALSE(kz::IsAbsolutePath(path)) << (path ? path : L"null");
  }
}

TEST(SafePathTest, MemberNamesCompareWithSeparatorsAlikeAndAsciiCaseIgnored) {
  struct Case {
    const wchar_t* a;
    const wchar_t* b;
    bool same;
  } cases[] = {{L"Dir/File.TXT", L"dir\\file.txt", true}, {L"a", L"a", true}, {L"a", L"a ", false},
               {L"a\\b", L"a\\bc", false}, {L"\u00e4", L"\u00c4", false} /* only ASCII folds */, {L"", L"", true}};
  for (const Case& c : cases) {
    EXPECT_EQ(kz::SameMemberName(c.a, c.b), c.same) << c.a << " / " << c.b;
    EXPECT_EQ(kz::MemberNameKey(c.a) == kz::MemberNameKey(c.b), c.same) << c.a << " / " << c.b;
  }
}

// ---- platform/fs.h ----------------------------------------------------------

TEST(FsTest, QueryEntryReportsLinksAndQueryTargetFollowsThem) {
  TempDir dir;
  kztest::WriteFile(dir / "file", std::string("abc"));
  fs::create_directory(dir / "sub");
  fs::create_symlink(dir / "file", dir / "link");
  fs::create_symlink(dir / "nowhere", dir / "dangling");
  struct Case { const char* name; kz::fs::EntryType entry; kz::fs::EntryType target; } cases[] = {
      // Files, directories and missing entries alone: platform/fs_test.
      {"sub", kz::fs::EntryType::Directory, kz::fs::EntryType::Directory},
      {"link", kz::fs::EntryType::Link, kz::fs::EntryType::File},
      {"dangling", kz::fs::EntryType::Link, kz::fs::EntryType::Missing},
  };
  for (const Case& c : cases) {
    std::wstring path = EnginePath(dir / c.name);
    kz::fs::EntryInfo info;
    ASSERT_TRUE(kz::fs::QueryEntry(path.c_str(), info)) << c.name;
    EXPECT_EQ(info.Type, c.entry) << c.name;
    ASSERT_TRUE(kz::fs::QueryTarget(path.c_str(), info)) << c.name;
    EXPECT_EQ(info.Type, c.target) << c.name;
  }
  kz::fs::EntryInfo info, same;
  ASSERT_TRUE(kz::fs::QueryTarget(EnginePath(dir / "link").c_str(), info));
  ASSERT_TRUE(kz::fs::QueryEntry(EnginePath(dir / "file").c_str(), same));
  EXPECT_EQ(info.Size, 3u);
  EXPECT_TRUE(info.FileIndex == same.FileIndex && info.Volume == same.Volume);
}

TEST(FsTest, ReplaceFileReplacesALinkAndNeverWritesThroughIt) {
  TempDir dir;
  fs::create_directory(dir / "outside");
  kztest::WriteFile(dir / "outside" / "victim", std::string("precious"));
  fs::create_directory(dir / "dest");
  fs::create_symlink(dir / "outside" / "victim", dir / "dest" / "name");
  kztest::WriteFile(dir / "dest" / "temp", std::string("new"));
  ASSERT_TRUE(kz::fs::ReplaceFile(EnginePath(dir / "dest" / "temp").c_str(),
                                  EnginePath(dir / "dest" / "name").c_str()));
  EXPECT_FALSE(fs::is_symlink(dir / "dest" / "name"));
  EXPECT_EQ(kztest::ReadFile(dir / "dest" / "name"), kztest::ToBytes("new"));
  EXPECT_EQ(kztest::ReadFile(dir / "outside" / "victim"), kztest::ToBytes("precious"));
  EXPECT_FALSE(fs::exists(dir / "dest" / "temp"));
}

#ifndef _WIN32  // POSIX modes and links; the Windows forms are tested in tests/platform
TEST(FsTest, TimesAndPermissionsRefuseOrSkipAFinalLink) {
  TempDir dir;
  kztest::WriteFile(dir / "target", std::string("t"));
  chmod((dir / "target").c_str(), 0600);
  fs::create_symlink(dir / "target", dir / "link");
  std::wstring link = EnginePath(dir / "link");
  struct stat before;
  ASSERT_EQ(stat((dir / "target").c_str(), &before), 0);

  EXPECT_FALSE(kz::fs::SetPermissions(link.c_str(), 0777));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CANT_RESOLVE_FILENAME));
  EXPECT_FALSE(kz::fs::SyncFile(link.c_str()));
  ASSERT_TRUE(kz::fs::SetModTime(link.c_str(), 1000000000));  // the link's own time

  struct stat after;
  ASSERT_EQ(stat((dir / "target").c_str(), &after), 0);
  EXPECT_EQ(after.st_mode & 07777, 0600u);
  EXPECT_EQ(after.st_mtime, before.st_mtime);
  struct stat own;
  ASSERT_EQ(lstat((dir / "link").c_str(), &own), 0);
  EXPECT_EQ(own.st_mtime, 1000000000);  // on the target itself: platform/fs_test
}
#endif

TEST(FsTest, ListingTypesLinksAndRefusesALinkedDirectory) {
  TempDir dir;
  fs::create_directory(dir / "d");
  for (const char* n : {"b", "a", "C", "ä"}) kztest::WriteFile(dir / "d" / n, std::string(n));
  fs::create_directory(dir / "d" / "sub");
  fs::create_symlink(dir / "d" / "a", dir / "d" / "ln");
  fs::create_symlink(dir / "d", dir / "dlink");

  std::vector<kz::fs::DirEntry> entries;
  ASSERT_TRUE(kz::fs::ListDirectory(EnginePath(dir / "d").c_str(), entries));
  std::vector<std::wstring> names;
  for (const auto& e : entries) names.push_back(e.Name);
  EXPECT_EQ(names, (std::vector<std::wstring>{L"C", L"a", L"b", L"ln", L"sub", L"\u00e4"}));
  EXPECT_EQ(entries[3].Type, kz::fs::EntryType::Link);

  EXPECT_FALSE(kz::fs::ListDirectory(EnginePath(dir / "dlink").c_str(), entries));
  EXPECT_FALSE(kz::fs::ListDirectory(EnginePath(dir / "missing").c_str(), entries));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(FsTest, ResolveLinksFollowsEveryLink) {
  TempDir dir;
  fs::create_directory(dir / "real");
  kztest::WriteFile(dir / "real" / "f", std::string("x"));
  fs::create_symlink(dir / "real", dir / "via");
  std::wstring resolved = kz::fs::ResolveLinks(EnginePath(dir / "via" / "f").c_str());
  EXPECT_EQ(resolved, EnginePath(fs::canonical(dir / "real" / "f")));
  std::wstring missing = EnginePath(dir / "missing");
  EXPECT_EQ(kz::fs::ResolveLinks(missing.c_str()), missing);
}

// Each call passes through the seam under its kind, so a sweep reaches it.
TEST(FsTest, EveryCallThatCanFailHonoursTheFaultSeam) {
  TempDir dir;
  kztest::WriteFile(dir / "f", std::string("x"));
  fs::create_directory(dir / "d");
  std::wstring f = EnginePath(dir / "f");
  std::wstring d = EnginePath(dir / "d");
  std::wstring n = EnginePath(dir / "new");
  struct Case {
    const char* what;
    uint32_t kind;
    std::function<BOOL()> call;
  } cases[] = {
      {"QueryEntry", kz::fault::kOpen, [&] { kz::fs::EntryInfo i; return kz::fs::QueryEntry(f.c_str(), i); }},
      {"QueryTarget", kz::fault::kOpen, [&] { kz::fs::EntryInfo i; return kz::fs::QueryTarget(f.c_str(), i); }},
      {"ListDirectory", kz::fault::kOpen,
       [&] { std::vector<kz::fs::DirEntry> e; return kz::fs::ListDirectory(d.c_str(), e); }},
      {"MakeDirectory", kz::fault::kCreate, [&] { return kz::fs::MakeDirectory(n.c_str()); }},
      {"MakeDirectories", kz::fault::kCreate, [&] { return kz::fs::MakeDirectories(n.c_str()); }},
      {"ReplaceFile", kz::fault::kRename, [&] { return kz::fs::ReplaceFile(f.c_str(), n.c_str()); }},
      {"RemoveFile", kz::fault::kRename, [&] { return kz::fs::RemoveFile(f.c_str()); }},
      {"SetModTime", kz::fault::kWrite, [&] { return kz::fs::SetModTime(f.c_str(), 0); }},
      {"SetPermissions", kz::fault::kWrite, [&] { return kz::fs::SetPermissions(f.c_str(), 0600); }},
      {"SyncFile", kz::fault::kWrite, [&] { return kz::fs::SyncFile(f.c_str()); }},
      {"SyncDirectory", kz::fault::kWrite, [&] { return kz::fs::SyncDirectory(d.c_str()); }},
  };
  for (const Case& c : cases) {
    SetLastError(0);
    kz::fault::Arm(1, c.kind);
    BOOL ok = c.call();
    kz::fault::Disarm();
    EXPECT_FALSE(ok) << c.what;
    EXPECT_NE(GetLastError(), 0u) << c.what;
  }
  // Nothing was done by the failed calls.
  EXPECT_TRUE(fs::exists(dir / "f"));
  EXPECT_FALSE(fs::exists(dir / "new"));
}

}  // namespace
