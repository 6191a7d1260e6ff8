// Opening an archive: the search for the first header behind a stub, the
// new-archive case, and the long-path conversions.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "archiver/lha_archiver.h"
#include "archiver/long_path.h"
#include "support/archive_builder.h"
#include "support/test_support.h"

namespace {

using kztest::ArchiveBuilder;
using kztest::Bytes;
using kztest::MemberSpec;
using kztest::ToBytes;

constexpr uint64_t kWindow = 131072;

class OpenTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(archiver_.Init(), 0); }
  void TearDown() override { kz::fault::Disarm(); }

  std::wstring Write(const Bytes& bytes, const std::string& name = "a.lzh") {
    kztest::WriteFile(dir_ / name, bytes);
    return kztest::Wide((dir_ / name).string());
  }

  HRESULT Open(const Bytes& bytes) { return archiver_.InitArchive(Write(bytes).c_str(), 0, 0); }

  // The engine's form of a path in the temporary directory.
  std::wstring EnginePath(const std::string& name) const {
    return kz::FromLongPath(kztest::Wide((dir_ / name).string()).c_str());
  }

  kztest::TempDir dir_;
  KzLhaArchiver archiver_;
};

Bytes StubThen(size_t stubSize, const MemberSpec& spec) {
  ArchiveBuilder b;
  b.Stub(Bytes(stubSize, 0x90)).Member(spec).End();
  return b.Bytes();
}

struct WindowCase {
  const char* what;
  size_t offset;
  int level;
  bool found;
};

class SearchWindow : public OpenTest, public ::testing::WithParamInterface<WindowCase> {};

TEST_P(SearchWindow, FindsAHeaderOnlyWhenItsTestFitsTheWindow) {
  const WindowCase& c = GetParam();
  const HRESULT hr = Open(StubThen(c.offset, {.level = c.level, .name = "f.txt",
                                              .packed = Bytes(300, 1)}));
  if (c.found) {
    ASSERT_EQ(hr, 0);
    EXPECT_EQ(archiver_.FirstHeaderPos, c.offset);
    EXPECT_EQ(archiver_.GetFirstHeaderOffset(), c.offset);
  } else {
    EXPECT_EQ(hr, kz::ARC_E_NOARCHIVE);
    EXPECT_EQ(archiver_.Status, kz::ARC_E_NOARCHIVE);
    ASSERT_NE(archiver_.ErrorFileName, nullptr);
    EXPECT_EQ(std::wstring(archiver_.ErrorFileName), EnginePath("a.lzh"));
  }
  EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
}

// A level-1 header named "f.txt" is 32 bytes long (size byte 30): it is
// tested only when all of it lies inside the window.
INSTANTIATE_TEST_SUITE_P(
    Offsets, SearchWindow,
    ::testing::Values(WindowCase{"plain", 0, 1, true}, WindowCase{"stub", 1000, 0, true},
                      // The window is read in two steps, the first of 4096 bytes.
                      WindowCase{"level1 across the first read", 4080, 1, true},
                      WindowCase{"level0 ending the first read", 4096 - 32, 0, true},
                      WindowCase{"level2 at 131050, 22 bytes in", 131050, 2, true},
                      WindowCase{"level2 at 131051, 21 bytes in", 131051, 2, false},
                      WindowCase{"level1 fits exactly", kWindow - 32, 1, true},
                      WindowCase{"level1 one byte out", kWindow - 31, 1, false},
                      WindowCase{"level0 past the window", kWindow + 10, 0, false}),
    kztest::CaseNameFromWhat());

// A fake header inside a stub: the pattern, a level byte, and the size and
// checksum bytes as given (level 2 has no checksum to pass).
Bytes FakeCandidate(uint8_t size, uint8_t checksum, uint8_t level) {
  Bytes c(22, 0);
  const uint8_t head[] = {size, checksum, '-', 'l', 'h', '?', '-'};
  std::copy(std::begin(head), std::end(head), c.begin());
  c[20] = level;
  return c;
}

TEST_F(OpenTest, TheLowestPassingOffsetWinsOverTheRealHeader) {
  ArchiveBuilder stubMember;
  stubMember.Stored("in-stub.txt", ToBytes("stub"), 0);
  ArchiveBuilder b;
  b.Stub(Bytes(7, 0x90)).Raw(stubMember.Bytes()).Raw(Bytes(40, 0x90));
  const uint64_t real = b.Size();
  b.Stored("real.txt", ToBytes("x")).End();
  ASSERT_EQ(Open(b.Bytes()), 0);
  EXPECT_EQ(archiver_.FirstHeaderPos, 7u);
  EXPECT_NE(archiver_.FirstHeaderPos, real);
}

struct CandidateCase {
  const char* what;
  Bytes candidate;
  bool accepted;
};

class StubCandidates : public OpenTest, public ::testing::WithParamInterface<CandidateCase> {};

// The real header follows at offset 100; a candidate at offset 4 either wins
// or is passed over.
TEST_P(StubCandidates, AreTestedByLevelAndChecksum) {
  const CandidateCase& c = GetParam();
  ArchiveBuilder b;
  b.Stub(Bytes(4, 0x90)).Raw(c.candidate).Raw(Bytes(100 - 4 - c.candidate.size(), 0x90));
  b.Stored("real.txt", ToBytes("x")).End();
  ASSERT_EQ(Open(b.Bytes()), 0);
  EXPECT_EQ(archiver_.FirstHeaderPos, c.accepted ? 4u : 100u);
}

Bytes SummedCandidate(uint8_t level, int delta) {
  Bytes c = FakeCandidate(20, 0, level);
  unsigned sum = 0;
  for (size_t i = 2; i < 22; ++i) sum += c[i];
  c[1] = static_cast<uint8_t>(sum + delta);
  return c;
}

INSTANTIATE_TEST_SUITE_P(
    Candidates, StubCandidates,
    ::testing::Values(CandidateCase{"level2 without any checksum", FakeCandidate(0xEE, 0x77, 2), true},
                      CandidateCase{"size 0 checksum 0", FakeCandidate(0, 0, 0), true},
                      CandidateCase{"size 0 checksum 1", FakeCandidate(0, 1, 1), false},
                      CandidateCase{"level0 summed", SummedCandidate(0, 0), true},
                      CandidateCase{"level1 summed", SummedCandidate(1, 0), true},
                      CandidateCase{"level1 sum off by one", SummedCandidate(1, 1), false},
                      CandidateCase{"level 3", FakeCandidate(0, 0, 3), false},
                      CandidateCase{"level 255", FakeCandidate(0, 0, 255), false},
                      CandidateCase{"no pattern", Bytes(22, 0), false}),
    kztest::CaseNameFromWhat());

// A long-path prefix is dropped from the stored path; a new archive bound
// before does not leave its flag behind.
TEST_F(OpenTest, AnExistingArchiveBindsItsPathAndClosesTheStream) {
  ASSERT_EQ(archiver_.InitArchive(kztest::Wide((dir_ / "missing.lzh").string()).c_str(), 0, 0), 0);
  ASSERT_EQ(archiver_.NewArchive, 1u);
  const std::wstring path = Write(StubThen(64, {.level = 1, .name = "f"}));
  for (const std::wstring& given : {path, L"\\\\?\\" + path}) {
    ASSERT_EQ(archiver_.InitArchive(given.c_str(), 0, 0), 0);
    EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), EnginePath("a.lzh"));
    EXPECT_EQ(archiver_.NewArchive, 0u);
    EXPECT_EQ(archiver_.FirstHeaderPos, 64u);
    EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
    EXPECT_EQ(archiver_.Status, 0);
  }
}

struct NewPathCase {
  const char* what;
  std::wstring path;
  std::wstring stored;
};

class NewArchivePath : public OpenTest, public ::testing::WithParamInterface<NewPathCase> {};

TEST_P(NewArchivePath, IsStoredWithoutPrefixAndWithBackslashes) {
  const NewPathCase& c = GetParam();
  ASSERT_EQ(archiver_.InitArchive(c.path.c_str(), 0, 0), 0);
  EXPECT_EQ(archiver_.NewArchive, 1u);
  EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), c.stored);
  EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
}

INSTANTIATE_TEST_SUITE_P(
    Paths, NewArchivePath,
    ::testing::Values(
        NewPathCase{"plain", L"/no/such/dir/new.lzh", L"\\no\\such\\dir\\new.lzh"},
        NewPathCase{"long prefix", L"\\\\?\\/no/such/new.lzh", L"\\no\\such\\new.lzh"},
        NewPathCase{"unc prefix", L"\\\\?\\UNC\\server\\share\\new.lzh",
                    L"\\\\server\\share\\new.lzh"},
        NewPathCase{"lower-case unc", L"\\\\?\\unc\\server\\share\\new.lzh",
                    L"unc\\server\\share\\new.lzh"},
        NewPathCase{"relative", L"no-such-dir-here/new.lzh", L"no-such-dir-here\\new.lzh"}),
    kztest::CaseNameFromWhat());

// A directory, a file without a header, a failing open or read: the
// failure is the status, named after the file, the previous archive stays
// bound and the stream is closed again.
TEST_F(OpenTest, AFailedOpenIsRecordedAndKeepsThePreviousArchive) {
  ASSERT_EQ(Open(StubThen(0, {.level = 1, .name = "f"})), 0);
  const std::wstring before = archiver_.ArchivePath.c_str();
  const std::wstring stubbed = Write(StubThen(5000, {.level = 1, .name = "f"}), "stubbed.lzh");
  const struct {
    std::wstring path;
    uint32_t fault;
    bool noArchive;
  } cases[] = {{kztest::Wide(dir_.path().string()), 0, false},
               {Write(Bytes(100, 'x'), "garbage.bin"), 0, true},
               {stubbed, kz::fault::kOpen, false},
               {stubbed, kz::fault::kRead, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(kztest::Narrow(c.path) + " " + std::to_string(c.fault));
    if (c.fault) kz::fault::Arm(1, c.fault);
    const HRESULT hr = archiver_.InitArchive(c.path.c_str(), 0, 0);
    kz::fault::Disarm();
    EXPECT_LT(hr, 0);
    EXPECT_EQ(hr == kz::ARC_E_NOARCHIVE, c.noArchive);
    EXPECT_EQ(archiver_.Status, hr);
    EXPECT_EQ(archiver_.NewArchive, 0u);
    ASSERT_NE(archiver_.ErrorFileName, nullptr);
    EXPECT_EQ(std::wstring(archiver_.ArchivePath.c_str()), before);
    EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
  }
  EXPECT_LT(archiver_.InitArchive(nullptr, 0, 0), 0);  // the path is required
  EXPECT_LT(archiver_.InitArchive(L"", 0, 0), 0);
}

TEST(LongPaths, ConvertBothWays) {
  const struct {
    const wchar_t *path, *longPath, *plainPath;
  } cases[] = {{L"C:\\a\\b.lzh", L"\\\\?\\C:\\a\\b.lzh", L"C:\\a\\b.lzh"},
               {L"C:/a/b.lzh", L"\\\\?\\C:/a/b.lzh", L"C:\\a\\b.lzh"},
               {L"\\\\server\\share\\x", L"\\\\?\\UNC\\server\\share\\x", L"\\\\server\\share\\x"},
               {L"\\\\?\\C:\\x", L"\\\\?\\C:\\x", L"C:\\x"},
               {L"\\\\?\\UNC\\srv\\s\\x", L"\\\\?\\UNC\\srv\\s\\x", L"\\\\srv\\s\\x"},
               {L"\\\\?\\unc\\srv\\s\\x", L"\\\\?\\unc\\srv\\s\\x", L"unc\\srv\\s\\x"},
               {L"", L"\\\\?\\", L""}};
  for (const auto& c : cases) {
    EXPECT_EQ(kz::ToLongPath(c.path), c.longPath) << kztest::Narrow(c.path);
    EXPECT_EQ(kz::FromLongPath(c.path), c.plainPath) << kztest::Narrow(c.path);
  }
  EXPECT_EQ(kz::FromLongPath(nullptr), L"");
}

}  // namespace
