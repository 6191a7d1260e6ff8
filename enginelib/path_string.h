// A wide path string with 260 characters of inline room that grows on the
// heap. Assigning text converts it as the long-path helpers do: a leading
// "\\?\UNC\" becomes "\\", a leading "\\?\" is dropped and every "/"
// becomes a backslash. Allocation failure throws KzStatusError.
#pragma once

#include <cstddef>
#include <cwchar>

#include "enginelib/kz_error.h"

class KZLIB_API PathString {
 public:
  static constexpr size_t kInlineChars = 260;

  PathString();
  PathString(const wchar_t* text);  // NOLINT: converts like Assign
  PathString(const PathString& other);
  PathString& operator=(const PathString& other);
  PathString& operator=(const wchar_t* text);
  ~PathString();

  // Assign with the long-path conversion (same as operator=).
  void Assign(const wchar_t* text);
  void Assign(const wchar_t* text, size_t length);
  // Assign without any conversion.
  void AssignRaw(const wchar_t* text);
  void Append(const wchar_t* text);
  void Append(const wchar_t* text, size_t length);
  void Append(wchar_t c);
  // Appends a component, with one backslash between.
  void AppendComponent(const wchar_t* component);
  void Clear();
  void Truncate(size_t length);
  // Makes room for at least `chars` characters plus a terminator.
  void Reserve(size_t chars);
  // Re-reads the length after the buffer was changed in place.
  void SyncLength();

  const wchar_t* c_str() const { return data_; }
  wchar_t* data() { return data_; }
  size_t size() const { return length_; }
  bool empty() const { return length_ == 0; }
  operator const wchar_t*() const { return data_; }  // NOLINT

 private:
  wchar_t* data_;
  size_t length_;
  size_t capacity_;  // characters, terminator excluded
  wchar_t inline_[kInlineChars + 1];
};
