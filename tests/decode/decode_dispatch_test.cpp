// DecodeMember: where the data is, which decoder runs, the CRC check; the
// stored copy; the decode buffers.
#include <gtest/gtest.h>

#include "decode/decode_harness.h"
#include "decode/decoders.h"
#include "decode/stream_writer.h"
#include "enginelib/file_stream.h"

namespace {

using kztest::Bytes;
using kztest::DecodeHarness;

TEST(DecodeMember, StoredCopiesInChunksOf65536) {
  struct Case {
    size_t Size;
    std::vector<size_t> Blocks;
  };
  for (const Case& c : {Case{0, {}}, Case{1, {1}}, Case{65535, {65535}}, Case{65536, {65536}},
                        Case{65537, {65536, 1}}, Case{200000, {65536, 65536, 65536, 3392}}}) {
    Bytes data = kztest::RandomBytes(c.Size, static_cast<uint32_t>(c.Size));
    DecodeHarness h;
    kz::fault::Arm(UINT64_MAX, kz::fault::kRead);
    EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = c.Size, .Trailer = Bytes(9, 1)}, data), 0);
    uint64_t reads = kz::fault::CallsSeen();
    kz::fault::Disarm();
    EXPECT_EQ(h.Output(), data);
    EXPECT_EQ(h.BlockSizes(), c.Blocks) << c.Size;
    EXPECT_EQ(reads, c.Blocks.size()) << c.Size;
  }
}

TEST(DecodeMember, StoredEmptyMemberPassesOnlyWithCrcZero) {
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = {}, .OriginalSize = 0, .Crc = 0}), 0);
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = {}, .OriginalSize = 0, .Crc = 1}), kz::E_Crc);
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

TEST(DecodeMember, StoredCopyIgnoresThePackedSize) {
  Bytes data = kztest::TextBytes(1000, 3);
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 1000, .PackedSize = 5}, data), 0);
  EXPECT_EQ(h.Output(), data);
}

TEST(DecodeMember, CrcMismatchIsNamedAfterTheMemberWithEveryByteWritten) {
  Bytes data = kztest::TextBytes(3000, 1);
  DecodeHarness h;
  uint16_t wrong = static_cast<uint16_t>(kztest::Crc16(data) ^ 0x0100);
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 3000, .Crc = wrong}), kz::E_Crc);
  EXPECT_EQ(static_cast<uint32_t>(kz::E_Crc), 0x80070017u);
  EXPECT_EQ(h.Archiver().Status, kz::E_Crc);
  EXPECT_STREQ(h.Archiver().ErrorFileName, L"member.bin");
  EXPECT_EQ(h.Output(), data);
}

TEST(DecodeMember, HeaderCrcIsComparedWidenedTo32Bits) {
  // The record's CRC field is 32 bits: bits above the CRC-16 are a mismatch.
  Bytes data = kztest::TextBytes(100, 1);
  DecodeHarness h;
  uint32_t crc = kztest::Crc16(data);
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 100, .Crc = crc}), 0);
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 100, .Crc = crc | 0x10000}), kz::E_Crc);
}

class UnknownMethod : public ::testing::TestWithParam<uint32_t> {};

TEST_P(UnknownMethod, FailsNamedAfterTheMemberWithoutOutput) {
  DecodeHarness h;
  kz::fault::Arm(UINT64_MAX, kz::fault::kRead);
  EXPECT_EQ(h.Decode({.Method = GetParam(), .Packed = Bytes(100, 7), .OriginalSize = 100, .Crc = 0}),
            kz::ARC_E_UNKNOWNMETHOD);
  EXPECT_EQ(kz::fault::CallsSeen(), 0u);
  kz::fault::Disarm();
  EXPECT_STREQ(h.Archiver().ErrorFileName, L"member.bin");
  EXPECT_TRUE(h.Blocks().empty());
}

// -lh2-, -lh3-, -lh8-, and "-lhd-" as a level-0/1 header gives it (52).
INSTANTIATE_TEST_SUITE_P(Methods, UnknownMethod, ::testing::Values(2u, 3u, 8u, 52u, 0xFFFFFFF0u));

TEST(DecodeMember, ADecoderFailureStandsWithoutACrcErrorOnTop) {
  DecodeHarness h;
  // Block head with an incomplete character code; the header's CRC is
  // wrong too, but only the table failure is reported.
  kztest::BitWriter w;
  kztest::BlockWriter b(w, 14, 4);
  b.BlockSize(4);
  b.LengthCode(kztest::DefaultLengthCode());
  b.CharLengths({1, 2});
  EXPECT_EQ(h.Decode({.Method = 5, .Packed = w.Finish(), .OriginalSize = 4, .Crc = 0x1234}), kz::ARC_E_BADTABLE);
  EXPECT_EQ(h.Archiver().Status, kz::ARC_E_BADTABLE);
}

TEST(DecodeMember, DataStartsAfterTheHeaderAndItsExtendedHeaders) {
  // The harness places the data at HeaderLength + ExtendedLength; a wrong
  // seek would decode the lead bytes instead.
  Bytes data = kztest::TextBytes(500, 9);
  for (uint32_t lead : {0u, 1u, 3u, 24u, 300u}) {
    DecodeHarness h;
    EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 500, .Lead = lead}, data), 0) << lead;
    EXPECT_EQ(h.Output(), data);
  }
}

TEST(DecodeMember, EachMemberStartsFromFreshCounters) {
  Bytes data = kztest::TextBytes(5000, 2);
  DecodeHarness h;
  h.Archiver().Transfer.DataCrc = 0x7777;
  h.Archiver().Transfer.TotalBytes = 123456;
  h.Archiver().Transfer.StoreFallback = 1;
  EXPECT_EQ(h.Decode({.Method = 0, .Packed = data, .OriginalSize = 5000}, data), 0);
  EXPECT_EQ(h.Archiver().Transfer.TotalBytes, 5000u);
  EXPECT_EQ(h.Archiver().Transfer.StoreFallback, 0u);
  EXPECT_EQ(h.Archiver().Transfer.OriginalSize, 5000u);
  EXPECT_EQ(h.Archiver().Transfer.ChunkBytes, 5000u);
}

TEST(DecodeBuffers, AllocateSetAndFree) {
  KzLhaArchiver a;
  ASSERT_GE(a.Init(), 0);
  ASSERT_EQ(a.AllocDecodeBuffers(), 0);
  EXPECT_NE(a.InputOrBlockBuffer, nullptr);
  EXPECT_NE(a.DictionaryOrText, nullptr);
  EXPECT_NE(a.Lh1OrOutputBuffer, nullptr);
  a.FreeDecodeBuffers();
  EXPECT_EQ(a.InputOrBlockBuffer, nullptr);
  EXPECT_EQ(a.DictionaryOrText, nullptr);
  EXPECT_EQ(a.Lh1OrOutputBuffer, nullptr);
  a.FreeDecodeBuffers();  // nothing left to release
}

}  // namespace
