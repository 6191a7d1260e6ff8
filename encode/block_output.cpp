// Block output: the three code tables of a block in their compact form, then
// every code of the block, in the order the search recorded them.
#include <bit>
#include <cstring>

#include "encode/encoders.h"

namespace kz {

namespace {

// Trailing zero lengths are not written.
int32_t UsedLength(const uint8_t* len, int32_t n) {
  while (n > 0 && len[n - 1] == 0) --n;
  return n;
}

// The character lengths as the code-length code spells them: a length k
// as symbol k + 2; a run of zeros as symbol 0 per zero (up to two), symbol
// 1 and 4 bits (3 to 18), symbol 0 then a run of 18 (19), or symbol 2 and
// 9 bits (20 and more). emit(symbol, extra bits, their value).
template <typename Emit>
void SpellCharLengths(const uint8_t* len, int32_t m, Emit emit) {
  int32_t i = 0;
  while (i < m) {
    const int32_t k = len[i++];
    if (k > 0) {
      emit(k + 2, 0, 0);
      continue;
    }
    int32_t c = 1;
    while (i < m && len[i] == 0) {
      ++i;
      ++c;
    }
    if (c <= 2) {
      for (; c > 0; --c) emit(0, 0, 0);
    } else if (c <= 18) {
      emit(1, 4, static_cast<uint32_t>(c - 3));
    } else if (c == 19) {
      emit(0, 0, 0);
      emit(1, 4, 15);
    } else {
      emit(2, 9, static_cast<uint32_t>(c - 20));
    }
  }
}

}  // namespace

// Frequencies of the code-length code, by the rules WriteCharLengths writes.
void EncoderBase::CountAuxFreq() {
  for (uint16_t& f : AuxFreq) f = 0;
  SpellCharLengths(CharLen, UsedLength(CharLen, NC), [this](int32_t symbol, uint32_t, uint32_t) { ++AuxFreq[symbol]; });
}

void EncoderBase::WriteCharLengths() {
  const int32_t m = UsedLength(CharLen, NC);
  PutBits(CBIT, static_cast<uint32_t>(m));
  SpellCharLengths(CharLen, m, [this](int32_t symbol, uint32_t extraBits, uint32_t extra) {
    PutBits(AuxLen[symbol], AuxCode[symbol]);
    if (extraBits != 0) PutBits(extraBits, extra);
  });
}

// Lengths 0..6 in three bits, 7..16 as k - 4 one bits and a zero. After the
// third length of the code-length code, two bits skip up to three zeros.
void EncoderBase::WriteAuxLengths(int32_t n, uint32_t countBits, int32_t skipIndex) {
  n = UsedLength(AuxLen, n);
  PutBits(countBits, static_cast<uint32_t>(n));
  int32_t i = 0;
  while (i < n) {
    const uint32_t k = AuxLen[i++];
    if (k <= 6) {
      PutBits(3, k);
    } else {
      PutBits(k - 3, (1u << (k - 3)) - 2);
    }
    if (i == skipIndex) {
      while (i < 6 && AuxLen[i] == 0) ++i;
      PutBits(2, static_cast<uint32_t>(i - 3));
    }
  }
}

// One code of the block buffer through `put`; returns the next code's place.
// A literal is its byte; a match is length - 3 and the distance code, high
// byte first.
template <typename Put>
inline const uint8_t* EncoderBase::EmitCode(const uint8_t* q, bool match, Put&& put) const {
  if (!match) {
    const uint32_t b = q[0];
    put(CharLen[b], CharCode[b]);
    return q + 1;
  }
  const uint32_t c = q[0] + 256u;
  put(CharLen[c], CharCode[c]);
  const uint32_t p = (uint32_t{q[1]} << 8) | q[2];
  const uint32_t k = static_cast<uint32_t>(std::bit_width(p));
  // The position code and the bits below p's leading one leave together:
  // at most 16 + 15 bits.
  const uint32_t extra = k > 1 ? k - 1 : 0;
  put(AuxLen[k] + extra, (uint32_t{AuxCode[k]} << extra) | (p & ((1u << extra) - 1)));
  return q + 3;
}

// The block buffer holds groups of a flag byte (bit 7 first; set = match)
// and up to eight codes. Away from the output buffer's end a code takes no
// branch: a literal puts its position part with zero bits, and the
// complete bytes leave after each code in one 8-byte store, of which only
// those complete count (the rest is overwritten by the next store). Within
// a code's reach of the end, codes take the exact path of PutBits, which
// writes the full buffer.
void EncoderBase::WriteCodes(uint32_t size) {
  // Each code as length | bits << 8, for one load per part.
  uint32_t charPut[NC];
  uint32_t posPut[NT];  // positions take the code-length arrays (NT >= NP)
  for (uint32_t i = 0; i < NC; ++i) charPut[i] = CharLen[i] | uint32_t{CharCode[i]} << 8;
  for (uint32_t i = 0; i < NT; ++i) posPut[i] = AuxLen[i] | uint32_t{AuxCode[i]} << 8;
  // At most 7 bits wait after each code, and a code adds at most 16 + 31.
  SyncBits();
  constexpr uint32_t kReach = 16;  // an 8-byte store, and the bytes it may complete
  const uint8_t* q = BlockBuffer;
  uint64_t acc = BitAcc;
  uint32_t count = BitCount;
  uint8_t* const out = OutputBuffer;
  uint32_t n = OutputCount;
  uint32_t flags = 0;
  // The pending bits, left-aligned, out in byte order; of the 8-byte store
  // only the complete bytes count. With count 0 the shift leaves stale
  // bits, but then no byte counts.
  auto sendBytes = [&] {
    uint64_t be = (acc << 1) << (63 - count);
    if constexpr (std::endian::native == std::endian::little) be = __builtin_bswap64(be);
    std::memcpy(out + n, &be, 8);
    n += count >> 3;
    count &= 7;
  };
  for (uint32_t i = 0; i < size; ++i) {
    if ((i & 7) == 0) {
      flags = *q++;
      // A group of eight literals, common where little repeats: two at a
      // time (at most 7 + 2 x 16 bits pending), with nothing of a position.
      if (flags == 0 && size - i >= 8 && n + 2 * kReach <= kOutputBufferBytes) {
        for (int k = 0; k < 8; k += 2) {
          const uint32_t c0 = charPut[q[k]];
          const uint32_t c1 = charPut[q[k + 1]];
          const uint32_t l1 = c1 & 0xFF;
          const uint32_t total = (c0 & 0xFF) + l1;
          acc = (acc << total) | (uint64_t{c0 >> 8} << l1) | (c1 >> 8);
          count += total;
          sendBytes();
        }
        q += 8;
        i += 7;
        continue;
      }
    } else {
      flags <<= 1;
    }
    const uint32_t match = (flags >> 7) & 1;
    if (n + kReach <= kOutputBufferBytes) [[likely]] {
      const uint32_t c = charPut[q[0] + (match << 8)];
      // The position's code, then the bits below its leading one.
      const uint32_t p = (uint32_t{q[1]} << 8) | q[2];
      const uint32_t k = static_cast<uint32_t>(std::bit_width(p));
      const uint32_t extra = k > 1 ? k - 1 : 0;
      const uint32_t e = posPut[k];
      const uint32_t keep = 0u - match;
      const uint32_t bits = ((e & 0xFF) + extra) & keep;
      const uint64_t value = ((uint64_t{e >> 8} << extra) | (p & ((1u << extra) - 1))) & keep;
      // The code whole (at most 16 + 31 bits) enters the accumulator in one
      // step: the accumulator's chain from code to code is one shift, one or.
      const uint32_t total = (c & 0xFF) + bits;
      acc = (acc << total) | (uint64_t{c >> 8} << bits) | value;
      count += total;
      q += 1 + 2 * match;
      sendBytes();
      continue;
    }
    BitAcc = acc;
    BitCount = count;
    OutputCount = n;
    q = EmitCode(q, match != 0, [this](uint32_t bits, uint32_t value) { PutBits(bits, value); });
    SyncBits();
    acc = BitAcc;
    count = BitCount;
    n = OutputCount;
  }
  BitAcc = acc;
  BitCount = count;
  OutputCount = n;
}

template <const EncoderParams& P>
void EncoderCore<P>::SendBlock() {
  // 1.
  const int16_t root = MakeTree(NC, CharFreq, CharLen, CharCode);
  const uint32_t size = CharFreq[root];
  PutBits(16, size);
  // 2. A single character symbol needs no code-length code.
  if (root >= static_cast<int16_t>(NC)) {
    CountAuxFreq();
    const int16_t r = MakeTree(NT, AuxFreq, AuxLen, AuxCode);
    if (r >= static_cast<int16_t>(NT)) {
      WriteAuxLengths(NT, TBIT, 3);
    } else {
      PutBits(TBIT, 0);
      PutBits(TBIT, static_cast<uint32_t>(r));
    }
    WriteCharLengths();
  } else {
    PutBits(TBIT, 0);
    PutBits(TBIT, 0);
    PutBits(CBIT, 0);
    PutBits(CBIT, static_cast<uint32_t>(root));
  }
  // 3. The code-length code is no longer needed: its arrays take the position code.
  const int16_t r = MakeTree(P.NP, PosFreq, AuxLen, AuxCode);
  if (r >= static_cast<int16_t>(P.NP)) {
    WriteAuxLengths(P.NP, P.PBIT, -1);
  } else {
    PutBits(P.PBIT, 0);
    PutBits(P.PBIT, static_cast<uint32_t>(r));
  }
  // 4.
  WriteCodes(size);
  // 5.
  std::memset(CharFreq, 0, NC * sizeof CharFreq[0]);
  std::memset(PosFreq, 0, P.NP * sizeof PosFreq[0]);
  SyncBits();
}

template void EncoderCore<kLh5EncParams>::SendBlock();
template void EncoderCore<kLh6EncParams>::SendBlock();
template void EncoderCore<kLh7EncParams>::SendBlock();

}  // namespace kz
