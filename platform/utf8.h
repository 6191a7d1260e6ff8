// UTF-8 one scalar value at a time, for the Linux file-system names of the
// platform layer and for the command line's text. Header-only: the program
// shares it without linking the engine's platform code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kz::utf8 {

inline void Append(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

// Decodes the sequence at s[i] (of n bytes); returns its length, or 0 when
// the bytes there are not a valid, shortest-form encoding of a scalar value.
inline size_t Decode(const unsigned char* s, size_t n, size_t i, uint32_t* out) {
  const uint8_t b0 = s[i];
  if (b0 < 0x80) {
    *out = b0;
    return 1;
  }
  const size_t len = b0 >= 0xF0 && b0 <= 0xF4 ? 4 : b0 >= 0xE0 ? 3 : b0 >= 0xC2 && b0 < 0xE0 ? 2 : 0;
  if (len == 0 || i + len > n) return 0;
  uint32_t c = b0 & (0x7F >> len);
  for (size_t k = 1; k < len; ++k) {
    if ((s[i + k] & 0xC0) != 0x80) return 0;
    c = (c << 6) | (s[i + k] & 0x3F);
  }
  static constexpr uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < kMin[len] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  *out = c;
  return len;
}

}  // namespace kz::utf8
