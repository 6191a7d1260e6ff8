// Member-name text: the archive code page to and from wide strings, and the
// DOS/Unix time conversions. Bytes that do not decode become U+DC80..U+DCFF
// (one per byte) so that they survive a round trip and show readably.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "platform/codepage.h"
#include "platform/win32_compat.h"

namespace kz {

class KZLIB_API NameConverter {
 public:
  NameConverter();
  ~NameConverter();
  NameConverter(const NameConverter&) = delete;
  NameConverter& operator=(const NameConverter&) = delete;

  // False for a code page this build cannot convert.
  bool SetCodePage(uint32_t codePage);
  uint32_t CodePage() const { return codePage_; }
  static bool IsSupported(uint32_t codePage);

  // Multibyte (NUL-terminated) to wide; at most capacity characters plus a
  // terminator. Returns the number of characters written.
  int ToWide(const char* text, wchar_t* out, uint32_t capacity);
  // Wide to multibyte; at most capacity - 1 bytes plus a terminator.
  // Returns the number of bytes written.
  int FromWide(const wchar_t* text, char* out, uint32_t capacity);

 private:
  // The system converter, bound on first use.
  kz::platform::CodePageCodec* Codec();

  uint32_t codePage_ = 932;
  kz::platform::CodePageCodec codec_;
  bool codecTried_ = false;
};

// DOS date<<16|time, read as local time, to Unix seconds; -1 if invalid.
KZLIB_API int64_t DosToUnixTime(uint32_t dosDateTime);
// Unix seconds to DOS date<<16|time in local time (clamped to 1980..2107).
KZLIB_API uint32_t UnixToDosTime(int64_t unixTime);

}  // namespace kz
