// The host's list type: a 32-bit count followed directly by the first
// node; nodes hold the next node and one item. The library keeps the kind
// and the tail behind the public part.
#pragma once

#include <cstdint>

#include "platform/win32_compat.h"

#include <kzlha/kzlha.h>

// A library-internal kind: AddListItem hands each record to Sink at once
// and keeps nothing, so a walk over the members needs memory independent
// of their number.
constexpr uint32_t kListSinkKind = 0x100;

struct KzListImpl {
  KzList Public;
  uint32_t ListKind;
  KzListNode* Last;
  HRESULT (*Sink)(void* context, LhaHeader* record);
  void* SinkContext;
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
