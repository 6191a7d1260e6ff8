#include "enginelib/path_string.h"

#include <cstdlib>
#include <cstring>
#include <limits>

PathString::PathString() : data_(inline_), length_(0), capacity_(kInlineChars) { inline_[0] = 0; }

PathString::PathString(const wchar_t* text) : PathString() { Assign(text); }

PathString::PathString(const PathString& other) : PathString() { AssignRaw(other.c_str()); }

PathString& PathString::operator=(const PathString& other) {
  if (this != &other) AssignRaw(other.c_str());
  return *this;
}

PathString& PathString::operator=(const wchar_t* text) {
  Assign(text);
  return *this;
}

PathString::~PathString() {
  if (data_ != inline_) std::free(data_);
}

void PathString::Reserve(size_t chars) {
  if (chars <= capacity_) return;
  if (chars > std::numeric_limits<size_t>::max() / sizeof(wchar_t) - 1) {
    throw kz::KzStatusError{kz::E_Invalidarg};
  }
  size_t grown = capacity_ * 2 > chars ? capacity_ * 2 : chars;
  auto* fresh = static_cast<wchar_t*>(std::malloc((grown + 1) * sizeof(wchar_t)));
  if (fresh == nullptr) throw kz::KzStatusError{kz::E_Outofmemory};
  std::memcpy(fresh, data_, (length_ + 1) * sizeof(wchar_t));
  if (data_ != inline_) std::free(data_);
  data_ = fresh;
  capacity_ = grown;
}

void PathString::Assign(const wchar_t* text) { Assign(text, text ? std::wcslen(text) : 0); }

void PathString::Assign(const wchar_t* text, size_t length) {
  if (text == nullptr) {
    Clear();
    return;
  }
  // Drop a long-path prefix: "\\?\UNC\x" -> "\\x", "\\?\x" -> "x".
  const wchar_t* rest = text;
  size_t restLength = length;
  bool unc = false;
  if (length >= 4 && std::wcsncmp(text, L"\\\\?\\", 4) == 0) {
    if (length >= 8 && std::wcsncmp(text + 4, L"UNC\\", 4) == 0) {
      rest = text + 8;
      restLength = length - 8;
      unc = true;
    } else {
      rest = text + 4;
      restLength = length - 4;
    }
  }
  // Copy through a temporary in case text points into this string.
  PathString copy;
  copy.Reserve(restLength + 2);
  if (unc) {
    copy.data_[0] = L'\\';
    copy.data_[1] = L'\\';
    copy.length_ = 2;
  }
  for (size_t i = 0; i < restLength; ++i) {
    copy.data_[copy.length_++] = rest[i] == L'/' ? L'\\' : rest[i];
  }
  copy.data_[copy.length_] = 0;
  AssignRaw(copy.data_);
}

void PathString::AssignRaw(const wchar_t* text) {
  size_t n = text ? std::wcslen(text) : 0;
  if (text != nullptr && text >= data_ && text <= data_ + length_) {
    std::wmemmove(data_, text, n + 1);
    length_ = n;
    return;
  }
  Reserve(n);
  if (n) std::wmemcpy(data_, text, n);
  data_[n] = 0;
  length_ = n;
}

void PathString::Append(const wchar_t* text) { Append(text, text ? std::wcslen(text) : 0); }

void PathString::Append(const wchar_t* text, size_t length) {
  if (length == 0) return;
  if (text >= data_ && text <= data_ + capacity_) {
    PathString copy;
    copy.AssignRaw(text);
    copy.Truncate(length);
    Append(copy.c_str(), copy.size());
    return;
  }
  Reserve(length_ + length);
  std::wmemcpy(data_ + length_, text, length);
  length_ += length;
  data_[length_] = 0;
}

void PathString::Append(wchar_t c) { Append(&c, 1); }

void PathString::AppendComponent(const wchar_t* component) {
  if (component == nullptr) return;
  while (*component == L'\\') ++component;
  if (*component == 0) return;
  if (length_ > 0 && data_[length_ - 1] != L'\\') Append(L'\\');
  Append(component);
}

void PathString::Clear() {
  length_ = 0;
  data_[0] = 0;
}

void PathString::Truncate(size_t length) {
  if (length < length_) {
    length_ = length;
    data_[length_] = 0;
  }
}

void PathString::SyncLength() { length_ = std::wcslen(data_); }
