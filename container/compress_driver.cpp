// The per-file compression driver: a placeholder header, the encoder of the
// chosen method (or a stored copy), the fall-back to storing when the
// packed data outgrows the file, and the final header in the placeholder's
// place.
#include "archiver/lha_archiver.h"
#include "decode/crc16.h"

namespace {

constexpr uint32_t kCopyChunk = 65536;
// The level-1 header's size fields are 32 bits wide.
constexpr uint64_t kMaxSourceSize = uint64_t{1} << 32;

uint32_t MethodForDictionary(uint32_t dictionaryKiB) {
  switch (dictionaryKiB) {
    case 32: return 6;
    case 64: return 7;
    default: return 5;
  }
}

void PutLe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

void RunEncoder(KzLhaArchiver& a, uint32_t method) {
  switch (method) {
    case 6: a.Lha6Encoder.Encode(); break;
    case 7: a.Lha7Encoder.Encode(); break;
    default: a.Lha5Encoder.Encode(); break;
  }
}

// Step 11 of CompressFile: rewinds both streams, copies the source stored
// and cuts away the encoded bytes that lay beyond it.
int32_t StoreInPlace(KzLhaArchiver& a, uint64_t dataPos) {
  TransferRecord& t = a.Transfer;
  t.DataCrc = 0;
  t.PackedSize = 0;
  if (!a.SourceStream.Seek(0, 0, 0)) return a.SetSystemError(a.SourceStream.GetName());
  if (!a.OutputStream.Seek(static_cast<int64_t>(dataPos), 0, 0)) {
    return a.SetSystemError(a.OutputStream.GetName());
  }
  if (a.CopySourceStored() < 0) return a.Status;
  t.PackedSize = t.OriginalSize;
  if (!a.OutputStream.SetEnd()) return a.SetSystemError(a.OutputStream.GetName());
  return 0;
}

}  // namespace

int32_t KzLhaArchiver::CompressFile(const PathString& archiveName, const PathString& sourcePath,
                                    uint8_t attributes) {
  // 1.
  uint8_t header[22] = {};
  // 2. Nothing is written for a source that cannot be opened.
  if (!SourceStream.Open(sourcePath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         OPEN_EXISTING, 0, 0)) {
    HRESULT e = static_cast<HRESULT>(GetLastError());
    if (e > 0) e = static_cast<HRESULT>((static_cast<uint32_t>(e) & 0xFFFFu) | 0x80070000u);
    return ReportFileError(archiveName, sourcePath, e);
  }
  // 3.
  uint16_t date = 0;
  uint16_t time = 0;
  if (!SourceStream.GetDosDateTime(&date, &time)) {
    SetSystemError(SourceStream.GetName());
    SourceStream.Close();
    return Status;
  }
  // 4.
  Transfer.DataCrc = 0;
  Transfer.PackedSize = 0;
  Transfer.OriginalSize = 0;
  Transfer.StoreFallback = 0;
  Transfer.TotalBytes = 0;
  uint32_t method = MethodForDictionary(DictionarySize);
  // 5.
  PutLe16(header + 15, time);
  PutLe16(header + 17, date);
  header[19] = attributes;
  // 6. A size that cannot be taken counts as empty.
  uint64_t size = 0;
  (void)SourceStream.GetSize(&size);
  if (size == 0) {
    SourceStream.Close();
    return WriteMemberHeader(header, archiveName, 0);
  }
  if (size >= kMaxSourceSize) {
    SetError(kz::ARC_E_TOOLARGE, sourcePath);
    SourceStream.Close();
    return Status;
  }
  // 7.
  const uint64_t headerPos = OutputStream.GetPosition();
  if (WriteMemberHeader(header, archiveName, 0) < 0) {
    SourceStream.Close();
    return Status;
  }
  // 8.
  const uint64_t dataPos = OutputStream.GetPosition();
  Transfer.DataCrc = 0;
  Transfer.OriginalSize = size;
  // 9.
  if (CompressionLevel == 0) {
    Transfer.StoreFallback = 1;
  } else {
    RunEncoder(*this, method);
  }
  // 10. A failed member keeps its placeholder; the add loop decides.
  if (Status < 0) {
    SourceStream.Close();
    return Status;
  }
  // 11.
  if (Transfer.StoreFallback != 0) {
    if (StoreInPlace(*this, dataPos) < 0) {
      SourceStream.Close();
      return Status;
    }
    method = 0;
  }
  // 12.
  SourceStream.Close();
  if (!OutputStream.Seek(static_cast<int64_t>(headerPos), 0, 0)) {
    return SetSystemError(OutputStream.GetName());
  }
  if (WriteMemberHeader(header, archiveName, method) == 0 && !OutputStream.Seek(0, 2, 0)) {
    SetSystemError(OutputStream.GetName());
  }
  return Status;
}

int32_t KzLhaArchiver::CopySourceStored() {
  // 1.
  if (!SourceStream.Seek(0, 0, 0)) return SetSystemError(SourceStream.GetName());
  Transfer.TotalBytes = 0;
  Transfer.ChunkBytes = 0;
  for (;;) {
    // 2., 3.
    uint32_t count = 0;
    if (!SourceStream.Read(TransferBuffer, kCopyChunk, &count, 0)) {
      return SetSystemError(SourceStream.GetName());
    }
    if (count == 0) return 0;
    // 4.
    Transfer.DataCrc = kz::UpdateCrc16(Transfer.DataCrc, TransferBuffer, static_cast<int32_t>(count));
    // 5. After an encoder's attempt its progress already covered the file.
    // A stop fails the member rather than leave a header that claims bytes
    // it lacks.
    if (CompressionLevel == 0) {
      Transfer.TotalBytes += count;
      Transfer.ChunkBytes = count;
      const HRESULT hr = ReportProgress();
      if (hr < 0) return Status < 0 ? Status : SetError(hr, nullptr);
    }
    // 6.
    uint32_t written = 0;
    if (!OutputStream.Write(TransferBuffer, count, &written, 0) || written != count) {
      return SetSystemError(OutputStream.GetName());
    }
  }
}
