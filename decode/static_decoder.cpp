// The static-Huffman decoder of -lh4- to -lh7-: one algorithm, written once
// as StaticHuffmanDecoderBase::DecodeWith<P> and instantiated per parameter
// set so that each variant runs with its window size and NP folded in.
//
// Exactness notes. The code tables are built step by step as the format's
// table builder builds them, including what an over-full length set that
// it accepts leaves behind; an entry holds the symbol with its length
// (one lookup per code) or the root of a tree that codes longer than the
// table's bits walk, bit by bit, as the builder's trees are walked. The bit
// input reads ahead only inside the chunk it already holds: a new chunk is
// read at the very bit at which a 16-bit reader would read it.
#include <algorithm>
#include <cstring>

#include "archiver/lha_archiver.h"
#include "decode/crc16.h"
#include "decode/copy_match.h"
#include "decode/decoders.h"
#include "decode/load_bits.h"

namespace kz {

static_assert(2 * kLh7Params.WindowSize + StaticHuffmanDecoderBase::kCopySlack <= kDictionaryBytes,
              "the ring of two windows and a copy's overrun fit the dictionary buffer");

// The bits in hand: most significant first at the top of Bits, Count of
// them valid. Below them Bits may hold the leading bits of bytes not yet
// counted (always the true stream bits, or zeros past the member's data).
// The decoding loop keeps this in registers and hands it to the cold part
// of the input only around refills that leave the chunk.
struct BitWindow {
  uint64_t Bits;
  uint32_t Count;
  const uint8_t* Next;  // next byte of the chunk not yet counted in Bits
  const uint8_t* End;   // end of the member's bytes in this chunk
};

struct StaticBitInput {
  BitWindow W;
  uint8_t* const Chunk;
  uint64_t PackedLeft;   // member bytes not yet read into a chunk
  uint64_t Counted = 0;  // bytes counted before this chunk, zeros included
  const uint64_t PackedSize;
  KzArchiver& Owner;

  StaticBitInput(KzArchiver& owner, uint8_t* chunk)
      : W{0, 0, chunk, chunk},
        Chunk(chunk),
        PackedLeft(owner.Transfer.PackedSize),
        PackedSize(owner.Transfer.PackedSize),
        Owner(owner) {}

  [[gnu::noinline]] void RefillSlow(uint32_t need) {
    while (W.Count <= 56) {
      if (W.Next + 8 <= W.End) {
        W.Bits |= LoadBigEndian64(W.Next) >> W.Count;
        W.Next += (63 - W.Count) >> 3;
        W.Count |= 56;
        return;
      }
      if (W.Next < W.End) {
        W.Bits |= static_cast<uint64_t>(*W.Next++) << (56 - W.Count);
      } else if (PackedLeft == 0) {
        ++Counted;  // past the member's data: zero bits, as many as asked for
      } else if (W.Count >= need) {
        return;  // the next chunk is read only when its first byte is due
      } else {
        ReadChunk();
        continue;
      }
      W.Count += 8;
    }
  }

  void ReadChunk() {
    Counted += static_cast<uint64_t>(W.Next - Chunk);
    if (!Owner.ArchiveStream.Read(Chunk, kDecodeChunkBytes, nullptr, 0))
      Owner.SetSystemError(Owner.ArchiveStream.GetName());
    uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(kDecodeChunkBytes, PackedLeft));
    PackedLeft -= n;
    W.Next = Chunk;
    W.End = Chunk + n;
  }

  // Bytes a 16-bit reader would have taken: enough for the consumed bits
  // plus 16, never more than the packed size.
  void Settle() {
    uint64_t counted = Counted + static_cast<uint64_t>(W.Next - Chunk);
    uint64_t consumed = 8 * counted - W.Count;
    uint64_t taken = std::min(PackedSize, (consumed + 16 + 7) / 8);
    Owner.Transfer.PackedSize = PackedSize - taken;
  }
};

namespace {

inline uint32_t Peek16(const BitWindow& w) { return static_cast<uint32_t>(w.Bits >> 48); }

// At least `need` (at most 33) bits in hand; a chunk is read only when the
// bytes in hand cannot give them.
inline void Ensure(BitWindow& w, StaticBitInput& in, uint32_t need) {
  if (w.Count >= need) [[likely]]
    return;
  if (w.Next + 8 <= w.End) [[likely]] {
    w.Bits |= LoadBigEndian64(w.Next) >> w.Count;
    w.Next += (63 - w.Count) >> 3;
    w.Count |= 56;
    return;
  }
  in.W = w;
  in.RefillSlow(need);
  w = in.W;
}

// FillBitBuffer(n): a 16-bit reader drops n bits and takes bytes until it
// again holds 16, so the bytes it has taken always cover 16 bits past the
// consumed ones. Holding 16 past every drop keeps the reads in step.
inline void Consume(BitWindow& w, StaticBitInput& in, uint32_t n) {
  Ensure(w, in, n + 16);
  w.Bits <<= n;
  w.Count -= n;
}

// GetBits(n), 1 <= n <= 16.
inline uint32_t Take(BitWindow& w, StaticBitInput& in, uint32_t n) {
  uint32_t v = static_cast<uint32_t>(w.Bits >> (64 - n));
  Consume(w, in, n);
  return v;
}

}  // namespace

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

namespace {

// A table entry resolves a code to symbol | length << 9, or holds the root
// node of a tree (kTreeEntry | node). What the format's builder would have
// stored in the entry is its value: the symbol or the node.
inline uint32_t EntryValue(uint32_t e) { return e & (e & 0x8000 ? 0x3FF : 0x1FF); }

}  // namespace

// Every entry of an accepted code is written in its own build: the codes of
// each length are contiguous and the starts tile the whole code space,
// wrapped or not, so nothing of an earlier block's table is ever read.
bool StaticHuffmanDecoderBase::BuildDecodeTable(uint32_t nchar, const uint8_t* lengths,
                                                uint32_t tableBits, uint16_t* table,
                                                uint32_t tableEntries) {
  // 1. Count the lengths (each is 1 to 16 here; longer ones were refused).
  uint16_t count[17] = {};
  for (uint32_t ch = 0; ch < nchar; ++ch) ++count[lengths[ch]];
  if (std::all_of(count + 1, count + 17, [](uint16_t c) { return c == 0; }))
    return RefuseTable(), false;  // nothing to decode with
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
      std::fill(table + start[l], table + next, static_cast<uint16_t>(ch | l << 9));
    } else {
      uint32_t k = start[l];
      uint16_t& root = table[k >> jut];
      if (EntryValue(root) == 0) {
        if (avail == kTreeNodes) return RefuseTable(), false;
        Left[avail] = Right[avail] = 0;
        root = static_cast<uint16_t>(kTreeEntry | avail++);
      }
      uint16_t* slot = (k & mask) ? &Right[EntryValue(root)] : &Left[EntryValue(root)];
      for (uint32_t steps = l - tableBits - 1; steps > 0; --steps) {
        k = (k << 1) & 0xFFFF;
        if (*slot == 0) {
          if (avail == kTreeNodes) return RefuseTable(), false;
          Left[avail] = Right[avail] = 0;
          *slot = static_cast<uint16_t>(avail++);
        }
        slot = (k & mask) ? &Right[*slot] : &Left[*slot];
      }
      *slot = static_cast<uint16_t>(ch);
    }
    start[l] = static_cast<uint16_t>(next);
  }
  return true;
}

void StaticHuffmanDecoderBase::ReadAuxLengths(StaticBitInput& in, uint32_t nn, uint32_t nbit,
                                              int32_t special) {
  BitWindow& w = in.W;
  // 1.-2. A count of 0 sends the single symbol that every code decodes to.
  uint32_t n = Take(w, in, nbit);
  if (n == 0) {
    uint32_t v = Take(w, in, nbit);
    if (v >= nn) return RefuseTable();
    std::fill(AuxLen, AuxLen + nn, uint8_t{0});
    std::fill(AuxTable, AuxTable + 256, static_cast<uint16_t>(v));  // no bits
    return;
  }
  if (n > nn) return RefuseTable();
  // 3. Lengths: 3 bits, 7 extended by a run of 1 bits.
  uint32_t i = 0;
  while (i < n) {
    uint32_t peek = Peek16(w);
    uint32_t v = peek >> 13;
    if (v == 7)
      for (uint32_t mask = 1u << 12; peek & mask; mask >>= 1) ++v;
    Consume(w, in, v < 7 ? 3 : v - 3);
    if (v > 16) return RefuseTable();
    AuxLen[i++] = static_cast<uint8_t>(v);
    if (static_cast<int32_t>(i) == special) {
      // n <= 19 keeps i + k within AuxLen.
      for (uint32_t k = Take(w, in, 2); k > 0; --k) AuxLen[i++] = 0;
    }
  }
  // 4.-5.
  std::fill(AuxLen + std::min(i, nn), AuxLen + nn, uint8_t{0});
  BuildDecodeTable(nn, AuxLen, 8, AuxTable, 256);
}

void StaticHuffmanDecoderBase::ReadCharLengths(StaticBitInput& in) {
  BitWindow& w = in.W;
  uint32_t n = Take(w, in, CBIT);
  if (n == 0) {
    uint32_t v = Take(w, in, CBIT);
    if (v >= NC) return RefuseTable();
    std::fill(CharLen, CharLen + NC, uint8_t{0});
    std::fill(CharTable, CharTable + 4096, static_cast<uint16_t>(v));  // no bits
    return;
  }
  if (n > NC) return RefuseTable();
  uint32_t i = 0;
  while (i < n) {
    uint32_t peek = Peek16(w);
    uint32_t e = AuxTable[peek >> 8];
    if (e & kTreeEntry) {
      e = ResolveTree(e, NT, 0x80, peek, AuxLen);
      if (e == kCycle) return;
    }
    Consume(w, in, e >> 9);
    uint32_t s = e & 0x1FF;
    if (s > 2) {
      CharLen[i++] = static_cast<uint8_t>(s - 2);
      continue;
    }
    uint32_t run = s == 0 ? 1 : s == 1 ? Take(w, in, 4) + 3 : Take(w, in, CBIT) + 20;
    if (run > NC - i) return RefuseTable();
    std::fill(CharLen + i, CharLen + i + run, uint8_t{0});
    i += run;
  }
  std::fill(CharLen + i, CharLen + NC, uint8_t{0});
  BuildDecodeTable(NC, CharLen, 12, CharTable, 4096);
}

uint32_t StaticHuffmanDecoderBase::ReadBlockHead(StaticBitInput& in, uint32_t np, uint32_t pbit) {
  uint32_t blockSize = Take(in.W, in, 16);
  ReadAuxLengths(in, NT, TBIT, 3);
  if (Owner->Status < 0) return 0;
  ReadCharLengths(in);
  if (Owner->Status < 0) return 0;
  ReadAuxLengths(in, np, pbit, -1);
  if (Owner->Status < 0) return 0;
  return blockSize == 0 ? 65536 : blockSize;
}

uint32_t StaticHuffmanDecoderBase::ResolveTree(uint32_t entry, uint32_t nchar, uint32_t mask,
                                               uint32_t peek, const uint8_t* lengths) {
  uint32_t j = WalkTree(EntryValue(entry), nchar, mask, peek);
  if (j == kCycle) return RefuseTable(), kCycle;
  return j | lengths[j] << 9;
}

inline uint32_t StaticHuffmanDecoderBase::DecodeSymbol(BitWindow& w, StaticBitInput& in) {
  uint32_t e = CharTable[Peek16(w) >> 4];
  if (e & kTreeEntry) [[unlikely]] {
    e = ResolveTree(e, NC, 0x08, Peek16(w), CharLen);
    if (e == kCycle) return 0;
  }
  Consume(w, in, e >> 9);
  return e & 0x1FF;
}

// The match distance minus one, or kCycle after a refused tree.
inline uint32_t StaticHuffmanDecoderBase::DecodeOffset(BitWindow& w, StaticBitInput& in, uint32_t np) {
  uint32_t e = AuxTable[Peek16(w) >> 8];
  if (e & kTreeEntry) [[unlikely]] {
    e = ResolveTree(e, np, 0x80, Peek16(w), AuxLen);
    if (e == kCycle) return kCycle;
  }
  Consume(w, in, e >> 9);
  uint32_t j = e & 0x1FF;
  if (j <= 1) return j;
  return (1u << (j - 1)) + Take(w, in, j - 1);
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

// A match into ring[loc...]. A source behind the ring's start lies before
// the member's first byte until the first half is out (zeros), at the
// ring's end afterwards.
template <uint32_t kRing>
inline void CopyFromRing(uint8_t* ring, uint32_t loc, uint32_t distance, uint32_t length,
                         bool history) {
  if (distance <= loc) [[likely]]
    return CopyMatchBytes(ring + loc, distance, length);
  for (uint32_t k = 0; k < length; ++k) {
    int32_t s = static_cast<int32_t>(loc + k) - static_cast<int32_t>(distance);
    ring[loc + k] = s >= 0 ? ring[s] : history ? ring[s + kRing] : 0;
  }
}

}  // namespace

// A completed half leaves as one block; bytes written past the ring's end
// move to its start. False when the decoding must stop.
template <const StaticMethodParams& P>
bool StaticHuffmanDecoderBase::FlushHalf(StaticBitInput& in, uint8_t* ring, uint32_t halfEnd,
                                         uint32_t& loc, bool& history) {
  constexpr uint32_t W = P.WindowSize;
  if (!Flush(in, ring + halfEnd - W, W, W) || Owner->Status < 0) return false;
  history = true;
  if (halfEnd == 2 * W) {
    std::memcpy(ring, ring + 2 * W, loc - 2 * W);
    loc -= 2 * W;
  }
  return true;
}

// Codes while nothing but decoding can happen: inside the block, below
// `limit` (the half's end, or the original size), and with 8 bytes of the
// chunk ahead, so that no read is due and the status cannot change. A match
// may end past the half; the caller flushes it. One refill per code covers
// its 47 bits at most.
//
// A refill fills all 64 bits with stream bits and a code takes at most 47,
// so the next code's table entry is looked up before the next refill, off
// the refill's load.
template <const StaticMethodParams& P>
uint32_t StaticHuffmanDecoderBase::DecodeRun(BitWindow& w, uint8_t* ring, uint32_t loc,
                                             uint32_t limit, uint32_t& blockLeft, bool history) {
  uint64_t bits = w.Bits;
  uint32_t count = w.Count;
  const uint8_t* next = w.Next;
  const uint8_t* const end = w.End;
  uint32_t left = blockLeft;
  uint32_t e = CharTable[bits >> 52];
  while (left != 0 && loc < limit && next + 8 <= end) {
    bits |= LoadBigEndian64(next) >> count;
    next += (63 - count) >> 3;
    count |= 56;
    --left;
    if (e & kTreeEntry) [[unlikely]] {
      e = ResolveTree(e, NC, 0x08, static_cast<uint32_t>(bits >> 48), CharLen);
      if (e == kCycle) return kCycle;
    }
    bits <<= e >> 9;
    count -= e >> 9;
    uint32_t c = e & 0x1FF;
    if (c < 256) {
      ring[loc++] = static_cast<uint8_t>(c);
      e = CharTable[bits >> 52];
      continue;
    }
    uint32_t p = AuxTable[bits >> 56];
    if (p & kTreeEntry) [[unlikely]] {
      p = ResolveTree(p, P.NP, 0x80, static_cast<uint32_t>(bits >> 48), AuxLen);
      if (p == kCycle) return kCycle;
    }
    bits <<= p >> 9;
    count -= p >> 9;
    uint32_t j = p & 0x1FF;
    uint32_t extra = j - (j != 0);  // j - 1 plain bits after symbol j >= 1
    uint32_t position = ((1u << j) >> 1) + static_cast<uint32_t>((bits >> 1) >> (63 - extra));
    bits <<= extra;
    count -= extra;
    e = CharTable[bits >> 52];
    CopyFromRing<2 * P.WindowSize>(ring, loc, position + 1, c - 253, history);
    loc += c - 253;
  }
  w = BitWindow{bits, count, next, end};
  blockLeft = left;
  return loc;
}

template <const StaticMethodParams& P>
void StaticHuffmanDecoderBase::DecodeWith() {
  constexpr uint32_t W = P.WindowSize;
  constexpr uint32_t kRing = 2 * W;
  static_assert((W & (W - 1)) == 0, "window halves are found by masking");
  KzArchiver& owner = *Owner;
  // Tree nodes start cleared for every member, so what a malformed table
  // walks into never depends on an earlier member.
  std::memset(Left, 0, sizeof Left);
  std::memset(Right, 0, sizeof Right);
  // 1. Start of the member: prime 16 bits.
  StaticBitInput in(owner, InputChunk);
  Consume(in.W, in, 0);
  BitWindow w = in.W;
  // 2.-3.
  const uint32_t size = static_cast<uint32_t>(owner.Transfer.OriginalSize);
  uint8_t* const ring = Window;
  uint32_t loc = 0;
  uint32_t count = 0;
  uint32_t blockLeft = 0;
  bool history = false;  // false until the first half is out: older bytes read as zeros
  // 4. Codes until the output count is reached: runs of codes that need no
  // checks, and one code at a time, checked as the format says, between.
  while (count < size) {
    uint32_t halfEnd = (loc & ~(W - 1)) + W;
    if (blockLeft != 0 && owner.Status >= 0) {
      uint32_t limit = size - count < halfEnd - loc ? loc + (size - count) : halfEnd;
      uint32_t before = loc;
      loc = DecodeRun<P>(w, ring, loc, limit, blockLeft, history);
      if (loc == kCycle) [[unlikely]]
        return (in.W = w, in.Settle());
      count += loc - before;
      if (loc >= halfEnd) {
        in.W = w;
        if (!FlushHalf<P>(in, ring, halfEnd, loc, history)) return in.Settle();
        continue;
      }
      if (count >= size) break;
    }
    if (blockLeft == 0) {
      in.W = w;
      blockLeft = ReadBlockHead(in, P.NP, P.PBIT);
      w = in.W;
      if (owner.Status < 0) return in.Settle();
    }
    --blockLeft;
    uint32_t c = DecodeSymbol(w, in);
    if (owner.Status < 0) return (in.W = w, in.Settle());
    uint32_t end;
    if (c < 256) {
      ring[loc] = static_cast<uint8_t>(c);
      end = loc + 1;
      count += 1;
    } else {
      uint32_t length = c - 253;
      count += length;
      uint32_t position = DecodeOffset(w, in, P.NP);
      if (position == kCycle) [[unlikely]]
        return (in.W = w, in.Settle());
      CopyFromRing<kRing>(ring, loc, position + 1, length, history);
      end = loc + length;
    }
    loc = end;
    if (loc >= halfEnd) {
      in.W = w;
      if (!FlushHalf<P>(in, ring, halfEnd, loc, history)) return in.Settle();
    }
  }
  in.W = w;
  // 5. The last, shorter block.
  uint32_t tail = loc & (W - 1);
  if (tail != 0) Flush(in, ring + loc - tail, tail, W);
  in.Settle();
}

void KzLha5Decoder::Decode() { DecodeWith<kLh5Params>(); }
void KzLha6Decoder::Decode() { DecodeWith<kLh6Params>(); }
void KzLha7Decoder::Decode() { DecodeWith<kLh7Params>(); }

}  // namespace kz
