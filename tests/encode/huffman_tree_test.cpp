// Code construction: lengths with their tie-breaks, the 16-bit cap, and the
// canonical codes a decoder rebuilds from the lengths alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "encode/encoder_rig.h"

namespace {

using kz::EncoderTestAccess;
using kztest::EncoderRig;
using kztest::Method;

struct TreeCase {
  const char* Name;
  std::vector<uint16_t> Freq;
  int16_t ExpectRoot;  // -1: a node (n or above)
  std::vector<uint8_t> ExpectLen;
  std::vector<uint16_t> ExpectCode;  // for the symbols with a length, in symbol order
};

std::vector<uint16_t> Fibonacci(size_t n) {
  std::vector<uint16_t> f{1, 1};
  while (f.size() < n) f.push_back(static_cast<uint16_t>(f[f.size() - 1] + f[f.size() - 2]));
  return f;
}

const TreeCase kTreeCases[] = {
    {"NoSymbol", {0, 0, 0, 0}, 0, {0, 0, 0, 0}, {}},
    {"OneSymbol", {0, 0, 7, 0}, 2, {0, 0, 0, 0}, {}},
    {"TwoSymbols", {0, 5, 0, 3}, -1, {0, 1, 0, 1}, {0, 1}},
    {"FourEqual", {3, 3, 3, 3}, -1, {2, 2, 2, 2}, {0, 1, 2, 3}},
    {"OneToFive", {1, 2, 3, 4, 5}, -1, {3, 3, 2, 2, 2}, {6, 7, 0, 1, 2}},
    {"Fibonacci17Deep",
     Fibonacci(18),
     -1,
     {16, 16, 16, 16, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1},
     {0xFFFC, 0xFFFD, 0xFFFE, 0xFFFF, 0x3FFE, 0x1FFE, 0x0FFE, 0x07FE, 0x03FE, 0x01FE, 0x00FE,
      0x007E, 0x003E, 0x001E, 0x000E, 0x0006, 0x0002, 0x0000}},
};

class MakeTreeTest : public ::testing::TestWithParam<TreeCase> {
 protected:
  static EncoderRig& Rig() {
    static EncoderRig rig;
    return rig;
  }
};

TEST_P(MakeTreeTest, LengthsCodesAndRoot) {
  const TreeCase& c = GetParam();
  const int32_t n = static_cast<int32_t>(c.Freq.size());
  std::vector<uint16_t> freq(2 * n - 1, 0);
  std::copy(c.Freq.begin(), c.Freq.end(), freq.begin());
  std::vector<uint8_t> len(n, 0xEE);
  std::vector<uint16_t> code(n, 0xEEEE);
  const int16_t root =
      EncoderTestAccess::MakeTree(Rig().Encoder(Method::Lh5), n, freq.data(), len.data(), code.data());
  if (c.ExpectRoot >= 0) {
    EXPECT_EQ(root, c.ExpectRoot);
    EXPECT_EQ(code[root], 0);
  } else {
    ASSERT_GE(root, n);
    // The root carries the sum of all frequencies: the block's code count.
    EXPECT_EQ(freq[root], std::accumulate(c.Freq.begin(), c.Freq.end(), 0u));
  }
  EXPECT_EQ(len, c.ExpectLen);
  std::vector<uint16_t> codes;
  for (int32_t i = 0; i < n; ++i) {
    if (len[i] > 0) codes.push_back(code[i]);
  }
  EXPECT_EQ(codes, c.ExpectCode);
}

INSTANTIATE_TEST_SUITE_P(Cases, MakeTreeTest, ::testing::ValuesIn(kTreeCases),
                         [](const auto& info) { return std::string(info.param.Name); });

// Random frequencies, a fifth of them shuffled Fibonacci counts about 21
// deep (several capping passes): lengths within 16 bits, a complete
// prefix-free code, and no rarer symbol with a shorter code.
TEST(MakeTreeProperties, RandomFrequenciesGiveCompletePrefixCodes) {
  EncoderRig rig;
  std::mt19937 rng(11);
  for (int round = 0; round < 300; ++round) {
    const bool deep = round % 5 == 1;
    const int32_t n = deep ? 22 : round % 3 == 0 ? 510 : 1 + static_cast<int32_t>(rng() % 40);
    std::vector<uint16_t> freq(2 * n - 1, 0);
    if (deep) {
      std::vector<uint16_t> fib = Fibonacci(22);  // their sum stays below 2^16
      std::shuffle(fib.begin(), fib.end(), rng);
      std::copy(fib.begin(), fib.end(), freq.begin());
    } else {
      int maxExp = 0;  // skewed counts whose sum stays within a block's 16-bit count
      while ((static_cast<uint32_t>(n) * 4u << (maxExp + 1)) < 60000) ++maxExp;
      for (int32_t i = 0; i < n; ++i) {
        if (rng() % 3 != 0) freq[i] = static_cast<uint16_t>((1u << (rng() % (maxExp + 1))) + rng() % 3);
      }
    }
    const std::vector<uint16_t> f(freq.begin(), freq.begin() + n);
    std::vector<uint8_t> len(n);
    std::vector<uint16_t> code(n);
    const int16_t root =
        EncoderTestAccess::MakeTree(rig.Encoder(Method::Lh7), n, freq.data(), len.data(), code.data());
    if (std::count_if(f.begin(), f.end(), [](uint16_t x) { return x != 0; }) < 2) continue;
    ASSERT_GE(root, n);
    uint64_t kraft = 0;
    for (int32_t i = 0; i < n; ++i) {
      ASSERT_EQ(len[i] == 0, f[i] == 0) << "symbol " << i;
      ASSERT_LE(len[i], 16);
      if (len[i]) kraft += uint64_t{1} << (16 - len[i]);
    }
    ASSERT_EQ(kraft, 65536u) << "round " << round;
    for (int32_t i = 0; i < n; ++i) {
      for (int32_t j = 0; j < n; ++j) {
        if (i == j || !len[i] || !len[j]) continue;
        ASSERT_TRUE(f[i] >= f[j] || len[i] >= len[j]) << "rarer " << i << " shorter than " << j;
        ASSERT_TRUE(len[i] > len[j] || code[i] != code[j] >> (len[j] - len[i])) << i << " a prefix of " << j;
      }
    }
  }
}

}  // namespace
