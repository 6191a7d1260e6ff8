// Match search: hash chains over a sliding text window, lazy evaluation with
// one position of look-ahead, and the collection of codes into blocks.
#include <bit>
#include <cstring>

#include "encode/encoders.h"
#include "enginelib/kz_archiver.h"

namespace kz {

namespace {

inline uint64_t Load64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// Mask of the first n + 1 bytes of a word loaded from memory (0 <= n <= 7).
inline uint64_t FirstBytesMask(int32_t n) {
  if constexpr (std::endian::native == std::endian::little) {
    return ~uint64_t{0} >> (8 * (7 - n));
  } else {
    return ~uint64_t{0} << (8 * (7 - n));
  }
}

// Leading equal bytes of two words loaded from memory whose XOR is diff != 0.
inline int32_t EqualBytes(uint64_t diff) {
  if constexpr (std::endian::native == std::endian::little) {
    return std::countr_zero(diff) >> 3;
  } else {
    return std::countl_zero(diff) >> 3;
  }
}

// Number of leading bytes that a and b share, at most max; a word at a
// time, never reading past max bytes.
inline int32_t CommonLength(const uint8_t* a, const uint8_t* b, int32_t max) {
  int32_t k = 0;
  while (k + 8 <= max) {
    uint64_t x, y;
    std::memcpy(&x, a + k, 8);
    std::memcpy(&y, b + k, 8);
    const uint64_t diff = x ^ y;
    if (diff != 0) return k + EqualBytes(diff);
    k += 8;
  }
  while (k < max && a[k] == b[k]) ++k;
  return k;
}

}  // namespace

// The hash of the three-byte group at p. The rolling update gives the same
// value, since the mask drops every byte older than three.
template <const EncoderParams& P>
inline uint32_t EncoderCore<P>::GroupHash(const uint8_t* p) {
  static_assert(3 * P.HashShift >= std::bit_width(P.HashBuckets - 1));
  return ((((uint32_t{p[0]} << P.HashShift) ^ p[1]) << P.HashShift) ^ p[2]) & (P.HashBuckets - 1);
}

// Brings in what a search in bucket h waits for first: the flag, and the
// entry of the position its head names. On data with short chains that
// first entry is most of a search's wait.
template <const EncoderParams& P>
inline void EncoderCore<P>::Prefetch(uint32_t h) {
  __builtin_prefetch(Crowded + h);
  __builtin_prefetch(Links() + (Heads()[h] & (P.DictSize - 1)));
}

template <const EncoderParams& P>
inline void EncoderCore<P>::RecordCode(Collector& b, uint32_t c, uint32_t p) {
  uint8_t* const buffer = BlockBuffer;
  // 1. Groups of one flag byte and up to eight codes; a block ends only
  // between groups.
  b.FlagMask >>= 1;
  if (b.FlagMask == 0) {
    b.FlagMask = 0x80;
    if (b.BlockPos >= BlockBufferSize - 24) {
      SendBlock();
      b.BlockPos = 0;
    }
    b.FlagPos = b.BlockPos;
    buffer[b.BlockPos++] = 0;
  }
  // 2.
  buffer[b.BlockPos++] = static_cast<uint8_t>(c);
  ++CharFreq[c];
  // 3.
  if (c >= 256) {
    buffer[b.FlagPos] |= static_cast<uint8_t>(b.FlagMask);
    buffer[b.BlockPos++] = static_cast<uint8_t>(p >> 8);
    buffer[b.BlockPos++] = static_cast<uint8_t>(p);
    ++PosFreq[std::bit_width(p)];
  }
}

template <const EncoderParams& P>
void EncoderCore<P>::SearchLoop() {
  constexpr uint32_t kDict = P.DictSize;
  // 1. Fresh tables for every member.
  std::memset(HashHead, 0, P.HashBuckets * sizeof(HeadEntry));
  std::memset(HashPrev, 0, kDict * sizeof(LinkEntry));
  std::memset(Crowded, 0, P.HashBuckets);
  // 2. The first fill. The look-ahead past it is cleared so that a member's
  // codes never depend on what an earlier member left in the buffer.
  Cursor c;
  c.Remaining = static_cast<int32_t>(ReadInput(Text, 2 * kDict));
  std::memset(Text + c.Remaining, 0, kLookAheadBytes);
  // 3.
  c.MatchLen = c.Remaining < 2 ? c.Remaining : 2;
  // 4.
  c.Hash = GroupHash(Text);
  Link(Heads(), Links(), c.Hash, 0);
  // 5. Decide one position per pass, knowing its best match.
  Collector b{BlockPos, FlagMask, FlagPos};
  while (c.Remaining > 0) {
    const int32_t prevMatchLen = c.MatchLen;
    c.MatchLen = c.MatchLen - 1;
    const uint32_t distance = c.Pos - c.MatchPos;
    Advance(c);
    FindMatch(c, LiteralChainLimit);
    if (c.MatchLen > c.Remaining) c.MatchLen = c.Remaining;
    if (c.MatchLen > prevMatchLen || prevMatchLen < MinMatch) {
      RecordCode(b, Text[c.Pos - 1], 0);
      continue;
    }
    RecordCode(b, static_cast<uint32_t>(prevMatchLen) + 253, distance - 1);
    SkipInserting(c, prevMatchLen - 2);
    Advance(c);
    c.MatchLen = 2;
    FindMatch(c, MatchChainLimit);
    if (c.MatchLen > c.Remaining) c.MatchLen = c.Remaining;
  }
  BlockPos = b.BlockPos;
  FlagMask = b.FlagMask;
  FlagPos = b.FlagPos;
}

template <const EncoderParams& P>
inline void EncoderCore<P>::SlideAt(Cursor& c) {
  c.Remaining = Slide(c.Remaining);
  c.Pos -= P.DictSize;
  // 4. The groups passed over move, and bytes beyond the old fill change.
  c.CrowdedEnd = 0;
}

// Advances `count` positions, inserting each without a search: the
// positions inside a match.
template <const EncoderParams& P>
inline void EncoderCore<P>::SkipInserting(Cursor& c, int32_t count) {
  constexpr uint32_t kMask = P.HashBuckets - 1;
  const uint8_t* const text = Text;
  HeadEntry* const heads = Heads();
  LinkEntry* const links = Links();
  LinkEntry entry = links[c.Pos & (P.DictSize - 1)];  // the last position linked, into bucket c.Hash
  Prefetch(GroupHash(text + c.Pos + count + 1));  // the next search's, unless the text slides first
  for (; count > 0; --count) {
    --c.Remaining;
    if (++c.Pos >= 2 * P.DictSize) SlideAt(c);
    const uint32_t next = ((c.Hash << P.HashShift) ^ text[c.Pos + 2]) & kMask;
    if (next == c.Hash) {
      // A run: the bucket's head is the position just linked, whose entry
      // is still in a register, so no load waits on the store before it.
      // Four steps into a run the entry stays kRunEntry: tested for, the
      // next entry waits on no arithmetic.
      if (entry != kRunEntry) entry = Extend(entry, 1);
      links[c.Pos & (P.DictSize - 1)] = entry;
      heads[next] = static_cast<HeadEntry>(c.Pos);
      continue;
    }
    c.Hash = next;
    Link(heads, links, next, c.Pos);
    entry = links[c.Pos & (P.DictSize - 1)];
  }
}

template <const EncoderParams& P>
inline void EncoderCore<P>::Advance(Cursor& c) {
  --c.Remaining;
  if (++c.Pos >= 2 * P.DictSize) SlideAt(c);
  c.Hash = ((c.Hash << P.HashShift) ^ Text[c.Pos + 2]) & (P.HashBuckets - 1);
}

template <const EncoderParams& P>
[[gnu::always_inline]] inline void EncoderCore<P>::FindMatch(Cursor& c, uint32_t chainLimit) {
  constexpr uint32_t kDict = P.DictSize;
  constexpr uint32_t kMask = P.HashBuckets - 1;
  const uint8_t* const text = Text;
  const LinkEntry* const links = Links();
  uint8_t* const crowded = Crowded;
  const uint32_t pos = c.Pos;
  const uint8_t* const here = text + pos;
  // 1.
  int32_t max = MaxMatch;
  int32_t matchLen = c.MatchLen < 2 ? 2 : c.MatchLen;
  uint32_t matchPos = pos;
  uint32_t off = 0;
  uint32_t h = c.Hash;
  // 2. Pass over buckets whose last walk was cut, to a later three-byte group.
  // An earlier search may have passed over this position's groups already:
  // those up to CrowdedEnd are still crowded, so the pass resumes there.
  if (pos < c.CrowdedEnd) {
    off = c.CrowdedEnd - pos;
    h = GroupHash(here + off);
  }
  while (crowded[h] != 0 && off < MaxMatch - MinMatch) {
    ++off;
    h = ((h << P.HashShift) ^ here[2 + off]) & kMask;
  }
  c.CrowdedEnd = pos + off;
  if (off == MaxMatch - MinMatch) off = 0;
  for (;;) {
    // 3.
    uint32_t counter = chainLimit;
    // Signed and wide: a link may lead below position 0 once the text has
    // slid, and the candidates index the text without a conversion.
    intptr_t s = Heads()[h];
    const intptr_t lowest = static_cast<intptr_t>(pos > kDict ? pos - kDict + off : off);
    const uint8_t* const sources = text - off;  // candidate s is tried as source s - off
    // 4.
    uint8_t mark = 0;  // what the walk leaves in crowded[h]: 0 ran out, 1 cut, 2 as it was
    // Only a longer match counts, so a candidate must first agree on one
    // word of the bytes up to one past the best match: the first bytes
    // while the match is short, else the 8 that end it. One load, one
    // compare per candidate; the full comparison follows only on agreement.
    const uint8_t* probe;  // sources + window: candidate c's word is at probe + c
    uint64_t word, mask;
    auto aim = [&] {
      const int32_t window = matchLen < 8 ? 0 : matchLen - 7;
      probe = sources + window;
      word = Load64(here + window);
      mask = FirstBytesMask(matchLen - window);
    };
    aim();
    auto agrees = [&](intptr_t cand) { return ((Load64(probe + cand) ^ word) & mask) == 0; };
    // Compares a candidate that agrees; true when the walk ends on a match
    // of full length.
    auto longer = [&](intptr_t cand) {
      const int32_t len = CommonLength(sources + cand, here, max);
      if (len <= matchLen) return false;
      matchLen = len;
      matchPos = static_cast<uint32_t>(cand - off);
      if (len == max) return true;
      aim();
      return false;
    };
    // Four candidates per pass: one entry gives the next four. A candidate
    // at or below the bound ends the walk; before the counter, as the plain
    // walk's order of tests has it.
    auto step = [&](intptr_t cand, uint8_t& end) {
      if (cand <= lowest) {
        end = 0;
        return true;
      }
      if (--counter == 0) {
        end = 1;
        return true;
      }
      if (agrees(cand)) [[unlikely]] {
        if (longer(cand)) {
          end = 2;
          return true;
        }
      }
      return false;
    };
    for (;;) {
      const LinkEntry entry = links[s & (kDict - 1)];
      if (step(s, mark)) break;
      if (step(s - static_cast<intptr_t>(entry & 0xFFFF), mark)) break;
      if (step(s - static_cast<intptr_t>((entry >> 16) & 0xFFFF), mark)) break;
      if (step(s - static_cast<intptr_t>((entry >> 32) & 0xFFFF), mark)) break;
      s -= static_cast<intptr_t>(entry >> 48);
    }
    // 5. A bucket no longer crowded may lie among those passed over.
    if (mark != 2) {
      if (mark == 0 && crowded[h] != 0) c.CrowdedEnd = 0;
      crowded[h] = mark;
    }
    // 6. A match found through a later group must beat what the position's
    // own chain offers at that length.
    if (matchLen > static_cast<int32_t>(off) + 2 || off == 0) break;
    max = static_cast<int32_t>(off) + 2;
    off = 0;
    h = c.Hash;
  }
  c.MatchLen = matchLen;
  c.MatchPos = matchPos;
  // 7.
  Link(Heads(), Links(), c.Hash, pos);
  // Searches at the next positions follow unless a match is taken. Each
  // waits first for its bucket's head, then for the head's entry: both
  // are fetched steps ahead, the head three, the entry two (through the
  // head fetched the step before), the flag one.
  const uint32_t h1 = ((c.Hash << P.HashShift) ^ here[3]) & kMask;
  const uint32_t h2 = ((h1 << P.HashShift) ^ here[4]) & kMask;
  const uint32_t h3 = ((h2 << P.HashShift) ^ here[5]) & kMask;
  __builtin_prefetch(Heads() + h3);
  __builtin_prefetch(Links() + (Heads()[h2] & (P.DictSize - 1)));
  __builtin_prefetch(crowded + h1);
}

// Returns what remains to be searched after the refill.
template <const EncoderParams& P>
int32_t EncoderCore<P>::Slide(int32_t remaining) {
  constexpr uint32_t kDict = P.DictSize;
  // 1., 2.
  std::memcpy(Text, Text + kDict, kDict);
  remaining += static_cast<int32_t>(ReadInput(Text + kDict, kDict));
  // 5. Positions that fall out of the window leave their chains: heads at
  // once, links when a walk finds them at or below 0.
  HeadEntry* const heads = Heads();
  for (uint32_t i = 0; i < P.HashBuckets; ++i) {
    const uint32_t v = heads[i];
    heads[i] = static_cast<HeadEntry>(v > kDict ? v - kDict : 0);
  }
  // 3. A failure or a stop ends the search after the step in progress.
  return Owner->Status < 0 ? 1 : remaining;
}

#define KZ_INSTANTIATE_SEARCH(params)                                       \
  template void EncoderCore<params>::SearchLoop();                          \
  template int32_t EncoderCore<params>::Slide(int32_t);
KZ_INSTANTIATE_SEARCH(kLh5EncParams)
KZ_INSTANTIATE_SEARCH(kLh6EncParams)
KZ_INSTANTIATE_SEARCH(kLh7EncParams)
#undef KZ_INSTANTIATE_SEARCH

}  // namespace kz
