#include "enginelib/fake_engine.h"

#include <cstring>

#include "support/archive_builder.h"
#include "support/test_support.h"

namespace kztest {
namespace {

uint32_t U32(const uint8_t* p) {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

void ClearRecord(LhaHeader& record, wchar_t* name) {
  std::memset(&record, 0, sizeof record);
  std::memset(name, 0, 1024 * sizeof(wchar_t));
  record.Name = name;
}

}  // namespace

std::wstring EnginePath(const std::filesystem::path& path) {
  std::wstring w = Wide(path.string());
  for (wchar_t& c : w) {
    if (c == L'/') c = L'\\';
  }
  return w;
}

KzList* NamesList(const std::vector<std::wstring>& names) {
  KzList* list = KzList::Create(KZ_LIST_NAMES);
  for (const std::wstring& n : names) KzList::Add(list, n.c_str(), 0);
  return list;
}

FakeEngine::FakeEngine() { Init(); }

HRESULT FakeEngine::Open(const std::wstring& path, uint64_t firstHeader) {
  ResetStatus();
  ArchivePath = path.c_str();
  FirstHeaderPos = firstHeader;
  FirstHeaderOffset32 = static_cast<uint32_t>(firstHeader);
  NewArchive = std::filesystem::exists(kz::platform::ToSystemPath(path.c_str())) ? 0 : 1;
  return 0;
}

// Level 0 only: size byte, checksum, method, sizes, time, attribute, level,
// name, CRC. The checksum guards the end of the archive as the real one does.
int32_t FakeEngine::ReadMemberHeader(LhaHeader& record) {
  record.HeaderPos = NextHeaderPos;
  uint8_t h[22 + 255 + 2] = {};
  uint32_t got = 0;
  if (!ArchiveStream.ReadAt(NextHeaderPos, h, 22, &got))
    return SetSystemError(ArchiveStream.GetName());
  if (got == 0 || h[0] == 0) return 1;
  uint8_t n = h[21];
  uint32_t more = 0;
  if (!ArchiveStream.ReadAt(NextHeaderPos + 22, h + 22, n + 2u, &more)) {
    return SetSystemError(ArchiveStream.GetName());
  }
  uint8_t sum = 0;
  for (uint32_t i = 2; i < 22u + n + 2u; ++i) sum = static_cast<uint8_t>(sum + h[i]);
  if (got < 22 || sum != h[1]) return 1;
  char name[256] = {};
  std::memcpy(name, h + 22, n);
  ConvertHeaderName(name, record.Name, 1023);
  record.NameLength = n;
  record.PackedSize = U32(h + 7);
  record.OriginalSize = U32(h + 11);
  record.TimeStamp = U32(h + 15);
  record.Attributes = h[19];
  record.Method = static_cast<uint32_t>(static_cast<int8_t>(h[5] - '0'));
  record.Crc = h[22 + n] | (h[23 + n] << 8);
  record.HeaderLength = h[0] + 2u;
  record.RawHeaderLength = record.HeaderLength;
  record.Valid = 1;
  NextHeaderPos += record.HeaderLength + record.PackedSize;
  NormalizeName(record.Name, 1024);
  if (record.Name[0] == 0) record.Valid = 0;
  return 0;
}

HRESULT FakeEngine::EnumerateMembers(const KzList* selection, intptr_t selectionArgument,
                                     KzList* list) {
  NextHeaderPos = FirstHeaderPos;
  if (!ArchiveStream.Open(ArchivePath.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0)) {
    return SetSystemError(ArchiveStream.GetName());
  }
  LhaHeader record;
  ClearRecord(record, nameBuffer_);
  while (ReadMemberHeader(record) == 0) {
    if (IsItemSelected(&record, selection, selectionArgument)) {
      if (AddListItem(list, &record) < 0) break;
    } else {
      FreeItemBuffers(&record);
    }
    ClearRecord(record, nameBuffer_);
  }
  ArchiveStream.Close();
  return Status;
}

// The stored copy with the CRC test; any method but 0 is unknown here.
void FakeEngine::DecodeMember(LhaHeader& record) {
  if (record.Method != 0) {
    SetError(KZ_ARC_E_UNKNOWNMETHOD, record.Name);
    return;
  }
  uint64_t pos = record.HeaderPos + record.HeaderLength;
  uint64_t left = record.PackedSize;
  Bytes data;
  while (left > 0) {
    uint32_t n = static_cast<uint32_t>(left < 65536 ? left : 65536);
    if (!ArchiveStream.ReadAt(pos, TransferBuffer, n, nullptr)) {
      SetSystemError(ArchiveStream.GetName());
      return;
    }
    data.insert(data.end(), TransferBuffer, TransferBuffer + n);
    if (WriteOutput(TransferBuffer, n, n) < 0) return;
    Transfer.TotalBytes += n;
    Transfer.ChunkBytes = n;
    if (ReportProgress() < 0) return;
    pos += n;
    left -= n;
  }
  if (Crc16(data) != record.Crc) SetError(KZ_E_CRC, record.Name);
}

// The extraction driver's steps, in their order.
HRESULT FakeEngine::ExtractItems(const KzList* selection, intptr_t selectionArg,
                                 intptr_t directoryArg, uint32_t finishArg) {
  if (!ArchiveStream.Open(ArchivePath.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0)) {
    SetSystemError(ArchiveStream.GetName());
  }
  LhaHeader record;
  uint64_t total = 0;
  NextHeaderPos = FirstHeaderPos;
  ClearRecord(record, nameBuffer_);
  while (ArchiveStream.IsOpen() && ReadMemberHeader(record) == 0) {
    if (IsItemSelected(&record, selection, selectionArg)) total += record.OriginalSize;
    ClearRecord(record, nameBuffer_);
  }
  SetTotalSize(total);
  NextHeaderPos = FirstHeaderPos;
  ClearRecord(record, nameBuffer_);
  PathString out;
  while (Status >= 0 && ArchiveStream.IsOpen()) {
    if (ReadMemberHeader(record) != 0) break;
    if (IsItemSelected(&record, selection, selectionArg)) {
      ResetItemProgress();
      MakeOutputPath(record.Name, out);
      bool go = PrepareOutputPath(out) >= 0 && BeginExtractItem(&record, out) >= 0;
      if (go && (record.Attributes & 0x10)) {
        Calls.push_back(std::wstring(L"Directory:") + record.Name);
        CreateItemDirectory(&record, out, directoryArg);
      } else if (go) {
        int r = QueryOverwrite(&record, out);
        if (r < 0 || r == 1) {
          Calls.push_back(std::wstring(L"Skipped:") + record.Name);
          ClearRecord(record, nameBuffer_);
          continue;
        }
        if (CreateOutputFile(out) >= 0) {
          Calls.push_back(std::wstring(L"Data:") + record.Name);
          BeginItemData(&record);
          DecodeMember(record);
          EndItemData();
          FinishOutputFile(&record, out, finishArg);
        }
      }
      EndExtractItem(&record, out);
      if (ItemDone(&record, out) < 0) break;
    }
    ClearRecord(record, nameBuffer_);
  }
  ArchiveStream.Close();
  return Status;
}

int32_t FakeEngine::CompressFile(const PathString& archiveName, const PathString& sourcePath) {
  if (!SourceStream.Open(sourcePath.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0)) {
    return ReportFileError(archiveName.c_str(), sourcePath.c_str(),
                           kz::HresultFromWin32(GetLastError()));
  }
  uint16_t date = 0;
  uint16_t time = 0;
  SourceStream.GetDosDateTime(&date, &time);
  Bytes data;
  for (;;) {
    uint32_t got = 0;
    if (!SourceStream.Read(TransferBuffer, 65536, &got, 0)) {
      SetSystemError(SourceStream.GetName());
      break;
    }
    if (got == 0) break;
    data.insert(data.end(), TransferBuffer, TransferBuffer + got);
    Transfer.TotalBytes += got;
    Transfer.ChunkBytes = got;
    if (ReportProgress() < 0) break;
  }
  SourceStream.Close();
  if (Status < 0) return Status;
  char name[1024] = {};
  ConvertNameForHeader(archiveName.c_str(), name, sizeof name, 0, 0);
  MemberSpec spec;
  spec.level = 0;
  spec.name = name;
  spec.packed = data;
  spec.originalSize = static_cast<uint32_t>(data.size());
  spec.crc = Crc16(data);
  spec.timeStamp = (static_cast<uint32_t>(date) << 16) | time;
  Bytes member = MemberHeader(spec);
  member.insert(member.end(), data.begin(), data.end());
  uint32_t put = 0;
  if (!OutputStream.Write(member.data(), static_cast<uint32_t>(member.size()), &put, 0) ||
      put != member.size()) {
    return SetSystemError(OutputStream.GetName());
  }
  return Status;
}

// The add loops' per-item step.
void FakeEngine::AddItem(KzNameItem* item) {
  PathString archiveName;
  PathString sourcePath;
  GetItemNames(item->Path, archiveName, sourcePath);
  ApplyPathOptions(BasePathSetting, archiveName, sourcePath);
  ResetItemProgress();
  if (BeginAddItem(archiveName, sourcePath) >= 0 && CheckSourceFile(sourcePath) >= 0) {
    DWORD a = GetFileAttributesW(sourcePath.c_str());
    if (a == INVALID_FILE_ATTRIBUTES || !(a & FILE_ATTRIBUTE_DIRECTORY)) {
      Calls.push_back(std::wstring(L"Compress:") + archiveName.c_str());
      CompressFile(archiveName, sourcePath);
    } else {
      Calls.push_back(std::wstring(L"Directory:") + archiveName.c_str());
    }
  }
  EndAddItem(archiveName, sourcePath);
}

HRESULT FakeEngine::CreateArchive(KzList* items) {
  if (!OutputStream.Create(ArchivePath.c_str(), GENERIC_WRITE, 1, CREATE_ALWAYS, 0x20, 0)) {
    return SetSystemError(OutputStream.GetName());
  }
  for (void* item : KzListItems(items)) {
    if (Status < 0) break;
    AddItem(static_cast<KzNameItem*>(item));
  }
  if (Status >= 0) {
    uint8_t zero = 0;
    uint32_t put = 0;
    if (!OutputStream.Write(&zero, 1, &put, 0) || put != 1) SetSystemError(OutputStream.GetName());
  }
  OutputStream.Close();
  if (Status < 0 && Status != KZ_ARC_E_PARTIAL) KzDeleteFile(ArchivePath.c_str());
  return Status;
}

HRESULT FakeEngine::AppendItems(KzList* items) {
  for (void* item : KzListItems(items)) {
    if (Status < 0) return Status;
    auto* name = static_cast<KzNameItem*>(item);
    if (name->SkipMark != 0) continue;
    AddItem(name);
  }
  if (Status >= 0) {
    uint8_t zero = 0;
    uint32_t put = 0;
    if (!OutputStream.Write(&zero, 1, &put, 0) || put != 1) SetSystemError(OutputStream.GetName());
  }
  return Status;
}

HRESULT FakeEngine::WriteArchiveEnd() {
  uint8_t zero = 0;
  uint32_t put = 0;
  if (!OutputStream.Write(&zero, 1, &put, 0) || put != 1) SetSystemError(OutputStream.GetName());
  uint64_t size = 0;
  OutputStream.GetSize(&size);
  if (size == 1) SetError(KZ_ARC_E_EMPTYARCHIVE, ArchivePath.c_str());
  return Status;
}

}  // namespace kztest
