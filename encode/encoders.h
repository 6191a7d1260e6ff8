// The three encoders the archiver embeds by value: one LZ77 + static-Huffman
// algorithm, written once as EncoderCore<P> over the -lh5-, -lh6- and -lh7-
// parameter sets so that each variant runs with its constants folded in.
//
// Files: encoder.cpp (frame, input, bit output), match_search.cpp,
// huffman_tree.cpp, block_output.cpp; the buffers are the archiver's
// (encode_buffers.cpp).
#pragma once

#include <cstdint>
#include <type_traits>

#include <emmintrin.h>  // x86-64 only: both targets have SSE2

#include "enginelib/codec_base.h"

class KzArchiver;

namespace kz {

struct EncoderParams {
  uint32_t Method;       // 5, 6, 7
  uint32_t DictBits;     // 13, 15, 16
  uint32_t DictSize;     // 2^DictBits
  uint32_t HashBuckets;  // 8192, 32768, 65536
  uint32_t HashShift;    // 5, 5, 6
  uint32_t NP;           // 14, 16, 17
  uint32_t PBIT;         // 4, 5, 5
};

inline constexpr EncoderParams kLh5EncParams{5, 13, 8192, 8192, 5, 14, 4};
inline constexpr EncoderParams kLh6EncParams{6, 15, 32768, 32768, 5, 16, 5};
inline constexpr EncoderParams kLh7EncParams{7, 16, 65536, 65536, 6, 17, 5};

// Sizes shared by the three encoders and by the archiver's buffer set-up.
inline constexpr uint32_t NC = 510;
inline constexpr uint32_t NT = 19;
inline constexpr uint32_t TBIT = 5;
inline constexpr uint32_t CBIT = 9;
inline constexpr int32_t MaxMatch = 256;
inline constexpr int32_t MinMatch = 3;
inline constexpr uint32_t kBlockBufferBytes = 40960;
inline constexpr uint32_t kBlockSlackBytes = 8;  // read, never written, past a full buffer
inline constexpr uint32_t kOutputBufferBytes = 16384;
inline constexpr uint32_t kHashHeadBytes = 65536 * 4;
inline constexpr uint32_t kHashChainBytes = 65536 * 8;
// Two windows of the largest dictionary, plus the bytes into which the
// search may look beyond the filled part.
inline constexpr uint32_t kLookAheadBytes = 300;
inline constexpr uint32_t kTextBytes = 2 * 65536 + kLookAheadBytes;
inline constexpr uint32_t kCrowdedBytes = 65536;

// State and the parameter-free steps common to the three encoders. The
// position-code arrays are sized for the largest NP.
class EncoderBase : public KzCompressor {
 public:
  explicit EncoderBase(KzArchiver* owner) : KzCompressor(owner) {}
  void SetBuffers(uint32_t blockBufferSize, uint8_t* blockBuffer, uint8_t* outputBuffer,
                  uint32_t* hashHead, uint32_t* hashPrev, uint8_t* text, uint8_t* crowded);
  void ApplyLevel();

 protected:
  friend struct EncoderTestAccess;

  // ---- bit output (encoder.cpp) -----------------------------------------
  // Appends the low n bits of value (value < 2^n, n <= 16), most significant
  // first. Bits gather in a 64-bit accumulator and leave four bytes at a
  // time; SyncBits hands every complete byte to the output buffer, so that
  // after it the buffer and the writes stand exactly where a byte-at-a-time
  // writer would have put them.
  void PutBits(uint32_t n, uint32_t value) {
    BitAcc = (BitAcc << n) | value;
    BitCount += n;
    if (BitCount >= 32) DrainWord();
  }
  void DrainWord() {
    BitCount -= 32;
    const uint32_t w = static_cast<uint32_t>(BitAcc >> BitCount);
    if (OutputCount + 4 <= kOutputBufferBytes) {
      uint8_t* o = OutputBuffer + OutputCount;
      o[0] = static_cast<uint8_t>(w >> 24);
      o[1] = static_cast<uint8_t>(w >> 16);
      o[2] = static_cast<uint8_t>(w >> 8);
      o[3] = static_cast<uint8_t>(w);
      OutputCount += 4;
    } else {
      EmitByte(static_cast<uint8_t>(w >> 24));
      EmitByte(static_cast<uint8_t>(w >> 16));
      EmitByte(static_cast<uint8_t>(w >> 8));
      EmitByte(static_cast<uint8_t>(w));
    }
  }
  void SyncBits();
  void EmitByte(uint8_t byte);
  void FlushOutput(uint8_t pendingByte, uint32_t pendingCount);
  void FinishOutput();
  // Source bytes into buffer, with CRC and progress; 0 at the end or on failure.
  uint32_t ReadInput(uint8_t* buffer, uint32_t length);
  // Adds written bytes to PackedSize and raises StoreFallback past the source size.
  void CountPacked(uint32_t written);
  void ResetFrame();

  // ---- Huffman codes (huffman_tree.cpp) ------------------------------------
  int16_t MakeTree(int32_t n, uint16_t* freq, uint8_t* len, uint16_t* code);
  void DownHeap(int32_t i);
  void CountLengths(int32_t node, int32_t depth);
  void MakeLengths(int32_t root);
  void MakeCodes(int32_t n, const uint8_t* len, uint16_t* code);

  // ---- block tables (block_output.cpp) ------------------------------------
  void CountAuxFreq();
  void WriteAuxLengths(int32_t n, uint32_t countBits, int32_t skipIndex);
  void WriteCharLengths();
  void WriteCodes(uint32_t size);
  template <typename Put>
  const uint8_t* EmitCode(const uint8_t* q, bool match, Put&& put) const;

  // Bit writer.
  uint64_t BitAcc = 0;
  uint32_t BitCount = 0;
  uint8_t* OutputBuffer = nullptr;
  uint32_t OutputCount = 0;
  // Huffman work fields, cleared by SetBuffers for each operation rather
  // than at construction, so that an archiver that never compresses never
  // touches their pages.
  uint16_t Left[2 * NC - 1];
  uint16_t Right[2 * NC - 1];
  uint8_t CharLen[NC];
  uint8_t AuxLen[NT];
  uint16_t CharFreq[2 * NC - 1];
  uint16_t CharCode[NC];
  uint16_t PosFreq[33];
  uint16_t AuxCode[NT];
  uint16_t AuxFreq[2 * NT - 1];
  int32_t HeapSize = 0;
  int32_t TreeSymbols = 0;
  int16_t Heap[NC + 1];
  uint16_t* TreeFreq = nullptr;
  uint8_t* TreeLen = nullptr;
  uint16_t* CodeCursor = nullptr;
  uint16_t LenCount[17];
  // Block collection.
  uint32_t BlockPos = 0;
  uint32_t FlagMask = 0;
  uint32_t FlagPos = 0;
  uint8_t* BlockBuffer = nullptr;
  uint32_t BlockBufferSize = 0;
  // Match search. Level 2's limits until a level says otherwise.
  uint32_t* HashHead = nullptr;
  uint32_t* HashPrev = nullptr;
  uint8_t* Text = nullptr;
  uint8_t* Crowded = nullptr;
  uint32_t LiteralChainLimit = 16;
  uint32_t MatchChainLimit = 32;
};

// The algorithm, once, with the parameters of P folded in. Its members are
// instantiated explicitly, beside their definitions, for the three sets.
template <const EncoderParams& P>
class EncoderCore : public EncoderBase {
 public:
  using EncoderBase::EncoderBase;
  // Encodes SourceStream into OutputStream; results in the archiver's
  // transfer record and status.
  void Encode();

 protected:
  friend struct EncoderTestAccess;

  // ---- match search (match_search.cpp) -------------------------------------
  // The tables live in the borrowed buffers in a compact form that walks
  // exactly the chains of the plain one. A head holds a text position
  // (below 2 x DictSize: 16 bits do for lh5 and lh6). A chain link holds the
  // distance back to the position's predecessor; DictSize - 1 or more can
  // never reach past a walk's lower bound, so it is stored as DictSize - 1
  // and ends the chain. Distances do not change when the text slides, so
  // only the heads are rebased.
  //
  // Beside each link three skips hold the distances two, three and four
  // steps back, in one 64-bit entry (16 bits each, the link lowest). A walk
  // loads all four with one access, so it waits for one load per four
  // candidates instead of one per candidate.
  using HeadEntry = std::conditional_t<2 * P.DictSize <= 65536, uint16_t, uint32_t>;
  using LinkEntry = uint64_t;
  static constexpr uint32_t kLinkEnd = P.DictSize - 1;
  static_assert(P.DictSize * sizeof(LinkEntry) <= kHashChainBytes);
  static_assert(kLinkEnd <= 0xFFFF);
  HeadEntry* Heads() { return reinterpret_cast<HeadEntry*>(HashHead); }
  LinkEntry* Links() { return reinterpret_cast<LinkEntry*>(HashPrev); }
  // The entry of a position whose predecessor lies `back` behind it and has
  // entry `prev`: back, then back plus each of prev's first three distances,
  // each held at kLinkEnd.
  static LinkEntry Extend(LinkEntry prev, uint32_t back) {
    constexpr uint64_t kOnes = 0x0001000100010001ull;
    const uint64_t shifted = prev << 16;  // lanes: 0, d1, d2, d3
    if constexpr (P.DictBits < 16) {
      // No lane's sum reaches 2^(DictBits + 1), so none carries into the
      // next; a sum with bit DictBits set is above kLinkEnd.
      const uint64_t x = shifted + back * kOnes;
      const uint64_t over = (x >> P.DictBits) & kOnes;
      return (x | over * ((uint64_t{1} << (P.DictBits + 1)) - 1)) & (kLinkEnd * kOnes);
    } else {
      // kLinkEnd is 0xFFFF: a saturating add holds each lane.
      static_assert(kLinkEnd == 0xFFFF);
      const __m128i sum = _mm_adds_epu16(_mm_cvtsi64_si128(static_cast<int64_t>(shifted)),
                                         _mm_set1_epi16(static_cast<int16_t>(back)));
      return static_cast<uint64_t>(_mm_cvtsi128_si64(sum));
    }
  }
  // The entry of every position four or more steps into a run (the
  // predecessor one back): distances 1, 2, 3, 4, which Extend(.., 1) keeps.
  static constexpr LinkEntry kRunEntry = 0x0004000300020001ull;
  // A link of kLinkEnd or more cannot lead above a walk's lower bound, nor
  // can a skip over it; the bound also stops a walk before it uses a skip
  // through a position that is not in the chain.
  static void Link(HeadEntry* heads, LinkEntry* links, uint32_t hash, uint32_t p) {
    constexpr uint32_t kMask = P.DictSize - 1;
    const uint32_t head = heads[hash];
    const uint32_t back = p - head;
    // Held at kLinkEnd, back makes every distance kLinkEnd: the chain ends.
    links[p & kMask] = Extend(links[head & kMask], back < kLinkEnd ? back : kLinkEnd);
    heads[hash] = static_cast<HeadEntry>(p);
  }

  // Where the search stands. SearchLoop keeps it in a local, so that it
  // lives in registers: the block buffer's byte stores could alias fields.
  struct Cursor {
    uint32_t Pos = 0;
    uint32_t Hash = 0;        // of the three-byte group at Pos
    int32_t Remaining = 0;    // source bytes from Pos on
    uint32_t CrowdedEnd = 0;  // positions below it have crowded groups, as last seen; 0: none known
    int32_t MatchLen = 0;     // the best match found for Pos
    uint32_t MatchPos = 0;
  };
  static uint32_t GroupHash(const uint8_t* p);
  void SearchLoop();
  [[gnu::always_inline]] void FindMatch(Cursor& c, uint32_t chainLimit);
  int32_t Slide(int32_t remaining);
  void SlideAt(Cursor& c);
  void Advance(Cursor& c);
  void SkipInserting(Cursor& c, int32_t count);
  // Block collection's cursor, in a local for the same reason.
  struct Collector {
    uint32_t BlockPos, FlagMask, FlagPos;
  };
  [[gnu::always_inline]] void RecordCode(Collector& b, uint32_t c, uint32_t p);
  void Prefetch(uint32_t h);

  // ---- block output (block_output.cpp) -------------------------------------
  void SendBlock();
};

class KzLha5Encoder final : public EncoderCore<kLh5EncParams> {
 public:
  using EncoderCore::EncoderCore;
};

class KzLha6Encoder final : public EncoderCore<kLh6EncParams> {
 public:
  using EncoderCore::EncoderCore;
};

class KzLha7Encoder final : public EncoderCore<kLh7EncParams> {
 public:
  using EncoderCore::EncoderCore;
};

// Test seam: the next AllocEncodeBuffers fails its index-th allocation (1..6).
namespace testing {
void FailEncodeAllocation(int index);
}

}  // namespace kz
