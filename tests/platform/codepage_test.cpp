// Names in every code page the engine accepts convert the same way on both
// systems: the same characters for what decodes, U+DC80..U+DCFF for each
// byte that does not (and back to that byte), '_' for a character the code
// page lacks, and no character ever split at the end of a buffer.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "enginelib/names.h"

namespace {

// The code points of wide text; UTF-16 surrogate pairs count as one.
std::vector<uint32_t> CodePoints(const wchar_t* text) {
  std::vector<uint32_t> out;
  for (const wchar_t* p = text; *p; ++p) {
    uint32_t c = static_cast<uint32_t>(*p);
    if (sizeof(wchar_t) == 2 && c >= 0xD800 && c <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint32_t>(*++p) - 0xDC00);
    }
    out.push_back(c);
  }
  return out;
}

// Wide text for code points, as this system's wchar_t holds them.
std::wstring FromCodePoints(const std::vector<uint32_t>& points) {
  std::wstring out;
  for (uint32_t c : points) {
    if (sizeof(wchar_t) == 2 && c >= 0x10000) {
      out.push_back(static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10)));
      c = 0xDC00 + ((c - 0x10000) & 0x3FF);
    }
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}

struct DecodeCase { const char* what; uint32_t codePage; std::string bytes; std::vector<uint32_t> expected; };

class Decode : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(Decode, GivesTheSameCharactersAndTheBytesComeBack) {
  const DecodeCase& c = GetParam();
  kz::NameConverter conv;
  ASSERT_TRUE(conv.SetCodePage(c.codePage));
  wchar_t wide[64];
  int n = conv.ToWide(c.bytes.c_str(), wide, 63);
  EXPECT_EQ(CodePoints(wide), c.expected);
  EXPECT_EQ(static_cast<size_t>(n), std::wcslen(wide));
  char back[64];
  int m = conv.FromWide(wide, back, sizeof back);
  EXPECT_EQ(std::string(back, static_cast<size_t>(m)), c.bytes);
}

INSTANTIATE_TEST_SUITE_P(
    CodePages, Decode,
    ::testing::Values(
        DecodeCase{"sjis_katakana", 932, "\x83\x65\x83\x58\x83\x67", {0x30C6, 0x30B9, 0x30C8}},
        DecodeCase{"sjis_halfwidth", 932, "\xB1\xB2", {0xFF71, 0xFF72}},
        DecodeCase{"sjis_backslash_stays", 932, "a\\b", {'a', '\\', 'b'}},
        DecodeCase{"sjis_user_range", 932, "\xF0\x40", {0xE000}},
        DecodeCase{"sjis_0x80_undefined", 932, "\x80x", {0xDC80, 'x'}},
        DecodeCase{"sjis_bad_trail", 932, "\x82\x20", {0xDC82, ' '}},
        DecodeCase{"sjis_cut_lead", 932, "a\x82", {'a', 0xDC82}},
        DecodeCase{"cp1252_euro", 1252, "\x80", {0x20AC}},
        DecodeCase{"cp1252_undefined", 1252, "\x81\x8D\x8F\x90\x9D", {0xDC81, 0xDC8D, 0xDC8F, 0xDC90, 0xDC9D}},
        DecodeCase{"cp437", 437, "\x81\xE1", {0x00FC, 0x00DF}},
        DecodeCase{"cp850", 850, "\xD5\x9B", {0x0131, 0x00F8}},
        DecodeCase{"utf8", 65001, "\xC3\xA9t\xC3\xA9", {0xE9, 't', 0xE9}},
        DecodeCase{"utf8_beyond_bmp", 65001, "\xF0\x9F\x98\x80", {0x1F600}},
        DecodeCase{"utf8_cut", 65001, "\xC3", {0xDCC3}},
        DecodeCase{"utf8_encoded_surrogate", 65001, "\xED\xA0\x80", {0xDCED, 0xDCA0, 0xDC80}},
        DecodeCase{"ascii_high_byte", 20127, "a\x80", {'a', 0xDC80}},
        DecodeCase{"latin1", 28591, "\xE9\x85", {0xE9, 0x85}},
        DecodeCase{"gbk", 936, "\xC4\xE3", {0x4F60}},
        DecodeCase{"gbk_user_range", 936, "\xA1\x40", {0xDCA1, '@'}},
        DecodeCase{"uhc", 949, "\xC7\xD1", {0xD55C}},
        DecodeCase{"uhc_user_range", 949, "\xC9\xA1", {0xDCC9, 0xDCA1}},
        DecodeCase{"big5", 950, "\xA4\xA4", {0x4E2D}},
        DecodeCase{"big5_eudc", 950, "\x81\x40", {0xDC81, '@'}},
        DecodeCase{"big5_shared_private_block", 950, "\xC6\xA1", {0xF6B1}}),
    [](const auto& info) { return std::string(info.param.what); });

struct EncodeCase { const char* what; uint32_t codePage; std::vector<uint32_t> text; std::string expected; };

class Encode : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(Encode, CharactersTheCodePageLacksBecomeUnderscores) {
  const EncodeCase& c = GetParam();
  kz::NameConverter conv;
  ASSERT_TRUE(conv.SetCodePage(c.codePage));
  char out[64];
  std::wstring text = FromCodePoints(c.text);
  int n = conv.FromWide(text.c_str(), out, sizeof out);
  EXPECT_EQ(std::string(out, static_cast<size_t>(n)), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    CodePages, Encode,
    ::testing::Values(
        EncodeCase{"sjis_no_accents", 932, {'e', 0xE9, 'e'}, "e_e"},
        EncodeCase{"sjis_symbols", 932, {0x221E, 0x2010}, "\x81\x87\x81\x5D"},
        EncodeCase{"cp1252_c1_control", 1252, {0x81}, "_"},
        EncodeCase{"ascii_only", 20127, {'a', 0xE9}, "a_"},
        EncodeCase{"latin1_no_euro", 28591, {0x20AC, 0xFF}, "_\xFF"},
        EncodeCase{"utf8_beyond_bmp", 65001, {'x', 0x1F600}, "x\xF0\x9F\x98\x80"},
        EncodeCase{"utf8_lone_surrogate", 65001, {0xD800, 'x'}, "_x"},
        EncodeCase{"raw_bytes_go_back", 932, {0xDC80, 0xDCFF}, "\x80\xFF"}),
    [](const auto& info) { return std::string(info.param.what); });

TEST(NameBuffers, NoCharacterIsSplitAtTheEnd) {
  kz::NameConverter conv;
  ASSERT_TRUE(conv.SetCodePage(932));
  char out[4];  // room for three bytes: one double-byte character and no more
  EXPECT_EQ(conv.FromWide(L"\u30C6\u30B9", out, sizeof out), 2);
  EXPECT_EQ(std::string(out), "\x83\x65");
  wchar_t wide[3];
  EXPECT_EQ(conv.ToWide("\x83\x65\x83\x58\x83\x67", wide, 2), 2);
  EXPECT_EQ(CodePoints(wide), (std::vector<uint32_t>{0x30C6, 0x30B9}));

  ASSERT_TRUE(conv.SetCodePage(65001));
  char utf8[5];  // four bytes of room: "a" and not the four-byte character
  EXPECT_EQ(conv.FromWide(FromCodePoints({'a', 0x1F600}).c_str(), utf8, sizeof utf8), 1);
}

TEST(NameBuffers, EveryListedCodePageIsAvailableAndNoOther) {
  for (uint32_t cp : kz::platform::kNameCodePages) EXPECT_TRUE(kz::NameConverter::IsSupported(cp)) << cp;
  for (uint32_t cp : {0u, 1u, 1200u, 50220u, 54936u}) EXPECT_FALSE(kz::NameConverter::IsSupported(cp)) << cp;
}

}  // namespace
