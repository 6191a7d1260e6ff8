// One member's data: seek to it, run the decoder its method asks for (or
// the stored copy), check the CRC-16. Also the decode buffers (slots 21, 22).
#include <algorithm>
#include <cstdlib>

#include "archiver/lha_archiver.h"
#include "decode/crc16.h"
#include "decode/decoders.h"

namespace {
constexpr uint32_t kStoredChunk = 65536;  // the transfer buffer's guaranteed room
}

HRESULT KzLhaArchiver::DecodeMember(LhaHeader& header) {
  // 1. Fresh counters for this member.
  Transfer = TransferRecord{};
  Transfer.DataCrc = 0;
  Transfer.PackedSize = header.PackedSize;
  Transfer.OriginalSize = header.OriginalSize;
  // 2. The data follows the header and any level-1 extended headers.
  ArchiveStream.Seek(static_cast<int64_t>(header.HeaderPos + header.HeaderLength + header.ExtendedLength),
                     0, 0);
  // 3. By method.
  switch (header.Method) {
    case 0: CopyStored(); break;
    case 1: Lha1Decoder.Decode(); break;
    case 4:
    case 5: Lha5Decoder.Decode(); break;
    case 6: Lha6Decoder.Decode(); break;
    case 7: Lha7Decoder.Decode(); break;
    default: return SetError(kz::ARC_E_UNKNOWNMETHOD, header.Name);
  }
  // 4.-5. A failure stands as it is; only a clean decode is checked.
  if (Status < 0) return Status;
  if (static_cast<uint32_t>(Transfer.DataCrc) != header.Crc) return SetError(kz::E_Crc, header.Name);
  return Status;
}

HRESULT KzLhaArchiver::CopyStored() {
  uint64_t remaining = Transfer.OriginalSize;
  while (remaining != 0) {
    uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(remaining, kStoredChunk));
    uint32_t got = 0;
    if (!ArchiveStream.Read(TransferBuffer, n, &got, 0) || got != n)
      return SetSystemError(ArchiveStream.GetName());
    Transfer.DataCrc = kz::UpdateCrc16(Transfer.DataCrc, TransferBuffer, static_cast<int32_t>(n));
    Transfer.TotalBytes += n;
    Transfer.ChunkBytes = n;
    ReportProgress();
    remaining -= n;
    if (WriteOutput(TransferBuffer, n, kStoredChunk) < 0) return Status;
  }
  return Status;
}

HRESULT KzLhaArchiver::AllocDecodeBuffers() {
  Lh1OrOutputBuffer = static_cast<uint8_t*>(std::malloc(kz::kLh1OutputBytes));
  DictionaryOrText = static_cast<uint8_t*>(std::malloc(kz::kDictionaryBytes));
  InputOrBlockBuffer = static_cast<uint8_t*>(std::malloc(kz::kDecodeInputBytes));
  if (!Lh1OrOutputBuffer || !DictionaryOrText || !InputOrBlockBuffer) {
    FreeDecodeBuffers();
    return SetError(kz::E_Outofmemory, nullptr);
  }
  Lha1Decoder.SetBuffers(InputOrBlockBuffer, DictionaryOrText, Lh1OrOutputBuffer);
  Lha5Decoder.SetBuffers(InputOrBlockBuffer, DictionaryOrText);
  Lha6Decoder.SetBuffers(InputOrBlockBuffer, DictionaryOrText);
  Lha7Decoder.SetBuffers(InputOrBlockBuffer, DictionaryOrText);
  return 0;
}

void KzLhaArchiver::FreeDecodeBuffers() {
  for (uint8_t** field : {&InputOrBlockBuffer, &Lh1OrOutputBuffer, &DictionaryOrText}) {
    if (*field) std::free(*field);
    *field = nullptr;
  }
}
