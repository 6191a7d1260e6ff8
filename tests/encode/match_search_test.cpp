// The match search: which codes a source turns into, at the window's edge,
// at the block boundary and under the chain limits of the levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "encode/encoder_rig.h"

namespace {

using kz::BlockCode;
using kz::Lit;
using kz::Match;
using kz::MaxMatch;
using kz::MinMatch;
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

// A chain entry holds the distances one to four steps back, each held at
// DictSize - 1, so that a sum past the window can never wrap into it.
template <const kz::EncoderParams& P>
void CheckExtendLink() {
  const uint32_t end = P.DictSize - 1;
  auto lanes = [](uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return uint64_t{a} | uint64_t{b} << 16 | uint64_t{c} << 32 | uint64_t{d} << 48;
  };
  std::mt19937 rng(P.Method);
  struct Case {
    uint64_t Prev;
    uint32_t Back;
  };
  std::vector<Case> cases = {{0, 1},
                             {lanes(end, end, end, end), 1},
                             {lanes(end, end, end, end), end},
                             {lanes(1, 2, 3, 4), end},
                             {lanes(end - 5, end - 4, end, end), 5},  // sums at end, end + 1, ...
                             {lanes(end / 2, end / 2 + 1, end, end), end / 2 + 1}};
  for (int i = 0; i < 2000; ++i) {
    uint32_t d[3];
    for (uint32_t& v : d) v = static_cast<uint32_t>(rng() % (end + 1));
    std::sort(d, d + 3);
    cases.push_back({lanes(d[0], d[1], d[2], end), static_cast<uint32_t>(1 + rng() % end)});
  }
  for (const Case& c : cases) {
    uint64_t expected = 0;
    for (int lane = 0; lane < 4; ++lane) {
      const uint32_t before = lane == 0 ? 0 : static_cast<uint32_t>(c.Prev >> (16 * (lane - 1))) & 0xFFFF;
      expected |= uint64_t{std::min(before + c.Back, end)} << (16 * lane);
    }
    ASSERT_EQ(kz::EncoderTestAccess::ExtendLink<P>(c.Prev, c.Back), expected)
        << "lh" << P.Method << " prev " << std::hex << c.Prev << " back " << c.Back;
  }
  // A run's insertion keeps this entry without extending it: it must be the
  // entry that four steps of distance 1 reach from any start, and a fixed point.
  for (const Case& c : cases) {
    uint64_t e = c.Prev;
    for (int step = 0; step < 4; ++step) e = kz::EncoderTestAccess::ExtendLink<P>(e, 1);
    ASSERT_EQ(e, kz::EncoderTestAccess::kRunEntry<P>) << "lh" << P.Method << " prev " << std::hex << c.Prev;
  }
  EXPECT_EQ(kz::EncoderTestAccess::ExtendLink<P>(kz::EncoderTestAccess::kRunEntry<P>, 1),
            kz::EncoderTestAccess::kRunEntry<P>);
}

TEST(ChainEntryTest, DistancesAddAndHoldAtTheWindowEnd) {
  CheckExtendLink<kz::kLh5EncParams>();
  CheckExtendLink<kz::kLh6EncParams>();
  CheckExtendLink<kz::kLh7EncParams>();
}

// The search as plainly as it can be written: full positions in the
// tables, a byte test before each comparison, a fresh pass over crowded
// buckets at every search. The encoder keeps compact tables and skips work
// it can prove needless; its codes must be these, for any source.
struct PlainSearch {
  uint32_t Dict, Mask, Shift, LiteralLimit, MatchLimit;
  const Bytes& Source;
  size_t Read = 0;
  std::vector<uint8_t> Text = std::vector<uint8_t>(2 * Dict + 300, 0);
  std::vector<uint32_t> Head = std::vector<uint32_t>(Mask + 1, 0), Prev = std::vector<uint32_t>(Dict, 0);
  std::vector<uint8_t> Crowded = std::vector<uint8_t>(Mask + 1, 0);
  uint32_t Pos = 0, HashValue = 0, MatchPos = 0, Limit = 0;
  int32_t Remaining = 0, MatchLen = 0;

  // As the file stream reads: a short read fills the rest with zeros.
  int32_t Fill(uint8_t* to, size_t length) {
    const size_t n = std::min(length, Source.size() - Read);
    std::memcpy(to, Source.data() + Read, n);
    std::memset(to + n, 0, length - n);
    Read += n;
    return static_cast<int32_t>(n);
  }
  void Insert() {
    Prev[Pos & (Dict - 1)] = Head[HashValue];
    Head[HashValue] = Pos;
  }
  void Advance() {
    --Remaining;
    if (++Pos >= 2 * Dict) {
      std::memmove(Text.data(), Text.data() + Dict, Dict);
      Remaining += Fill(Text.data() + Dict, Dict);
      Pos -= Dict;
      for (auto* table : {&Head, &Prev})
        for (uint32_t& v : *table) v = v > Dict ? v - Dict : 0;
    }
    HashValue = ((HashValue << Shift) ^ Text[Pos + 2]) & Mask;
  }
  void FindMatch() {
    int32_t max = MaxMatch;
    if (MatchLen < 2) MatchLen = 2;
    MatchPos = Pos;
    uint32_t off = 0, h = HashValue;
    while (Crowded[h] != 0 && off < MaxMatch - MinMatch) h = ((h << Shift) ^ Text[Pos + 2 + ++off]) & Mask;
    if (off == MaxMatch - MinMatch) off = 0;
    for (;;) {
      uint32_t counter = Limit, s = Head[h];
      const uint32_t lowest = Pos > Dict ? Pos - Dict + off : off;
      int mark = 0;
      for (; s > lowest; s = Prev[s & (Dict - 1)]) {
        if (--counter == 0) {
          mark = 1;
          break;
        }
        if (Text[s - off + MatchLen] != Text[Pos + MatchLen]) continue;
        int32_t len = 0;
        while (len < max && Text[s - off + len] == Text[Pos + len]) ++len;
        if (len <= MatchLen) continue;
        MatchLen = len;
        MatchPos = s - off;
        if (len == max) {
          mark = 2;
          break;
        }
      }
      if (mark != 2) Crowded[h] = static_cast<uint8_t>(mark);
      if (MatchLen > static_cast<int32_t>(off) + 2 || off == 0) break;
      max = static_cast<int32_t>(off) + 2;
      off = 0;
      h = HashValue;
    }
    Insert();
  }
  std::vector<BlockCode> Codes() {
    std::vector<BlockCode> codes;
    Remaining = Fill(Text.data(), 2 * Dict);
    std::fill_n(Text.begin() + Remaining, 300, 0);
    MatchLen = std::min(Remaining, 2);
    HashValue = ((((uint32_t{Text[0]} << Shift) ^ Text[1]) << Shift) ^ Text[2]) & Mask;
    Insert();
    while (Remaining > 0) {
      Limit = LiteralLimit;
      const int32_t prevLen = MatchLen;
      const uint32_t distance = Pos - MatchPos;
      MatchLen -= 1;
      Advance();
      FindMatch();
      MatchLen = std::min(MatchLen, Remaining);
      if (MatchLen > prevLen || prevLen < MinMatch) {
        codes.push_back(Lit(Text[Pos - 1]));
        continue;
      }
      codes.push_back(Match(static_cast<uint32_t>(prevLen), distance - 1));
      for (int32_t i = 0; i < prevLen - 2; ++i) {
        Advance();
        Insert();
      }
      Advance();
      MatchLen = 2;
      Limit = MatchLimit;
      FindMatch();
      MatchLen = std::min(MatchLen, Remaining);
    }
    return codes;
  }
};

// Sources of few distinct groups, so that walks are cut and buckets turn
// crowded and back: runs over a small alphabet, and such runs broken by
// stretches of varied bytes. 30000 bytes make one block at any mix of codes,
// and slide lh5's window three times.
Bytes CrowdedSource(uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes s;
  while (s.size() < 30000) {
    const uint32_t alphabet = seed % 2 == 0 ? 3 : 2 + rng() % 6;
    for (uint32_t n = 200 + rng() % 3000; n > 0; --n) s.push_back(static_cast<uint8_t>(rng() % alphabet * 0x11));
    for (uint32_t n = rng() % 400; n > 0; --n) s.push_back(static_cast<uint8_t>(rng()));
  }
  s.resize(30000);
  return s;
}

class PlainSearchTest : public ::testing::TestWithParam<std::tuple<Method, uint32_t>> {};

TEST_P(PlainSearchTest, CodesMatchThePlainSearch) {
  const auto [method, level] = GetParam();
  const kz::EncoderParams& p = method == Method::Lh5   ? kz::kLh5EncParams
                               : method == Method::Lh6 ? kz::kLh6EncParams
                                                       : kz::kLh7EncParams;
  for (uint32_t seed = 1; seed <= 4; ++seed) {
    const Bytes source = CrowdedSource(seed);
    EncoderRig rig;
    const auto codes = rig.SearchCodes(method, level, source);
    const kz::EncoderBase& e = rig.Encoder(method);
    PlainSearch plain{p.DictSize, p.HashBuckets - 1, p.HashShift, kz::EncoderTestAccess::LiteralChainLimit(e),
                      kz::EncoderTestAccess::MatchChainLimit(e), source};
    const auto expected = plain.Codes();
    ASSERT_EQ(codes.size(), expected.size()) << "seed " << seed;
    for (size_t i = 0; i < codes.size(); ++i) ASSERT_EQ(codes[i], expected[i]) << "seed " << seed << ", code " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(MethodsAndLevels, PlainSearchTest,
                         ::testing::Combine(::testing::Values(Method::Lh5, Method::Lh6, Method::Lh7),
                                            ::testing::Values(1u, 3u)));

}  // namespace
