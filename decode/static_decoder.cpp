// The static-Huffman decoder of -lh4- to -lh7-: one algorithm, written once
// as StaticHuffmanDecoderBase::DecodeWith<P> and instantiated per parameter
// set so that each variant runs with its window size and NP folded in.
//
// Exactness notes. The code tables are built as the format's reference
// builder builds them (CharTable, AuxTable, Left, Right, including what a
// malformed length set leaves behind), and the one-lookup tables are derived
// from them, so every accepted length set decodes the same way. The bit
// input reads ahead only inside the chunk it already holds: a new chunk is
// read at the very bit at which a 16-bit reader would read it.
#include <algorithm>
#include <cstring>

#include "archiver/lha_archiver.h"
#include "decode/crc16.h"
#include "decode/decoders.h"

namespace kz {

static_assert(2 * kLh7Params.WindowSize + StaticHuffmanDecoderBase::kCopySlack <= kDictionaryBytes,
              "the ring of two windows and a copy's overrun fit the dictionary buffer");

namespace {

inline uint64_t LoadBigEndian64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return __builtin_bswap64(v);
}

}  // namespace

// Bits arrive most significant first at the top of Bits; Count of them are
// valid. Below them Bits may hold the leading bits of bytes not yet counted
// (always the true stream bits, or zeros past the member's data).
struct StaticBitInput {
  uint64_t Bits = 0;
  uint32_t Count = 0;
  const uint8_t* Next;      // next byte of the chunk not yet counted in Bits
  const uint8_t* End;       // end of the member's bytes in this chunk
  uint8_t* Chunk;
  uint64_t PackedLeft;      // member bytes not yet read into a chunk
  uint64_t Counted = 0;     // bytes counted before this chunk, zeros included
  const uint64_t PackedSize;
  KzArchiver& Owner;

  StaticBitInput(KzArchiver& owner, uint8_t* chunk)
      : Next(chunk),
        End(chunk),
        Chunk(chunk),
        PackedLeft(owner.Transfer.PackedSize),
        PackedSize(owner.Transfer.PackedSize),
        Owner(owner) {}

  uint32_t Peek16() const { return static_cast<uint32_t>(Bits >> 48); }

  // FillBitBuffer(n): the 16-bit reader drops n bits and takes bytes until
  // it again holds 16, so the bytes it has taken always cover 16 bits past
  // the consumed ones. Keeping Count >= 16 after every drop keeps us in step.
  void Consume(uint32_t n) {
    if (Count < n + 16) [[unlikely]]
      Refill(n + 16);
    Bits <<= n;
    Count -= n;
  }

  // GetBits(n), 1 <= n <= 16.
  uint32_t Take(uint32_t n) {
    uint32_t v = static_cast<uint32_t>(Bits >> (64 - n));
    Consume(n);
    return v;
  }

  uint32_t GetBits(uint32_t n) { return n == 0 ? 0 : Take(n); }

  [[gnu::noinline]] void Refill(uint32_t need) {
    while (Count <= 56) {
      if (Next + 8 <= End) {
        Bits |= LoadBigEndian64(Next) >> Count;
        Next += (63 - Count) >> 3;
        Count |= 56;
        return;
      }
      if (Next < End) {
        Bits |= static_cast<uint64_t>(*Next++) << (56 - Count);
      } else if (PackedLeft == 0) {
        ++Counted;  // past the member's data: zero bits, as many as asked for
      } else if (Count >= need) {
        return;  // the next chunk is read only when its first byte is due
      } else {
        ReadChunk();
        continue;
      }
      Count += 8;
    }
  }

  void ReadChunk() {
    Counted += static_cast<uint64_t>(Next - Chunk);
    if (!Owner.ArchiveStream.Read(Chunk, kDecodeChunkBytes, nullptr, 0))
      Owner.SetSystemError(Owner.ArchiveStream.GetName());
    uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(kDecodeChunkBytes, PackedLeft));
    PackedLeft -= n;
    Next = Chunk;
    End = Chunk + n;
  }

  // Bytes a 16-bit reader would have taken: enough for the consumed bits
  // plus 16, never more than the packed size.
  void Settle() {
    uint64_t counted = Counted + static_cast<uint64_t>(Next - Chunk);
    uint64_t consumed = 8 * counted - Count;
    uint64_t taken = std::min(PackedSize, (consumed + 16 + 7) / 8);
    Owner.Transfer.PackedSize = PackedSize - taken;
  }
};

void StaticHuffmanDecoderBase::RefuseTable() {
  Owner->SetError(ARC_E_BADTABLE, Owner->ArchiveStream.GetName());
}

uint32_t StaticHuffmanDecoderBase::WalkTree(uint32_t node, uint32_t nchar, uint32_t mask,
                                            uint32_t peek) const {
  // Pointers in an acyclic tree visit each node once; more steps than
  // nodes means a cycle that malformed lengths and stale nodes built.
  uint32_t j = node;
  for (uint32_t steps = 0; j >= nchar; ++steps) {
    if (steps == kTreeNodes) return kCycle;
    j = (peek & mask) ? Right[j] : Left[j];
    mask >>= 1;
  }
  return j;
}

bool StaticHuffmanDecoderBase::BuildDecodeTable(uint32_t nchar, const uint8_t* lengths,
                                                uint32_t tableBits, uint16_t* table,
                                                uint32_t tableEntries) {
  // 1. Count the lengths (each is 1 to 16 here; longer ones were refused).
  uint16_t count[17] = {};
  for (uint32_t ch = 0; ch < nchar; ++ch) ++count[lengths[ch]];
  bool any = false;
  for (uint32_t l = 1; l <= 16; ++l) any |= count[l] != 0;
  if (!any) return RefuseTable(), false;  // nothing to decode with
  // 2.-3. Code starts in 16 bits; a complete code wraps to exactly 0.
  uint16_t start[18];
  start[1] = 0;
  for (uint32_t l = 1; l <= 16; ++l)
    start[l + 1] = static_cast<uint16_t>(start[l] + (count[l] << (16 - l)));
  if (start[17] != 0) return RefuseTable(), false;
  // 4. Scale the short codes' starts to table entries.
  const uint32_t jut = 16 - tableBits;
  uint32_t weight[17];
  for (uint32_t l = 1; l <= tableBits; ++l) {
    start[l] = static_cast<uint16_t>(start[l] >> jut);
    weight[l] = 1u << (tableBits - l);
  }
  for (uint32_t l = tableBits + 1; l <= 16; ++l) weight[l] = 1u << (16 - l);
  // 5. Clear where the long codes' trees are rooted.
  uint32_t i = static_cast<uint32_t>(start[tableBits + 1] >> jut);
  if (i != 0) std::fill(table + i, table + (1u << tableBits), uint16_t{0});
  // 6.-7. Place every symbol.
  uint32_t avail = nchar;
  const uint32_t mask = 1u << (15 - tableBits);
  for (uint32_t ch = 0; ch < nchar; ++ch) {
    uint32_t l = lengths[ch];
    if (l == 0) continue;
    uint32_t next = static_cast<uint32_t>(start[l]) + weight[l];
    if (l <= tableBits) {
      if (next > tableEntries) return RefuseTable(), false;
      std::fill(table + start[l], table + next, static_cast<uint16_t>(ch));
    } else {
      uint32_t k = start[l];
      uint16_t* slot = &table[k >> jut];
      for (uint32_t steps = l - tableBits; steps > 0; --steps) {
        if (*slot == 0) {
          if (avail == kTreeNodes) return RefuseTable(), false;
          Left[avail] = Right[avail] = 0;
          *slot = static_cast<uint16_t>(avail++);
        }
        slot = (k & mask) ? &Right[*slot] : &Left[*slot];
        k = (k << 1) & 0xFFFF;
      }
      *slot = static_cast<uint16_t>(ch);
    }
    start[l] = static_cast<uint16_t>(next);
  }
  return true;
}

void StaticHuffmanDecoderBase::DeriveCharFast() {
  for (uint32_t k = 0; k < 4096; ++k) {
    uint32_t v = CharTable[k];
    CharFast[k] = static_cast<uint16_t>(v < NC ? v | CharLen[v] << 9 : kTreeEntry | v);
  }
}

void StaticHuffmanDecoderBase::DerivePosFast(uint32_t np) {
  for (uint32_t k = 0; k < 256; ++k) {
    uint32_t v = AuxTable[k];
    PosFast[k] = static_cast<uint16_t>(v < np ? v | AuxLen[v] << 9 : kTreeEntry | v);
  }
}

void StaticHuffmanDecoderBase::ReadAuxLengths(StaticBitInput& in, uint32_t nn, uint32_t nbit,
                                              int32_t special) {
  // 1.-2. A count of 0 sends the single symbol that every code decodes to.
  uint32_t n = in.Take(nbit);
  if (n == 0) {
    uint32_t v = in.Take(nbit);
    if (v >= nn) return RefuseTable();
    std::fill(AuxLen, AuxLen + nn, uint8_t{0});
    std::fill(AuxTable, AuxTable + 256, static_cast<uint16_t>(v));
    return;
  }
  if (n > nn) return RefuseTable();
  // 3. Lengths: 3 bits, 7 extended by a run of 1 bits.
  uint32_t i = 0;
  while (i < n) {
    uint32_t peek = in.Peek16();
    uint32_t v = peek >> 13;
    if (v == 7)
      for (uint32_t mask = 1u << 12; peek & mask; mask >>= 1) ++v;
    in.Consume(v < 7 ? 3 : v - 3);
    if (v > 16) return RefuseTable();
    AuxLen[i++] = static_cast<uint8_t>(v);
    if (static_cast<int32_t>(i) == special) {
      // n <= 19 keeps i + k within AuxLen.
      for (uint32_t k = in.Take(2); k > 0; --k) AuxLen[i++] = 0;
    }
  }
  // 4.-5.
  std::fill(AuxLen + std::min(i, nn), AuxLen + nn, uint8_t{0});
  BuildDecodeTable(nn, AuxLen, 8, AuxTable, 256);
}

void StaticHuffmanDecoderBase::ReadCharLengths(StaticBitInput& in) {
  uint32_t n = in.Take(CBIT);
  if (n == 0) {
    uint32_t v = in.Take(CBIT);
    if (v >= NC) return RefuseTable();
    std::fill(CharLen, CharLen + NC, uint8_t{0});
    std::fill(CharTable, CharTable + 4096, static_cast<uint16_t>(v));
    return DeriveCharFast();
  }
  if (n > NC) return RefuseTable();
  uint32_t i = 0;
  while (i < n) {
    uint32_t peek = in.Peek16();
    uint32_t s = AuxTable[peek >> 8];
    if (s >= NT) {
      s = WalkTree(s, NT, 0x80, peek);
      if (s == kCycle) return RefuseTable();
    }
    in.Consume(AuxLen[s]);
    if (s > 2) {
      CharLen[i++] = static_cast<uint8_t>(s - 2);
      continue;
    }
    uint32_t run = s == 0 ? 1 : s == 1 ? in.Take(4) + 3 : in.Take(CBIT) + 20;
    if (run > NC - i) return RefuseTable();
    std::fill(CharLen + i, CharLen + i + run, uint8_t{0});
    i += run;
  }
  std::fill(CharLen + i, CharLen + NC, uint8_t{0});
  if (BuildDecodeTable(NC, CharLen, 12, CharTable, 4096)) DeriveCharFast();
}

uint32_t StaticHuffmanDecoderBase::ReadBlockHead(StaticBitInput& in, uint32_t np, uint32_t pbit) {
  uint32_t blockSize = in.Take(16);
  ReadAuxLengths(in, NT, TBIT, 3);
  if (Owner->Status < 0) return 0;
  ReadCharLengths(in);
  if (Owner->Status < 0) return 0;
  ReadAuxLengths(in, np, pbit, -1);
  if (Owner->Status < 0) return 0;
  DerivePosFast(np);
  return blockSize == 0 ? 65536 : blockSize;
}

inline uint32_t StaticHuffmanDecoderBase::DecodeSymbol(StaticBitInput& in) {
  uint32_t e = CharFast[in.Peek16() >> 4];
  if (e & kTreeEntry) [[unlikely]] {
    uint32_t j = WalkTree(e & ~kTreeEntry, NC, 0x08, in.Peek16());
    if (j == kCycle) return RefuseTable(), 0;
    e = j | CharLen[j] << 9;
  }
  in.Consume(e >> 9);
  return e & 0x1FF;
}

// The match distance minus one, or kCycle after a refused tree.
inline uint32_t StaticHuffmanDecoderBase::DecodeOffset(StaticBitInput& in, uint32_t np) {
  uint32_t e = PosFast[in.Peek16() >> 8];
  if (e & kTreeEntry) [[unlikely]] {
    uint32_t j = WalkTree(e & ~kTreeEntry, np, 0x80, in.Peek16());
    if (j == kCycle) return RefuseTable(), kCycle;
    e = j | AuxLen[j] << 9;
  }
  in.Consume(e >> 9);
  uint32_t j = e & 0x1FF;
  if (j <= 1) return j;
  return (1u << (j - 1)) + in.Take(j - 1);
}

// Output bookkeeping of one block: write, then CRC, totals and progress.
bool StaticHuffmanDecoderBase::Flush(StaticBitInput& in, const uint8_t* data, uint32_t count,
                                     uint32_t capacity) {
  KzArchiver& owner = *Owner;
  in.Settle();
  if (owner.WriteOutput(data, count, capacity) < 0) return false;
  owner.Transfer.TotalBytes += count;
  owner.Transfer.DataCrc = UpdateCrc16(owner.Transfer.DataCrc, data, static_cast<int32_t>(count));
  owner.Transfer.ChunkBytes = count;
  owner.ReportProgress();
  return true;
}

namespace {

// Copies a match whose source lies wholly before its destination in the
// buffer. Distances of 8 and more move whole words and may write up to 15
// bytes past the end; shorter ones repeat their pattern byte by byte.
inline void CopyMatch(uint8_t* dst, uint32_t distance, uint32_t length) {
  const uint8_t* src = dst - distance;
  uint8_t* const end = dst + length;
  if (distance >= 16) {
    do {
      std::memcpy(dst, src, 16);
      dst += 16;
      src += 16;
    } while (dst < end);
  } else if (distance >= 8) {
    do {
      std::memcpy(dst, src, 8);
      dst += 8;
      src += 8;
    } while (dst < end);
  } else if (distance == 1) {
    std::memset(dst, *src, length);
  } else {
    do *dst++ = *src++;
    while (dst < end);
  }
}

}  // namespace

template <const StaticMethodParams& P>
void StaticHuffmanDecoderBase::DecodeWith() {
  constexpr uint32_t W = P.WindowSize;
  constexpr uint32_t kRing = 2 * W;
  static_assert((W & (W - 1)) == 0, "window halves are found by masking");
  KzArchiver& owner = *Owner;
  // 1. Start of the member: prime 16 bits.
  StaticBitInput in(owner, InputChunk);
  in.Consume(0);
  // 2.-3.
  const uint32_t size = static_cast<uint32_t>(owner.Transfer.OriginalSize);
  uint8_t* const ring = Window;
  uint32_t loc = 0;
  uint32_t count = 0;
  uint32_t blockLeft = 0;
  bool history = false;  // false until the first half is out: older bytes read as zeros
  // 4. Codes until the output count is reached.
  while (count < size) {
    if (blockLeft == 0) {
      blockLeft = ReadBlockHead(in, P.NP, P.PBIT);
      if (owner.Status < 0) return in.Settle();
    }
    --blockLeft;
    uint32_t c = DecodeSymbol(in);
    if (owner.Status < 0) return in.Settle();
    uint32_t end;
    if (c < 256) {
      ring[loc] = static_cast<uint8_t>(c);
      end = loc + 1;
      count += 1;
    } else {
      uint32_t length = c - 253;
      count += length;
      uint32_t position = DecodeOffset(in, P.NP);
      if (position == kCycle) [[unlikely]]
        return in.Settle();
      uint32_t distance = position + 1;
      if (distance <= loc) {
        CopyMatch(ring + loc, distance, length);
      } else {
        // The source starts behind the ring's start: before the member's
        // first byte until the first half is out, else at the ring's end.
        for (uint32_t k = 0; k < length; ++k) {
          int32_t s = static_cast<int32_t>(loc + k) - static_cast<int32_t>(distance);
          ring[loc + k] = s >= 0 ? ring[s] : history ? ring[s + kRing] : 0;
        }
      }
      end = loc + length;
    }
    // A completed half leaves as one block; bytes past the ring's end
    // move to its start.
    if (((end ^ loc) & ~(W - 1)) != 0) [[unlikely]] {
      uint32_t boundary = (loc & ~(W - 1)) + W;
      if (!Flush(in, ring + boundary - W, W, W) || owner.Status < 0) return in.Settle();
      history = true;
      if (boundary == kRing) {
        std::memcpy(ring, ring + kRing, end - kRing);
        end -= kRing;
      }
    }
    loc = end;
  }
  // 5. The last, shorter block.
  uint32_t tail = loc & (W - 1);
  if (tail != 0) Flush(in, ring + loc - tail, tail, W);
  in.Settle();
}

void KzLha5Decoder::Decode() { DecodeWith<kLh5Params>(); }
void KzLha6Decoder::Decode() { DecodeWith<kLh6Params>(); }
void KzLha7Decoder::Decode() { DecodeWith<kLh7Params>(); }

}  // namespace kz
