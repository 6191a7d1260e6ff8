// The decoders the archiver embeds by value: one adaptive-Huffman decoder
// for -lh1- and one static-Huffman algorithm carried by three classes whose
// constants differ (window size, NP, PBIT).
//
// Both kinds borrow the archiver's buffers (AllocDecodeBuffers) and keep no
// state from one member to the next except their code tables, which every
// block head rebuilds. Their bit input lives on the stack of Decode: a
// 64-bit buffer that charges the member's packed size, and reads 8000-byte
// chunks, exactly when a 16-bit (static) or byte-at-a-time (lh1) reader
// would.
#pragma once

#include <cstdint>

#include "enginelib/codec_base.h"

class KzArchiver;

namespace kz {

// Constants of the static-Huffman methods; one set per decoder class.
struct StaticMethodParams {
  uint32_t WindowSize;  // 8192, 32768, 65536
  uint32_t NP;          // position-code symbols: 14, 16, 17
  uint32_t PBIT;        // bits of the position-length count: 4, 5, 5
};

inline constexpr StaticMethodParams kLh5Params{8192, 14, 4};
inline constexpr StaticMethodParams kLh6Params{32768, 16, 5};
inline constexpr StaticMethodParams kLh7Params{65536, 17, 5};

// Sizes of the buffers AllocDecodeBuffers hands to the decoders.
inline constexpr uint32_t kDecodeInputBytes = 8192;
inline constexpr uint32_t kDecodeChunkBytes = 8000;  // bytes per read
inline constexpr uint32_t kDictionaryBytes = 131372;
inline constexpr uint32_t kLh1OutputBytes = 8192;

struct StaticBitInput;
struct BitWindow;

// State shared by the three static decoders; the algorithm lives in
// static_decoder.cpp as one member template over StaticMethodParams.
//
// The window is used as a ring of two window sizes: output leaves in
// whole-window halves, and a match may write up to 15 bytes past its end
// because what lies there is older than any distance can reach.
class StaticHuffmanDecoderBase : public KzDecompressor {
 public:
  static constexpr uint32_t NC = 510;   // character/length symbols
  static constexpr uint32_t NT = 19;    // code-length-code symbols
  static constexpr uint32_t TBIT = 5;
  static constexpr uint32_t CBIT = 9;
  static constexpr uint32_t kTreeNodes = 2 * NC - 1;  // room of Left and Right
  static constexpr uint32_t kCopySlack = 256;         // the furthest a copy writes past the ring

  explicit StaticHuffmanDecoderBase(KzArchiver* owner) : KzDecompressor(owner) {}
  void SetBuffers(uint8_t* input, uint8_t* dictionary) {
    InputChunk = input;
    Window = dictionary;
  }

 protected:
  template <const StaticMethodParams& P>
  void DecodeWith();
  template <const StaticMethodParams& P>
  bool FlushHalf(StaticBitInput& in, uint8_t* ring, uint32_t halfEnd, uint32_t& loc, bool& history);
  template <const StaticMethodParams& P>
  uint32_t DecodeRun(BitWindow& w, uint8_t* ring, uint32_t loc, uint32_t limit,
                     uint32_t& blockLeft, bool history);

 private:
  // Block head: returns the number of codes in the block (1 to 65536), or 0
  // once the archiver's status is negative.
  uint32_t ReadBlockHead(StaticBitInput& in, uint32_t np, uint32_t pbit);
  void ReadAuxLengths(StaticBitInput& in, uint32_t nn, uint32_t nbit, int32_t special);
  void ReadCharLengths(StaticBitInput& in);
  // False once refused.
  bool BuildDecodeTable(uint32_t nchar, const uint8_t* lengths, uint32_t tableBits,
                        uint16_t* table, uint32_t tableEntries);
  // Follows Left/Right from `node` by the bits of `peek` under `mask` until
  // a symbol below nchar; kCycle for a walk that would never end.
  uint32_t WalkTree(uint32_t node, uint32_t nchar, uint32_t mask, uint32_t peek) const;
  void RefuseTable();
  // A table entry that roots a tree, resolved by the bits in `peek` to
  // symbol | length << 9, or kCycle (refused).
  [[gnu::noinline]] uint32_t ResolveTree(uint32_t entry, uint32_t nchar, uint32_t mask, uint32_t peek,
                                         const uint8_t* lengths);
  uint32_t DecodeSymbol(BitWindow& w, StaticBitInput& in);
  uint32_t DecodeOffset(BitWindow& w, StaticBitInput& in, uint32_t np);
  bool Flush(StaticBitInput& in, const uint8_t* data, uint32_t count, uint32_t capacity);

  static constexpr uint32_t kCycle = 0xFFFFFFFFu;
  static constexpr uint16_t kTreeEntry = 0x8000;  // table entry: a tree's root, not a symbol

  uint8_t* Window = nullptr;
  // Cleared by DecodeWith, not at construction: the pages of a decoder
  // that never runs are never touched (a page's first touch costs more than
  // a short run's decoding).
  uint16_t Left[kTreeNodes];
  uint16_t Right[kTreeNodes];
  // Written by every block head before they are read.
  uint8_t CharLen[NC];
  uint8_t AuxLen[NT];
  // Direct tables on the top 12 and 8 bits: symbol | length << 9, or
  // kTreeEntry | the root of the tree that longer codes walk.
  uint16_t CharTable[4096];
  uint16_t AuxTable[256];
  uint8_t* InputChunk = nullptr;
};

class KzLha5Decoder final : public StaticHuffmanDecoderBase {
 public:
  using StaticHuffmanDecoderBase::StaticHuffmanDecoderBase;
  void Decode();
};

class KzLha6Decoder final : public StaticHuffmanDecoderBase {
 public:
  using StaticHuffmanDecoderBase::StaticHuffmanDecoderBase;
  void Decode();
};

class KzLha7Decoder final : public StaticHuffmanDecoderBase {
 public:
  using StaticHuffmanDecoderBase::StaticHuffmanDecoderBase;
  void Decode();
};

struct Lh1BitInput;

// -lh1-: LZ77 over a 4096-byte history with one adaptive Huffman code for
// literals and lengths. The history and the 4096-byte output blocks share
// one ring of 8192 bytes in the dictionary buffer, indexed by output
// position, so a byte is stored once.
class KzLha1Decoder final : public KzDecompressor {
 public:
  static constexpr uint32_t N = 4096;
  static constexpr uint32_t F = 60;
  static constexpr uint32_t THRESHOLD = 2;
  static constexpr uint32_t N_CHAR = 256 - THRESHOLD + F;  // 314
  static constexpr uint32_t T = 2 * N_CHAR - 1;            // 627
  static constexpr uint32_t R = T - 1;                     // root
  static constexpr uint32_t MAX_FREQ = 0x8000;

  explicit KzLha1Decoder(KzArchiver* owner) : KzDecompressor(owner) {}
  void SetBuffers(uint8_t* input, uint8_t* ring, uint8_t* output) {
    InputChunk = input;
    Ring = ring;
    Output = output;
  }
  void Decode();

 private:
  void InitTree();
  uint32_t DecodeSymbol(Lh1BitInput& in);
  uint32_t DecodeOffset(Lh1BitInput& in);
  void UpdateTree(uint32_t leaf);
  void IncrementFrom(uint32_t c);
  uint32_t Exchange(uint32_t c, uint32_t k);
  void RebuildTree();
  void FlushBlock(uint32_t start, uint32_t count);
  void CopyMatch(uint32_t pos, uint32_t distance, uint32_t length);
  // Grandchild links of an inner node from its children's NodeChild.
  void SetGrand(uint32_t n) {
    const uint32_t c = static_cast<uint32_t>(NodeChild[n]);
    Grand[n][0] = static_cast<uint16_t>(NodeChild[c]);
    Grand[n][1] = static_cast<uint16_t>(NodeChild[c + 1]);
  }
  void SetAllGrand();

  uint8_t* Ring = nullptr;
  uint8_t* Output = nullptr;  // kept for the buffer contract; blocks leave from Ring
  // Written whole by InitTree at every member's start.
  uint32_t NodeFreq[T + 1];
  int32_t NodeParent[T + N_CHAR];
  int32_t NodeChild[T];
  // Grand[n][b] = NodeChild[NodeChild[n] + b] for every inner node n: the
  // walk resolves two levels per dependent load.
  uint16_t Grand[T][2];
  uint8_t* InputChunk = nullptr;
};

}  // namespace kz
