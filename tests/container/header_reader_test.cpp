// The member header reader on archives built field by field: what each
// level fills in, where the next header is, how names are put together, and
// how a scan ends (cleanly, or with a recorded failure).
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>

#include "archiver/lha_archiver.h"
#include "support/archive_builder.h"
#include "support/test_support.h"

namespace {

using kztest::ArchiveBuilder;
using kztest::Bytes;
using kztest::Dir;
using kztest::ExtHeader;
using kztest::MemberSpec;
using kztest::ToBytes;

class HeaderReaderTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(archiver_.Init(), 0); }
  void TearDown() override {
    archiver_.ArchiveStream.Close();
    kz::fault::Disarm();
  }

  // Opens `bytes` as the archive stream; the first read starts at `start`.
  void Open(const Bytes& bytes, uint64_t start = 0) {
    archiver_.ArchiveStream.Close();
    path_ = kztest::Wide((dir_ / "a.lzh").string());
    kztest::WriteFile(dir_ / "a.lzh", bytes);
    ASSERT_TRUE(archiver_.ArchiveStream.Open(path_.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0));
    archiver_.NextHeaderPos = start;
  }
  // Clears the record as every caller does, then reads one header.
  int32_t Read() {
    std::memset(&record_, 0, sizeof record_);
    std::memset(name_, 0, sizeof name_);
    record_.Name = name_;
    return archiver_.ReadMemberHeader(record_);
  }
  // One member, then the end marker; returns the reader's result.
  int32_t ReadOne(const MemberSpec& spec) {
    ArchiveBuilder b;
    b.Member(spec).End();
    Open(b.Bytes());
    return Read();
  }
  // The member, a stored "next" behind it: the first read steps exactly to it.
  void ReadBeforeNext(const MemberSpec& spec) {
    ArchiveBuilder b;
    b.Member(spec).Stored("next", ToBytes("x"), spec.level).End();
    Open(b.Bytes());
    ASSERT_EQ(Read(), 0);
    EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
    layout_ = b.Layout()[0];
  }
  void ExpectReadFailureNamingTheArchive(int32_t result) {
    EXPECT_LT(result, 0);
    EXPECT_EQ(archiver_.Status, result);
    ASSERT_NE(archiver_.ErrorFileName, nullptr);
    EXPECT_STREQ(archiver_.ErrorFileName, archiver_.ArchiveStream.GetName());
  }
  std::wstring Name() const { return name_; }

  kztest::TempDir dir_;
  std::wstring path_;
  KzLhaArchiver archiver_;
  LhaHeader record_{};
  wchar_t name_[1024]{};
  kztest::MemberLayout layout_{};
};

class FieldsByLevel : public HeaderReaderTest, public ::testing::WithParamInterface<int> {};

TEST_P(FieldsByLevel, FillsTheRecordAndStepsToTheNextHeader) {
  const int level = GetParam();
  MemberSpec spec{.level = level, .method = "-lh5-", .name = "file.txt",
                  .packed = Bytes(37, 0xAB), .originalSize = 1000, .crc = 0xBEEF,
                  .timeStamp = kztest::DosTime(2010, 1, 1, 12, 30), .attributes = 0x21,
                  .osId = 'U'};
  ArchiveBuilder b;
  b.Stub(Bytes(5, 'Z')).Member(spec).Stored("next.txt", ToBytes("n"), level).End();
  Open(b.Bytes(), 5);
  const auto& layout = b.Layout()[0];

  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(record_.Valid, 1u);
  EXPECT_EQ(Name(), L"file.txt");
  EXPECT_EQ(record_.NameLength, 8u);
  EXPECT_EQ(record_.HeaderPos, 5u);
  EXPECT_EQ(record_.HeaderLength, layout.headerLength);
  EXPECT_EQ(record_.PackedSize, 37u);
  EXPECT_EQ(record_.OriginalSize, 1000u);
  EXPECT_EQ(record_.TimeStamp, kztest::DosTime(2010, 1, 1, 12, 30));
  EXPECT_EQ(record_.Attributes, 0x21u);
  EXPECT_EQ(record_.Crc, 0xBEEFu);
  EXPECT_EQ(record_.ExtendedLength, 0u);
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);

  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"next.txt");
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(archiver_.Status, 0);
}

INSTANTIATE_TEST_SUITE_P(Levels, FieldsByLevel, ::testing::Values(0, 1, 2));

struct MethodCase {
  int level;
  char character;
  uint32_t method, methodCode, versionNeeded, attributes;  // attributes with 0x20 written
};

class MethodTable : public HeaderReaderTest, public ::testing::WithParamInterface<MethodCase> {};

TEST_P(MethodTable, MapsTheMethodCharacter) {
  const MethodCase& c = GetParam();
  ASSERT_EQ(ReadOne({.level = c.level, .method = std::string("-lh") + c.character + "-", .name = "m"}), 0);
  EXPECT_EQ(record_.Method, c.method);
  EXPECT_EQ(record_.MethodCode, c.methodCode);
  EXPECT_EQ(record_.VersionNeeded, c.versionNeeded);
  EXPECT_EQ(record_.Attributes, c.attributes);
}

INSTANTIATE_TEST_SUITE_P(
    Methods, MethodTable,
    ::testing::Values(MethodCase{1, '0', 0, 1, 21, 0x20}, MethodCase{1, '1', 1, 15, 13, 0x20},
                      MethodCase{1, '2', 2, 16, 21, 0x20}, MethodCase{1, '3', 3, 17, 21, 0x20},
                      MethodCase{1, '4', 4, 18, 21, 0x20}, MethodCase{0, '5', 5, 19, 21, 0x20},
                      MethodCase{2, '6', 6, 20, 26, 0x20}, MethodCase{2, '7', 7, 21, 27, 0x20},
                      MethodCase{1, '8', 8, 22, 27, 0x20},
                      // Below '0': the digit goes negative and compares as a large number.
                      MethodCase{1, ' ', static_cast<uint32_t>(' ' - '0'), 22, 27, 0x20},
                      MethodCase{2, '/', static_cast<uint32_t>(-1), 22, 27, 0x20},
                      // -lhd-: a directory only in level 2; level 0/1 leave the attributes.
                      MethodCase{0, 'd', 52, 22, 27, 0x20}, MethodCase{1, 'd', 52, 22, 27, 0x20},
                      MethodCase{2, 'd', 0, 1, 21, 0x30}));

TEST_F(HeaderReaderTest, HostOsComesFromTheOsIdOfLevels1And2) {
  const struct {
    int level;
    uint8_t osId;
    uint32_t hostOs;
  } cases[] = {{0, 'U', 1}, {0, 'M', 1},  // level 0 has no OS id
               {1, 'M', 1}, {1, '2', 2}, {1, 'w', 3}, {1, 'U', 5}, {1, 'm', 6}, {1, 'K', 0},
               {2, 'M', 1}, {2, '2', 2}, {2, 'w', 3}, {2, 'U', 5}, {2, 'm', 6}, {2, 0, 0}};
  for (const auto& c : cases) {
    ASSERT_EQ(ReadOne({.level = c.level, .name = "h", .osId = c.osId}), 0);
    EXPECT_EQ(record_.HostOs, c.hostOs) << c.level << " " << c.osId;
  }
}

// Level 2 holds Unix seconds (as the fields test reads them), turned into a
// DOS time for an MS-DOS member.
TEST_F(HeaderReaderTest, AnMsDosLevel2MemberGetsADosTime) {
  ASSERT_EQ(ReadOne({.level = 2, .name = "t", .timeStamp = 1262347200, .osId = 'M'}), 0);  // 2010-01-01 12:00 UTC
  EXPECT_EQ(record_.TimeStamp >> 25, 30u);  // DOS year field: 2010 - 1980
  EXPECT_EQ((record_.TimeStamp >> 16) & 0x1FF, (1u << 5) | 1u);  // January 1st
}

struct EndCase {
  const char* what;
  Bytes bytes;
};

class ArchiveEnd : public HeaderReaderTest, public ::testing::WithParamInterface<EndCase> {};

TEST_P(ArchiveEnd, IsAResultOfOneWithNoFailure) {
  Open(GetParam().bytes);
  int32_t result;
  while ((result = Read()) == 0) EXPECT_NE(Name(), L"after");  // nothing behind the end is read
  EXPECT_EQ(result, 1);
  EXPECT_EQ(archiver_.Status, 0);
}

// 26 fixed bytes + a name header of 3 + 227 bytes = 256: a length whose low byte is 0.
Bytes Level2Of256Bytes() {
  MemberSpec spec{.level = 2, .name = std::string(227, 'n')};
  EXPECT_EQ(kztest::MemberHeader(spec).size(), 256u);
  return ArchiveBuilder().Member(spec).Stored("after", ToBytes("x")).End().Bytes();
}

INSTANTIATE_TEST_SUITE_P(
    Ends, ArchiveEnd,
    ::testing::Values(EndCase{"no end marker", ArchiveBuilder().Stored("a", ToBytes("x")).Bytes()},
                      EndCase{"zero byte", ArchiveBuilder().End().Stored("after", ToBytes("x")).Bytes()},
                      EndCase{"empty file", Bytes{}},
                      EndCase{"level 2 length low byte 0", Level2Of256Bytes()}),
    kztest::CaseNameFromWhat());

TEST_F(HeaderReaderTest, ALevelByteOf3OrMoreIsReadAsLevel2) {
  ReadBeforeNext({.level = 2, .name = "three.txt", .packed = ToBytes("abc"), .levelByte = 3});
  EXPECT_EQ(Name(), L"three.txt");
}

class StrayBytes : public HeaderReaderTest, public ::testing::WithParamInterface<int> {};

// A header that cannot even hold its fixed part is damage, not the end.
TEST_P(StrayBytes, AfterTheLastMemberAreARecordedReadFailure) {
  Open(ArchiveBuilder().Stored("a", ToBytes("x")).Raw(Bytes(static_cast<size_t>(GetParam()), 0x41)).Bytes());
  ASSERT_EQ(Read(), 0);
  ExpectReadFailureNamingTheArchive(Read());
}

INSTANTIATE_TEST_SUITE_P(OneTo21, StrayBytes, ::testing::Range(1, 22));

class ChecksumByLevel : public HeaderReaderTest, public ::testing::WithParamInterface<int> {};

TEST_P(ChecksumByLevel, AMismatchEndsTheScanWithTheRecordUntouched) {
  ASSERT_EQ(ReadOne({.level = GetParam(), .name = "bad", .packed = ToBytes("data"),
                     .originalSize = 4, .checksumDelta = 1}),
            1);
  EXPECT_EQ(archiver_.Status, 0);
  EXPECT_EQ(record_.Valid, 0u);
  EXPECT_EQ(record_.PackedSize, 0u);
  EXPECT_EQ(Name(), L"");
}

INSTANTIATE_TEST_SUITE_P(Levels01, ChecksumByLevel, ::testing::Values(0, 1));

// Bytes behind a level-0 CRC count in the header length; a sum up to the CRC
// is accepted as well as the writers' sum over everything byte 0 counts
// (which the listings of LHa for Unix archives show).
TEST_F(HeaderReaderTest, Level0TrailerCountsInTheLengthWhicheverSumItCarries) {
  const Bytes trailer{'U', 0, 0x3B, 0x3D, 0x4B, 0x00, 0xA4, 0x81, 0xE8, 0x03, 0xE8, 0x03};
  ReadBeforeNext({.level = 0, .name = "t.txt", .packed = ToBytes("hello"), .originalSize = 5,
                  .level0Trailer = trailer, .trailerInChecksum = false});
  EXPECT_EQ(record_.HeaderLength, 24u + 5u + 12u);
  EXPECT_EQ(ReadOne({.level = 0, .name = "t.txt", .checksumDelta = 7, .level0Trailer = trailer}), 1);
}

struct NameCase {
  const char* what;
  int level;
  std::string name, directory;
  std::wstring expected;
};

class NameAssembly : public HeaderReaderTest, public ::testing::WithParamInterface<NameCase> {};

TEST_P(NameAssembly, JoinsDirectoryAndName) {
  const NameCase& c = GetParam();
  ASSERT_EQ(ReadOne({.level = c.level, .name = c.name, .directory = c.directory}), 0);
  EXPECT_EQ(Name(), c.expected);
  EXPECT_EQ(record_.Valid, 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Names, NameAssembly,
    ::testing::Values(
        NameCase{"level0 as stored", 0, "dir\\file.txt", "", L"dir\\file.txt"},
        NameCase{"level0 slashes", 0, "dir/sub/file.txt", "", L"dir\\sub\\file.txt"},
        NameCase{"level1 directory replaces the path", 1, "dir\\file.txt", Dir("a/b/"), L"a\\b\\file.txt"},
        // Directories written without a final separator keep their last part.
        NameCase{"level1 unterminated directory", 1, "f.txt", Dir("a/b"), L"a\\b\\f.txt"},
        NameCase{"level1 single unterminated component", 1, "dir\\f.txt", "a", L"a\\f.txt"},
        NameCase{"level1 leading separator", 1, "f.txt", Dir("/tmp/"), L"tmp\\f.txt"},
        NameCase{"level1 directory entry", 1, "", Dir("subdir/"), L"subdir"},
        NameCase{"level2 directory and name", 2, "x.txt", Dir("docs/"), L"docs\\x.txt"},
        NameCase{"level2 directory alone", 2, "", Dir("docs/"), L"docs"},
        NameCase{"level2 leading separator", 2, "x.txt", Dir("/docs/"), L"docs\\x.txt"},
        NameCase{"level2 separator in the name", 2, Dir("sub/x.txt"), Dir("docs/"), L"docs\\x.txt"},
        NameCase{"level2 unterminated directory", 2, "x.txt", Dir("a/b"), L"a\\b\\x.txt"},
        NameCase{"level2 single unterminated component", 2, "x.txt", "docs", L"docs\\x.txt"},
        NameCase{"level2 single unterminated component alone", 2, "", "docs", L"docs"},
        // Nothing left of the directory: the file keeps its own name.
        NameCase{"level2 root directory only", 2, "x.txt", Dir("/"), L"x.txt"},
        NameCase{"level2 symlink split by its writer", 2, "path", Dir("sub/link|/abs/"),
                 L"sub\\link|\\abs\\path"}),
    kztest::CaseNameFromWhat());

TEST_F(HeaderReaderTest, AnEmptyLevel0NameGivesAnInvalidMember) {
  ReadBeforeNext({.level = 0, .name = "", .packed = ToBytes("abc")});
  EXPECT_EQ(record_.Valid, 0u);
  EXPECT_EQ(record_.PackedSize, 3u);
}

// A level-2 header without extended headers has no name; its data is still
// stepped over so that the next member is found.
TEST_F(HeaderReaderTest, ANamelessLevel2MemberIsInvalidAndItsDataSkipped) {
  ReadBeforeNext({.level = 2, .method = "-lh5-", .packed = Bytes(40, 0x2D), .originalSize = 99});
  EXPECT_EQ(record_.Valid, 0u);
  EXPECT_EQ(record_.HeaderLength, 26u);
  EXPECT_EQ(record_.OriginalSize, 0u);
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"next");
}

// NameLength counts the file name's text alone, without the directory.
TEST_F(HeaderReaderTest, Level2SkipsOtherExtensionsIncludingTheHeaderCrc) {
  ReadBeforeNext({.level = 2, .name = "x.txt", .directory = Dir("long/dir/"), .packed = ToBytes("abc"),
                  .extensions = {ExtHeader{0x50, Bytes{0xED, 0x41}}, ExtHeader{0x54, Bytes(4, 1)}},
                  .headerCrc = true});
  EXPECT_EQ(Name(), L"long\\dir\\x.txt");
  EXPECT_EQ(record_.NameLength, 5u);
}

// The extensions count as packed bytes: the data starts behind them, the
// next header is where the packed size says. A type-0x01 name is not
// taken at level 1.
TEST_F(HeaderReaderTest, ExtendedLengthMovesTheDataButNotTheNextHeader) {
  ReadBeforeNext({.level = 1, .name = "e.txt", .directory = Dir("d/"), .packed = ToBytes("payload"),
                  .originalSize = 7,
                  .extensions = {ExtHeader{0x01, ToBytes("longer-name")}, ExtHeader{0x54, Bytes(9, 0x11)}}});
  EXPECT_EQ(Name(), L"d\\e.txt");
  EXPECT_EQ(record_.ExtendedLength, (3u + 2u) + (3u + 11u) + (3u + 9u));
  EXPECT_EQ(record_.PackedSize, record_.ExtendedLength + 7u);
  EXPECT_EQ(record_.HeaderPos + record_.HeaderLength + record_.ExtendedLength, layout_.dataPos);
  EXPECT_EQ(archiver_.NextHeaderPos, record_.HeaderPos + record_.HeaderLength + record_.PackedSize);
}

struct RefusedCase {
  const char* what;
  int level;
  uint8_t type;
  size_t dataSize;
  std::optional<uint16_t> size;
  bool refused;
};

class ExtensionLimits : public HeaderReaderTest, public ::testing::WithParamInterface<RefusedCase> {};

TEST_P(ExtensionLimits, RefuseWhatWouldNotFitBeforeReadingIt) {
  const RefusedCase& c = GetParam();
  const int32_t result = ReadOne({.level = c.level, .name = "n.txt",
                                  .extensions = {ExtHeader{c.type, Bytes(c.dataSize, 'q'), c.size}}});
  if (c.refused) {
    EXPECT_EQ(result, kz::ARC_E_BADHEADER);
    ExpectReadFailureNamingTheArchive(result);
  } else {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(archiver_.Status, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Limits, ExtensionLimits,
    ::testing::Values(
        // Size 0 is the end of the chain: what follows is data (level 1) or
        // padding (level 2), never a header.
        RefusedCase{"l1 size 0", 1, 0x41, 0, 0, false}, RefusedCase{"l2 size 0", 2, 0x41, 0, 0, false},
        RefusedCase{"l1 size 1", 1, 0x41, 0, 1, true}, RefusedCase{"l1 size 2", 1, 0x41, 0, 2, true},
        RefusedCase{"l2 size 1", 2, 0x41, 0, 1, true}, RefusedCase{"l2 size 2", 2, 0x41, 0, 2, true},
        RefusedCase{"l2 size 3", 2, 0x41, 0, std::nullopt, false},
        RefusedCase{"l1 dir 1024", 1, 0x02, 1024, std::nullopt, true},
        RefusedCase{"l1 dir 1023", 1, 0x02, 1023, std::nullopt, false},
        RefusedCase{"l1 name 1024 skipped", 1, 0x01, 1024, std::nullopt, false},
        RefusedCase{"l2 name 1024", 2, 0x01, 1024, std::nullopt, true},
        RefusedCase{"l2 dir 1024", 2, 0x02, 1024, std::nullopt, true},
        RefusedCase{"l2 dir 1023", 2, 0x02, 1023, std::nullopt, false},
        RefusedCase{"l2 other 4000 skipped", 2, 0x7F, 4000, std::nullopt, false}),
    kztest::CaseNameFromWhat());

// 1023 bytes fill the buffer exactly; the joined name is then cut to fit.
TEST_F(HeaderReaderTest, ALongestDirectoryIsReadWhole) {
  ASSERT_EQ(ReadOne({.level = 2, .name = "x", .directory = std::string(1022, 'd') + "\xFF"}), 0);
  EXPECT_EQ(Name(), std::wstring(1022, L'd') + L"\\");
}

// A header cut inside its name (level 1) or inside an extension's data fails
// the read; cut inside the last next-size word, the chain ends as if the size
// were 0 and the header is finished from what was read. Either way the
// failure stays in the status.
TEST_F(HeaderReaderTest, HeadersCutShortAreRecordedFailures) {
  const struct {
    const char* what;
    Bytes header;
    size_t cut;  // bytes left off the end
    bool read;   // the header is still delivered
  } cases[] = {{"name", kztest::MemberHeader({.level = 1, .name = "abcdefgh"}), 10, false},
               {"extension data", kztest::MemberHeader({.level = 2, .name = "cut-here.txt"}), 6, false},
               {"next size", kztest::MemberHeader({.level = 2, .name = "kept.txt"}), 2, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Open(Bytes(c.header.begin(), c.header.end() - static_cast<ptrdiff_t>(c.cut)));
    EXPECT_EQ(Read() == 0, c.read);
    EXPECT_LT(archiver_.Status, 0);
    if (c.read) {
      EXPECT_EQ(Name(), L"kept.txt");
    }
  }
}

// Every read of a header can fail; each failure must end up in the status.
TEST_F(HeaderReaderTest, EveryFailingReadIsRecorded) {
  ArchiveBuilder b;
  b.Member({.level = 1, .name = "f.txt", .directory = Dir("a/b/"), .extensions = {ExtHeader{0x54, Bytes(4)}}})
      .End();
  Open(b.Bytes());
  kz::fault::Arm(1000000, kz::fault::kRead);
  ASSERT_EQ(Read(), 0);
  const uint64_t reads = kz::fault::CallsSeen();
  ASSERT_GE(reads, 5u);
  for (uint64_t n = 1; n <= reads; ++n) {
    SCOPED_TRACE(n);
    archiver_.Status = 0;
    archiver_.NextHeaderPos = 0;
    kz::fault::Arm(n, kz::fault::kRead);
    Read();
    kz::fault::Disarm();
    EXPECT_LT(archiver_.Status, 0);
  }
}

// Called directly, the join is refused when the directory has no separator
// (the reader then keeps the name as it is).
TEST(AssembleNameLimits, JoinsOnlyBehindADirectorySeparator) {
  const struct {
    const wchar_t *directory, *fileName, *expected;  // expected null: refused
  } cases[] = {{L"a\\b", L"f", L"a\\f"}, {L"docs", L"f", nullptr}, {L"docs\\", L"", L"docs"},
               {L"\\docs\\", L"x", L"docs\\x"}, {L"a/b/", L"c/d.txt", L"a\\b\\d.txt"}};
  for (const auto& c : cases) {
    wchar_t name[1024] = L"";
    EXPECT_EQ(AssembleMemberName(c.directory, c.fileName, name), c.expected != nullptr) << c.directory;
    if (c.expected) {
      EXPECT_STREQ(name, c.expected) << c.directory;
    }
  }
}

TEST(AssembleNameLimits, CutsAt1023Characters) {
  const std::wstring directory = std::wstring(1020, L'd') + L"\\";
  wchar_t name[1024];
  ASSERT_TRUE(AssembleMemberName(directory.c_str(), L"abcdef", name));
  EXPECT_EQ(std::wcslen(name), 1023u);
  EXPECT_EQ(std::wstring(name).substr(1020), L"\\ab");
}

}  // namespace
