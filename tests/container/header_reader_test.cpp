// The member header reader on archives built field by field: what each
// level fills in, where the next header is, how names are put together, and
// how a scan ends (cleanly, or with a recorded failure).
#include <gtest/gtest.h>

#include <cstring>
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

  std::wstring Name() const { return name_; }

  kztest::TempDir dir_;
  std::wstring path_;
  KzLhaArchiver archiver_;
  LhaHeader record_{};
  wchar_t name_[1024]{};
};

// ---- fixed fields, per level -------------------------------------------------

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
  EXPECT_EQ(record_.RawHeaderLength, layout.headerLength);
  EXPECT_EQ(record_.PackedSize, 37u);
  EXPECT_EQ(record_.OriginalSize, 1000u);
  EXPECT_EQ(record_.TimeStamp, kztest::DosTime(2010, 1, 1, 12, 30));
  EXPECT_EQ(record_.Attributes, 0x21u);
  EXPECT_EQ(record_.Crc, 0xBEEFu);
  EXPECT_EQ(record_.Method, 5u);
  EXPECT_EQ(record_.MethodCode, 19u);
  EXPECT_EQ(record_.VersionNeeded, 21u);
  EXPECT_EQ(record_.HostOs, level == 0 ? 1u : 5u);
  EXPECT_EQ(record_.ExtendedLength, 0u);
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);

  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"next.txt");
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(archiver_.Status, 0);
}

INSTANTIATE_TEST_SUITE_P(Levels, FieldsByLevel, ::testing::Values(0, 1, 2));

// ---- method character ----------------------------------------------------------

struct MethodCase {
  int level;
  char character;
  uint32_t method;
  uint32_t methodCode;
  uint32_t versionNeeded;
  uint32_t attributes;  // with 0x20 written
};

class MethodTable : public HeaderReaderTest, public ::testing::WithParamInterface<MethodCase> {};

TEST_P(MethodTable, MapsTheMethodCharacter) {
  const MethodCase& c = GetParam();
  MemberSpec spec{.level = c.level, .method = std::string("-lh") + c.character + "-",
                  .name = "m", .attributes = 0x20};
  ASSERT_EQ(ReadOne(spec), 0);
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

// ---- host system and time stamp ------------------------------------------------

struct OsCase {
  int level;
  uint8_t osId;
  uint32_t hostOs;
};

class HostOsTable : public HeaderReaderTest, public ::testing::WithParamInterface<OsCase> {};

TEST_P(HostOsTable, MapsTheOsId) {
  const OsCase& c = GetParam();
  ASSERT_EQ(ReadOne({.level = c.level, .name = "h", .osId = c.osId}), 0);
  EXPECT_EQ(record_.HostOs, c.hostOs);
}

INSTANTIATE_TEST_SUITE_P(
    OsIds, HostOsTable,
    ::testing::Values(OsCase{0, 'U', 1}, OsCase{0, 'M', 1},  // level 0 has no OS id
                      OsCase{1, 'M', 1}, OsCase{1, '2', 2}, OsCase{1, 'w', 3},
                      OsCase{1, 'U', 5}, OsCase{1, 'm', 6}, OsCase{1, 'K', 0},
                      OsCase{2, 'M', 1}, OsCase{2, '2', 2}, OsCase{2, 'w', 3},
                      OsCase{2, 'U', 5}, OsCase{2, 'm', 6}, OsCase{2, 0, 0}));

TEST_F(HeaderReaderTest, Level1KeepsTheDosTimeOfAUnixMember) {
  ASSERT_EQ(ReadOne({.level = 1, .name = "t", .timeStamp = 0x4D2A6B3Cu, .osId = 'U'}), 0);
  EXPECT_EQ(record_.TimeStamp, 0x4D2A6B3Cu);
}

TEST_F(HeaderReaderTest, Level2ConvertsTheTimeOnlyForMsDos) {
  const uint32_t unixTime = 1262347200;  // 2010-01-01 12:00 UTC
  ASSERT_EQ(ReadOne({.level = 2, .name = "t", .timeStamp = unixTime, .osId = 'U'}), 0);
  EXPECT_EQ(record_.TimeStamp, unixTime);

  ASSERT_EQ(ReadOne({.level = 2, .name = "t", .timeStamp = unixTime, .osId = 'M'}), 0);
  EXPECT_EQ(record_.TimeStamp, archiver_.ConvertTimeStamp(unixTime, 1));
  EXPECT_NE(record_.TimeStamp, unixTime);
  EXPECT_EQ(record_.TimeStamp >> 25, 30u);  // DOS year field: 2010 - 1980
}

// ---- the end of the archive ------------------------------------------------------

TEST_F(HeaderReaderTest, EndsCleanlyWithoutAnEndMarker) {
  ArchiveBuilder b;
  b.Stored("a", ToBytes("x"));
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(archiver_.Status, 0);
}

TEST_F(HeaderReaderTest, AZeroFirstByteEndsWhateverFollows) {
  ArchiveBuilder b;
  b.End().Stored("after.txt", ToBytes("x"));
  Open(b.Bytes());
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(archiver_.Status, 0);
}

TEST_F(HeaderReaderTest, AnEmptyFileIsTheEnd) {
  Open({});
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(archiver_.Status, 0);
}

TEST_F(HeaderReaderTest, ALevel2LengthWithLowByteZeroIsTakenForTheEnd) {
  // 26 fixed bytes + a name header of 3 + 227 bytes = 256.
  MemberSpec spec{.level = 2, .name = std::string(227, 'n')};
  ASSERT_EQ(kztest::MemberHeader(spec).size(), 256u);
  ArchiveBuilder b;
  b.Member(spec).Stored("later", ToBytes("x")).End();
  Open(b.Bytes());
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(archiver_.Status, 0);
}

TEST_F(HeaderReaderTest, ALevelByteOf3OrMoreIsReadAsLevel2) {
  MemberSpec spec{.level = 2, .name = "three.txt", .packed = ToBytes("abc"), .levelByte = 3};
  ArchiveBuilder b;
  b.Member(spec).Stored("next", ToBytes("x")).End();
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"three.txt");
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
}

class StrayBytes : public HeaderReaderTest, public ::testing::WithParamInterface<int> {};

// A header that cannot even hold its fixed part is damage, not the end.
TEST_P(StrayBytes, AfterTheLastMemberAreARecordedReadFailure) {
  ArchiveBuilder b;
  b.Stored("a", ToBytes("x")).Raw(Bytes(static_cast<size_t>(GetParam()), 0x41));
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  const int32_t result = Read();
  EXPECT_LT(result, 0);
  EXPECT_EQ(archiver_.Status, result);
  ASSERT_NE(archiver_.ErrorFileName, nullptr);
  EXPECT_STREQ(archiver_.ErrorFileName, archiver_.ArchiveStream.GetName());
}

INSTANTIATE_TEST_SUITE_P(OneTo21, StrayBytes, ::testing::Range(1, 22));

// ---- checksum ------------------------------------------------------------------

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

// Bytes behind a level-0 CRC count in the header length. The sum up to the
// CRC is accepted, and so is the sum over everything byte 0 counts, which
// is what LHA writers produce.
TEST_F(HeaderReaderTest, Level0TrailerCountsInTheLengthWhicheverSumItCarries) {
  const Bytes trailer{'U', 0, 0x3B, 0x3D, 0x4B, 0x00, 0xA4, 0x81, 0xE8, 0x03, 0xE8, 0x03};
  for (bool summed : {false, true}) {
    SCOPED_TRACE(summed);
    MemberSpec spec{.level = 0, .name = "t.txt", .packed = ToBytes("hello"), .originalSize = 5,
                    .level0Trailer = trailer, .trailerInChecksum = summed};
    ArchiveBuilder b;
    b.Member(spec).Stored("next", ToBytes("x"), 0).End();
    Open(b.Bytes());
    ASSERT_EQ(Read(), 0);
    EXPECT_EQ(record_.HeaderLength, 24u + 5u + 12u);
    EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
    ASSERT_EQ(Read(), 0);
    EXPECT_EQ(Name(), L"next");
  }
  MemberSpec wrong{.level = 0, .name = "t.txt", .checksumDelta = 7, .level0Trailer = trailer};
  EXPECT_EQ(ReadOne(wrong), 1);
}

// ---- names ---------------------------------------------------------------------

struct NameCase {
  const char* what;
  int level;
  std::string name;
  std::string directory;
  std::wstring expected;
  uint32_t valid;
};

class NameAssembly : public HeaderReaderTest, public ::testing::WithParamInterface<NameCase> {};

TEST_P(NameAssembly, JoinsDirectoryAndName) {
  const NameCase& c = GetParam();
  ASSERT_EQ(ReadOne({.level = c.level, .name = c.name, .directory = c.directory}), 0);
  EXPECT_EQ(Name(), c.expected);
  EXPECT_EQ(record_.Valid, c.valid);
}

INSTANTIATE_TEST_SUITE_P(
    Names, NameAssembly,
    ::testing::Values(
        NameCase{"level0 as stored", 0, "dir\\file.txt", "", L"dir\\file.txt", 1},
        NameCase{"level0 slashes", 0, "dir/sub/file.txt", "", L"dir\\sub\\file.txt", 1},
        NameCase{"level1 directory replaces the path", 1, "dir\\file.txt", Dir("a/b/"),
                 L"a\\b\\file.txt", 1},
        // Directories written without a final separator keep their last part.
        NameCase{"level1 unterminated directory", 1, "f.txt", Dir("a/b"), L"a\\b\\f.txt", 1},
        NameCase{"level1 single unterminated component", 1, "dir\\f.txt", "a", L"a\\f.txt", 1},
        NameCase{"level1 leading separator", 1, "f.txt", Dir("/tmp/"), L"tmp\\f.txt", 1},
        NameCase{"level1 directory entry", 1, "", Dir("subdir/"), L"subdir", 1},
        NameCase{"level2 directory and name", 2, "x.txt", Dir("docs/"), L"docs\\x.txt", 1},
        NameCase{"level2 directory alone", 2, "", Dir("docs/"), L"docs", 1},
        NameCase{"level2 name alone", 2, "x.txt", "", L"x.txt", 1},
        NameCase{"level2 leading separator", 2, "x.txt", Dir("/docs/"), L"docs\\x.txt", 1},
        NameCase{"level2 nested", 2, "x.txt", Dir("a/b/c/"), L"a\\b\\c\\x.txt", 1},
        NameCase{"level2 separator in the name", 2, Dir("sub/x.txt"), Dir("docs/"),
                 L"docs\\x.txt", 1},
        NameCase{"level2 unterminated directory", 2, "x.txt", Dir("a/b"), L"a\\b\\x.txt", 1},
        NameCase{"level2 single unterminated component", 2, "x.txt", "docs", L"docs\\x.txt", 1},
        NameCase{"level2 single unterminated component alone", 2, "", "docs", L"docs", 1},
        // Nothing left of the directory: the file keeps its own name.
        NameCase{"level2 root directory only", 2, "x.txt", Dir("/"), L"x.txt", 1},
        NameCase{"level2 symlink split by its writer", 2, "path", Dir("sub/link|/abs/"),
                 L"sub\\link|\\abs\\path", 1}),
    [](const auto& info) {
      std::string s = info.param.what;
      for (char& ch : s) {
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
      }
      return s;
    });

TEST_F(HeaderReaderTest, ControlCharactersInANameDoNotSurvive) {
  ASSERT_EQ(ReadOne({.level = 1, .name = "a\x1b]2;x\x07.txt"}), 0);
  EXPECT_EQ(Name().find(L'\x1b'), std::wstring::npos);
  EXPECT_EQ(Name().find(L'\x07'), std::wstring::npos);
  EXPECT_EQ(Name().size(), 11u);
}

TEST_F(HeaderReaderTest, AnEmptyLevel0NameGivesAnInvalidMember) {
  ArchiveBuilder b;
  b.Member({.level = 0, .name = "", .packed = ToBytes("abc")}).Stored("next", ToBytes("x"), 0);
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(record_.Valid, 0u);
  EXPECT_EQ(record_.PackedSize, 3u);
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
}

// A level-2 header without extended headers has no name; its data is still
// stepped over so that the next member is found.
TEST_F(HeaderReaderTest, ANamelessLevel2MemberIsInvalidAndItsDataSkipped) {
  ArchiveBuilder b;
  b.Member({.level = 2, .method = "-lh5-", .packed = Bytes(40, 0x2D), .originalSize = 99})
      .Stored("next.txt", ToBytes("x"), 2)
      .End();
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(record_.Valid, 0u);
  EXPECT_EQ(record_.HeaderLength, 26u);
  EXPECT_EQ(record_.OriginalSize, 0u);
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"next.txt");
}

TEST_F(HeaderReaderTest, Level2NameLengthIsTheFileNameText) {
  ASSERT_EQ(ReadOne({.level = 2, .name = "abc.txt", .directory = Dir("long/dir/")}), 0);
  EXPECT_EQ(record_.NameLength, 7u);
}

TEST_F(HeaderReaderTest, Level2SkipsOtherExtensionsIncludingTheHeaderCrc) {
  MemberSpec spec{.level = 2, .name = "x.txt", .packed = ToBytes("abc"),
                  .extensions = {ExtHeader{0x50, Bytes{0xED, 0x41}}, ExtHeader{0x54, Bytes(4, 1)}},
                  .headerCrc = true};
  ArchiveBuilder b;
  b.Member(spec).Stored("next", ToBytes("x"), 2);
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"x.txt");
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
}

// ---- level-1 extended headers ----------------------------------------------------

TEST_F(HeaderReaderTest, ExtendedLengthMovesTheDataButNotTheNextHeader) {
  MemberSpec spec{.level = 1, .name = "e.txt", .packed = ToBytes("payload"),
                  .originalSize = 7, .extensions = {ExtHeader{0x54, Bytes(9, 0x11)}}};
  ArchiveBuilder b;
  b.Member(spec).Stored("next", ToBytes("x")).End();
  Open(b.Bytes());
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(record_.ExtendedLength, 12u);
  EXPECT_EQ(record_.PackedSize, 12u + 7u);  // the extensions count as packed bytes
  const uint64_t dataPos = record_.HeaderPos + record_.HeaderLength + record_.ExtendedLength;
  EXPECT_EQ(dataPos, b.Layout()[0].dataPos);
  EXPECT_EQ(std::string(b.Bytes().begin() + static_cast<long>(dataPos),
                        b.Bytes().begin() + static_cast<long>(dataPos) + 7),
            "payload");
  EXPECT_EQ(archiver_.NextHeaderPos, record_.HeaderPos + record_.HeaderLength + record_.PackedSize);
  EXPECT_EQ(archiver_.NextHeaderPos, b.Layout()[1].headerPos);
}

TEST_F(HeaderReaderTest, ExtendedLengthSumsEveryExtension) {
  MemberSpec spec{.level = 1, .name = "f", .directory = Dir("d/"),
                  .extensions = {ExtHeader{0x01, ToBytes("longer-name")}, ExtHeader{0x41, Bytes(2)}}};
  ASSERT_EQ(ReadOne(spec), 0);
  EXPECT_EQ(record_.ExtendedLength, (3u + 2u) + (3u + 11u) + (3u + 2u));
  EXPECT_EQ(Name(), L"d\\f");  // level 1 takes no name from type 0x01
}

// ---- extended headers refused --------------------------------------------------------

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
  MemberSpec spec{.level = c.level, .name = "n.txt",
                  .extensions = {ExtHeader{c.type, Bytes(c.dataSize, 'q'), c.size}}};
  const int32_t result = ReadOne(spec);
  if (c.refused) {
    EXPECT_EQ(result, kz::ARC_E_BADHEADER);
    EXPECT_EQ(archiver_.Status, kz::ARC_E_BADHEADER);
    ASSERT_NE(archiver_.ErrorFileName, nullptr);
    EXPECT_STREQ(archiver_.ErrorFileName, archiver_.ArchiveStream.GetName());
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
    [](const auto& info) {
      std::string s = info.param.what;
      for (char& ch : s) {
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
      }
      return s;
    });

// 1023 bytes fill the buffer exactly; the joined name is then cut to fit.
TEST_F(HeaderReaderTest, ALongestDirectoryIsReadWhole) {
  const std::string directory = std::string(1022, 'd') + "\xFF";
  ASSERT_EQ(ReadOne({.level = 2, .name = "x", .directory = directory}), 0);
  EXPECT_EQ(Name(), std::wstring(1022, L'd') + L"\\");
}

// ---- truncated headers ------------------------------------------------------------

TEST_F(HeaderReaderTest, ExtensionDataCutShortIsARecordedFailure) {
  const Bytes whole = kztest::MemberHeader({.level = 2, .name = "cut-here.txt"});
  Open(Bytes(whole.begin(), whole.end() - 6));  // inside the name
  EXPECT_LT(Read(), 0);
  EXPECT_LT(archiver_.Status, 0);
}

// A next-size word that cannot be read ends the chain as 0; the header is
// finished from what was read, and the failure stays in the status.
TEST_F(HeaderReaderTest, ANextSizeCutShortEndsTheChainWithTheFailureRecorded) {
  const Bytes whole = kztest::MemberHeader({.level = 2, .name = "kept.txt"});
  Open(Bytes(whole.begin(), whole.end() - 2));
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(Name(), L"kept.txt");
  EXPECT_LT(archiver_.Status, 0);
}

TEST_F(HeaderReaderTest, ANameCutShortIsARecordedFailure) {
  const Bytes whole = kztest::MemberHeader({.level = 1, .name = "abcdefgh"});
  Open(Bytes(whole.begin(), whole.begin() + 25));
  EXPECT_LT(Read(), 0);
  EXPECT_LT(archiver_.Status, 0);
}

// Every read of a header can fail; each failure must end up in the status.
TEST_F(HeaderReaderTest, EveryFailingReadIsRecorded) {
  MemberSpec spec{.level = 1, .name = "f.txt", .directory = Dir("a/b/"),
                  .extensions = {ExtHeader{0x54, Bytes(4)}}};
  ArchiveBuilder b;
  b.Member(spec).End();
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

// ---- name assembly on its own ---------------------------------------------------------

struct AssemblyCase {
  std::wstring directory;
  std::wstring fileName;
  bool assembled;
  std::wstring expected;
};

class AssembleName : public ::testing::TestWithParam<AssemblyCase> {};

TEST_P(AssembleName, FollowsTheDirectoryRules) {
  const AssemblyCase& c = GetParam();
  wchar_t name[1024];
  std::wmemset(name, L'#', 1024);
  name[1023] = 0;
  EXPECT_EQ(AssembleMemberName(c.directory.c_str(), c.fileName.c_str(), name), c.assembled);
  if (c.assembled) {
    EXPECT_EQ(std::wstring(name), c.expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AssembleName,
    ::testing::Values(AssemblyCase{L"a\\b\\", L"dir\\file.txt", true, L"a\\b\\file.txt"},
                      AssemblyCase{L"a\\b", L"f", true, L"a\\f"},
                      AssemblyCase{L"docs", L"f", false, L""},
                      AssemblyCase{L"docs\\", L"", true, L"docs"},
                      AssemblyCase{L"\\docs\\", L"x", true, L"docs\\x"},
                      AssemblyCase{L"a/b/", L"c/d.txt", true, L"a\\b\\d.txt"}));

TEST(AssembleNameLimits, CutsAt1023Characters) {
  const std::wstring directory = std::wstring(1020, L'd') + L"\\";
  wchar_t name[1024];
  ASSERT_TRUE(AssembleMemberName(directory.c_str(), L"abcdef", name));
  EXPECT_EQ(std::wcslen(name), 1023u);
  EXPECT_EQ(std::wstring(name).substr(1020), L"\\ab");
}

TEST(AssembleNameLimits, NameMayBeTheFileNameBuffer) {
  wchar_t name[1024] = L"old\\base.txt";
  ASSERT_TRUE(AssembleMemberName(L"new\\", name, name));
  EXPECT_EQ(std::wstring(name), L"new\\base.txt");
}

}  // namespace
