// -lh1-: LZ77 over a 4096-byte history, literals and lengths coded with one
// adaptive Huffman tree (updated after every symbol), positions with a
// fixed code: the top 6 bits through two 256-entry tables, the low 6 plain.
//
// The reader is not bounded by the packed size: it takes bytes until the
// original size is reached, and reads an 8000-byte chunk at the very bit at
// which a byte-at-a-time reader would need the chunk's first byte.
#include <algorithm>
#include <array>
#include <cstring>

#include "archiver/lha_archiver.h"
#include "decode/copy_match.h"
#include "decode/crc16.h"
#include "decode/decoders.h"
#include "decode/load_bits.h"

namespace kz {

namespace {

constexpr uint32_t kRingBytes = 2 * KzLha1Decoder::N;  // history + the block being filled
constexpr uint32_t kBlockBytes = KzLha1Decoder::N;
constexpr uint32_t kInitialSpaces = KzLha1Decoder::N - KzLha1Decoder::F;  // 4036
constexpr uint32_t kMaxMatchBytes = 64;  // the longest match (60) in whole 16-byte moves
// What a copy may touch past the ring's end: a 64-byte move from its last
// slot, or the last word (up to 7 bytes over) of a short-period copy
// ending 60 bytes past it.
constexpr uint32_t kCopyOverrun = std::max(kMaxMatchBytes, KzLha1Decoder::F + 8);
static_assert(KzLha1Decoder::F <= kMaxMatchBytes);

static_assert(kRingBytes + kCopyOverrun <= kDictionaryBytes);

// Position code: the first 8 bits give the position's upper 6 bits and the
// code's length before the low 6 bits, by ranges.
struct PositionTables {
  std::array<uint8_t, 256> Upper{};
  std::array<uint8_t, 256> Bits{};
};

constexpr PositionTables MakePositionTables() {
  // {first value past the range, values per upper part, code bits}
  constexpr uint32_t kRanges[6][3] = {{32, 32, 3}, {80, 16, 4}, {144, 8, 5},
                                      {192, 4, 6}, {240, 2, 7}, {256, 1, 8}};
  PositionTables t;
  uint32_t first = 0, upper = 0;
  for (const auto& range : kRanges) {
    for (uint32_t v = first; v < range[0]; ++v) {
      t.Upper[v] = static_cast<uint8_t>(upper + (v - first) / range[1]);
      t.Bits[v] = static_cast<uint8_t>(range[2]);
    }
    upper += (range[0] - first) / range[1];
    first = range[0];
  }
  return t;
}

constexpr PositionTables kPositions = MakePositionTables();
static_assert(kPositions.Upper[31] == 0 && kPositions.Upper[32] == 1 && kPositions.Upper[79] == 3 &&
              kPositions.Upper[80] == 4 && kPositions.Upper[143] == 11 &&
              kPositions.Upper[191] == 23 && kPositions.Upper[239] == 47 &&
              kPositions.Upper[240] == 48 && kPositions.Upper[255] == 63);
static_assert(kPositions.Bits[0] == 3 && kPositions.Bits[255] == 8);

}  // namespace

// A byte-at-a-time reader takes a byte whenever it holds 8 bits or fewer
// before handing out a bit; holding at least 9 before every bit keeps this
// 64-bit reader's chunk reads at the same bits.
struct Lh1BitInput {
  uint64_t Bits = 0;  // most significant first; Count of them valid
  uint32_t Count = 0;
  const uint8_t* Next;
  const uint8_t* End;
  uint8_t* Chunk;
  KzArchiver& Owner;

  Lh1BitInput(KzArchiver& owner, uint8_t* chunk) : Next(chunk), End(chunk), Chunk(chunk), Owner(owner) {}

  void Ensure(uint32_t need) {
    if (Count < need) [[unlikely]]
      Refill(need);
  }

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
        Count += 8;
      } else if (Count >= need) {
        return;
      } else {
        if (!Owner.ArchiveStream.Read(Chunk, kDecodeChunkBytes, nullptr, 0))
          Owner.SetSystemError(Owner.ArchiveStream.GetName());
        Next = Chunk;
        End = Chunk + kDecodeChunkBytes;
      }
    }
  }
};

void KzLha1Decoder::InitTree() {
  for (uint32_t i = 0; i < N_CHAR; ++i) {
    NodeFreq[i] = 1;
    NodeChild[i] = static_cast<int32_t>(i + T);
    NodeParent[i + T] = static_cast<int32_t>(i);
  }
  for (uint32_t i = 0, j = N_CHAR; j <= R; i += 2, ++j) {
    NodeFreq[j] = NodeFreq[i] + NodeFreq[i + 1];
    NodeChild[j] = static_cast<int32_t>(i);
    NodeParent[i] = NodeParent[i + 1] = static_cast<int32_t>(j);
  }
  NodeFreq[T] = 0xFFFF;
  NodeParent[R] = 0;
  SetAllGrand();
}

void KzLha1Decoder::SetAllGrand() {
  for (uint32_t n = 0; n < T; ++n)
    if (NodeChild[n] < static_cast<int32_t>(T)) SetGrand(n);
}

void KzLha1Decoder::RebuildTree() {
  // 1. Gather the leaves, halving their counts; they stay in count order.
  uint32_t leafFreq[N_CHAR];
  int32_t leafChild[N_CHAR];
  uint32_t leaves = 0;
  for (uint32_t i = 0; i < T; ++i) {
    if (NodeChild[i] >= static_cast<int32_t>(T)) {
      leafFreq[leaves] = (NodeFreq[i] + 1) / 2;
      leafChild[leaves] = NodeChild[i];
      ++leaves;
    }
  }
  // 2. Join pairs, each inner node placed after every node of its count or
  // less. Pairs are joined in order, so inner counts never decrease and
  // each lands past its own children: the array is a merge of the leaves
  // and the inner nodes, a leaf first on equal counts.
  uint32_t innerFreq[N_CHAR - 1];
  uint32_t made = 0, placedLeaves = 0, placedInner = 0;
  for (uint32_t p = 0; p < T; ++p) {
    for (; 2 * made + 1 < p; ++made) innerFreq[made] = NodeFreq[2 * made] + NodeFreq[2 * made + 1];
    if (placedLeaves < N_CHAR &&
        (placedInner == made || leafFreq[placedLeaves] <= innerFreq[placedInner])) {
      NodeFreq[p] = leafFreq[placedLeaves];
      NodeChild[p] = leafChild[placedLeaves++];
    } else {
      NodeFreq[p] = innerFreq[placedInner];
      NodeChild[p] = static_cast<int32_t>(2 * placedInner++);
    }
  }
  // 3. Parents from children.
  for (uint32_t i = 0; i < T; ++i) {
    int32_t k = NodeChild[i];
    NodeParent[k] = static_cast<int32_t>(i);
    if (k < static_cast<int32_t>(T)) NodeParent[k + 1] = static_cast<int32_t>(i);
  }
  SetAllGrand();
}

// Adds one to the count of `c` and of every node above it. Moving a node
// keeps the counts in non-decreasing order of node index: it trades places
// with the last node whose count is below its new one.
void KzLha1Decoder::IncrementFrom(uint32_t c) {
  do {
    uint32_t k = ++NodeFreq[c];
    if (k > NodeFreq[c + 1]) c = Exchange(c, k);
    c = static_cast<uint32_t>(NodeParent[c]);
  } while (c != 0);
}

uint32_t KzLha1Decoder::Exchange(uint32_t c, uint32_t k) {
  uint32_t l = c + 1;
  while (k > NodeFreq[l + 1]) ++l;
  NodeFreq[c] = NodeFreq[l];
  NodeFreq[l] = k;
  int32_t i = NodeChild[c];
  NodeParent[i] = static_cast<int32_t>(l);
  if (i < static_cast<int32_t>(T)) NodeParent[i + 1] = static_cast<int32_t>(l);
  int32_t j = NodeChild[l];
  NodeChild[l] = i;
  NodeParent[j] = static_cast<int32_t>(c);
  if (j < static_cast<int32_t>(T)) NodeParent[j + 1] = static_cast<int32_t>(c);
  NodeChild[c] = j;
  // Positions c and l hold new subtrees: their own grandchild links and
  // their parents' links through them change.
  if (j < static_cast<int32_t>(T)) SetGrand(c);
  if (i < static_cast<int32_t>(T)) SetGrand(l);
  const uint32_t pc = static_cast<uint32_t>(NodeParent[c]);
  Grand[pc][c - static_cast<uint32_t>(NodeChild[pc])] = static_cast<uint16_t>(j);
  const uint32_t pl = static_cast<uint32_t>(NodeParent[l]);
  Grand[pl][l - static_cast<uint32_t>(NodeChild[pl])] = static_cast<uint16_t>(i);
  return l;
}

// The format's update after the symbol at position `leaf`: counts from the
// leaf up, halving every count first once the root's reaches MAX_FREQ.
void KzLha1Decoder::UpdateTree(uint32_t leaf) {
  if (NodeFreq[R] == MAX_FREQ) {
    const uint32_t symbol = static_cast<uint32_t>(NodeChild[leaf]) - T;
    RebuildTree();
    leaf = static_cast<uint32_t>(NodeParent[symbol + T]);
  }
  IncrementFrom(leaf);
}

[[gnu::always_inline]] inline uint32_t KzLha1Decoder::DecodeSymbol(Lh1BitInput& in) {
  uint32_t node = R;
  uint32_t c = static_cast<uint32_t>(NodeChild[R]);
  // The walk counts each node it passes, root first, and notes whether any
  // count would move its node, that is, pass its right neighbour's. Counting
  // leaf first, as the format does, a node is compared with that neighbour
  // before the neighbour is counted; the neighbour can only be on the path
  // as the node's parent, whose count is the node's plus at least 1 (every
  // count is), so neither order moves a node past its parent.
  // Most symbols move nothing and need no second pass; the others undo the
  // walk's counts and take the format's own update.
  bool moves = NodeFreq[R] == MAX_FREQ;
  ++NodeFreq[R];
  auto count = [&](uint32_t v) {
    const uint32_t k = ++NodeFreq[v];
    moves |= k > NodeFreq[v + 1];
  };
  // The reader's bits stay in registers for the walk: through the reader
  // they would make a round trip through memory at every level.
  uint64_t bits = in.Bits;
  uint32_t have = in.Count;
  // Two levels per step: the child's and the grandchild's NodeChild come
  // from Grand, and both addresses are known when the step starts.
  for (;;) {
    if (have < 10) [[unlikely]] {
      if (have < 9) {
        in.Bits = bits;
        in.Count = have;
        in.Refill(9);
        bits = in.Bits;
        have = in.Count;
      }
      if (have < 10) {
        // Fewer than 10 bits only when the chunk is used up: one level, so
        // that the next chunk is read at the same bit as before.
        const uint32_t m = c + static_cast<uint32_t>(bits >> 63);
        c = Grand[node][bits >> 63];
        bits <<= 1;
        --have;
        count(m);
        node = m;
        if (c >= T) break;
        continue;
      }
    }
    const uint32_t b1 = static_cast<uint32_t>(bits >> 63);
    const uint32_t b2 = static_cast<uint32_t>(bits >> 62) & 1;
    const uint32_t m = c + b1;
    const uint32_t g = Grand[node][b1];
    count(m);
    if (g >= T) {
      bits <<= 1;
      --have;
      node = m;
      c = g;
      break;
    }
    node = g + b2;
    c = Grand[m][b2];
    bits <<= 2;
    have -= 2;
    count(node);
    if (c >= T) break;
  }
  in.Bits = bits;
  in.Count = have;
  // `node` is the leaf's position.
  if (moves) [[unlikely]] {
    for (uint32_t n = node; n != R; n = static_cast<uint32_t>(NodeParent[n])) --NodeFreq[n];
    --NodeFreq[R];
    UpdateTree(node);
  }
  return c - T;
}

// ReadByte, then as many single bits as the first 8 bits call for: one
// refill up front holds every bit a byte-at-a-time reader would have taken.
uint32_t KzLha1Decoder::DecodeOffset(Lh1BitInput& in) {
  in.Ensure(9);
  uint32_t first = static_cast<uint32_t>(in.Bits >> 56);
  uint32_t more = kPositions.Bits[first] - 2u;
  in.Ensure(16 + more);
  uint32_t code = static_cast<uint32_t>(in.Bits >> (56 - more));
  in.Bits <<= 8 + more;
  in.Count -= 8 + more;
  return static_cast<uint32_t>(kPositions.Upper[first]) << 6 | (code & 0x3F);
}

// Block bookkeeping of lh1: CRC, write, totals, progress; the results are
// left to the status checks that follow.
void KzLha1Decoder::FlushBlock(uint32_t start, uint32_t count) {
  KzArchiver& owner = *Owner;
  const uint8_t* data = Ring + (start & (kRingBytes - 1));
  owner.Transfer.DataCrc = UpdateCrc16(owner.Transfer.DataCrc, data, static_cast<int32_t>(count));
  owner.WriteOutput(data, count, kBlockBytes);
  owner.Transfer.TotalBytes += count;
  owner.Transfer.ChunkBytes = count;
  owner.ReportProgress();
}

// Copies `length` bytes from `distance` back to output position `pos`.
// Moves are whole, 64 bytes where a match may need them: the ring's slack
// and the ring slots just ahead of the output take what lands past the
// match. Those slots hold output long since written out and beyond the
// history's reach, and are written again before anything reads them.
[[gnu::always_inline]] inline void KzLha1Decoder::CopyMatch(uint32_t pos, uint32_t distance,
                                                           uint32_t length) {
  auto move64 = [](uint8_t* to, const uint8_t* from) {
    for (uint32_t k = 0; k < kMaxMatchBytes; k += 16) std::memcpy(to + k, from + k, 16);
  };
  const uint32_t at = pos & (kRingBytes - 1);
  uint8_t* const dst = Ring + at;
  if (distance > at) [[unlikely]] {
    // The source starts near the ring's end and may run on from its start;
    // the destination, near the start, cannot wrap.
    const uint32_t from = at + kRingBytes - distance;
    const uint32_t tail = kRingBytes - from;
    move64(dst, Ring + from);
    if (length > tail) CopyMatchBytes(dst + tail, distance, length - tail);
    return;
  }
  if (distance >= 16) {
    move64(dst, dst - distance);
  } else if (distance == 1) {
    const uint64_t run = dst[-1] * 0x0101010101010101u;
    for (uint32_t k = 0; k < kMaxMatchBytes; k += 8) std::memcpy(dst + k, &run, 8);
  } else {
    CopyMatchBytes(dst, distance, length);
  }
  // Bytes written past the ring's end belong at its start.
  if (at + length > kRingBytes) move64(Ring, Ring + kRingBytes);
}

void KzLha1Decoder::Decode() {
  KzArchiver& owner = *Owner;
  // 1.-2. Fresh tree and reader; the history before the member's first
  // byte: 4036 spaces nearest to it, zeros before them.
  InitTree();
  Lh1BitInput in(owner, InputChunk);
  std::memset(Ring + N, 0, N - kInitialSpaces);
  std::memset(Ring + kRingBytes - kInitialSpaces, ' ', kInitialSpaces);
  // 3.-4. Output position `count` doubles as the ring index.
  const uint32_t size = static_cast<uint32_t>(owner.Transfer.OriginalSize);
  uint32_t count = 0;
  uint32_t flushed = 0;  // output bytes already written out
  while (count < size) {
    uint32_t c = DecodeSymbol(in);
    uint32_t length = 1;
    uint32_t distance = 0;
    if (c >= 256) {
      distance = DecodeOffset(in) + 1;
      length = c - 253;
    }
    // The first byte of the symbol completes the previous block's wait.
    if (count - flushed == kBlockBytes) {
      FlushBlock(flushed, kBlockBytes);
      flushed = count;
    }
    if (owner.Status < 0) return;
    if (c < 256) {
      Ring[count & (kRingBytes - 1)] = static_cast<uint8_t>(c);
      count += 1;
      continue;
    }
    CopyMatch(count, distance, length);
    uint32_t end = count + length;
    if (end - flushed > kBlockBytes) {
      // A block filled inside the match goes out when its next byte arrives.
      FlushBlock(flushed, kBlockBytes);
      flushed += kBlockBytes;
      if (owner.Status < 0) return;
    }
    count = end;
  }
  // 5. The last block, full or not.
  if (count != flushed) FlushBlock(flushed, count - flushed);
}

}  // namespace kz
