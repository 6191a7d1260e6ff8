#include "enginelib/kz_list.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "enginelib/kz_archiver.h"
#include "enginelib/kz_error.h"

namespace {

KzListImpl* Impl(KzList* list) { return reinterpret_cast<KzListImpl*>(list); }
const KzListImpl* Impl(const KzList* list) { return reinterpret_cast<const KzListImpl*>(list); }

wchar_t* CopyText(const wchar_t* text) {
  size_t n = text ? std::wcslen(text) : 0;
  auto* copy = static_cast<wchar_t*>(std::malloc((n + 1) * sizeof(wchar_t)));
  if (copy == nullptr) return nullptr;
  if (n) std::wmemcpy(copy, text, n);
  copy[n] = 0;
  return copy;
}

}  // namespace

KzList* KzList::Create(uint32_t kind) {
  if (kind != KZ_LIST_NAMES && kind != KZ_LIST_MEMBERS && kind != KZ_LIST_LOG &&
      kind != kListSinkKind) {
    return nullptr;
  }
  auto* list = static_cast<KzListImpl*>(std::calloc(1, sizeof(KzListImpl)));
  if (list == nullptr) return nullptr;
  list->ListKind = kind;
  return &list->Public;
}

uint32_t KzList::Kind(const KzList* list) { return list ? Impl(list)->ListKind : 0; }

void KzList::FreeItem(uint32_t kind, void* item) {
  if (item == nullptr) return;
  switch (kind) {
    case KZ_LIST_NAMES:
      std::free(static_cast<KzNameItem*>(item)->Path);
      break;
    case KZ_LIST_MEMBERS:
      KzArchiver::FreeItemBuffers(static_cast<LhaHeader*>(item));
      break;
    case KZ_LIST_LOG:
      std::free(static_cast<KzLogEntry*>(item)->Text);
      std::free(static_cast<KzLogEntry*>(item)->FileName);
      break;
    default:
      break;
  }
  std::free(item);
}

void KzList::Free(KzList* list) {
  if (list == nullptr) return;
  uint32_t kind = Impl(list)->ListKind;
  KzListNode* node = list->First;
  while (node != nullptr) {
    KzListNode* next = node->Next;
    FreeItem(kind, node->Item);
    std::free(node);
    node = next;
  }
  std::free(Impl(list));
}

HRESULT KzList::AppendItem(KzList* list, void* item) {
  auto* node = static_cast<KzListNode*>(std::malloc(sizeof(KzListNode)));
  if (node == nullptr) return kz::E_Outofmemory;
  node->Next = nullptr;
  node->Item = item;
  KzListImpl* impl = Impl(list);
  if (impl->Last == nullptr) {
    list->First = node;
  } else {
    impl->Last->Next = node;
  }
  impl->Last = node;
  ++list->Count;
  return 0;
}

HRESULT KzList::Add(KzList* list, const wchar_t* text, uint32_t flags) {
  if (list == nullptr) return kz::E_Handle;
  if (Impl(list)->ListKind != KZ_LIST_NAMES || text == nullptr) return kz::E_Invalidarg;
  auto* item = static_cast<KzNameItem*>(std::calloc(1, sizeof(KzNameItem)));
  if (item == nullptr) return kz::E_Outofmemory;
  item->Path = CopyText(text);
  item->Flags = flags;
  if (item->Path == nullptr) {
    std::free(item);
    return kz::E_Outofmemory;
  }
  HRESULT hr = AppendItem(list, item);
  if (hr < 0) FreeItem(KZ_LIST_NAMES, item);
  return hr;
}
