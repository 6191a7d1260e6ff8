// DecodeMember: where the data is, which decoder runs, the CRC check; the
// stored copy; how each decoder family ends on a failure around it.
#include <gtest/gtest.h>

#include <random>

#include "decode/decode_harness.h"
#include "decode/decoders.h"
#include "decode/stream_writer.h"

namespace {

using kztest::Bytes;
using kztest::DecodeHarness;

// The stored copy: 65536-byte chunks, one read each, from the data after
// the header and its extended headers, whatever the packed size says.
TEST(DecodeMember, StoredCopiesInChunksOf65536) {
  struct Case {
    size_t Size;
    std::vector<size_t> Blocks;
    uint32_t Lead;
  };
  for (const Case& c : {Case{0, {}, 7}, Case{1, {1}, 0}, Case{65535, {65535}, 1}, Case{65536, {65536}, 3},
                        Case{65537, {65536, 1}, 24}, Case{200000, {65536, 65536, 65536, 3392}, 300}}) {
    Bytes data = kztest::RandomBytes(c.Size, static_cast<uint32_t>(c.Size));
    DecodeHarness h;
    kztest::ReadCounter reads;
    EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = c.Size, .Lead = c.Lead,
                        .Trailer = Bytes(9, 1), .PackedSize = 5},
                       data),
              0);
    EXPECT_TRUE(h.Output() == data) << c.Size;
    EXPECT_EQ(h.BlockSizes(), c.Blocks) << c.Size;
    EXPECT_EQ(reads.Reads(), c.Blocks.size()) << c.Size;
  }
}

TEST(DecodeMember, StoredDataEndingEarlyFailsAgainstTheArchiveAfterWholeChunks) {
  Bytes data = kztest::RandomBytes(70000, 3);
  DecodeHarness h;
  HRESULT hr = h.Decode({.Method = 0, .Packed = data, .OriginalSize = 140000}, data);
  EXPECT_LT(hr, 0);
  EXPECT_NE(hr, kz::E_Crc);
  EXPECT_EQ(std::wstring(h.Archiver().ErrorFileName), h.ArchiveName());
  EXPECT_EQ(h.BlockSizes(), std::vector<size_t>{65536});
}

// The record's CRC field is 32 bits: bits above the CRC-16 are a mismatch
// too; an empty member passes only with CRC 0.
TEST(DecodeMember, CrcMismatchIsNamedAfterTheMemberWithEveryByteWritten) {
  Bytes data = kztest::TextBytes(3000, 1);
  const uint32_t crc = kztest::Crc16(data);
  for (uint32_t wrong : {crc ^ 0x0100, crc | 0x10000}) {
    DecodeHarness h;
    EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 3000, .Crc = wrong}), kz::E_Crc);
    EXPECT_EQ(h.Archiver().Status, kz::E_Crc);
    EXPECT_STREQ(h.Archiver().ErrorFileName, L"member.bin");
    EXPECT_TRUE(h.Output() == data);
  }
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = {}, .OriginalSize = 0, .Crc = 0}), 0);
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = {}, .OriginalSize = 0, .Crc = 1}), kz::E_Crc);
}

TEST(DecodeMember, OriginalSizeZeroGivesNoOutputWhateverTheMethod) {
  for (uint32_t method : {0u, 1u, 5u, 6u, 7u}) {
    DecodeHarness h;
    EXPECT_EQ(h.Decode({.Method = method, .Packed = Bytes(100, 0x33), .OriginalSize = 0, .Crc = 0}), 0) << method;
    EXPECT_TRUE(h.Blocks().empty()) << method;
  }
}

class UnknownMethod : public ::testing::TestWithParam<uint32_t> {};

TEST_P(UnknownMethod, FailsNamedAfterTheMemberWithoutOutput) {
  DecodeHarness h;
  kztest::ReadCounter reads;
  EXPECT_EQ(h.Decode({.Method = GetParam(), .Packed = Bytes(100, 7), .OriginalSize = 100, .Crc = 0}),
            kz::ARC_E_UNKNOWNMETHOD);
  EXPECT_EQ(reads.Reads(), 0u);
  EXPECT_STREQ(h.Archiver().ErrorFileName, L"member.bin");
  EXPECT_TRUE(h.Blocks().empty());
}

// -lh2-, -lh3-, -lh8-, and "-lhd-" as a level-0/1 header gives it (52).
INSTANTIATE_TEST_SUITE_P(Methods, UnknownMethod, ::testing::Values(2u, 3u, 8u, 52u, 0xFFFFFFF0u));

// One member of each decoder family (-lh1- and -lh5-), 20000 bytes each.
struct FamilyCase {
  uint32_t method;
  Bytes packed, expected;
};

std::vector<FamilyCase> BothFamilies(uint32_t textSeed, uint32_t tokenSeed) {
  const Bytes text = kztest::TextBytes(20000, textSeed);
  const std::vector<kztest::Token> tokens = kztest::RandomTokens(20000, 8192, tokenSeed);
  return {{1, kztest::EncodeLh1(text), text}, {5, kztest::EncodeStatic(tokens, 14, 4), kztest::ExpandTokens(tokens)}};
}

// A failure recorded before the member (by the host, or an earlier member)
// stops each decoder before it hands anything over.
TEST(DecodeMember, AStatusAlreadyNegativeStopsBeforeAnyOutput) {
  for (const auto& c : BothFamilies(5, 41)) {
    DecodeHarness h;
    h.Archiver().SetError(kz::E_Fail, nullptr);
    EXPECT_EQ(h.Decode({.Method = c.method, .Packed = c.packed, .OriginalSize = c.expected.size()}, c.expected),
              kz::E_Fail);
    EXPECT_TRUE(h.Blocks().empty()) << c.method;
  }
}

// A flipped bit in the packed data fails the member's CRC, named after the
// member; in a static-Huffman block it may make a table refuse instead.
TEST(DecodeMember, DamagedDataShowsAsACrcErrorNamedAfterTheMember) {
  for (auto c : BothFamilies(2, 31)) {
    c.packed[c.packed.size() / 3] ^= 0x04;
    DecodeHarness h;
    const HRESULT hr = h.Decode({.Method = c.method, .Packed = c.packed, .OriginalSize = c.expected.size()}, c.expected);
    if (c.method == 5 && hr == kz::ARC_E_BADTABLE) continue;
    EXPECT_EQ(hr, kz::E_Crc) << c.method;
    EXPECT_STREQ(h.Archiver().ErrorFileName, L"member.bin");
  }
}

// Counters left by an earlier member or operation do not leak into this one.
TEST(DecodeMember, EachMemberStartsFromFreshCounters) {
  const Bytes data = kztest::TextBytes(5000, 2);
  DecodeHarness h;
  h.Archiver().Transfer = {0x7777, 1, 9, 123456, 7, 7};  // CRC, fallback, chunk, total, sizes
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 5000}, data), 0);
  EXPECT_EQ(h.Archiver().Transfer.TotalBytes, 5000u);
  EXPECT_EQ(h.Archiver().Transfer.StoreFallback, 0u);
}

// A failed read of the second 8000-byte chunk: the read failure stands
// (no CRC error on top), named after the archive. -lh1- writes only the
// whole 4096-byte blocks decoded before it, never its staged bytes; the
// static decoder's last block may hold a match decoded from the failed
// chunk, as it would with any reader.
TEST(DecodeMember, AFailedReadStopsTheDecoderWithOnlyDecodedBytesWritten) {
  std::mt19937 rng(23);
  std::vector<kztest::Token> tokens;  // about a byte of packed data per byte of output
  for (int i = 0; i < 30000; ++i)
    tokens.push_back(i % 8 == 7 ? kztest::Match(3 + rng() % 5, 1 + rng() % 100)
                                : kztest::Literal(static_cast<uint8_t>(rng())));
  const Bytes random = kztest::RandomBytes(30000, 4);
  for (const FamilyCase& c : {FamilyCase{1, kztest::EncodeLh1(random), random},
                              FamilyCase{5, kztest::EncodeStatic(tokens, 14, 4), kztest::ExpandTokens(tokens)}}) {
    SCOPED_TRACE(c.method);
    ASSERT_GT(c.packed.size(), 16000u);
    DecodeHarness h;
    kz::fault::Arm(2, kz::fault::kRead);
    const HRESULT hr = h.Decode({.Method = c.method, .Packed = c.packed, .OriginalSize = c.expected.size()}, c.expected);
    kz::fault::Disarm();
    EXPECT_LT(hr, 0);
    EXPECT_NE(hr, kz::E_Crc);
    EXPECT_EQ(std::wstring(h.Archiver().ErrorFileName), h.ArchiveName());
    ASSERT_FALSE(h.Blocks().empty());
    const Bytes got = h.Output();
    EXPECT_LT(got.size(), c.method == 1 ? 8200u : c.expected.size());
    const size_t good = c.method == 1 ? got.size() : got.size() - h.Blocks().back().size();
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + static_cast<ptrdiff_t>(good), c.expected.begin()));
    for (size_t n : h.BlockSizes()) EXPECT_TRUE(c.method != 1 || n == 4096u) << n;
  }
}

}  // namespace
