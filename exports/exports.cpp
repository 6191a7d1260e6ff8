// The module's 25 exports: check the handle, forward, return. A string
// routine that runs out of memory throws; the export records that status
// and returns it, so no exception crosses the C boundary.
#include <kzlha/kzlha.h>

#include <new>

#include "archiver/lha_archiver.h"

namespace {

KzArchiver* Object(KzHandle h) { return reinterpret_cast<KzArchiver*>(h); }

template <typename F>
HRESULT Guarded(KzArchiver* a, F&& body) {
  try {
    return body();
  } catch (const kz::KzStatusError& e) {
    return a->SetError(e.Status, nullptr);
  } catch (const std::bad_alloc&) {
    return a->SetError(kz::E_Outofmemory, nullptr);
  }
}

}  // namespace

extern "C" {

KZ_EXPORT KzHandle KZ_CALL KzCreateObject(void) {
  KzLhaArchiver* a = new (std::nothrow) KzLhaArchiver();
  if (a == nullptr) return nullptr;
  HRESULT hr;
  try {
    hr = static_cast<KzArchiver*>(a)->Init();
  } catch (...) {
    hr = kz::E_Outofmemory;
  }
  if (hr < 0) {
    delete a;
    return nullptr;
  }
  return reinterpret_cast<KzHandle>(static_cast<KzArchiver*>(a));
}

KZ_EXPORT void KZ_CALL KzFreeObject(KzHandle h) {
  if (h == nullptr) return;
  delete Object(h);
}

KZ_EXPORT HRESULT KZ_CALL KzSetOptions(KzHandle h, uint32_t optionId, intptr_t a, intptr_t b) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->SetOptions(optionId, a, b); });
}

KZ_EXPORT HRESULT KZ_CALL KzInitArchive(KzHandle h, const wchar_t* path, intptr_t a, intptr_t b) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->InitArchive(path, a, b); });
}

KZ_EXPORT HRESULT KZ_CALL KzListArchive(KzHandle h, const KzList* selection, intptr_t selectFlags,
                                        intptr_t listArg, KzList* list, ArchiveInfo* info) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->ListArchive(selection, selectFlags, listArg, list, info); });
}

KZ_EXPORT HRESULT KZ_CALL KzExtractFiles(KzHandle h, const KzList* items, intptr_t selectFlags,
                                         const wchar_t* destDir, uint32_t flags) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->ExtractFiles(items, selectFlags, destDir, flags); });
}

KZ_EXPORT HRESULT KZ_CALL KzTestArchive(KzHandle h, const KzList* items, intptr_t selectFlags) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->TestArchive(items, selectFlags); });
}

KZ_EXPORT HRESULT KZ_CALL KzCompressFiles(KzHandle h, KzList* items, const wchar_t* baseDir,
                                          uint32_t flags) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->CompressFiles(items, baseDir, flags); });
}

KZ_EXPORT HRESULT KZ_CALL KzDeleteFiles(KzHandle h, const KzList* items, intptr_t selectFlags) {
  if (h == nullptr) return kz::E_Handle;
  KzArchiver* o = Object(h);
  return Guarded(o, [&] { return o->DeleteFiles(items, selectFlags); });
}

#define KZ_FORWARD_ANY(Export, Slot)                                                    \
  KZ_EXPORT HRESULT KZ_CALL Export(KzHandle h, intptr_t a, intptr_t b, intptr_t c) {    \
    if (h == nullptr) return kz::E_Handle;                                               \
    KzArchiver* o = Object(h);                                                           \
    return Guarded(o, [&] { return o->Slot(a, b, c); });                                 \
  }

KZ_FORWARD_ANY(KzCreateDirectory, CreateDirectory)
KZ_FORWARD_ANY(KzCreateSfx, CreateSfx)
KZ_FORWARD_ANY(KzRepairArchive, RepairArchive)
KZ_FORWARD_ANY(KzAddRecoveryData, AddRecoveryData)
KZ_FORWARD_ANY(KzStripRecoveryData, StripRecoveryData)
KZ_FORWARD_ANY(KzSetFileComments, SetFileComments)
KZ_FORWARD_ANY(KzSetArchiveComment, SetArchiveComment)
KZ_FORWARD_ANY(KzSetFileProperties, SetFileProperties)
KZ_FORWARD_ANY(KzRenameFile, RenameFile)
#undef KZ_FORWARD_ANY

KZ_EXPORT KzList* KZ_CALL KzGetLogList(KzHandle h) {
  if (h == nullptr) return nullptr;
  return Object(h)->GetLogList();
}

KZ_EXPORT HRESULT KZ_CALL KzGetStatus(KzHandle h) {
  if (h == nullptr) return kz::E_Handle;
  return Object(h)->Status;
}

KZ_EXPORT const wchar_t* KZ_CALL KzGetErrorFileName(KzHandle h) {
  if (h == nullptr) return nullptr;
  return Object(h)->ErrorFileName;
}

KZ_EXPORT KzList* KZ_CALL KzCreateList(KzHandle h, uint32_t kind) {
  if (h == nullptr) return nullptr;
  return KzList::Create(kind);
}

KZ_EXPORT void KZ_CALL KzFreeList(KzList* list) {
  if (list == nullptr) return;
  KzList::Free(list);
}

KZ_EXPORT HRESULT KZ_CALL KzAddToList(KzList* list, const wchar_t* text, uint32_t flags) {
  if (list == nullptr) return kz::E_Handle;
  return KzList::Add(list, text, flags);
}

KZ_EXPORT HRESULT KZ_CALL KzSetCallbacks(KzHandle h, const KzCallbacks* callbacks,
                                         void* context) {
  if (h == nullptr) return kz::E_Handle;
  return Object(h)->SetCallbacks(callbacks, context);
}

}  // extern "C"
