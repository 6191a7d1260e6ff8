// KzArchiver: lifecycle, status bookkeeping, the log, options, progress and
// the output of decoded data. The per-item extraction and update operations
// live in extract_ops.cpp and update_ops.cpp; selection and listing in
// selection.cpp.
#include "enginelib/kz_archiver.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "enginelib/archiver_impl.h"
#include "enginelib/status_text.h"
#include "platform/local_time.h"

namespace {
int g_failInits = 0;
}

namespace kz::testing {
void FailNextInit(int n) { g_failInits = n; }
}  // namespace kz::testing

KzArchiver::KzArchiver() : impl_(new Impl) {}

KzArchiver::~KzArchiver() {
  std::free(TransferBuffer);
  KzList::Free(impl_->Log);
}

HRESULT KzArchiver::Init() {
  if (g_failInits > 0) {
    --g_failInits;
    return SetError(kz::E_Outofmemory, nullptr);
  }
  TransferBuffer = static_cast<uint8_t*>(std::malloc(65536));
  impl_->Log = KzList::Create(KZ_LIST_LOG);
  if (TransferBuffer == nullptr || impl_->Log == nullptr) return SetError(kz::E_Outofmemory, nullptr);
  return 0;
}

void KzArchiver::ResetStatus() {
  Status = 0;
  ErrorFileName = nullptr;
  impl_->ErrorFileNameStorage.clear();
  if (impl_->Log != nullptr && impl_->Log->Count != 0) {
    KzList::Free(impl_->Log);
    impl_->Log = KzList::Create(KZ_LIST_LOG);
  }
}

// ---- options --------------------------------------------------------------

HRESULT KzArchiver::SetOptions(uint32_t optionId, intptr_t a, intptr_t b) {
  ResetStatus();
  switch (optionId) {
    case KZ_OPT_METHOD:
      if (b != 0 || a < 0 || a > 0xFFFF) return SetError(kz::E_Invalidarg, nullptr);
      MethodSelector = static_cast<uint32_t>(a);
      return Status;
    case KZ_OPT_LEVEL:
      if (a < 0 || a > 4) return SetError(kz::E_Invalidarg, nullptr);
      CompressionLevel = static_cast<uint32_t>(a);
      return Status;
    case KZ_OPT_CODEPAGE:
      if (a < 0 || a > 0xFFFF || !impl_->Names.SetCodePage(static_cast<uint32_t>(a))) {
        return SetError(kz::E_Invalidarg, nullptr);
      }
      impl_->CodePage = static_cast<uint32_t>(a);
      return Status;
    case KZ_OPT_PATHS:
      if (a != KZ_PATHS_RELATIVE && a != KZ_PATHS_NONE) return SetError(kz::E_Invalidarg, nullptr);
      impl_->PathMode = static_cast<uint32_t>(a);
      return Status;
    case KZ_OPT_OVERWRITE:
      if (a != KZ_OVERWRITE_ASK && a != KZ_OVERWRITE_ALL && a != KZ_OVERWRITE_SKIP) {
        return SetError(kz::E_Invalidarg, nullptr);
      }
      impl_->Overwrite = static_cast<uint32_t>(a);
      return Status;
    case KZ_OPT_KEEP_DAMAGED:
      impl_->KeepDamaged = a != 0;
      return Status;
    case KZ_OPT_EXCLUDE:
      if (a == 0) {
        impl_->Excludes.clear();
      } else {
        impl_->Excludes.emplace_back(reinterpret_cast<const wchar_t*>(a));
      }
      return Status;
    default:
      return SetError(kz::E_Invalidarg, nullptr);
  }
}

HRESULT KzArchiver::InitArchive(const wchar_t* path, intptr_t, intptr_t) {
  ResetStatus();
  NewArchive = 0;
  FirstHeaderPos = 0;
  NextHeaderPos = 0;
  FirstHeaderOffset32 = 0;
  if (path == nullptr || path[0] == 0) return SetError(kz::E_Invalidarg, nullptr);
  return 0;
}

// ---- slots the format engine fills ------------------------------------------

HRESULT KzArchiver::ListArchive(const KzList*, intptr_t, intptr_t, KzList*, ArchiveInfo*) {
  return SetError(kz::E_Notimpl, nullptr);
}
HRESULT KzArchiver::CreateDirectory(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::CreateSfx(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::RepairArchive(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::AddRecoveryData(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::StripRecoveryData(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::SetFileComments(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::SetArchiveComment(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::SetFileProperties(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
HRESULT KzArchiver::RenameFile(intptr_t, intptr_t, intptr_t) { return kz::E_Notimpl; }
KzList* KzArchiver::GetLogList() { return impl_->Log; }
HRESULT KzArchiver::Hook19() { return kz::E_Notimpl; }
HRESULT KzArchiver::Hook20() { return kz::E_Notimpl; }
HRESULT KzArchiver::AllocDecodeBuffers() { return SetError(kz::E_Notimpl, nullptr); }
void KzArchiver::FreeDecodeBuffers() {}
HRESULT KzArchiver::EnumerateMembers(const KzList*, intptr_t, KzList*) {
  return SetError(kz::E_Notimpl, nullptr);
}
HRESULT KzArchiver::ExtractItems(const KzList*, intptr_t, intptr_t, uint32_t) {
  return SetError(kz::E_Notimpl, nullptr);
}
HRESULT KzArchiver::AllocEncodeBuffers() { return SetError(kz::E_Notimpl, nullptr); }
void KzArchiver::FreeEncodeBuffers() {}
HRESULT KzArchiver::CreateArchive(KzList*) { return SetError(kz::E_Notimpl, nullptr); }
HRESULT KzArchiver::AppendItems(KzList*) { return SetError(kz::E_Notimpl, nullptr); }
HRESULT KzArchiver::WriteArchiveEnd() { return SetError(kz::E_Notimpl, nullptr); }
HRESULT KzArchiver::Hook30() { return 0; }
HRESULT KzArchiver::Hook31() { return 0; }
HRESULT KzArchiver::Hook32() { return 0; }
HRESULT KzArchiver::Hook33() { return 0; }
HRESULT KzArchiver::Hook34() { return 0; }
HRESULT KzArchiver::Hook35() { return 0; }
HRESULT KzArchiver::Hook36() { return 0; }
uint32_t KzArchiver::GetFirstHeaderOffset() { return FirstHeaderOffset32; }

// ---- errors and the log -----------------------------------------------------

HRESULT KzArchiver::SetError(HRESULT hr, const wchar_t* fileName) {
  Status = hr;
  if (fileName != nullptr) {
    impl_->ErrorFileNameStorage = fileName;
    ErrorFileName = impl_->ErrorFileNameStorage.data();
  } else {
    impl_->ErrorFileNameStorage.clear();
    ErrorFileName = nullptr;
  }
  if (hr < 0) LogMessage(KZ_LOG_ERROR, hr, kz::StatusText(hr), fileName);
  return hr;
}

HRESULT KzArchiver::SetSystemError(const wchar_t* fileName) {
  DWORD code = GetLastError();
  // A short read or write reports success with fewer bytes: no system
  // error, but still a failure.
  if (code == 0) code = ERROR_HANDLE_EOF;
  return SetError(kz::HresultFromWin32(code), fileName);
}

void KzArchiver::LogMessage(uint32_t level, HRESULT status, const wchar_t* text,
                            const wchar_t* fileName) {
  if (impl_->Callbacks.Message != nullptr) {
    impl_->Callbacks.Message(impl_->Context, level, status, text, fileName);
  }
  if (impl_->Log == nullptr) return;
  auto* entry = static_cast<KzLogEntry*>(std::calloc(1, sizeof(KzLogEntry)));
  if (entry == nullptr) return;
  auto copy = [](const wchar_t* s) -> wchar_t* {
    if (s == nullptr) return nullptr;
    size_t n = std::wcslen(s);
    auto* c = static_cast<wchar_t*>(std::malloc((n + 1) * sizeof(wchar_t)));
    if (c != nullptr) std::wmemcpy(c, s, n + 1);
    return c;
  };
  entry->Text = copy(text ? text : L"");
  entry->FileName = copy(fileName);
  entry->Status = status;
  entry->Level = level;
  if (entry->Text == nullptr || KzList::AppendItem(impl_->Log, entry) < 0) {
    KzList::FreeItem(KZ_LIST_LOG, entry);
  }
}

HRESULT KzArchiver::SetCallbacks(const KzCallbacks* callbacks, void* context) {
  impl_->Callbacks = KzCallbacks{};
  impl_->Context = context;
  if (callbacks == nullptr) return 0;
  if (callbacks->Size < sizeof(uint32_t)) return kz::E_Invalidarg;
  // Copy what the host's version of the record carries.
  size_t n = callbacks->Size < sizeof(KzCallbacks) ? callbacks->Size : sizeof(KzCallbacks);
  std::memcpy(&impl_->Callbacks, callbacks, n);
  return 0;
}

// ---- progress and output ------------------------------------------------------

void KzArchiver::SetTotalSize(uint64_t total) {
  impl_->TotalSize = total;
  impl_->DoneBeforeItem = 0;
}

HRESULT KzArchiver::ReportProgress() {
  if (impl_->Callbacks.Progress == nullptr) return 0;
  const wchar_t* name = impl_->ProgressName.empty() ? nullptr : impl_->ProgressName.c_str();
  uint64_t done = impl_->DoneBeforeItem + Transfer.TotalBytes;
  if (impl_->Callbacks.Progress(impl_->Context, name, done, impl_->TotalSize) != 0) {
    return SetError(kz::E_Abort, nullptr);
  }
  return 0;
}

HRESULT KzArchiver::WriteOutput(const void* data, uint32_t count, uint32_t) {
  bool toCallback = impl_->Mode == OperationMode::None ||
                    (impl_->Mode == OperationMode::Extract &&
                     (impl_->OperationFlags & KZ_EXTRACT_TO_CALLBACK) != 0);
  if (toCallback) {
    if (impl_->Callbacks.Data == nullptr || count == 0) return 0;
    if (impl_->Callbacks.Data(impl_->Context, impl_->CurrentItem, data, count) != 0) {
      return SetError(kz::E_Abort, nullptr);
    }
    return 0;
  }
  if (impl_->Mode != OperationMode::Extract) return 0;  // a test pass discards the data
  uint32_t written = 0;
  if (!impl_->OutputFile.Write(data, count, &written, 0) || written != count) {
    return SetSystemError(impl_->CurrentName.empty() ? impl_->OutputFile.GetName()
                                                     : impl_->CurrentName.c_str());
  }
  return 0;
}

// ---- names and times ----------------------------------------------------------

void KzArchiver::NormalizeName(wchar_t* name, uint32_t capacity) {
  if (name == nullptr) return;
  for (uint32_t i = 0; i < capacity && name[i] != 0; ++i) {
    uint32_t c = static_cast<uint32_t>(name[i]);
    if (c == L'/') {
      name[i] = L'\\';
    } else if (c < 0x20 || c == 0x7F || (c >= 0x80 && c <= 0x9F) ||
               (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069)) {
      // Control characters (terminal escapes among them) and text-direction
      // overrides would let a name disguise itself on a screen.
      name[i] = L'_';
    }
  }
}

int KzArchiver::ConvertHeaderName(const char* text, wchar_t* out, uint32_t capacity) {
  return impl_->Names.ToWide(text, out, capacity);
}

int KzArchiver::ConvertExtendedName(const char* text, wchar_t* out, uint32_t capacity) {
  return impl_->Names.ToWide(text, out, capacity);
}

int KzArchiver::ConvertNameForHeader(const wchar_t* name, char* out, uint32_t capacity, intptr_t,
                                     intptr_t) {
  return impl_->Names.FromWide(name, out, capacity);
}

uint32_t KzArchiver::ConvertTimeStamp(uint32_t unixTime, int localTime) {
  if (localTime == 1) return kz::UnixToDosTime(unixTime);
  // UTC: shift by the local offset at that moment so the DOS fields read UTC.
  return kz::UnixToDosTime(static_cast<int64_t>(unixTime) - kz::platform::UtcOffsetAt(unixTime));
}
