// A harness for the encoder tests: an archiver with its encode buffers, a
// source file and an output file, and a friend that reaches the encoder's
// steps (bit output, trees, search, blocks) one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "archiver/lha_archiver.h"
#include "support/test_support.h"

namespace kz {

// One code of a block as the search records it.
struct BlockCode {
  bool Match = false;
  uint32_t Value = 0;         // the literal byte, or the match length
  uint32_t DistanceCode = 0;  // distance - 1, for a match
  bool operator==(const BlockCode&) const = default;
};

inline BlockCode Lit(uint8_t b) { return {false, b, 0}; }
inline BlockCode Match(uint32_t length, uint32_t distanceCode) { return {true, length, distanceCode}; }

struct EncoderTestAccess {
  static void PutBits(EncoderBase& e, uint32_t n, uint32_t v) { e.PutBits(n, v); }
  static void SyncBits(EncoderBase& e) { e.SyncBits(); }
  static void ResetFrame(EncoderBase& e) { e.ResetFrame(); }
  static uint32_t OutputCount(const EncoderBase& e) { return e.OutputCount; }
  static uint32_t LiteralChainLimit(const EncoderBase& e) { return e.LiteralChainLimit; }
  static uint32_t MatchChainLimit(const EncoderBase& e) { return e.MatchChainLimit; }
  static const uint8_t* OutputBuffer(const EncoderBase& e) { return e.OutputBuffer; }
  // Bits still waiting for their byte to complete (0..7 after SyncBits).
  static uint32_t PendingBitCount(const EncoderBase& e) { return e.BitCount; }
  static uint32_t PendingBits(const EncoderBase& e) {
    return static_cast<uint32_t>(e.BitAcc & ((uint64_t{1} << e.BitCount) - 1));
  }
  static int16_t MakeTree(EncoderBase& e, int32_t n, uint16_t* freq, uint8_t* len, uint16_t* code) {
    return e.MakeTree(n, freq, len, code);
  }

  // Encode's set-up and search without the last block: the block buffer
  // then holds the codes of the member's last (or only) block.
  template <const EncoderParams& P>
  static void Search(EncoderCore<P>& e) {
    e.ResetFrame();
    e.ApplyLevel();
    e.BlockBuffer[0] = 0;
    for (uint32_t i = 0; i < NC; ++i) e.CharFreq[i] = 0;
    for (uint32_t i = 0; i < P.NP; ++i) e.PosFreq[i] = 0;
    e.BlockPos = 0;
    e.FlagMask = 0;
    e.SearchLoop();
  }
  static uint32_t BlockPos(const EncoderBase& e) { return e.BlockPos; }
  // The block output on its own: codes laid into the block buffer, with
  // code tables as SendBlock leaves them.
  static uint8_t* BlockBuffer(EncoderBase& e) { return e.BlockBuffer; }
  static void SetCode(EncoderBase& e, bool position, uint32_t symbol, uint8_t length, uint16_t code) {
    (position ? e.AuxLen : e.CharLen)[symbol] = length;
    (position ? e.AuxCode : e.CharCode)[symbol] = code;
  }
  static void WriteCodes(EncoderBase& e, uint32_t size) { e.WriteCodes(size); }
  static void FinishOutput(EncoderBase& e) { e.FinishOutput(); }
  // A chain entry from its predecessor's entry and the distance back to it.
  template <const EncoderParams& P>
  static uint64_t ExtendLink(uint64_t prev, uint32_t back) {
    return EncoderCore<P>::Extend(prev, back);
  }
  template <const EncoderParams& P>
  static constexpr uint64_t kRunEntry = EncoderCore<P>::kRunEntry;
  static std::vector<BlockCode> BlockCodes(const EncoderBase& e);
};

}  // namespace kz

namespace kztest {

enum class Method : uint32_t { Lh5 = 5, Lh6 = 6, Lh7 = 7 };

uint32_t DictSizeOf(Method m);

// What one Encode left behind.
struct EncodeResult {
  Bytes Packed;  // everything the encoder wrote to the output
  uint16_t Crc = 0;
  uint32_t StoreFallback = 0;
  uint64_t PackedSize = 0;
  uint64_t TotalBytes = 0;
  HRESULT Status = 0;
};

// An archiver with its encode buffers allocated; source and output files
// live in a private temporary directory.
class EncoderRig {
 public:
  EncoderRig();
  ~EncoderRig();
  KzLhaArchiver& Archiver() { return *archiver_; }
  kz::EncoderBase& Encoder(Method m);
  std::filesystem::path Dir() const { return dir_.path(); }

  // Prepares the streams and the transfer record as the compression driver
  // does before it runs an encoder.
  void Open(const Bytes& source);
  // Closes both streams and returns the bytes written to the output.
  Bytes Close();
  // The whole of one encoder run, as the driver makes it. A claimed size
  // below the real one makes the packed data outgrow the source early.
  EncodeResult Encode(Method m, uint32_t level, const Bytes& source, uint64_t claimedSize = 0);
  // Encode's set-up and search only; returns the recorded codes.
  std::vector<kz::BlockCode> SearchCodes(Method m, uint32_t level, const Bytes& source);

 private:
  TempDir dir_;
  std::unique_ptr<KzLhaArchiver> archiver_;
};

// Bytes in which no two-byte pair repeats (a de Bruijn sequence over all
// byte pairs, cut to n <= 65537), so no three-byte group repeats either:
// the search finds no match in them.
Bytes UniquePairBytes(size_t n);

Bytes Hex(const char* text);

}  // namespace kztest
