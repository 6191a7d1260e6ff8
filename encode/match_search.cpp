// Match search: hash chains over a sliding text window, lazy evaluation with
// one position of look-ahead, and the collection of codes into blocks.
#include <bit>
#include <cstring>

#include "encode/encoders.h"
#include "enginelib/kz_archiver.h"

namespace kz {

namespace {

// Number of leading bytes that a and b share, at most max. A word at a time:
// the text buffer's slack covers the widest read (max <= 256 from any
// position below the top of the window).
inline int32_t CommonLength(const uint8_t* a, const uint8_t* b, int32_t max) {
  int32_t k = 0;
  while (k + 8 <= max) {
    uint64_t x, y;
    std::memcpy(&x, a + k, 8);
    std::memcpy(&y, b + k, 8);
    const uint64_t diff = x ^ y;
    if (diff != 0) {
      if constexpr (std::endian::native == std::endian::little) {
        return k + (std::countr_zero(diff) >> 3);
      } else {
        return k + (std::countl_zero(diff) >> 3);
      }
    }
    k += 8;
  }
  while (k < max && a[k] == b[k]) ++k;
  return k;
}

}  // namespace

template <const EncoderParams& P>
void EncoderCore<P>::SearchLoop() {
  constexpr uint32_t kDict = P.DictSize;
  constexpr uint32_t kMask = P.HashBuckets - 1;
  // 1. Fresh tables for every member.
  std::memset(HashHead, 0, P.HashBuckets * sizeof HashHead[0]);
  std::memset(HashPrev, 0, kDict * sizeof HashPrev[0]);
  std::memset(Crowded, 0, P.HashBuckets);
  // 2. The first fill. The look-ahead past it is cleared so that a member's
  // codes never depend on what an earlier member left in the buffer.
  Remaining = static_cast<int32_t>(ReadInput(Text, 2 * kDict));
  std::memset(Text + Remaining, 0, kLookAheadBytes);
  // 3.
  MatchLen = Remaining < 2 ? Remaining : 2;
  Pos = 0;
  // 4.
  HashValue = ((((uint32_t{Text[0]} << P.HashShift) ^ Text[1]) << P.HashShift) ^ Text[2]) & kMask;
  Insert(0);
  // 5. Decide one position per pass, knowing its best match.
  while (Remaining > 0) {
    ChainLimit = LiteralChainLimit;
    PrevMatchLen = MatchLen;
    MatchLen = MatchLen - 1;
    const uint32_t distance = Pos - MatchPos;
    Advance();
    FindMatch();
    if (MatchLen > Remaining) MatchLen = Remaining;
    if (MatchLen > PrevMatchLen || PrevMatchLen < MinMatch) {
      RecordCode(Text[Pos - 1], 0);
      continue;
    }
    RecordCode(static_cast<uint32_t>(PrevMatchLen) + 253, distance - 1);
    for (int32_t i = PrevMatchLen - 2; i > 0; --i) {
      Advance();
      Insert(Pos);
    }
    Advance();
    MatchLen = 2;
    ChainLimit = MatchChainLimit;
    FindMatch();
    if (MatchLen > Remaining) MatchLen = Remaining;
  }
}

template <const EncoderParams& P>
inline void EncoderCore<P>::Advance() {
  --Remaining;
  ++Pos;
  if (Pos >= 2 * P.DictSize) Slide();
  HashValue = ((HashValue << P.HashShift) ^ Text[Pos + 2]) & (P.HashBuckets - 1);
}

template <const EncoderParams& P>
void EncoderCore<P>::FindMatch() {
  constexpr uint32_t kDict = P.DictSize;
  constexpr uint32_t kMask = P.HashBuckets - 1;
  // 1.
  int32_t max = MaxMatch;
  if (MatchLen < 2) MatchLen = 2;
  MatchPos = Pos;
  uint32_t off = 0;
  uint32_t h = HashValue;
  // 2. Pass over buckets whose last walk was cut, to a later three-byte group.
  while (Crowded[h] != 0 && off < MaxMatch - MinMatch) {
    ++off;
    h = ((h << P.HashShift) ^ Text[Pos + 2 + off]) & kMask;
  }
  if (off == MaxMatch - MinMatch) off = 0;
  const uint8_t* const here = Text + Pos;
  for (;;) {
    // 3.
    uint32_t counter = ChainLimit;
    uint32_t s = HashHead[h];
    const uint32_t lowest = Pos > kDict ? Pos - kDict + off : off;
    // 4.
    bool cut = false;
    bool full = false;
    while (s > lowest) {
      if (--counter == 0) {
        Crowded[h] = 1;
        cut = true;
        break;
      }
      const uint8_t* const source = Text + (s - off);
      if (source[MatchLen] == here[MatchLen]) {
        const int32_t len = CommonLength(source, here, max);
        if (len > MatchLen) {
          MatchLen = len;
          MatchPos = s - off;
          if (len == max) {
            full = true;
            break;
          }
        }
      }
      s = HashPrev[s & (kDict - 1)];
    }
    // 5.
    if (!cut && !full) Crowded[h] = 0;
    // 6. A match found through a later group must beat what the position's
    // own chain offers at that length.
    if (MatchLen > static_cast<int32_t>(off) + 2 || off == 0) break;
    max = static_cast<int32_t>(off) + 2;
    off = 0;
    h = HashValue;
  }
  // 7.
  Insert(Pos);
}

template <const EncoderParams& P>
void EncoderCore<P>::Slide() {
  constexpr uint32_t kDict = P.DictSize;
  // 1., 2.
  std::memcpy(Text, Text + kDict, kDict);
  Remaining += static_cast<int32_t>(ReadInput(Text + kDict, kDict));
  // 3. A failure or a stop ends the search after the step in progress.
  if (Owner->Status < 0) Remaining = 1;
  // 4.
  Pos -= kDict;
  // 5. Positions that fall out of the window leave their chains.
  for (uint32_t i = 0; i < P.HashBuckets; ++i) {
    const uint32_t v = HashHead[i];
    HashHead[i] = v > kDict ? v - kDict : 0;
  }
  for (uint32_t i = 0; i < kDict; ++i) {
    const uint32_t v = HashPrev[i];
    HashPrev[i] = v > kDict ? v - kDict : 0;
  }
}

template <const EncoderParams& P>
void EncoderCore<P>::RecordCode(uint32_t c, uint32_t p) {
  // 1. Groups of one flag byte and up to eight codes; a block ends only
  // between groups.
  FlagMask >>= 1;
  if (FlagMask == 0) {
    FlagMask = 0x80;
    if (BlockPos >= BlockBufferSize - 24) {
      SendBlock();
      BlockPos = 0;
    }
    FlagPos = BlockPos;
    BlockBuffer[BlockPos++] = 0;
  }
  // 2.
  BlockBuffer[BlockPos++] = static_cast<uint8_t>(c);
  ++CharFreq[c];
  // 3.
  if (c >= 256) {
    BlockBuffer[FlagPos] |= static_cast<uint8_t>(FlagMask);
    BlockBuffer[BlockPos++] = static_cast<uint8_t>(p >> 8);
    BlockBuffer[BlockPos++] = static_cast<uint8_t>(p);
    ++PosFreq[std::bit_width(p)];
  }
}

#define KZ_INSTANTIATE_SEARCH(params)                                       \
  template void EncoderCore<params>::SearchLoop();                          \
  template void EncoderCore<params>::FindMatch();                           \
  template void EncoderCore<params>::Slide();                               \
  template void EncoderCore<params>::RecordCode(uint32_t c, uint32_t p);
KZ_INSTANTIATE_SEARCH(kLh5EncParams)
KZ_INSTANTIATE_SEARCH(kLh6EncParams)
KZ_INSTANTIATE_SEARCH(kLh7EncParams)
#undef KZ_INSTANTIATE_SEARCH

}  // namespace kz
