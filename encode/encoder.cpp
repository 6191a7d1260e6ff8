// The encoder frame: buffers, chain limits, reading the source with CRC and
// progress, and the bit output with its 16 KiB output buffer.
#include <cstring>

#include "decode/crc16.h"
#include "encode/encoders.h"
#include "enginelib/kz_archiver.h"

namespace kz {

void EncoderBase::SetBuffers(uint32_t blockBufferSize, uint8_t* blockBuffer, uint8_t* outputBuffer,
                             uint32_t* hashHead, uint32_t* hashPrev, uint8_t* text,
                             uint8_t* crowded) {
  BlockBufferSize = blockBufferSize;
  BlockBuffer = blockBuffer;
  OutputBuffer = outputBuffer;
  HashHead = hashHead;
  HashPrev = hashPrev;
  Text = text;
  Crowded = crowded;
  auto clear = [](auto&... arrays) { (std::memset(arrays, 0, sizeof arrays), ...); };
  clear(Left, Right, CharLen, AuxLen, CharFreq, CharCode, PosFreq, AuxCode, AuxFreq, Heap, LenCount);
  ApplyLevel();
}

// Other levels keep the limits in force: level 2's until a level 1..4 is seen.
void EncoderBase::ApplyLevel() {
  struct Limits {
    uint32_t Literal, Match;
  };
  static constexpr Limits kByLevel[5] = {{0, 0}, {16, 18}, {16, 32}, {32, 64}, {48, 256}};
  const uint32_t level = Owner->CompressionLevel;
  if (level < 1 || level > 4) return;
  LiteralChainLimit = kByLevel[level].Literal;
  MatchChainLimit = kByLevel[level].Match;
}

void EncoderBase::SyncBits() {
  while (BitCount >= 8) {
    BitCount -= 8;
    EmitByte(static_cast<uint8_t>(BitAcc >> BitCount));
  }
}

void EncoderBase::EmitByte(uint8_t byte) {
  if (OutputCount + 1 <= kOutputBufferBytes) {
    OutputBuffer[OutputCount++] = byte;
  } else {
    FlushOutput(byte, 1);
  }
}

void EncoderBase::CountPacked(uint32_t written) {
  TransferRecord& t = Owner->Transfer;
  t.PackedSize += written;
  if (static_cast<int64_t>(t.PackedSize) > static_cast<int64_t>(t.OriginalSize)) {
    t.StoreFallback = 1;
  }
}

void EncoderBase::FlushOutput(uint8_t pendingByte, uint32_t pendingCount) {
  uint32_t written = 0;
  FileStream& out = Owner->OutputStream;
  if (out.Write(OutputBuffer, OutputCount, &written, 0) && written == OutputCount) {
    CountPacked(written);
    if (pendingCount != 0) OutputBuffer[0] = pendingByte;
    OutputCount = pendingCount;
    return;
  }
  // The pending byte is dropped: the member is abandoned on the negative status.
  Owner->SetSystemError(out.GetName());
}

void EncoderBase::FinishOutput() {
  uint32_t written = 0;
  FileStream& out = Owner->OutputStream;
  if (out.Write(OutputBuffer, OutputCount, &written, 0) && written == OutputCount) {
    CountPacked(written);
    OutputCount = 0;
  } else {
    Owner->SetSystemError(out.GetName());
  }
  BitAcc = 0;
  BitCount = 0;
}

// The progress report's result is not looked at here: a stop shows as a
// negative status, which the search notices at its next slide.
uint32_t EncoderBase::ReadInput(uint8_t* buffer, uint32_t length) {
  uint32_t n = 0;
  FileStream& source = Owner->SourceStream;
  if (!source.Read(buffer, length, &n, 0)) {
    Owner->SetSystemError(source.GetName());
    return 0;
  }
  TransferRecord& t = Owner->Transfer;
  t.DataCrc = UpdateCrc16(t.DataCrc, buffer, static_cast<int32_t>(n));
  t.TotalBytes += n;
  t.ChunkBytes = n;
  (void)Owner->ReportProgress();
  return n;
}

void EncoderBase::ResetFrame() {
  BitAcc = 0;
  BitCount = 0;
  OutputCount = 0;
  Owner->Transfer.ChunkBytes = 0;
}

template <const EncoderParams& P>
void EncoderCore<P>::Encode() {
  ResetFrame();
  ApplyLevel();  // the level may have changed since the buffers were set
  BlockBuffer[0] = 0;
  std::memset(CharFreq, 0, NC * sizeof CharFreq[0]);
  std::memset(PosFreq, 0, P.NP * sizeof PosFreq[0]);
  BlockPos = 0;
  FlagMask = 0;
  SearchLoop();
  // An encoding already past the source size is abandoned for a stored copy:
  // its last block and the bytes still buffered are never written.
  if (Owner->Transfer.StoreFallback != 0) return;
  SendBlock();
  PutBits(7, 0);
  SyncBits();
  FinishOutput();
}

template void EncoderCore<kLh5EncParams>::Encode();
template void EncoderCore<kLh6EncParams>::Encode();
template void EncoderCore<kLh7EncParams>::Encode();

}  // namespace kz
