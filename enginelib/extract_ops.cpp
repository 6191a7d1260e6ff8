// Extraction and test: the operations behind slots 5 and 6 and the per-item
// steps the engine's driver calls for every selected member.
//
// Safe by construction: a member name becomes a path below the destination
// only (safe_path.h); no existing component of that path may be a link;
// data goes to a file created exclusively: under its final name when
// nothing is there, else beside it, renamed over that name only once the
// member decoded correctly. A failed member's file is removed, what was
// there before stays, and rename replaces a link rather than writing
// through it.
#include <cwchar>

#include "enginelib/archiver_impl.h"
#include "enginelib/kz_archiver.h"
#include "enginelib/safe_path.h"
#include "platform/fs.h"

namespace {

// Negative and never recorded: the driver passes over the member's data.
constexpr HRESULT kLeaveOut = kz::E_Fail;
// The method digit of "-lhd-" in level-0/1 headers ('d' - '0').
constexpr uint32_t kDirectoryMethod = 'd' - '0';

// A temporary file goes away; a second try covers a scanner or indexer
// that holds a new file for a moment.
bool RemoveTemporary(const wchar_t* path) {
  return kz::fs::RemoveFile(path) || kz::fs::RemoveFile(path);
}

// Failures that concern one member's data: the run goes on with the next.
bool IsMemberDataFailure(HRESULT hr) {
  return hr == kz::E_Crc || hr == kz::ARC_E_BADTABLE || hr == kz::ARC_E_UNKNOWNMETHOD;
}

uint32_t FilePermissions(const LhaHeader* record) {
  return (record->Attributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0644;
}

// Files are written only by a plain extraction: a test discards the data
// and KZ_EXTRACT_TO_CALLBACK hands it to the host.
bool WritesFiles(OperationMode mode, uint32_t flags) {
  return mode == OperationMode::Extract && (flags & KZ_EXTRACT_TO_CALLBACK) == 0;
}

// Operation state that must be right whatever way the operation ends.
void BeginRun(KzArchiver& a, OperationMode mode, uint32_t flags) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  a.ResetStatus();
  impl.Mode = mode;
  impl.OperationFlags = flags;
  impl.OverwriteAll = impl.SkipAll = false;
  impl.FirstFailure = 0;
  impl.FirstFailureName.clear();
  impl.DirectoryTimes.clear();
  impl.TotalSize = impl.DoneBeforeItem = 0;
  impl.CurrentItem = nullptr;
  impl.ItemCreated = false;
}

// Puts back a failure already logged when it happened, without logging it
// again.
void RestoreError(KzArchiver& a, HRESULT hr, const std::wstring& name) {
  a.Status = hr;
  auto& impl = KzArchiverAccess::ImplOf(a);
  impl.ErrorFileNameStorage = name;
  a.ErrorFileName = impl.ErrorFileNameStorage.data();
}

void RememberFailure(KzArchiver& a, HRESULT hr, const std::wstring& name) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  if (impl.FirstFailure < 0) return;
  impl.FirstFailure = hr;
  impl.FirstFailureName = name;
}

// The temporary output of the current member, if any, goes away.
void DiscardOutputFile(KzArchiver& a) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  if (!impl.ItemCreated) return;
  impl.OutputFile.Close();
  impl.ItemCreated = false;
  if (!RemoveTemporary(impl.OutputWritePath.c_str())) {
    a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                 impl.OutputInPlace ? L"incomplete file not removed" : L"temporary file not removed",
                 impl.OutputWritePath.c_str());
  }
}

void EndRun(KzArchiver& a) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  DiscardOutputFile(a);
  for (auto it = impl.DirectoryTimes.rbegin(); it != impl.DirectoryTimes.rend(); ++it) {
    if (it->ModTime >= 0 && !kz::fs::SetModTime(it->Path.c_str(), it->ModTime)) {
      a.LogMessage(KZ_LOG_WARNING, kz::HresultFromWin32(GetLastError()),
                   L"directory time not restored", it->Path.c_str());
    }
  }
  impl.DirectoryTimes.clear();
  if (a.Status >= 0 && impl.FirstFailure < 0)
    RestoreError(a, impl.FirstFailure, impl.FirstFailureName);
  impl.Mode = OperationMode::None;
  impl.CurrentItem = nullptr;
}

// Counts a member as done. One whose data did not report its own progress
// (skipped, a directory, refused, failed early) reports once here, so that
// the host sees the count advance to the total.
HRESULT FinishItemProgress(KzArchiver& a, const LhaHeader* record) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  uint64_t size = record->OriginalSize;
  bool reported = size != 0 && a.Transfer.TotalBytes >= size;
  impl.DoneBeforeItem += size;
  a.Transfer.TotalBytes = 0;
  if (reported || a.Status < 0) return a.Status;
  return a.ReportProgress();
}

// A path conflict concerns one member: logged, remembered, skipped.
HRESULT RefuseMember(KzArchiver& a, HRESULT hr, const wchar_t* text, const wchar_t* path) {
  a.LogMessage(KZ_LOG_ERROR, hr, text, path);
  RememberFailure(a, hr, KzArchiverAccess::ImplOf(a).MemberName);
  return hr;
}

// Checks every component of outputPath below the destination with lstat:
// a link anywhere refuses the member; with createParents, missing
// directories above the last component are created one by one. With
// lastType, the last component is checked too and its type left there
// (Missing when a missing directory above it ends the walk early); without,
// the walk stops above it, for a caller whose own step refuses whatever
// is there.
HRESULT WalkOutputPath(KzArchiver& a, const wchar_t* outputPath, bool createParents,
                       kz::fs::EntryType* lastType) {
  const std::wstring& dest = KzArchiverAccess::ImplOf(a).DestDir;
  std::wstring path = outputPath;
  size_t start = dest.size() + (dest.empty() || dest.back() == L'\\' ? 0 : 1);
  for (size_t i = start; i <= path.size(); ++i) {
    if (i < path.size() && path[i] != L'\\') continue;
    bool last = i == path.size();
    if (last && lastType == nullptr) break;
    std::wstring prefix = path.substr(0, i);
    kz::fs::EntryInfo info;
    if (!kz::fs::QueryEntry(prefix.c_str(), info)) return a.SetSystemError(prefix.c_str());
    if (info.Type == kz::fs::EntryType::Link) {
      return RefuseMember(a, kz::ARC_E_UNSAFEPATH, L"a symbolic link is in the way; not extracted",
                          prefix.c_str());
    }
    if (last) {
      *lastType = info.Type;
      break;
    }
    if (info.Type == kz::fs::EntryType::Missing) {
      if (!createParents) {
        // Nothing below a missing directory can be a link, or be there.
        if (lastType != nullptr) *lastType = kz::fs::EntryType::Missing;
        break;
      }
      if (!kz::fs::MakeDirectory(prefix.c_str())) return a.SetSystemError(prefix.c_str());
    } else if (info.Type != kz::fs::EntryType::Directory) {
      return RefuseMember(a, kz::HresultFromWin32(ERROR_DIRECTORY),
                          L"a file is in the way of a directory; not extracted", prefix.c_str());
    }
  }
  return 0;
}

// Closes the finished file with its time and permissions and, when it was
// made beside its final name, renames it over that name.
bool PlaceOutputFile(KzArchiver& a, const LhaHeader* record, const wchar_t* outputPath) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  if (!impl.OutputFile.CloseStamped(record->LibModTime, FilePermissions(record))) return false;
  return impl.OutputInPlace || kz::fs::ReplaceFile(impl.OutputWritePath.c_str(), outputPath) != 0;
}

int DecideOverwrite(KzArchiver& a, LhaHeader* record, PathString& outputPath) {
  auto& impl = KzArchiverAccess::ImplOf(a);
  if (impl.SkipAll) return 1;
  if (impl.OverwriteAll || impl.Overwrite == KZ_OVERWRITE_ALL) return 0;
  if (impl.Overwrite == KZ_OVERWRITE_SKIP) {
    a.LogMessage(KZ_LOG_INFO, 0, L"file exists; skipped", outputPath.c_str());
    return 1;
  }
  if (impl.Callbacks.AskOverwrite == nullptr) {
    a.LogMessage(KZ_LOG_WARNING, 0, L"file exists and there is no one to ask; skipped",
                 outputPath.c_str());
    return 1;
  }
  switch (impl.Callbacks.AskOverwrite(impl.Context, outputPath.c_str(), record)) {
    case KZ_REPLY_OVERWRITE:
      return 0;
    case KZ_REPLY_OVERWRITE_ALL:
      impl.OverwriteAll = true;
      return 0;
    case KZ_REPLY_SKIP_ALL:
      impl.SkipAll = true;
      return 1;
    case KZ_REPLY_CANCEL:
      return a.SetError(kz::E_Abort, outputPath.c_str());
    default:  // KZ_REPLY_SKIP, and replies this version does not know
      return 1;
  }
}

HRESULT Run(KzArchiver& a, const KzList* items, intptr_t selectionArgument) {
  // The run's end also when a string routine throws out of it.
  struct EndGuard {
    KzArchiver& A;
    bool Ended = false;
    ~EndGuard() {
      if (!Ended) EndRun(A);
    }
  } guard{a};
  if (a.AllocDecodeBuffers() >= 0) a.ExtractItems(items, selectionArgument, 0, 0);
  a.FreeDecodeBuffers();
  guard.Ended = true;
  EndRun(a);
  return a.Status;
}

}  // namespace

// ---- slots 5 and 6 ----------------------------------------------------------

HRESULT KzArchiver::ExtractFiles(const KzList* items, intptr_t selectionArgument,
                                 const wchar_t* destDir, uint32_t flags) {
  BeginRun(*this, OperationMode::Extract, flags);
  impl_->DestDir.clear();
  if (WritesFiles(impl_->Mode, flags)) {
    PathString dest(destDir != nullptr && destDir[0] != 0 ? destDir : L".");
    std::wstring d = dest.c_str();
    while (d.size() > 1 && d.back() == L'\\') d.pop_back();
    impl_->DestDir = d;
    if (!kz::fs::MakeDirectories(d.c_str())) {
      HRESULT hr = SetSystemError(d.c_str());
      impl_->Mode = OperationMode::None;
      return hr;
    }
  }
  return Run(*this, items, selectionArgument);
}

HRESULT KzArchiver::TestArchive(const KzList* items, intptr_t selectionArgument) {
  BeginRun(*this, OperationMode::Test, 0);
  return Run(*this, items, selectionArgument);
}

// ---- per item, in the driver's order ------------------------------------------

void KzArchiver::ResetItemProgress() {
  Transfer = TransferRecord{};
  impl_->CurrentItem = nullptr;
  impl_->StatusAtItemStart = Status;
  impl_->MemberName.clear();
  impl_->NameDropped = false;
  impl_->PreparedType = -1;
  impl_->CurrentName.clear();
  impl_->ProgressName.clear();
}

void KzArchiver::MakeOutputPath(const wchar_t* name, PathString& outputPath) {
  impl_->MemberName = name != nullptr ? name : L"";
  impl_->ProgressName = impl_->MemberName;
  if (!WritesFiles(impl_->Mode, impl_->OperationFlags)) {
    outputPath.AssignRaw(impl_->MemberName.c_str());
    return;
  }
  kz::SanitizeResult safe = kz::SanitizeMemberPath(name, impl_->PathMode);
  impl_->NameDropped = safe.Dropped;
  if (safe.Path.empty()) {
    outputPath.Clear();
    return;
  }
  std::wstring full = impl_->DestDir;
  if (full.empty() || full.back() != L'\\') full.push_back(L'\\');
  full += safe.Path;
  outputPath.AssignRaw(full.c_str());
}

HRESULT KzArchiver::PrepareOutputPath(PathString& outputPath) {
  if (!WritesFiles(impl_->Mode, impl_->OperationFlags)) return 0;
  const wchar_t* member = impl_->MemberName.c_str();
  if (outputPath.empty()) {
    LogMessage(KZ_LOG_WARNING, kz::ARC_E_UNSAFEPATH, L"name has nothing usable as a path; skipped",
               member);
    return kz::ARC_E_UNSAFEPATH;
  }
  if (impl_->NameDropped) {
    LogMessage(KZ_LOG_WARNING, 0, L"root, drive or \"..\" parts of the name were removed", member);
  }
  kz::fs::EntryType type;
  HRESULT hr = WalkOutputPath(*this, outputPath.c_str(), false, &type);
  if (hr < 0) return hr;
  impl_->PreparedPath = outputPath.c_str();
  impl_->PreparedType = static_cast<int>(type);
  return 0;
}

HRESULT KzArchiver::BeginExtractItem(LhaHeader* record, PathString& outputPath) {
  impl_->CurrentItem = record;
  if (!record->Valid) {
    LogMessage(KZ_LOG_WARNING, kz::ARC_E_BADHEADER, L"member without a usable name; skipped",
               impl_->MemberName.c_str());
    return kz::ARC_E_BADHEADER;
  }
  bool writes = WritesFiles(impl_->Mode, impl_->OperationFlags);
  if (record->LibFlags & 1) {
    if (writes)
      LogMessage(KZ_LOG_WARNING, 0, L"symbolic link not extracted", impl_->MemberName.c_str());
    return kLeaveOut;
  }
  // "-lhd-" is a directory whatever its attribute byte says (Unix LHA
  // writes 0x20 there); it has no data to decode.
  if (record->Method == kDirectoryMethod && !(record->Attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    if (writes) CreateItemDirectory(record, outputPath, 0);
    return kLeaveOut;
  }
  return 0;
}

HRESULT KzArchiver::CreateItemDirectory(LhaHeader* record, PathString& outputPath, intptr_t) {
  if (!WritesFiles(impl_->Mode, impl_->OperationFlags)) return 0;
  kz::fs::EntryType type;
  HRESULT hr = WalkOutputPath(*this, outputPath.c_str(), true, &type);
  if (hr < 0) return hr;
  if (type == kz::fs::EntryType::Missing) {
    if (!kz::fs::MakeDirectory(outputPath.c_str())) return SetSystemError(outputPath.c_str());
  } else if (type != kz::fs::EntryType::Directory) {
    return RefuseMember(*this, kz::HresultFromWin32(ERROR_ALREADY_EXISTS),
                        L"a file is in the way of a directory; not extracted", outputPath.c_str());
  }
  impl_->DirectoryTimes.push_back({outputPath.c_str(), record->LibModTime});
  return Status;
}

int KzArchiver::QueryOverwrite(LhaHeader* record, PathString& outputPath) {
  impl_->CurrentItem = record;
  if (!WritesFiles(impl_->Mode, impl_->OperationFlags)) return 0;
  kz::fs::EntryType type;
  if (impl_->PreparedType >= 0 && impl_->PreparedPath == outputPath.c_str()) {
    type = static_cast<kz::fs::EntryType>(impl_->PreparedType);
  } else {
    kz::fs::EntryInfo info;
    if (!kz::fs::QueryEntry(outputPath.c_str(), info)) return SetSystemError(outputPath.c_str());
    type = info.Type;
  }
  if (type == kz::fs::EntryType::Missing) return 0;
  int decision;
  if (type == kz::fs::EntryType::Directory) {
    RefuseMember(*this, kz::HresultFromWin32(ERROR_ALREADY_EXISTS),
                 L"a directory is in the way of a file; not extracted", outputPath.c_str());
    decision = 1;
  } else {
    decision = DecideOverwrite(*this, record, outputPath);
  }
  // The driver passes over a skipped member without ItemDone: count it here.
  if (decision == 1) FinishItemProgress(*this, record);
  return decision;
}

HRESULT KzArchiver::CreateOutputFile(PathString& outputPath) {
  if (!WritesFiles(impl_->Mode, impl_->OperationFlags)) return 0;
  // The directories again, in case they changed while the host was asked
  // about an overwrite; the name itself is left to the exclusive, no-follow
  // create below, and a replacement is renamed over it, never written through it.
  HRESULT hr = WalkOutputPath(*this, outputPath.c_str(), true, nullptr);
  if (hr < 0) return hr;
  // Creates `path` exclusively, never through a link; false with
  // ERROR_FILE_EXISTS when something is there.
  auto create = [&](const std::wstring& path, bool inPlace) {
    if (!impl_->OutputFile.Create(path.c_str(), GENERIC_WRITE, 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, 0))
      return false;
    impl_->OutputWritePath.AssignRaw(path.c_str());
    impl_->OutputInPlace = inPlace;
    impl_->ItemCreated = true;
    impl_->CurrentName = outputPath.c_str();  // write failures name the file being made
    return true;
  };
  // A rename costs more than the rest of a small member's output, so a
  // free name is written directly.
  if (create(outputPath.c_str(), true)) return 0;
  if (GetLastError() == ERROR_FILE_EXISTS) {
    std::wstring dir = kz::fs::ParentOf(outputPath.c_str());
    if (!dir.empty() && dir.back() != L'\\') dir.push_back(L'\\');
    for (int attempt = 0; attempt < 16; ++attempt) {
      if (create(dir + kz::fs::TempFileName(), false)) return 0;
      if (GetLastError() != ERROR_FILE_EXISTS) break;
    }
  }
  return SetSystemError(outputPath.c_str());
}

void KzArchiver::BeginItemData(LhaHeader* record) {
  impl_->CurrentItem = record;
  impl_->StatusAtItemStart = Status;
}

void KzArchiver::EndItemData() {}

HRESULT KzArchiver::FinishOutputFile(LhaHeader* record, PathString& outputPath, uint32_t) {
  if (!impl_->ItemCreated) return Status;
  if (Status < 0) {
    if (impl_->KeepDamaged && Status != kz::E_Abort &&
        PlaceOutputFile(*this, record, outputPath.c_str())) {
      impl_->ItemCreated = false;
      LogMessage(KZ_LOG_WARNING, Status, L"damaged member kept", outputPath.c_str());
      return Status;
    }
    DiscardOutputFile(*this);
    return Status;
  }
  if (!PlaceOutputFile(*this, record, outputPath.c_str())) {
    HRESULT hr = SetSystemError(outputPath.c_str());
    DiscardOutputFile(*this);
    return hr;
  }
  impl_->ItemCreated = false;
  return Status;
}

void KzArchiver::EndExtractItem(LhaHeader*, PathString&) {
  // FinishOutputFile has placed or removed the output; nothing may remain.
  DiscardOutputFile(*this);
}

HRESULT KzArchiver::ItemDone(LhaHeader* record, PathString&) {
  if (IsMemberDataFailure(Status)) {
    const wchar_t* name = record->Name != nullptr ? record->Name : impl_->MemberName.c_str();
    LogMessage(KZ_LOG_WARNING, Status, L"member failed; going on with the next", name);
    RememberFailure(*this, Status, name);
    Status = impl_->StatusAtItemStart < 0 ? 0 : impl_->StatusAtItemStart;
    ErrorFileName = nullptr;
    impl_->ErrorFileNameStorage.clear();
  }
  impl_->CurrentItem = nullptr;
  return FinishItemProgress(*this, record);
}
