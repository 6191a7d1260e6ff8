// The host's list type: a 32-bit count followed directly by the first
// node; nodes hold the next node and one item. The library keeps the kind
// and the tail behind the public part.
#pragma once

#include <cstdint>

#include "platform/win32_compat.h"

struct KzListImpl;
#define KZ_LIST_OPERATIONS                                              \
  KZLIB_API static KzList* Create(uint32_t kind);                       \
  KZLIB_API static void Free(KzList* list);                             \
  KZLIB_API static HRESULT Add(KzList* list, const wchar_t* text, uint32_t flags); \
  KZLIB_API static HRESULT AppendItem(KzList* list, void* item);        \
  KZLIB_API static uint32_t Kind(const KzList* list);                   \
  KZLIB_API static void FreeItem(uint32_t kind, void* item);

#include <kzlha/kzlha.h>

struct KzListImpl {
  KzList Public;
  uint32_t ListKind;
  KzListNode* Last;
};

// Walks a list's items in order: for (void* item : KzListItems(list)).
class KzListItems {
 public:
  explicit KzListItems(const KzList* list) : first_(list ? list->First : nullptr) {}
  class Iterator {
   public:
    explicit Iterator(KzListNode* n) : node_(n) {}
    void* operator*() const { return node_->Item; }
    Iterator& operator++() {
      node_ = node_->Next;
      return *this;
    }
    bool operator!=(const Iterator& o) const { return node_ != o.node_; }

   private:
    KzListNode* node_;
  };
  Iterator begin() const { return Iterator(first_); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  KzListNode* first_;
};
