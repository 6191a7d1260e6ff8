// The bit output: exact bytes, the pending bits and the 16 KiB writes. (The
// store test each write makes is held to its boundary by the worked
// members of block_output_test.)
#include <gtest/gtest.h>

#include "encode/encoder_rig.h"

namespace {

using kz::EncoderTestAccess;
using kztest::Bytes;
using kztest::EncoderRig;
using kztest::Method;

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
