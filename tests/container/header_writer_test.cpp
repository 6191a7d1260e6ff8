// The member header writer: the bytes of a level-1 header as an independent
// builder makes them (which the reader's tests read back) and the 230-byte
// cut. That the final header covers its placeholder shows in every round
// trip of the compression driver.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "archiver/lha_archiver.h"
#include "support/archive_builder.h"
#include "support/test_support.h"

namespace {

using kztest::Bytes;
using kztest::MemberSpec;

class HeaderWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(archiver_.Init(), 0);
    path_ = kztest::Wide((dir_ / "out.lzh").string());
    ASSERT_TRUE(archiver_.OutputStream.Create(path_.c_str(), GENERIC_WRITE | GENERIC_READ, 1,
                                              CREATE_ALWAYS, FILE_ATTRIBUTE_ARCHIVE, 0));
  }
  void TearDown() override { archiver_.OutputStream.Close(); }

  // Writes one header with these per-member values; returns what the file holds.
  Bytes Write(const std::wstring& name, uint32_t method, uint64_t packed, uint64_t original,
              uint16_t crc, int32_t* result) {
    archiver_.Transfer.PackedSize = packed;
    archiver_.Transfer.OriginalSize = original;
    archiver_.Transfer.DataCrc = crc;
    *result = archiver_.WriteMemberHeader(header_, PathString(name.c_str()), method);
    archiver_.OutputStream.Close();
    return kztest::ReadFile(dir_ / "out.lzh");
  }
  // The caller's part of the 22 bytes: time, date, attributes.
  void SetCallerFields(uint32_t dosDateTime, uint8_t attributes) {
    std::memset(header_, 0, sizeof header_);
    header_[15] = static_cast<uint8_t>(dosDateTime);
    header_[16] = static_cast<uint8_t>(dosDateTime >> 8);
    header_[17] = static_cast<uint8_t>(dosDateTime >> 16);
    header_[18] = static_cast<uint8_t>(dosDateTime >> 24);
    header_[19] = attributes;
  }

  kztest::TempDir dir_;
  std::wstring path_;
  KzLhaArchiver archiver_;
  uint8_t header_[22]{};
};

struct NameCase {
  const char* Label;
  std::wstring Name;     // as the engine holds it
  std::string Stored;    // the bytes that must go into the header (code page 932)
};

std::string Repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

const NameCase kNameCases[] = {
    {"Plain", L"a.txt", "a.txt"},
    {"Empty", L"", ""},
    {"PathKeepsBackslashes", L"dir\\sub\\f.txt", "dir\\sub\\f.txt"},
    {"Exactly230", std::wstring(230, L'x'), std::string(230, 'x')},
    {"LongerIsCutTo230", std::wstring(300, L'y'), std::string(230, 'y')},
    // 'a' and 120 two-byte characters: the cut at 230 splits the 115th.
    {"CutSplitsAMultibyteCharacter", L"a" + std::wstring(120, L'\u3042'),
     "a" + Repeat("\x82\xa0", 114) + "\x82"},
};

class HeaderBytesTest : public HeaderWriterTest, public ::testing::WithParamInterface<NameCase> {};

TEST_P(HeaderBytesTest, MatchesAnIndependentlyBuiltHeader) {
  const NameCase& c = GetParam();
  const uint32_t stamp = kztest::DosTime(2021, 7, 14, 13, 45, 30);
  SetCallerFields(stamp, 0x21);
  int32_t result = -1;
  const Bytes written = Write(c.Name, 6, 0x12345, 0x6789A, 0xBEEF, &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(written, kztest::MemberHeader({.level = 1, .method = "-lh6-", .name = c.Stored,
                                            .originalSize = 0x6789A, .crc = 0xBEEF, .timeStamp = stamp,
                                            .attributes = 0x21, .osId = 'w', .packedSize = 0x12345}));
  EXPECT_EQ(written.size(), c.Stored.size() + 27);
  EXPECT_EQ(written[0], c.Stored.size() + 25);
}

INSTANTIATE_TEST_SUITE_P(Names, HeaderBytesTest, ::testing::ValuesIn(kNameCases),
                         [](const auto& info) { return std::string(info.param.Label); });

}  // namespace
