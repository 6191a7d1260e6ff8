// Writing archives: a new archive from an item list, items appended to the
// output the library prepared, and the end marker. A new archive is either
// complete with its end marker or absent (unless the library asked to keep
// a partial one).
#include "archiver/lha_archiver.h"
#include "archiver/long_path.h"

namespace {

// Attributes stored for a source whose attributes cannot be read: a plain
// file with the archive bit, rather than the failure value's low byte.
constexpr uint8_t kUnknownAttributes = FILE_ATTRIBUTE_ARCHIVE;

// One item through the library's per-item bookkeeping; only files reach the
// compression driver, whose result reaches the status.
void AddItem(KzLhaArchiver& a, const KzNameItem& item) {
  PathString archiveName;
  PathString sourcePath;
  a.GetItemNames(item.Path, archiveName, sourcePath);
  a.ApplyPathOptions(a.BasePathSetting, archiveName, sourcePath);
  a.ResetItemProgress();
  if (a.BeginAddItem(archiveName, sourcePath) >= 0 && a.CheckSourceFile(sourcePath) >= 0) {
    const DWORD attributes = GetFileAttributesW(kz::ToLongPath(sourcePath).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
      (void)a.CompressFile(archiveName, sourcePath, kUnknownAttributes);
    } else if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      (void)a.CompressFile(archiveName, sourcePath, static_cast<uint8_t>(attributes));
    }
  }
  a.EndAddItem(archiveName, sourcePath);
}

void WriteEndMarker(KzLhaArchiver& a) {
  const uint8_t zero = 0;
  uint32_t written = 0;
  if (!a.OutputStream.Write(&zero, 1, &written, 0) || written != 1) {
    a.SetSystemError(a.OutputStream.GetName());
  }
}

const KzNameItem& NameItem(void* item) { return *static_cast<const KzNameItem*>(item); }

}  // namespace

HRESULT KzLhaArchiver::CreateArchive(KzList* items) {
  // 1.
  if (!OutputStream.Create(ArchivePath, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_ARCHIVE, 0)) {
    return SetSystemError(OutputStream.GetName());
  }
  // 2. Every item, whatever its skip mark.
  for (void* item : KzListItems(items)) {
    if (Status < 0) break;
    AddItem(*this, NameItem(item));
  }
  // 3.
  if (Status >= 0) WriteEndMarker(*this);
  // 4.
  OutputStream.Close();
  if (Status < 0 && Status != kz::ARC_E_PARTIAL) KzDeleteFile(ArchivePath);
  return Status;
}

// The output is the library's: it opened it, and closes and installs it.
HRESULT KzLhaArchiver::AppendItems(KzList* items) {
  // 1.
  for (void* item : KzListItems(items)) {
    if (Status < 0) return Status;
    const KzNameItem& nameItem = NameItem(item);
    if (nameItem.SkipMark != 0) continue;
    AddItem(*this, nameItem);
  }
  // 2.
  if (Status >= 0) WriteEndMarker(*this);
  // 3.
  return Status;
}

HRESULT KzLhaArchiver::WriteArchiveEnd() {
  // 1. A failed marker is recorded; the emptiness check still runs.
  WriteEndMarker(*this);
  // 2. Only the marker: the archive holds no member.
  uint64_t size = 0;
  (void)OutputStream.GetSize(&size);
  if (size == 1) SetError(kz::ARC_E_EMPTYARCHIVE, ArchivePath);
  // 3.
  return Status;
}
