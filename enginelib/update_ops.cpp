// Archive updates: the operations behind slots 7 and 8 and the per-item
// steps the engine's add loops call.
//
// No data lost: an existing archive is never written in place. The new
// archive is built in a temporary file beside it (kept members copied raw,
// new ones appended by the engine), forced to disk and renamed over the old
// one in one step; any failure or stop before that rename removes the
// temporary file and leaves the old archive exactly as it was.
#include <algorithm>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "enginelib/archiver_impl.h"
#include "enginelib/kz_archiver.h"
#include "enginelib/names.h"
#include "enginelib/safe_path.h"
#include "enginelib/selection.h"
#include "platform/fs.h"

namespace {

constexpr int kTempAttempts = 16;
// Negative and never recorded: a source left out of the archive on purpose.
constexpr HRESULT kSourceSkipped = kz::E_Fail;

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

// A temporary file goes away; a second try covers a scanner or indexer
// that holds a new file for a moment.
bool RemoveTemporary(const wchar_t* path) {
  return kz::fs::RemoveFile(path) || kz::fs::RemoveFile(path);
}

// ---- the work list: the host's items with directories expanded ------------

struct WorkItem {
  KzNameItem* Item;  // in the work list; SkipMark set when an update keeps the member
  bool Directory;
  int64_t ModTime;
  uint64_t Size;
};

class WorkList {
 public:
  WorkList() : list_(KzList::Create(KZ_LIST_NAMES)) {}
  ~WorkList() { KzList::Free(list_); }
  WorkList(const WorkList&) = delete;
  WorkList& operator=(const WorkList&) = delete;

  KzList* List() const { return list_; }
  bool Has(const std::wstring& key) const { return byKey_.count(key) != 0; }
  // The file item stored under a member name, or null.
  WorkItem* FindFile(const wchar_t* memberName) {
    auto it = byKey_.find(kz::MemberNameKey(memberName));
    if (it == byKey_.end() || items_[it->second].Directory) return nullptr;
    return &items_[it->second];
  }
  HRESULT Add(const std::wstring& path, const std::wstring& key, const kz::fs::EntryInfo& info) {
    HRESULT hr = KzList::Add(list_, path.c_str(), 0);
    if (hr < 0) return hr;
    auto* impl = reinterpret_cast<KzListImpl*>(list_);
    bool directory = info.Type == kz::fs::EntryType::Directory;
    items_.push_back({static_cast<KzNameItem*>(impl->Last->Item), directory, info.ModTime,
                      directory ? 0 : info.Size});
    byKey_.emplace(key, items_.size() - 1);
    return 0;
  }
  uint64_t TotalSize() const {
    uint64_t total = 0;
    for (const WorkItem& w : items_) total += w.Size;
    return total;
  }
  // Files that an append would compress (not kept back by an update).
  size_t FilesToAdd() const {
    return static_cast<size_t>(std::count_if(items_.begin(), items_.end(), [](const WorkItem& w) {
      return !w.Directory && w.Item->SkipMark == 0;
    }));
  }

 private:
  KzList* list_;
  std::vector<WorkItem> items_;
  std::unordered_map<std::wstring, size_t> byKey_;
};

bool IsExcluded(const std::vector<std::wstring>& excludes, const wchar_t* archiveName) {
  const wchar_t* last = kz::fs::LastComponent(archiveName);
  for (const std::wstring& pattern : excludes) {
    if (kz::WildcardMatch(pattern.c_str(), archiveName, true) ||
        kz::WildcardMatch(pattern.c_str(), last, true)) {
      return true;
    }
  }
  return false;
}

HRESULT ExpandDirectory(KzArchiver& a, WorkList& work, const std::wstring& itemPath,
                        const PathString& sourcePath);

// One source with its archive name as the add loop will compute it; a
// directory brings everything below it, sorted.
HRESULT AddWorkItem(KzArchiver& a, WorkList& work, const std::wstring& itemPath) {
  PathString archiveName;
  PathString sourcePath;
  a.GetItemNames(itemPath.c_str(), archiveName, sourcePath);
  a.ApplyPathOptions(a.BasePathSetting, archiveName, sourcePath);
  if (IsExcluded(KzArchiverAccess::ImplOf(a).Excludes, archiveName.c_str())) {
    a.LogMessage(KZ_LOG_INFO, 0, L"excluded", sourcePath.c_str());
    return 0;
  }
  kz::fs::EntryInfo info;
  if (!kz::fs::QueryTarget(sourcePath.c_str(), info)) return a.SetSystemError(sourcePath.c_str());
  if (info.Type == kz::fs::EntryType::Other) {
    a.LogMessage(KZ_LOG_WARNING, 0, L"not a file or a directory; skipped", sourcePath.c_str());
    return 0;
  }
  std::wstring key = kz::MemberNameKey(archiveName.c_str());
  if (work.Has(key)) return 0;  // named twice, or inside a directory also named
  // A missing source stays in the list: CheckSourceFile reports it.
  HRESULT hr = work.Add(itemPath, key, info);
  if (hr < 0) return a.SetError(hr, nullptr);
  if (info.Type != kz::fs::EntryType::Directory) return 0;
  return ExpandDirectory(a, work, itemPath, sourcePath);
}

HRESULT ExpandDirectory(KzArchiver& a, WorkList& work, const std::wstring& itemPath,
                        const PathString& sourcePath) {
  std::vector<kz::fs::DirEntry> entries;
  if (!kz::fs::ListDirectory(sourcePath.c_str(), entries))
    return a.SetSystemError(sourcePath.c_str());
  std::wstring prefix = itemPath;
  while (prefix.size() > 1 && IsSeparator(prefix.back())) prefix.pop_back();
  if (prefix.empty() || !IsSeparator(prefix.back())) prefix.push_back(L'\\');
  for (const kz::fs::DirEntry& entry : entries) {
    std::wstring child = prefix + entry.Name;
    if (entry.Type == kz::fs::EntryType::Link) {
      // Links to files are followed; links to directories are not, so that
      // no walk can loop.
      std::wstring source = sourcePath.c_str();
      source += L'\\';
      source += entry.Name;
      kz::fs::EntryInfo target;
      if (!kz::fs::QueryTarget(source.c_str(), target)) return a.SetSystemError(source.c_str());
      if (target.Type != kz::fs::EntryType::File) {
        a.LogMessage(KZ_LOG_WARNING, 0, L"link not to a file; not followed", source.c_str());
        continue;
      }
    }
    HRESULT hr = AddWorkItem(a, work, child);
    if (hr < 0) return hr;
  }
  return 0;
}

HRESULT BuildWorkList(KzArchiver& a, const KzList* items, WorkList& work) {
  if (work.List() == nullptr) return a.SetError(kz::E_Outofmemory, nullptr);
  for (void* item : KzListItems(items)) {
    const auto* name = static_cast<const KzNameItem*>(item);
    if (name->Path == nullptr || name->Path[0] == 0) continue;
    HRESULT hr = AddWorkItem(a, work, name->Path);
    if (hr < 0) return hr;
  }
  return a.Status;
}

// ---- the new archive beside the old one --------------------------------------

std::wstring DirectoryOf(const wchar_t* path) {
  std::wstring dir = kz::fs::ParentOf(path);
  return dir.empty() ? L"." : dir;
}

HRESULT CreateTempArchive(KzArchiver& a) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  std::wstring dir = kz::fs::ParentOf(a.ArchivePath.c_str());
  if (!dir.empty() && dir.back() != L'\\') dir.push_back(L'\\');
  for (int attempt = 0; attempt < kTempAttempts; ++attempt) {
    std::wstring temp = dir + kz::fs::TempFileName();
    if (a.OutputStream.Create(temp.c_str(), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW,
                              FILE_ATTRIBUTE_ARCHIVE, 0)) {
      impl.ArchiveTempPath = temp;
      a.OutputStream.SetWriteBehind(true);  // it is synced before the rename
      return 0;
    }
    if (GetLastError() != ERROR_FILE_EXISTS) break;
  }
  return a.SetSystemError(a.ArchivePath.c_str());
}

// Removes the unfinished archive. A failure recorded against the temporary
// file is reported against the archive: that is the file the host knows.
void DiscardTempArchive(KzArchiver& a) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  a.OutputStream.Close();
  a.OutputStream.SetWriteBehind(false);
  if (impl.ArchiveTempPath.empty()) return;
  if (!RemoveTemporary(impl.ArchiveTempPath.c_str())) {
    a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                 L"temporary file not removed", impl.ArchiveTempPath.c_str());
  }
  if (a.ErrorFileName != nullptr && impl.ArchiveTempPath == a.ErrorFileName) {
    impl.ErrorFileNameStorage = a.ArchivePath.c_str();
    a.ErrorFileName = impl.ErrorFileNameStorage.data();
  }
  impl.ArchiveTempPath.clear();
}

// Disk first, then the one rename that makes the new archive the archive.
HRESULT CommitTempArchive(KzArchiver& a, uint32_t permissions) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  const wchar_t* archive = a.ArchivePath.c_str();
  a.OutputStream.Close();
  a.OutputStream.SetWriteBehind(false);
  const wchar_t* temp = impl.ArchiveTempPath.c_str();
  if (!kz::fs::SyncFile(temp) || !kz::fs::SetPermissions(temp, permissions) ||
      !kz::fs::ReplaceFile(temp, archive)) {
    return a.SetSystemError(archive);
  }
  impl.ArchiveTempPath.clear();
  if (!kz::fs::SyncDirectory(DirectoryOf(archive).c_str())) {
    a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                 L"the archive's directory could not be forced to disk", archive);
  }
  return a.Status;
}

// ---- copying the members that stay -------------------------------------------

HRESULT CopyArchiveRange(KzArchiver& a, uint64_t offset, uint64_t length) {
  while (length > 0) {
    uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(length, 65536));
    uint32_t got = 0;
    if (!a.ArchiveStream.ReadAt(offset, a.TransferBuffer, n, &got)) {
      return a.SetSystemError(a.ArchiveStream.GetName());
    }
    if (got != n) {  // the archive ends inside a member
      SetLastError(ERROR_HANDLE_EOF);
      return a.SetSystemError(a.ArchiveStream.GetName());
    }
    uint32_t put = 0;
    if (!a.OutputStream.Write(a.TransferBuffer, n, &put, 0) || put != n) {
      return a.SetSystemError(a.OutputStream.GetName());
    }
    offset += n;
    length -= n;
  }
  return 0;
}

HRESULT CopyStub(KzArchiver& a) {
  if (a.FirstHeaderPos == 0) return 0;
  if (!a.ArchiveStream.Open(a.ArchivePath.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0)) {
    return a.SetSystemError(a.ArchiveStream.GetName());
  }
  HRESULT hr = CopyArchiveRange(a, 0, a.FirstHeaderPos);
  a.ArchiveStream.Close();
  return hr;
}

// A member is older than its source when its time, at the member's own
// resolution (DOS times keep even seconds), comes before the source's.
bool MemberOlderThan(const LhaHeader* record, int64_t sourceTime) {
  if (record->LibModTime < 0) return true;
  int64_t source =
      record->LibTimeKind == 0 ? kz::DosToUnixTime(kz::UnixToDosTime(sourceTime)) : sourceTime;
  return record->LibModTime < source;
}

struct MemberWalk {
  KzArchiver* A;
  WorkList* Work = nullptr;  // adding: the sources, by archive name
  uint32_t AddFlags = 0;
  const KzList* Selection = nullptr;  // deleting: the members to drop
  intptr_t SelectionArgument = 0;
  uint64_t Kept = 0;
  uint64_t Dropped = 0;
};

bool KeepMember(MemberWalk& walk, LhaHeader* record) {
  if (walk.Work == nullptr) {
    return walk.A->IsItemSelected(record, walk.Selection, walk.SelectionArgument) == 0;
  }
  WorkItem* source = walk.Work->FindFile(record->Name);
  if (source == nullptr) return true;
  if ((walk.AddFlags & KZ_ADD_UPDATE) && !MemberOlderThan(record, source->ModTime)) {
    source->Item->SkipMark = 1;
    return true;
  }
  return false;
}

// The sink of the member walk: each record is copied or dropped at once and
// kept nowhere, so the walk's memory does not grow with the archive.
HRESULT CopyOrDropMember(void* context, LhaHeader* record) {
  auto& walk = *static_cast<MemberWalk*>(context);
  KzArchiver& a = *walk.A;
  if (a.Status < 0) return a.Status;
  uint64_t length = uint64_t{record->HeaderLength} + record->PackedSize;
  if (KeepMember(walk, record)) {
    HRESULT hr = CopyArchiveRange(a, record->HeaderPos, length);
    if (hr < 0) return hr;
    ++walk.Kept;
  } else {
    ++walk.Dropped;
  }
  if (walk.Work != nullptr) return a.Status;
  // A delete reports its way through the archive, and can be stopped.
  KzArchiverAccess::ImplOf(a).DoneBeforeItem += length;
  a.Transfer.TotalBytes = 0;
  return a.ReportProgress();
}

HRESULT WalkOldMembers(KzArchiver& a, MemberWalk& walk) {
  KzListImpl everything{};
  everything.ListKind = KZ_LIST_NAMES;
  KzListImpl sink{};
  sink.ListKind = kListSinkKind;
  sink.Sink = &CopyOrDropMember;
  sink.SinkContext = &walk;
  a.EnumerateMembers(&everything.Public, 0, &sink.Public);
  return a.Status;
}

// A walk that ended at a header it could not read, rather than at the end
// marker or the end of the file, would drop everything behind that header:
// such an archive is left alone.
HRESULT CheckWalkReachedEnd(KzArchiver& a) {
  if (!a.ArchiveStream.Open(a.ArchivePath.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0)) {
    return a.SetSystemError(a.ArchiveStream.GetName());
  }
  uint8_t next = 0;
  uint32_t got = 0;
  BOOL read = a.ArchiveStream.ReadAt(a.NextHeaderPos, &next, 1, &got);
  a.ArchiveStream.Close();
  if (!read) return a.SetSystemError(a.ArchivePath.c_str());
  if (got == 1 && next != 0) return a.SetError(kz::ARC_E_BADHEADER, a.ArchivePath.c_str());
  return 0;
}

// ---- operation state -------------------------------------------------------------

void BeginUpdate(KzArchiver& a, OperationMode mode, uint32_t flags) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  a.ResetStatus();
  impl.Mode = mode;
  impl.OperationFlags = flags;
  impl.AddedSources.clear();
  impl.ArchiveTempPath.clear();
  impl.TotalSize = impl.DoneBeforeItem = impl.ItemSize = 0;
  impl.ItemAccepted = false;
  kz::fs::EntryInfo info;
  impl.ArchiveKnown =
      kz::fs::QueryTarget(a.ArchivePath.c_str(), info) && info.Type == kz::fs::EntryType::File;
  impl.ArchiveVolume = info.Volume;
  impl.ArchiveFileIndex = info.FileIndex;
}

// Ends an update however it ends: an unfinished temporary archive goes, and
// the archive path is again the one the host gave.
struct UpdateGuard {
  KzArchiver& A;
  PathString GivenPath;
  ~UpdateGuard() {
    DiscardTempArchive(A);
    A.ArchivePath = GivenPath;
    KzArchiverAccess::ImplOf(A).Mode = OperationMode::None;
  }
};

void SyncDirectoryOf(KzArchiver& a, const wchar_t* path) {
  if (!kz::fs::SyncDirectory(DirectoryOf(path).c_str())) {
    a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                 L"the archive's directory could not be forced to disk", path);
  }
}

void DeleteMovedSources(KzArchiver& a) {
  for (const std::wstring& source : KzArchiverAccess::ImplOf(a).AddedSources) {
    if (!KzArchiver::KzDeleteFile(source.c_str())) {
      a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                   L"added, but the source could not be deleted", source.c_str());
    }
  }
}

// A new archive: the engine creates it at its path and removes it again if
// it fails, so it is either complete or absent.
HRESULT CreateNew(KzArchiver& a, WorkList& work) {
  if (work.FilesToAdd() == 0) {
    a.LogMessage(KZ_LOG_WARNING, 0, L"nothing to add; no archive created", a.ArchivePath.c_str());
    return a.Status;
  }
  a.OutputStream.SetWriteBehind(true);  // synced once complete
  if (a.AllocEncodeBuffers() >= 0) a.CreateArchive(work.List());
  a.OutputStream.SetWriteBehind(false);
  a.FreeEncodeBuffers();
  if (a.Status < 0) return a.Status;
  a.NewArchive = 0;
  a.FirstHeaderPos = 0;
  a.FirstHeaderOffset32 = 0;
  if (!kz::fs::SyncFile(a.ArchivePath.c_str())) {
    a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                 L"the archive could not be forced to disk", a.ArchivePath.c_str());
  }
  SyncDirectoryOf(a, a.ArchivePath.c_str());
  return a.Status;
}

// The engine's part after the kept members: new members and the end marker
// (adding), or the end marker alone (deleting); then the replace.
HRESULT CompleteUpdate(KzArchiver& a, WorkList* work, uint32_t permissions) {
  if (work != nullptr) {
    if (a.AllocEncodeBuffers() >= 0) a.AppendItems(work->List());
    a.FreeEncodeBuffers();
  } else {
    a.WriteArchiveEnd();
  }
  if (a.Status == kz::ARC_E_EMPTYARCHIVE && work == nullptr) {
    // Every member deleted: no archive is left, as classic LHA does.
    DiscardTempArchive(a);
    if (!KzArchiver::KzDeleteFile(a.ArchivePath.c_str()))
      return a.SetSystemError(a.ArchivePath.c_str());
    SyncDirectoryOf(a, a.ArchivePath.c_str());
    a.NewArchive = 1;
    a.FirstHeaderPos = 0;
    a.FirstHeaderOffset32 = 0;
    return a.Status;
  }
  if (a.Status < 0) return a.Status;
  if (CommitTempArchive(a, permissions) < 0) return a.Status;
  if (work != nullptr && (KzArchiverAccess::ImplOf(a).OperationFlags & KZ_ADD_CREATE)) {
    a.FirstHeaderPos = 0;  // a rebuilt archive has no stub
    a.FirstHeaderOffset32 = 0;
  }
  return a.Status;
}

// An existing archive: the kept members go into a temporary archive beside
// it (work null: deleting the members `selection` picks).
HRESULT UpdateExisting(KzArchiver& a, WorkList* work, const KzList* selection,
                       intptr_t selectionArgument) {
  uint32_t flags = KzArchiverAccess::ImplOf(a).OperationFlags;
  kz::fs::EntryInfo old;
  if (!kz::fs::QueryTarget(a.ArchivePath.c_str(), old))
    return a.SetSystemError(a.ArchivePath.c_str());
  // Through a link the update replaces the file it points to, not the link.
  kz::fs::EntryInfo self;
  if (!kz::fs::QueryEntry(a.ArchivePath.c_str(), self))
    return a.SetSystemError(a.ArchivePath.c_str());
  if (self.Type == kz::fs::EntryType::Link) {
    a.ArchivePath.AssignRaw(kz::fs::ResolveLinks(a.ArchivePath.c_str()).c_str());
  }
  if (CreateTempArchive(a) < 0) return a.Status;

  MemberWalk walk{&a};
  walk.Work = work;
  walk.AddFlags = flags;
  walk.Selection = selection;
  walk.SelectionArgument = selectionArgument;
  bool rebuild = work != nullptr && (flags & KZ_ADD_CREATE) != 0;
  if (!rebuild && (CopyStub(a) < 0 || WalkOldMembers(a, walk) < 0 || CheckWalkReachedEnd(a) < 0)) {
    return a.Status;
  }

  if (work == nullptr && walk.Dropped == 0) {
    a.LogMessage(KZ_LOG_WARNING, 0, L"no member matched; the archive is left as it was",
                 a.ArchivePath.c_str());
    return a.Status;
  }
  if (work != nullptr && work->FilesToAdd() == 0) {
    a.LogMessage(KZ_LOG_INFO, 0, L"nothing to add; the archive is left as it was",
                 a.ArchivePath.c_str());
    return a.Status;
  }
  return CompleteUpdate(a, work, old.Permissions);
}

}  // namespace

// ---- slots 7 and 8 ------------------------------------------------------------------

HRESULT KzArchiver::CompressFiles(KzList* items, const wchar_t* baseDir, uint32_t flags) {
  BeginUpdate(*this, OperationMode::Compress, flags);
  UpdateGuard guard{*this, ArchivePath};
  BasePathSetting = reinterpret_cast<intptr_t>(baseDir);
  WorkList work;
  if (BuildWorkList(*this, items, work) < 0) return Status;
  SetTotalSize(work.TotalSize());
  kz::fs::EntryInfo archive;
  if (!kz::fs::QueryEntry(ArchivePath.c_str(), archive)) return SetSystemError(ArchivePath.c_str());
  if (archive.Type == kz::fs::EntryType::Missing) {
    CreateNew(*this, work);
  } else if (NewArchive && !(flags & KZ_ADD_CREATE)) {
    // It appeared after it was opened as new: nothing is known of its
    // contents, so it is not taken for an archive to add to.
    SetError(kz::HresultFromWin32(ERROR_FILE_EXISTS), ArchivePath.c_str());
  } else {
    UpdateExisting(*this, &work, nullptr, 0);
  }
  if (Status >= 0 && (flags & KZ_ADD_MOVE)) DeleteMovedSources(*this);
  return Status;
}

HRESULT KzArchiver::DeleteFiles(const KzList* items, intptr_t selectionArgument) {
  BeginUpdate(*this, OperationMode::Delete, 0);
  UpdateGuard guard{*this, ArchivePath};
  kz::fs::EntryInfo archive;
  if (!kz::fs::QueryTarget(ArchivePath.c_str(), archive))
    return SetSystemError(ArchivePath.c_str());
  if (archive.Type == kz::fs::EntryType::Missing || NewArchive) {
    return SetError(kz::HresultFromWin32(ERROR_FILE_NOT_FOUND), ArchivePath.c_str());
  }
  SetTotalSize(archive.Size);
  return UpdateExisting(*this, nullptr, items, selectionArgument);
}

// ---- per item ------------------------------------------------------------------------

void KzArchiver::GetItemNames(const wchar_t* itemPath, PathString& archiveName,
                              PathString& sourcePath) {
  sourcePath = itemPath != nullptr ? itemPath : L"";
  archiveName.AssignRaw(kz::MakeRelativeName(sourcePath.c_str()).c_str());
}

void KzArchiver::ApplyPathOptions(intptr_t basePathSetting, PathString& archiveName,
                                  PathString& sourcePath) {
  const auto* base = reinterpret_cast<const wchar_t*>(basePathSetting);
  if (base != nullptr && base[0] != 0) {
    std::wstring dir = PathString(base).c_str();
    while (dir.size() > 1 && dir.back() == L'\\') dir.pop_back();
    std::wstring source = sourcePath.c_str();
    if (!kz::IsAbsolutePath(source.c_str())) {
      // Relative sources are found under the base; their names stay as given.
      sourcePath.AssignRaw((dir.back() == L'\\' ? dir : dir + L'\\').append(source).c_str());
    } else if (source.size() > dir.size() && source.compare(0, dir.size(), dir) == 0 &&
               (source[dir.size()] == L'\\' || dir.back() == L'\\')) {
      archiveName.AssignRaw(kz::MakeRelativeName(source.c_str() + dir.size()).c_str());
    }
  }
  if (impl_->PathMode == KZ_PATHS_NONE) {
    std::wstring last = kz::fs::LastComponent(archiveName.c_str());
    archiveName.AssignRaw(last.c_str());
  }
}

HRESULT KzArchiver::BeginAddItem(PathString& archiveName, PathString& sourcePath) {
  impl_->ItemSize = 0;
  impl_->ItemAccepted = false;
  impl_->ProgressName = archiveName.c_str();
  if (archiveName.empty()) {
    LogMessage(KZ_LOG_WARNING, 0, L"no name to store this source under; skipped",
               sourcePath.c_str());
    return kSourceSkipped;
  }
  return 0;
}

HRESULT KzArchiver::CheckSourceFile(PathString& sourcePath) {
  kz::fs::EntryInfo info;
  if (!kz::fs::QueryTarget(sourcePath.c_str(), info)) return SetSystemError(sourcePath.c_str());
  if (info.Type == kz::fs::EntryType::Missing) {
    return SetError(kz::HresultFromWin32(ERROR_FILE_NOT_FOUND), sourcePath.c_str());
  }
  bool isArchive = impl_->ArchiveKnown && info.Volume == impl_->ArchiveVolume &&
                   info.FileIndex == impl_->ArchiveFileIndex;
  kz::fs::EntryInfo temp;
  bool isTemp = !impl_->ArchiveTempPath.empty() &&
                kz::fs::QueryEntry(impl_->ArchiveTempPath.c_str(), temp) &&
                temp.Type != kz::fs::EntryType::Missing && info.Volume == temp.Volume &&
                info.FileIndex == temp.FileIndex;
  if (isArchive || isTemp) {
    LogMessage(KZ_LOG_INFO, 0, L"the archive is not added to itself", sourcePath.c_str());
    return kSourceSkipped;
  }
  if (info.Type == kz::fs::EntryType::Other) {
    LogMessage(KZ_LOG_WARNING, 0, L"not a file or a directory; skipped", sourcePath.c_str());
    return kSourceSkipped;
  }
  impl_->ItemAccepted = info.Type == kz::fs::EntryType::File;
  impl_->ItemSize = impl_->ItemAccepted ? info.Size : 0;
  return 0;
}

void KzArchiver::EndAddItem(PathString&, PathString& sourcePath) {
  impl_->DoneBeforeItem += impl_->ItemSize;
  impl_->ItemSize = 0;
  Transfer.TotalBytes = 0;
  if (impl_->ItemAccepted && Status >= 0) impl_->AddedSources.emplace_back(sourcePath.c_str());
  impl_->ItemAccepted = false;
}

HRESULT KzArchiver::ReportFileError(const wchar_t*, const wchar_t* sourcePath, HRESULT hr) {
  // The run stops at a source that cannot be read; a value that is not a
  // failure still has to stop it.
  return SetError(hr < 0 ? hr : kz::E_Fail, sourcePath);
}

BOOL KzArchiver::KzDeleteFile(const wchar_t* path) { return kz::fs::RemoveFile(path); }
