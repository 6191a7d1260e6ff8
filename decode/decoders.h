// The decoders the archiver embeds by value: one adaptive-Huffman decoder
// for -lh1- and one static-Huffman algorithm carried by three classes whose
// constants differ (window size, NP, PBIT).
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

// State shared by the three static decoders; the algorithm lives in
// static_decoder.cpp as one template over StaticMethodParams.
class StaticHuffmanDecoderBase : public KzDecompressor {
 public:
  explicit StaticHuffmanDecoderBase(KzArchiver* owner) : KzDecompressor(owner) {}
  void SetBuffers(uint8_t* input, uint8_t* dictionary) {
    InputChunk = input;
    Window = dictionary;
  }

 protected:
  template <const StaticMethodParams& P>
  friend class StaticHuffmanDecoder;

  uint8_t* Window = nullptr;
  uint16_t Left[1019]{};
  uint16_t Right[1019]{};
  uint8_t CharLen[510]{};
  uint8_t AuxLen[19]{};
  uint16_t CharTable[4096]{};
  uint16_t AuxTable[256]{};
  uint16_t BlockSize = 0;
  // Bit input.
  uint16_t BitBuffer = 0;
  int32_t BitsLeft = 0;
  uint8_t PendingByte = 0;
  uint8_t* InputChunk = nullptr;
  int32_t InputPos = 0;
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

class KzLha1Decoder final : public KzDecompressor {
 public:
  explicit KzLha1Decoder(KzArchiver* owner) : KzDecompressor(owner) {}
  void SetBuffers(uint8_t* input, uint8_t* ring, uint8_t* output) {
    InputChunk = input;
    Ring = ring;
    Output = output;
  }
  void Decode();

 private:
  uint8_t* Ring = nullptr;
  uint8_t* Output = nullptr;
  uint32_t NodeFreq[628]{};
  int32_t NodeParent[941]{};
  int32_t NodeChild[627]{};
  uint32_t BitHolder = 0;
  uint8_t BitCount = 0;
  uint8_t* InputChunk = nullptr;
  int32_t InputPos = 0;
  int32_t OutputCount = 0;
};

}  // namespace kz
