// Opening an archive with the path forms only Windows has: the "\\?\" and
// "\\?\UNC\" prefixes (and "unc" in lower case, which is no prefix), drive
// letters with either separator, and a directory where the archive should
// be. The existence test is the system's own (GetFileAttributesW on the
// "\\?\" form), so each case first asks the system what it says and then
// holds the engine to the rule: "not found", "path not found" and "invalid
// name" make a new archive, any other answer an existing file whose open
// reports its own error.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "archiver/lha_archiver.h"
#include "archiver/long_path.h"
#include "support/archive_builder.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;

class WindowsOpen : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(archiver_.Init(), 0);
    kztest::ArchiveBuilder b;
    b.Stored("a.txt", kztest::ToBytes("alpha")).Stored("b.txt", kztest::ToBytes("beta")).End();
    b.WriteTo(dir_ / "arc.lzh");
    fs::create_directory(dir_ / "folder");
  }

  // The full path of an entry of the test directory, with backslashes.
  std::wstring Full(const std::string& name) const { return (dir_.path() / name).wstring(); }

  // Members found by a listing of the bound archive.
  uint32_t MemberCount() {
    KzList* list = KzList::Create(KZ_LIST_MEMBERS);
    KzList* selection = KzList::Create(KZ_LIST_NAMES);
    EXPECT_EQ(archiver_.ListArchive(selection, 0, 0, list, nullptr), 0);
    uint32_t n = list->Count;
    KzList::Free(list);
    KzList::Free(selection);
    return n;
  }

  kztest::TempDir dir_;
  KzLhaArchiver archiver_;
};

// What the system answers for a path, as the engine's existence test asks.
DWORD AttributesError(const std::wstring& longPath) {
  SetLastError(0);
  return GetFileAttributesW(longPath.c_str()) == INVALID_FILE_ATTRIBUTES ? GetLastError() : 0;
}

bool MeansMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_NAME;
}

TEST_F(WindowsOpen, ALongPathPrefixIsUsedToOpenAndDroppedFromTheArchivePath) {
  const std::wstring full = Full("arc.lzh");
  ASSERT_EQ(archiver_.InitArchive((L"\\\\?\\" + full).c_str(), 0, 0), 0);
  EXPECT_EQ(archiver_.NewArchive, 0u);
  EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), full);
  EXPECT_EQ(MemberCount(), 2u);
}

TEST_F(WindowsOpen, DriveLetterPathsWithEitherSeparatorOpenTheSameArchive) {
  std::wstring slashed = Full("arc.lzh");
  ASSERT_EQ(slashed[1], L':');
  for (wchar_t& c : slashed) {
    if (c == L'\\') c = L'/';
  }
  ASSERT_EQ(archiver_.InitArchive(slashed.c_str(), 0, 0), 0);
  EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), Full("arc.lzh"));
  EXPECT_EQ(MemberCount(), 2u);

  // A path that does not exist yet: a new archive, named with backslashes.
  std::wstring fresh = Full("new.lzh");
  for (wchar_t& c : fresh) {
    if (c == L'\\') c = L'/';
  }
  ASSERT_EQ(archiver_.InitArchive(fresh.c_str(), 0, 0), 0);
  EXPECT_EQ(archiver_.NewArchive, 1u);
  EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), Full("new.lzh"));
}

TEST_F(WindowsOpen, ADirectoryCountsAsExistingAndItsOpenFails) {
  const std::wstring folder = Full("folder");
  ASSERT_EQ(archiver_.InitArchive(Full("arc.lzh").c_str(), 0, 0), 0);
  const HRESULT hr = archiver_.InitArchive(folder.c_str(), 0, 0);
  EXPECT_EQ(hr, kz::HresultFromWin32(ERROR_ACCESS_DENIED));
  EXPECT_EQ(archiver_.Status, hr);
  ASSERT_NE(archiver_.ErrorFileName, nullptr);
  EXPECT_EQ(std::wstring(archiver_.ErrorFileName), folder);
  EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
  // The failed call leaves the previous binding as it was.
  EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), Full("arc.lzh"));
  EXPECT_EQ(archiver_.NewArchive, 0u);
}

struct UncCase {
  const char* what;
  const wchar_t* given;
  const wchar_t* stored;  // the archive path when it counts as new
};

class UncPaths : public WindowsOpen, public ::testing::WithParamInterface<UncCase> {};

TEST_P(UncPaths, FollowTheSystemsAnswer) {
  const UncCase& c = GetParam();
  ASSERT_EQ(archiver_.InitArchive(Full("arc.lzh").c_str(), 0, 0), 0);
  const DWORD error = AttributesError(c.given);  // both cases already carry "\\?\"
  ASSERT_NE(error, 0u) << "no server of that name should answer";
  const HRESULT hr = archiver_.InitArchive(c.given, 0, 0);
  if (MeansMissing(error)) {
    EXPECT_EQ(hr, 0);
    EXPECT_EQ(archiver_.NewArchive, 1u);
    EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), c.stored);
  } else {
    // Existing as far as the engine can tell: the open reports its error
    // against the stream's name, which has lost the prefix as paths do.
    EXPECT_LT(hr, 0);
    EXPECT_EQ(hr & 0xFFFF0000u, 0x80070000u);
    ASSERT_NE(archiver_.ErrorFileName, nullptr);
    EXPECT_EQ(std::wstring(archiver_.ErrorFileName), c.stored);
    EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), Full("arc.lzh"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Prefixes, UncPaths,
    ::testing::Values(
        UncCase{"upper_case_unc", L"\\\\?\\UNC\\kz-no-server\\share\\x.lzh", L"\\\\kz-no-server\\share\\x.lzh"},
        // "unc" in lower case is not the UNC prefix: only "\\?\" goes.
        UncCase{"lower_case_unc", L"\\\\?\\unc\\kz-no-server\\share\\x.lzh", L"unc\\kz-no-server\\share\\x.lzh"}),
    [](const auto& info) { return std::string(info.param.what); });

TEST(WindowsLongPaths, TheExistenceTestAsksTheSystemThroughTheLongForm) {
  // With the system's own PathIsUNCW deciding what is a share.
  EXPECT_EQ(kz::ToLongPath(L"C:\\a\\b.lzh"), L"\\\\?\\C:\\a\\b.lzh");
  EXPECT_EQ(kz::ToLongPath(L"\\\\server\\share\\b.lzh"), L"\\\\?\\UNC\\server\\share\\b.lzh");
  EXPECT_EQ(kz::ToLongPath(L"\\\\?\\C:\\x"), L"\\\\?\\C:\\x");
  EXPECT_EQ(kz::ToLongPath(L"\\\\?\\UNC\\s\\x"), L"\\\\?\\UNC\\s\\x");
  EXPECT_EQ(kz::FromLongPath(L"\\\\?\\UNC\\s\\x"), L"\\\\s\\x");
  EXPECT_EQ(kz::FromLongPath(L"\\\\?\\C:/a/b"), L"C:\\a\\b");
}

}  // namespace
