// The system's conversion between one code page and wide text: iconv on
// Linux, MultiByteToWideChar / WideCharToMultiByte on Windows. It converts
// only what is valid; what to do with bytes that do not decode, and with
// characters the code page lacks, is the caller's (NameConverter) business,
// so both systems treat them alike.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/kzlib_api.h"

namespace kz::platform {

// The code pages names can be kept in; both systems accept exactly these.
inline constexpr uint32_t kNameCodePages[] = {932, 936, 949, 950, 437, 850, 1252, 65001, 20127, 28591};

enum class DecodeStop {
  End,      // all input converted
  Full,     // the output ran out of room
  Invalid,  // in front of bytes that do not decode
};

class KZLIB_API CodePageCodec {
 public:
  CodePageCodec() = default;
  ~CodePageCodec();
  CodePageCodec(const CodePageCodec&) = delete;
  CodePageCodec& operator=(const CodePageCodec&) = delete;

  static bool IsSupported(uint32_t codePage);
  // Binds the codec to a code page; false (and unbound) when unsupported.
  bool Open(uint32_t codePage);
  bool IsOpen() const { return codePage_ != 0; }

  // Converts in[0..n) into out[0..room) until one of the stops; consumed and
  // produced say how far it got. Never splits a character.
  DecodeStop Decode(const char* in, size_t n, wchar_t* out, size_t room, size_t* consumed,
                    size_t* produced);
  // Encodes the character at ch (units wide characters: 2 for a UTF-16
  // surrogate pair) into out; returns the byte count, or 0 when the code
  // page has no such character or room is too small.
  size_t EncodeChar(const wchar_t* ch, size_t units, char* out, size_t room);

 private:
  void Release();

  uint32_t codePage_ = 0;
  void* toWide_ = nullptr;    // iconv handles on Linux; unused on Windows
  void* fromWide_ = nullptr;
};

}  // namespace kz::platform
