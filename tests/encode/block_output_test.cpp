// The encoder's output: bits, complete packed data of small members byte for
// byte, the store fallback, levels and buffers.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>

#include "decode/crc16.h"
#include "encode/encoder_rig.h"

namespace {

using kz::EncoderTestAccess;
using kztest::Bytes;
using kztest::EncoderRig;
using kztest::Hex;
using kztest::Method;
using kztest::ToBytes;

struct ExactCase { const char* Name; std::string Source; Method M; const char* Packed; };

const ExactCase kExactCases[] = {
    {"A_lh5", "A", Method::Lh5, "00 01 00 00 04 10 00"},
    {"A_lh6", "A", Method::Lh6, "00 01 00 00 04 10 00"},
    {"A_lh7", "A", Method::Lh7, "00 01 00 00 04 10 00"},
    {"TenA_lh5", "aaaaaaaaaa", Method::Lh5, "00 03 20 04 30 61 36 47 C0 08"},
    {"TenA_lh6", "aaaaaaaaaa", Method::Lh6, "00 03 20 04 30 61 36 47 C0 02"},
    {"TenA_lh7", "aaaaaaaaaa", Method::Lh7, "00 03 20 04 30 61 36 47 C0 02"},
    {"Abc_lh5", "abc", Method::Lh5, "00 03 28 08 44 C9 13 58 02 60"},
    {"Abc_lh6", "abc", Method::Lh6, "00 03 28 08 44 C9 13 58 00 98"},
    {"Abc_lh7", "abc", Method::Lh7, "00 03 28 08 44 C9 13 58 00 98"},
    {"Abc4_lh5", "abcabcabcabc", Method::Lh5, "00 05 30 04 6D 41 84 DD 72 36 02 69 C0"},
    {"Abc4_lh6", "abcabcabcabc", Method::Lh6, "00 05 30 04 6D 41 84 DD 72 36 00 9A 70"},
    {"Abc4_lh7", "abcabcabcabc", Method::Lh7, "00 05 30 04 6D 41 84 DD 72 36 00 9A 70"},
};

class ExactOutputTest : public ::testing::TestWithParam<ExactCase> {};

TEST_P(ExactOutputTest, PackedBytesAtLevelTwo) {
  const ExactCase& c = GetParam();
  EncoderRig rig;
  const auto r = rig.Encode(c.M, 2, ToBytes(c.Source));
  EXPECT_EQ(r.Status, 0);
  EXPECT_EQ(r.Packed, Hex(c.Packed));
  EXPECT_EQ(r.PackedSize, r.Packed.size());
  EXPECT_EQ(r.TotalBytes, c.Source.size());
  const Bytes src = ToBytes(c.Source);
  EXPECT_EQ(r.Crc, kz::UpdateCrc16(0, src.data(), static_cast<int32_t>(src.size())));
  // Longer than the source: the driver is told to store it instead.
  EXPECT_EQ(r.StoreFallback, r.Packed.size() > c.Source.size() ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, ExactOutputTest, ::testing::ValuesIn(kExactCases),
                         [](const auto& info) { return std::string(info.param.Name); });

// Past the source size the encoder still reads the whole source and writes
// every full buffer load, but not the rest. (The claimed size is a twentieth.)
TEST(StoreFallbackTest, OutgrownEncodingIsReadToTheEndButNotFinished) {
  const kztest::Bytes text = kztest::TextBytes(400000, 5);
  EncoderRig rig;
  const auto whole = rig.Encode(Method::Lh6, 2, text);
  ASSERT_EQ(whole.StoreFallback, 0u);
  const auto r = rig.Encode(Method::Lh6, 2, text, 20000);
  EXPECT_EQ(r.StoreFallback, 1u);
  EXPECT_EQ(r.Status, 0);
  EXPECT_EQ(r.TotalBytes, text.size());
  EXPECT_EQ(r.Crc, kz::UpdateCrc16(0, text.data(), static_cast<int32_t>(text.size())));
  EXPECT_EQ(r.Packed.size() % 16384, 0u);
  EXPECT_EQ(r.Packed.size(), r.PackedSize);
  // Full loads of the complete encoding, short of its end.
  EXPECT_LT(r.Packed.size(), whole.Packed.size());
  EXPECT_TRUE(std::equal(r.Packed.begin(), r.Packed.end(), whole.Packed.begin()));
}

// Nothing left in the shared buffers by earlier members changes the output.
TEST(EncoderFrameTest, OutputDependsOnTheSourceAlone) {
  const Bytes text = kztest::TextBytes(300000, 3);
  const Bytes other = kztest::RandomBytes(150000, 9);
  for (Method m : {Method::Lh5, Method::Lh6, Method::Lh7}) {
    EncoderRig fresh;
    const auto first = fresh.Encode(m, 2, text);
    EncoderRig used;
    used.Encode(Method::Lh7, 4, other);
    used.Encode(m, 3, kztest::TextBytes(1000, 4));
    const auto again = used.Encode(m, 2, text);
    EXPECT_EQ(first.Packed, again.Packed) << "lh" << static_cast<int>(m);
    EXPECT_EQ(first.StoreFallback, 0u);
  }
}

// Level 4 searches deeper than 1; outside 1..4 the limits in force stay.
TEST(LevelTest, EncodeAppliesTheLevel) {
  const Bytes text = kztest::TextBytes(400000, 8);
  for (Method m : {Method::Lh5, Method::Lh6, Method::Lh7}) {
    EncoderRig rig;
    const auto level1 = rig.Encode(m, 1, text);
    const auto level4 = rig.Encode(m, 4, text);
    EXPECT_LT(level4.Packed.size(), level1.Packed.size()) << "lh" << static_cast<int>(m);
    EXPECT_EQ(rig.Encode(m, 9, text).Packed, level4.Packed) << "lh" << static_cast<int>(m);
  }
}

// The chain limits of each level (only the search depth shows them, and
// the packed bytes depend on them); an encoder that never saw a level from
// 1 to 4 keeps level 2's, and other levels keep the limits in force.
TEST(ApplyLevelTest, LimitsByLevelAndLevelTwoBeforeAnyLevel) {
  KzLhaArchiver a;
  ASSERT_GE(a.Init(), 0);
  a.CompressionLevel = 0;
  ASSERT_EQ(a.AllocEncodeBuffers(), 0);  // lends the buffers and applies the level
  const uint32_t rows[][3] = {{0, 16, 32}, {1, 16, 18}, {3, 32, 64}, {7, 32, 64}, {4, 48, 256}, {2, 16, 32}};
  for (const auto& r : rows) {
    a.CompressionLevel = r[0];
    a.Lha6Encoder.ApplyLevel();
    EXPECT_EQ(EncoderTestAccess::LiteralChainLimit(a.Lha6Encoder), r[1]) << "level " << r[0];
    EXPECT_EQ(EncoderTestAccess::MatchChainLimit(a.Lha6Encoder), r[2]) << "level " << r[0];
  }
  a.FreeEncodeBuffers();
}

TEST(EncodeBuffersTest, AFailedAllocationReleasesEverything) {
  for (int index = 1; index <= 6; ++index) {
    KzLhaArchiver a;
    ASSERT_GE(a.Init(), 0);
    kz::testing::FailEncodeAllocation(index);
    EXPECT_EQ(a.AllocEncodeBuffers(), kz::E_Outofmemory) << index;
    EXPECT_EQ(a.Status, kz::E_Outofmemory);
    EXPECT_TRUE(a.ErrorFileName == nullptr || a.ErrorFileName[0] == 0);
    const void* buffers[] = {a.InputOrBlockBuffer, a.Lh1OrOutputBuffer, a.HashHeadTable,
                             a.HashChainTable,     a.DictionaryOrText,  a.CrowdedFlags};
    for (const void* b : buffers) EXPECT_EQ(b, nullptr) << index;
  }
}


// The bit output: exact bytes, the pending bits and the 16 KiB writes.
class BitWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rig_.Open(Bytes(1 << 20, 'x'));  // a large source: no write turns into a store
    EncoderTestAccess::ResetFrame(enc());
  }
  kz::EncoderBase& enc() { return rig_.Encoder(Method::Lh5); }
  void Put(uint32_t n, uint32_t v) { EncoderTestAccess::PutBits(enc(), n, v); }
  // What the output buffer holds after handing over the complete bytes.
  Bytes Buffered() {
    EncoderTestAccess::SyncBits(enc());
    const uint8_t* b = EncoderTestAccess::OutputBuffer(enc());
    return Bytes(b, b + EncoderTestAccess::OutputCount(enc()));
  }
  uint32_t FreeBits() { return 8 - EncoderTestAccess::PendingBitCount(enc()); }

  EncoderRig rig_;
};

// Worked writes: each step's bits, the bytes handed over, the bits left.
TEST_F(BitWriterTest, ExactBytesAndPendingBits) {
  struct Step { uint32_t N, V; Bytes Buffered; uint32_t Free; };
  const std::vector<std::vector<Step>> cases = {
      {{3, 5, {}, 5}, {5, 1, {0xA1}, 8}},                                    // 3 + 5 bits make one byte
      {{3, 5, {}, 5}, {16, 0xABCD, {0xB5, 0x79}, 5}, {7, 0, {0xB5, 0x79, 0xA0}, 6}},  // 16 across a partial byte
      {{7, 0, {}, 1}},                                                      // padding with nothing pending
      {{5, 0x1F, {}, 3}, {0, 0, {}, 3}, {3, 0, {0xF8}, 8}},                  // zero bits change nothing
  };
  for (size_t c = 0; c < cases.size(); ++c) {
    EncoderTestAccess::ResetFrame(enc());
    for (const Step& s : cases[c]) {
      Put(s.N, s.V);
      EXPECT_EQ(Buffered(), s.Buffered) << "case " << c;
      EXPECT_EQ(FreeBits(), s.Free) << "case " << c;
    }
  }
  EncoderTestAccess::ResetFrame(enc());
  Put(3, 5);
  Put(16, 0xABCD);
  Buffered();
  EXPECT_EQ(EncoderTestAccess::PendingBits(enc()), 0b101u);
}

// The block output's fast path puts what the plain puts would, whatever is
// pending when it starts and across the output buffer's end, where it
// hands over to the plain path and back: codes of 16 + 16 + 15 bits.
TEST(BlockCodesTest, WriteCodesPutsWhatPutBitsWould) {
  std::mt19937 rng(7);
  Bytes block;
  uint32_t size = 0;
  while (block.size() < 30000) {
    uint8_t flags = static_cast<uint8_t>(rng());
    const size_t flagAt = block.size();
    block.push_back(0);
    const bool literals = size >= 8 && rng() % 3 == 0;  // whole groups of literals take their own path
    for (uint32_t bit = 0x80; bit != 0; bit >>= 1, ++size) {
      const bool match = size < 8 || (!literals && rng() % 4 != 0);  // matches first, on the pending bits
      block.push_back(static_cast<uint8_t>(match ? rng() % (kz::NC - 256) : rng()));
      if (match) {
        flags |= static_cast<uint8_t>(bit);
        block.push_back(static_cast<uint8_t>(0x80 | rng()));  // 15 bits below the leading one
        block.push_back(static_cast<uint8_t>(rng()));
      } else {
        flags &= static_cast<uint8_t>(~bit);
      }
    }
    block[flagAt] = flags;
  }
  Bytes outputs[2];
  for (int plain = 0; plain < 2; ++plain) {
    EncoderRig rig;
    rig.Open(Bytes(1 << 20, 'x'));
    kz::EncoderBase& e = rig.Encoder(Method::Lh7);
    EncoderTestAccess::ResetFrame(e);
    std::mt19937 codes(11);
    std::vector<uint16_t> charCode(kz::NC), posCode(17);
    for (uint32_t c = 0; c < kz::NC; ++c) {
      charCode[c] = static_cast<uint16_t>(codes());
      EncoderTestAccess::SetCode(e, false, c, 16, charCode[c]);
    }
    for (uint32_t k = 0; k <= 16; ++k) {
      posCode[k] = static_cast<uint16_t>(codes());
      EncoderTestAccess::SetCode(e, true, k, 16, posCode[k]);
    }
    std::copy(block.begin(), block.end(), EncoderTestAccess::BlockBuffer(e));
    for (uint32_t i = 0; i < 16384 - 100; ++i) EncoderTestAccess::PutBits(e, 8, i & 0xFF);
    EncoderTestAccess::PutBits(e, 29, 0x1ABCDEF);  // more pending than a byte
    if (plain) {
      // Each part on its own: the character code, the position's code, the
      // bits below the position's leading one.
      const uint8_t* q = block.data();
      uint32_t flags = 0;
      for (uint32_t i = 0; i < size; ++i) {
        flags = i % 8 == 0 ? *q++ : flags << 1;
        const bool match = (flags & 0x80) != 0;
        const uint32_t c = *q++ + (match ? 256u : 0u);
        EncoderTestAccess::PutBits(e, 16, charCode[c]);
        if (!match) continue;
        const uint32_t p = uint32_t{q[0]} << 8 | q[1];
        q += 2;
        const uint32_t k = static_cast<uint32_t>(std::bit_width(p));
        EncoderTestAccess::PutBits(e, 16, posCode[k]);
        EncoderTestAccess::PutBits(e, k - 1, p & ((1u << (k - 1)) - 1));
      }
    } else {
      EncoderTestAccess::WriteCodes(e, size);
    }
    EncoderTestAccess::PutBits(e, 7, 0);
    EncoderTestAccess::SyncBits(e);
    EncoderTestAccess::FinishOutput(e);
    outputs[plain] = rig.Close();
  }
  ASSERT_GT(outputs[1].size(), 3 * 16384u);
  EXPECT_TRUE(outputs[0] == outputs[1]) << "sizes " << outputs[0].size() << ", " << outputs[1].size();
}

TEST_F(BitWriterTest, The16385thByteWritesOneFullBuffer) {
  for (uint32_t i = 0; i < 16385; ++i) Put(8, i & 0xFF);
  Buffered();
  EXPECT_EQ(EncoderTestAccess::OutputCount(enc()), 1u);
  EXPECT_EQ(rig_.Archiver().Transfer.PackedSize, 16384u);
  EXPECT_EQ(EncoderTestAccess::OutputBuffer(enc())[0], 16384 & 0xFF);
  const Bytes written = rig_.Close();
  ASSERT_EQ(written.size(), 16384u);
  EXPECT_EQ(written[16383], 16383 & 0xFF);
}

}  // namespace
