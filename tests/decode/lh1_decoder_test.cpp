// The -lh1- decoder through DecodeMember: worked streams, 4096-byte blocks,
// the initial history, the tree rebuild, the reader's chunks.
#include <gtest/gtest.h>

#include <random>

#include "decode/decode_harness.h"
#include "decode/stream_writer.h"

namespace {

using kztest::Bytes;
using kztest::DecodeHarness;
using kztest::ExpectDecodes;
using kztest::Literal;
using kztest::Match;
using kztest::Token;

TEST(Lh1Decoder, WorkedStreams) {
  ExpectDecodes(1, {0xF6, 0xFB, 0xBD, 0xF2, 0x40, 0x20}, kztest::ToBytes("abcabcabcabc"));
  ExpectDecodes(1, {0x8E, 0x00, 0x02, 0x00}, kztest::ToBytes("     x"));  // a match from the initial spaces
}

// A full block is written when the byte after it arrives, so 4096 bytes
// leave as one block at the end and 4097 as 4096 + 1.
TEST(Lh1Decoder, OutputLeavesIn4096ByteBlocksWhenTheNextByteArrives) {
  struct Case {
    size_t Size;
    std::vector<size_t> Blocks;
  };
  for (const Case& c : {Case{1, {1}}, Case{4095, {4095}}, Case{4096, {4096}}, Case{4097, {4096, 1}},
                        Case{8192, {4096, 4096}}, Case{8193, {4096, 4096, 1}}}) {
    Bytes data = kztest::TextBytes(c.Size, static_cast<uint32_t>(c.Size));
    EXPECT_EQ(ExpectDecodes(1, kztest::EncodeLh1(data), data), c.Blocks) << "size " << c.Size;
  }
}

// Positions of every range of the fixed position code, including the
// largest (4095, distance 4096), over a history that wraps several times;
// a long match of one byte repeats it. Matches run across block ends, and
// the blocks still leave whole.
TEST(Lh1Decoder, EveryPositionRangeAndTheRingsWrap) {
  std::mt19937 rng(3);
  std::vector<Token> tokens{Literal('q'), Match(60, 1), Match(60, 1), Literal('r')};
  for (int i = 0; i < 5000; ++i) tokens.push_back(Literal(static_cast<uint8_t>(rng() % 251)));
  const uint32_t distances[] = {1, 2, 64, 65, 128, 2047, 2048, 3000, 4095, 4096};
  for (int i = 0; i < 4000; ++i) {
    tokens.push_back(Match(3 + rng() % 58, distances[rng() % 10]));
    if (rng() % 3 == 0) tokens.push_back(Literal(static_cast<uint8_t>(rng())));
  }
  const Bytes expected = kztest::ExpandTokens(tokens);
  const std::vector<size_t> blocks = ExpectDecodes(1, kztest::EncodeLh1Tokens(tokens), expected);
  ASSERT_EQ(blocks.size(), (expected.size() + 4095) / 4096);
  for (size_t i = 0; i + 1 < blocks.size(); ++i) EXPECT_EQ(blocks[i], 4096u) << i;
}

TEST(Lh1Decoder, HistoryBeforeTheFirstByteIsSpaces) {
  // The furthest reach into the initial history: 4036 bytes back; the same
  // after another member filled the ring with other bytes.
  std::vector<Token> tokens{Match(60, 4036), Literal('y'), Match(10, 3000)};
  Bytes expected(60, ' ');
  expected.push_back('y');
  expected.insert(expected.end(), 10, ' ');
  Bytes other = kztest::RandomBytes(9000, 1);
  DecodeHarness h;
  for (const auto& [packed, want] : {std::pair{kztest::EncodeLh1Tokens(tokens), expected},
                                     std::pair{kztest::EncodeLh1(other), other},
                                     std::pair{kztest::EncodeLh1Tokens(tokens), expected}}) {
    EXPECT_EQ(h.Decode({.Method = 1, .Packed = packed, .OriginalSize = want.size()}, want), 0);
    EXPECT_TRUE(h.Output() == want);
  }
}

TEST(Lh1Decoder, ReadsPastThePackedSizeAndChunksAt8000Bytes) {
  // The reader is bounded by the original size only: it reads the bytes
  // after the member's data as they are, one 8000-byte chunk at a time.
  Bytes data = kztest::RandomBytes(20000, 9);
  Bytes packed = kztest::EncodeLh1(data);
  ASSERT_GT(packed.size(), 16000u);
  DecodeHarness h;
  kztest::ReadCounter reads;
  EXPECT_EQ(h.Decode({.Method = 1, .Packed = packed, .OriginalSize = data.size(), .PackedSize = 1}, data), 0);
  EXPECT_TRUE(h.Output() == data);
  EXPECT_EQ(reads.Reads(), (packed.size() + 7999) / 8000);
}

}  // namespace
