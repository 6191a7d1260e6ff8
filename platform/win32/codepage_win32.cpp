// Code-page conversion through MultiByteToWideChar and WideCharToMultiByte.
// The system converts a whole text or refuses it (MB_ERR_INVALID_CHARS), so
// a text that does not convert whole is walked one character at a time to
// find where it stops, as iconv reports it on Linux. US-ASCII and Latin-1
// are done here: the system's tables for them fold bytes to best-fit
// characters where Linux refuses or maps them one to one.
#include "platform/codepage.h"
#include "platform/win32_compat.h"

namespace kz::platform {

namespace {

constexpr uint32_t kUtf8 = 65001;
constexpr uint32_t kAscii = 20127;
constexpr uint32_t kLatin1 = 28591;

bool IsListed(uint32_t codePage) {
  for (uint32_t cp : kNameCodePages) {
    if (cp == codePage) return true;
  }
  return false;
}

// Bytes in the character that starts at in[0], by its lead byte; 0 when no
// character starts with that byte.
size_t CharLength(uint32_t codePage, const unsigned char* in) {
  unsigned char b = in[0];
  if (b < 0x80) return 1;
  if (codePage == kUtf8) {
    if (b >= 0xC2 && b <= 0xDF) return 2;
    if (b >= 0xE0 && b <= 0xEF) return 3;
    if (b >= 0xF0 && b <= 0xF4) return 4;
    return 0;
  }
  return IsDBCSLeadByteEx(codePage, b) ? 2 : 1;
}

// Characters the system's tables give where Linux's refuse the bytes: C1
// controls for bytes a code page leaves undefined (0x80 in 932 and 949, five
// bytes of 1252), and private-use characters for the user-defined ranges of
// the Chinese and Korean code pages. 932's user range is mapped alike on
// both, and so is Big5's block U+F6B1..U+F848 (C6A1..C8FE). These count as
// not decoding, so both builds give the same names.
bool IsFoldedCharacter(uint32_t codePage, wchar_t c) {
  if (c >= 0x80 && c <= 0x9F) return codePage != 950;  // Big5 maps 0x80 on both
  if (c < 0xE000 || c > 0xF8FF) return false;
  if (codePage == 950) return c < 0xF6B1 || c > 0xF848;
  return codePage == 936 || codePage == 949;
}

// One character of in[0..n) into out (up to 2 units); units written, 0 when
// it does not decode.
size_t DecodeOne(uint32_t codePage, const unsigned char* in, size_t n, wchar_t* out) {
  if (codePage == kAscii) {
    if (in[0] >= 0x80) return 0;
    out[0] = in[0];
    return 1;
  }
  if (codePage == kLatin1) {
    out[0] = in[0];
    return 1;
  }
  size_t len = CharLength(codePage, in);
  if (len == 0 || len > n) return 0;
  int got = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, reinterpret_cast<const char*>(in),
                                static_cast<int>(len), out, 2);
  if (got == 1 && codePage != kUtf8 && IsFoldedCharacter(codePage, out[0])) return 0;
  return got > 0 ? static_cast<size_t>(got) : 0;
}

}  // namespace

CodePageCodec::~CodePageCodec() { Release(); }

void CodePageCodec::Release() { codePage_ = 0; }

bool CodePageCodec::IsSupported(uint32_t codePage) {
  if (!IsListed(codePage)) return false;
  return codePage == kAscii || codePage == kLatin1 || IsValidCodePage(codePage);
}

bool CodePageCodec::Open(uint32_t codePage) {
  Release();
  if (!IsSupported(codePage)) return false;
  codePage_ = codePage;
  return true;
}

DecodeStop CodePageCodec::Decode(const char* in, size_t n, wchar_t* out, size_t room,
                                 size_t* consumed, size_t* produced) {
  if (codePage_ != kAscii && codePage_ != kLatin1 && n > 0 && n < 0x7FFFFFFF) {
    int whole = MultiByteToWideChar(codePage_, MB_ERR_INVALID_CHARS, in, static_cast<int>(n), nullptr, 0);
    if (whole > 0 && static_cast<size_t>(whole) <= room) {
      MultiByteToWideChar(codePage_, MB_ERR_INVALID_CHARS, in, static_cast<int>(n), out, whole);
      bool folded = false;
      for (int k = 0; k < whole && !folded && codePage_ != kUtf8; ++k) {
        folded = IsFoldedCharacter(codePage_, out[k]);
      }
      if (!folded) {
        *consumed = n;
        *produced = static_cast<size_t>(whole);
        return DecodeStop::End;
      }
    }
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(in);
  size_t i = 0;
  size_t written = 0;
  while (i < n) {
    wchar_t ch[2];
    size_t len = codePage_ == kAscii || codePage_ == kLatin1 ? 1 : CharLength(codePage_, bytes + i);
    size_t units = DecodeOne(codePage_, bytes + i, n - i, ch);
    if (units == 0) {
      *consumed = i;
      *produced = written;
      return DecodeStop::Invalid;
    }
    if (written + units > room) {
      *consumed = i;
      *produced = written;
      return DecodeStop::Full;
    }
    for (size_t k = 0; k < units; ++k) out[written++] = ch[k];
    i += len;
  }
  *consumed = i;
  *produced = written;
  return DecodeStop::End;
}

size_t CodePageCodec::EncodeChar(const wchar_t* ch, size_t units, char* out, size_t room) {
  if (room == 0) return 0;
  uint32_t c = static_cast<uint32_t>(ch[0]);
  if (codePage_ == kAscii || codePage_ == kLatin1) {
    if (units != 1 || c >= (codePage_ == kAscii ? 0x80u : 0x100u)) return 0;
    out[0] = static_cast<char>(c);
    return 1;
  }
  if (codePage_ != kUtf8 && units == 1 && IsFoldedCharacter(codePage_, ch[0])) return 0;
  int n;
  if (codePage_ == kUtf8) {
    n = WideCharToMultiByte(codePage_, WC_ERR_INVALID_CHARS, ch, static_cast<int>(units), out,
                            static_cast<int>(room), nullptr, nullptr);
  } else {
    BOOL usedDefault = FALSE;
    n = WideCharToMultiByte(codePage_, WC_NO_BEST_FIT_CHARS, ch, static_cast<int>(units), out,
                            static_cast<int>(room), nullptr, &usedDefault);
    if (usedDefault) return 0;
  }
  return n > 0 ? static_cast<size_t>(n) : 0;
}

}  // namespace kz::platform
