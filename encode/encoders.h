// The three encoders the archiver embeds by value: one LZ77 + static-Huffman
// algorithm (encoder.cpp, a template over EncoderParams) with the -lh5-,
// -lh6- and -lh7- parameter sets.
#pragma once

#include <cstdint>

#include "enginelib/codec_base.h"

class KzArchiver;

namespace kz {

struct EncoderParams {
  uint32_t Method;      // 5, 6, 7
  uint32_t DictBits;    // 13, 15, 16
  uint32_t DictSize;    // 2^DictBits
  uint32_t HashBuckets; // 8192, 32768, 65536
  uint32_t HashShift;   // 5, 5, 6
  uint32_t NP;          // 14, 16, 17
  uint32_t PBIT;        // 4, 5, 5
};

inline constexpr EncoderParams kLh5EncParams{5, 13, 8192, 8192, 5, 14, 4};
inline constexpr EncoderParams kLh6EncParams{6, 15, 32768, 32768, 5, 16, 5};
inline constexpr EncoderParams kLh7EncParams{7, 16, 65536, 65536, 6, 17, 5};

// Fields common to the three encoders (the arrays sized for the largest NP).
class EncoderBase : public KzCompressor {
 public:
  explicit EncoderBase(KzArchiver* owner) : KzCompressor(owner) {}
  void SetBuffers(uint32_t blockBufferSize, uint8_t* blockBuffer, uint8_t* outputBuffer,
                  uint32_t* hashHead, uint32_t* hashPrev, uint8_t* text, uint8_t* crowded);
  void ApplyLevel();

 protected:
  template <const EncoderParams& P>
  friend class EncoderImpl;
  friend struct EncoderTestAccess;

  // Bit writer.
  uint32_t PendingBits = 0;
  int32_t FreeBits = 8;
  uint8_t* OutputBuffer = nullptr;
  uint32_t OutputCount = 0;
  // Huffman work fields.
  uint16_t Left[1019]{};
  uint16_t Right[1019]{};
  uint8_t CharLen[510]{};
  uint8_t AuxLen[19]{};
  uint16_t CharFreq[1019]{};
  uint16_t CharCode[510]{};
  uint16_t PosFreq[33]{};
  uint16_t AuxCode[19]{};
  uint16_t AuxFreq[37]{};
  int32_t HeapSize = 0;
  int32_t TreeSymbols = 0;
  int16_t Heap[511]{};
  uint16_t* TreeFreq = nullptr;
  uint8_t* TreeLen = nullptr;
  uint16_t* TreeCode = nullptr;
  uint16_t* CodeCursor = nullptr;
  uint16_t LenCount[17]{};
  // Block collection.
  uint32_t BlockPos = 0;
  uint32_t FlagMask = 0;
  uint32_t FlagPos = 0;
  uint8_t* BlockBuffer = nullptr;
  uint32_t BlockBufferSize = 0;
  // Match search.
  uint32_t* HashHead = nullptr;
  uint32_t* HashPrev = nullptr;
  uint8_t* Text = nullptr;
  uint8_t* Crowded = nullptr;
  uint32_t ChainLimit = 0;
  uint32_t LiteralChainLimit = 16;
  uint32_t MatchChainLimit = 32;
  uint32_t HashValue = 0;
  int32_t MatchLen = 0;
  int32_t PrevMatchLen = 0;
  uint32_t MatchPos = 0;
  uint32_t Pos = 0;
  int32_t Remaining = 0;
};

class KzLha5Encoder final : public EncoderBase {
 public:
  using EncoderBase::EncoderBase;
  void Encode();
};

class KzLha6Encoder final : public EncoderBase {
 public:
  using EncoderBase::EncoderBase;
  void Encode();
};

class KzLha7Encoder final : public EncoderBase {
 public:
  using EncoderBase::EncoderBase;
  void Encode();
};

}  // namespace kz
