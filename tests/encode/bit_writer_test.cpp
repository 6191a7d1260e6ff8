// The bit output: exact bytes, the pending bits, the 16 KiB writes and the
// store test that each write makes.
#include <gtest/gtest.h>

#include <random>

#include "encode/encoder_rig.h"

namespace {

using kz::EncoderTestAccess;
using kztest::Bytes;
using kztest::EncoderRig;
using kztest::Method;

// The byte-at-a-time writer the wide one must match.
class ReferenceBitWriter {
 public:
  void PutBits(uint32_t n, uint32_t value) {
    if (static_cast<int32_t>(n) < free_) {
      free_ -= static_cast<int32_t>(n);
      pending_ |= value << free_;
      return;
    }
    const int32_t d = static_cast<int32_t>(n) - free_;
    out_.push_back(static_cast<uint8_t>(pending_ | (value >> d)));
    if (d >= 8) {
      out_.push_back(static_cast<uint8_t>(value >> (d - 8)));
      free_ = 16 - d;
    } else {
      free_ = 8 - d;
    }
    pending_ = value << free_;
  }
  const Bytes& Out() const { return out_; }
  int32_t FreeBits() const { return free_; }

 private:
  uint32_t pending_ = 0;
  int32_t free_ = 8;
  Bytes out_;
};

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
  struct Step {
    uint32_t N, V;
    Bytes Buffered;
    uint32_t Free;
  };
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

// Random widths and values, long enough to cross several buffer loads: the
// wide writer emits exactly what the byte-at-a-time writer does.
TEST_F(BitWriterTest, MatchesTheByteAtATimeWriter) {
  std::mt19937 rng(7);
  ReferenceBitWriter ref;
  for (int i = 0; i < 60000; ++i) {
    const uint32_t n = rng() % 17;
    const uint32_t v = n == 0 ? 0 : rng() & ((1u << n) - 1);
    Put(n, v);
    ref.PutBits(n, v);
  }
  Put(7, 0);
  ref.PutBits(7, 0);
  EncoderTestAccess::SyncBits(enc());
  EncoderTestAccess::FinishOutput(enc());
  EXPECT_EQ(FreeBits(), 8u);
  EXPECT_EQ(rig_.Close(), ref.Out());
}

struct StoreTestCase {
  uint64_t OriginalSize;
  uint32_t BytesWritten;
  uint32_t ExpectFallback;
};

class StoreTest : public ::testing::TestWithParam<StoreTestCase> {};

// Packed data as long as the file stays packed; one byte more turns it stored.
TEST_P(StoreTest, FinishOutputComparesWithTheSourceSize) {
  EncoderRig rig;
  rig.Open(Bytes(GetParam().OriginalSize, 'q'));
  kz::EncoderBase& e = rig.Encoder(Method::Lh6);
  EncoderTestAccess::ResetFrame(e);
  for (uint32_t i = 0; i < GetParam().BytesWritten; ++i) EncoderTestAccess::PutBits(e, 8, 0x55);
  EncoderTestAccess::SyncBits(e);
  EncoderTestAccess::FinishOutput(e);
  EXPECT_EQ(rig.Archiver().Transfer.StoreFallback, GetParam().ExpectFallback);
  EXPECT_EQ(rig.Archiver().Transfer.PackedSize, GetParam().BytesWritten);
  EXPECT_EQ(rig.Close().size(), GetParam().BytesWritten);
}

INSTANTIATE_TEST_SUITE_P(Sizes, StoreTest,
                         ::testing::Values(StoreTestCase{10, 10, 0}, StoreTestCase{10, 11, 1},
                                           StoreTestCase{10, 9, 0},
                                           StoreTestCase{20000, 20000, 0},
                                           StoreTestCase{20000, 20001, 1}));

}  // namespace
