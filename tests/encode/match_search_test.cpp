// The match search: which codes a source turns into, at the window's edge,
// at the block boundary and under the chain limits of the levels.
#include <gtest/gtest.h>

#include <algorithm>

#include "encode/encoder_rig.h"

namespace {

using kz::BlockCode;
using kz::Lit;
using kz::Match;
using kztest::Bytes;
using kztest::EncoderRig;
using kztest::Method;
using kztest::ToBytes;

std::vector<BlockCode> Literals(const std::string& text) {
  std::vector<BlockCode> codes;
  for (unsigned char c : text) codes.push_back(Lit(c));
  return codes;
}

std::vector<BlockCode> Concat(std::vector<BlockCode> a, const std::vector<BlockCode>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct SearchCase { const char* Name; std::string Source; std::vector<BlockCode> Expect; };

const SearchCase kSearchCases[] = {
    // Text position 0 is never a match source: the first match starts at the third byte.
    {"TenEqualBytes", "aaaaaaaaaa", {Lit('a'), Lit('a'), Match(8, 0)}},
    {"AbcRepeated", "abcabcabcabc", Concat(Literals("abca"), {Match(8, 2)})},
    // Of equally long matches the nearest wins.
    {"NearestOfEqualMatches",
     "XabcdYabcdZabcd",
     Concat(Concat(Literals("XabcdY"), {Match(4, 4)}), Concat(Literals("Z"), {Match(4, 4)}))},
    // A longer match farther back beats a shorter near one.
    {"LongerFartherMatchWins",
     "XabcdefYabcdZabcdef",
     Concat(Concat(Literals("XabcdefY"), {Match(4, 6)}), Concat(Literals("Z"), {Match(6, 11)}))},
    {"OneByte", "A", Literals("A")},
    {"TwoBytes", "AB", Literals("AB")},
    {"NoRepeatedGroup", "abcdefghijklmnop", Literals("abcdefghijklmnop")},
    // A match may end exactly at the last source byte, never beyond it.
    {"MatchEndsAtTheEnd", "xyzxyzxyz", Concat(Literals("xyzx"), {Match(5, 2)})},
};

class SearchCodesTest : public ::testing::TestWithParam<std::tuple<SearchCase, Method>> {};

TEST_P(SearchCodesTest, CodesOfTheSource) {
  const auto& [c, method] = GetParam();
  EncoderRig rig;
  EXPECT_EQ(rig.SearchCodes(method, 2, ToBytes(c.Source)), c.Expect);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SearchCodesTest,
    ::testing::Combine(::testing::ValuesIn(kSearchCases),
                       ::testing::Values(Method::Lh5, Method::Lh6, Method::Lh7)),
    [](const auto& info) {
      return std::string(std::get<0>(info.param).Name) + "_lh" +
             std::to_string(static_cast<uint32_t>(std::get<1>(info.param)));
    });

class WindowEdgeTest : public ::testing::TestWithParam<Method> {};

// A source whose bytes 1..20 come again `distance` positions later, and
// which repeats no other three-byte group. (Its byte at `distance` may equal
// byte 0, but position 0 is never a match source.)
Bytes RepeatAt(uint32_t distance) {
  Bytes s = kztest::UniquePairBytes(distance + 1);
  for (uint32_t i = 1; i <= 20; ++i) s.push_back(s[i]);
  return s;
}

// The codes of a source's last block, given how many it makes in all.
size_t InLastBlock(size_t total) { return total > 36392 ? total - 36392 : total; }

// A repetition at DictSize - 1 is found; one at DictSize is not.
TEST_P(WindowEdgeTest, RepetitionsAtTheDictionarysEdge) {
  const uint32_t dict = kztest::DictSizeOf(GetParam());
  EncoderRig rig;
  auto codes = rig.SearchCodes(GetParam(), 2, RepeatAt(dict - 1));
  ASSERT_EQ(codes.size(), InLastBlock(dict + 1));
  for (size_t i = 0; i + 1 < codes.size(); ++i) ASSERT_FALSE(codes[i].Match) << i;
  EXPECT_EQ(codes.back(), Match(20, dict - 2));
  codes = rig.SearchCodes(GetParam(), 2, RepeatAt(dict));
  ASSERT_EQ(codes.size(), InLastBlock(dict + 21));
  for (const BlockCode& c : codes) ASSERT_FALSE(c.Match);
}

// The 36393rd literal opens the second block; the first holds 36392 codes.
TEST_P(WindowEdgeTest, FirstBlockOfLiteralsHolds36392Codes) {
  EncoderRig rig;
  const Bytes source = kztest::UniquePairBytes(36393);
  const auto codes = rig.SearchCodes(GetParam(), 2, source);
  EXPECT_EQ(codes, std::vector<BlockCode>{Lit(source.back())});
  EXPECT_EQ(kz::EncoderTestAccess::BlockPos(rig.Encoder(GetParam())), 2u);
  const auto r = rig.Encode(GetParam(), 2, source);
  ASSERT_GE(r.Packed.size(), 2u);
  EXPECT_EQ((r.Packed[0] << 8) | r.Packed[1], 36392);
}

INSTANTIATE_TEST_SUITE_P(Methods, WindowEdgeTest,
                         ::testing::Values(Method::Lh5, Method::Lh6, Method::Lh7));

// Chain limits. `count` earlier occurrences of "abc" lie on the probe's
// chain; only the oldest continues like the probe ("abcdefgh"). None of the
// later occurrences is searched itself (each sits inside a longer match),
// so no walk has marked the chain crowded before the probe's.
struct Probe {
  Bytes Source;
  uint32_t OldestDistanceCode;  // of the probe's match with the oldest occurrence
};

Probe ChainProbe(int count, bool probeAfterMatch) {
  const Bytes unique = kztest::UniquePairBytes(4096);
  size_t u = 256;  // past the run of zero bytes at the sequence's start
  auto take = [&](size_t n) {
    const auto from = unique.begin() + static_cast<std::ptrdiff_t>(u);
    u += n;
    return Bytes(from, from + static_cast<std::ptrdiff_t>(n));
  };
  Bytes s;
  // Braced lists run their parts in order, so take() hands out fresh bytes.
  auto append = [&s](std::initializer_list<Bytes> parts) {
    for (const Bytes& b : parts) s.insert(s.end(), b.begin(), b.end());
  };
  append({take(8)});
  const size_t oldest = s.size();
  append({ToBytes("abcdefgh"), take(8)});
  const Bytes w = take(4);
  for (int i = 1; i < count; ++i) append({w, ToBytes("abc"), take(6)});  // "w abc" again: a match covering "abc"
  if (probeAfterMatch) {
    const Bytes q = take(4);
    append({q, take(6), q});  // a match of 4 right before the probe
  } else {
    append({take(1)});  // a literal right before the probe
  }
  const size_t probe = s.size();
  append({ToBytes("abcdefgh"), take(6)});
  return {s, static_cast<uint32_t>(probe - oldest - 1)};
}

// Whether the probe's "abcdefgh" came out as one match with the oldest
// occurrence (otherwise: "a", then a match of seven from there).
bool ProbeReachedOldest(uint32_t level, int count, bool probeAfterMatch) {
  const Probe p = ChainProbe(count, probeAfterMatch);
  EncoderRig rig;
  const auto codes = rig.SearchCodes(Method::Lh5, level, p.Source);
  const auto last = std::find_if(codes.rbegin(), codes.rend(), [](const BlockCode& c) { return c.Match; });
  return last != codes.rend() && *last == Match(8, p.OldestDistanceCode);
}

// At level 1 a literal step examines 15 candidates, a step after a match
// 17; the next level reaches further.
TEST(ChainLimitTest, CandidatesExaminedAtLevelOne) {
  EXPECT_TRUE(ProbeReachedOldest(1, 15, false));
  EXPECT_FALSE(ProbeReachedOldest(1, 16, false));
  EXPECT_TRUE(ProbeReachedOldest(3, 16, false));
  EXPECT_TRUE(ProbeReachedOldest(1, 17, true));
  EXPECT_FALSE(ProbeReachedOldest(1, 18, true));
  EXPECT_TRUE(ProbeReachedOldest(2, 18, true));
}

}  // namespace
