// The byte copy of an LZ77 match, shared by the decoders.
#pragma once

#include <cstdint>
#include <cstring>

namespace kz {

// Copies a match whose source lies wholly before its destination in the
// buffer. Distances of 8 and more move whole words and may write up to 15
// bytes past the end; shorter ones repeat their pattern byte by byte.
inline void CopyMatchBytes(uint8_t* dst, uint32_t distance, uint32_t length) {
  const uint8_t* src = dst - distance;
  uint8_t* const end = dst + length;
  if (distance >= 16) {
    do {
      std::memcpy(dst, src, 16);
      dst += 16;
      src += 16;
    } while (dst < end);
  } else if (distance >= 8) {
    do {
      std::memcpy(dst, src, 8);
      dst += 8;
      src += 8;
    } while (dst < end);
  } else if (distance == 1) {
    std::memset(dst, *src, length);
  } else {
    do *dst++ = *src++;
    while (dst < end);
  }
}

}  // namespace kz
