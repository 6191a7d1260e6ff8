// The file-system layer on this system (links: enginelib/safe_path_test).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/engine_harness.h"
#include "platform/fs.h"
#include "support/test_support.h"

namespace {

using kztest::EnginePath;
using kztest::TempDir;
namespace fs = std::filesystem;

class FsTest : public ::testing::Test {
 protected:
  std::wstring P(const std::string& name) const { return EnginePath(dir_.path()) + L"\\" + kztest::Wide(name); }
  kz::fs::EntryInfo Query(const std::string& name) const {
    kz::fs::EntryInfo info;
    EXPECT_TRUE(kz::fs::QueryEntry(P(name).c_str(), info)) << name;
    return info;
  }
  TempDir dir_;
};

TEST_F(FsTest, EntriesAreFilesDirectoriesOrMissing) {
  kztest::WriteFile(dir_ / "f.txt", std::string("12345"));
  fs::create_directory(dir_ / "d");
  using T = kz::fs::EntryType;
  const std::pair<const char*, T> types[] = {{"f.txt", T::File}, {"d", T::Directory}, {"missing", T::Missing},
                                             {"missing\\below", T::Missing}, {"f.txt\\below", T::Missing}};
  for (const auto& [name, type] : types) EXPECT_EQ(Query(name).Type, type) << name;
  kz::fs::EntryInfo a = Query("f.txt");
  EXPECT_EQ(a.Size, 5u);
  kz::fs::EntryInfo b;
  ASSERT_TRUE(kz::fs::QueryTarget(P("d\\..\\f.txt").c_str(), b));
  EXPECT_EQ(a.Volume, b.Volume);
  EXPECT_EQ(a.FileIndex, b.FileIndex);
  EXPECT_NE(a.FileIndex, Query("d").FileIndex);
}

TEST_F(FsTest, DirectoriesAreMadeOneOrAllTheWay) {
  EXPECT_TRUE(kz::fs::MakeDirectory(P("one").c_str()));
  EXPECT_FALSE(kz::fs::MakeDirectory(P("one").c_str()));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_EXISTS));
  EXPECT_FALSE(kz::fs::MakeDirectory(P("no\\such").c_str()));
  EXPECT_TRUE(kz::fs::MakeDirectories(P("a\\b\\c\\").c_str()));
  EXPECT_EQ(Query("a\\b\\c").Type, kz::fs::EntryType::Directory);
  EXPECT_TRUE(kz::fs::MakeDirectories(P("a\\b").c_str()));  // already there
  kztest::WriteFile(dir_ / "file", std::string("x"));
  EXPECT_FALSE(kz::fs::MakeDirectories(P("file\\sub").c_str()));
  EXPECT_EQ(Query("file").Type, kz::fs::EntryType::File);
}

TEST_F(FsTest, ReadOnlyFilesAreReplacedAndRemovedAsOnPosix) {
  kztest::WriteFile(dir_ / "target", std::string("old"));
  kztest::WriteFile(dir_ / "source", std::string("new"));
  ASSERT_TRUE(kz::fs::SetPermissions(P("target").c_str(), 0444));
  EXPECT_EQ(Query("target").Permissions, 0444u);
  EXPECT_TRUE(kz::fs::ReplaceFile(P("source").c_str(), P("target").c_str()));
  EXPECT_EQ(kztest::ReadFile(dir_ / "target"), kztest::ToBytes("new"));
  EXPECT_EQ(Query("source").Type, kz::fs::EntryType::Missing);

  ASSERT_TRUE(kz::fs::SetPermissions(P("target").c_str(), 0444));
  EXPECT_TRUE(kz::fs::RemoveFile(P("target").c_str()));
  EXPECT_EQ(Query("target").Type, kz::fs::EntryType::Missing);
  EXPECT_FALSE(kz::fs::RemoveFile(P("target").c_str()));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_FALSE(kz::fs::ReplaceFile(P("target").c_str(), P("other").c_str()));
}

TEST_F(FsTest, TimesAndPermissionsAreSetOnTheEntry) {
  kztest::WriteFile(dir_ / "f", std::string("x"));
  fs::create_directory(dir_ / "d");
  EXPECT_TRUE(kz::fs::SetModTime(P("f").c_str(), 1000000000));
  EXPECT_TRUE(kz::fs::SetModTime(P("d").c_str(), 1200000000));
  EXPECT_EQ(Query("f").ModTime, 1000000000);
  EXPECT_EQ(Query("d").ModTime, 1200000000);
  EXPECT_TRUE(kz::fs::SetPermissions(P("f").c_str(), 0444));
  EXPECT_EQ(Query("f").Permissions, 0444u);
  EXPECT_TRUE(kz::fs::SetPermissions(P("f").c_str(), 0644));
  EXPECT_EQ(Query("f").Permissions, 0644u);
  EXPECT_FALSE(kz::fs::SyncDirectory(P("missing").c_str()));
  EXPECT_FALSE(kz::fs::SetModTime(P("missing").c_str(), 1000000000));
}

TEST_F(FsTest, ListingsAreSortedAndTyped) {
  for (const char* name : {"b.txt", "a.txt", "C.txt"}) kztest::WriteFile(dir_ / name, std::string("x"));
  fs::create_directory(dir_ / "sub");
  std::vector<kz::fs::DirEntry> entries;
  ASSERT_TRUE(kz::fs::ListDirectory(EnginePath(dir_.path()).c_str(), entries));
  ASSERT_EQ(entries.size(), 4u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(entries[i].Name, (std::vector<std::wstring>{L"C.txt", L"a.txt", L"b.txt", L"sub"})[i]);
  EXPECT_EQ(entries[3].Type, kz::fs::EntryType::Directory);
  EXPECT_EQ(entries[0].Type, kz::fs::EntryType::File);
  ASSERT_TRUE(kz::fs::ListDirectory(P("sub").c_str(), entries));
  EXPECT_TRUE(entries.empty());
  EXPECT_FALSE(kz::fs::ListDirectory(P("missing").c_str(), entries));
}

TEST_F(FsTest, ResolvingGivesAFullPathToTheSameFile) {
  kztest::WriteFile(dir_ / "f", std::string("x"));
  fs::create_directory(dir_ / "d");
  std::wstring resolved = kz::fs::ResolveLinks(P("d\\..\\f").c_str());
  EXPECT_EQ(resolved.find(L".."), std::wstring::npos);
  EXPECT_STREQ(kz::fs::LastComponent(resolved.c_str()), L"f");
  kz::fs::EntryInfo info;
  ASSERT_TRUE(kz::fs::QueryEntry(resolved.c_str(), info));
  EXPECT_EQ(info.FileIndex, Query("f").FileIndex);
  EXPECT_EQ(kz::fs::ResolveLinks(L"no-such-file-here"), L"no-such-file-here");
}

TEST(FsNames, TemporaryNamesAreFreshEachTime) {
  const std::wstring a = kz::fs::TempFileName();
  EXPECT_NE(a, kz::fs::TempFileName());
  EXPECT_EQ(a.rfind(L".kz", 0), 0u);  // what HasTempFiles looks for
}

struct PathCase { const wchar_t* path; const wchar_t* parent; const wchar_t* last; };

class PathParts : public ::testing::TestWithParam<PathCase> {};

TEST_P(PathParts, ParentAndLastComponent) {
  EXPECT_EQ(kz::fs::ParentOf(GetParam().path), GetParam().parent);
  EXPECT_STREQ(kz::fs::LastComponent(GetParam().path), GetParam().last);
}

INSTANTIATE_TEST_SUITE_P(BothSystems, PathParts,
                         ::testing::Values(PathCase{L"a\\b\\c", L"a\\b", L"c"}, PathCase{L"x", L"", L"x"},
                                           PathCase{L"\\x", L"\\", L"x"}, PathCase{L"a\\b\\", L"a", L"b\\"},
                                           PathCase{L"a\\\\b", L"a", L"b"}, PathCase{L"a/b", L"a", L"b"}));

#ifdef _WIN32
// Windows roots stay whole: a drive, a share, and both behind "\\?\".
INSTANTIATE_TEST_SUITE_P(WindowsRoots, PathParts,
                         ::testing::Values(PathCase{L"C:\\x", L"C:\\", L"x"}, PathCase{L"C:x", L"C:", L"x"},
                                           PathCase{L"C:\\a\\b", L"C:\\a", L"b"},
                                           PathCase{L"\\\\srv\\share\\x", L"\\\\srv\\share\\", L"x"},
                                           PathCase{L"\\\\?\\C:\\x", L"\\\\?\\C:\\", L"x"},
                                           PathCase{L"\\\\?\\UNC\\srv\\share\\d\\x",
                                                    L"\\\\?\\UNC\\srv\\share\\d", L"x"}));
#endif

}  // namespace
