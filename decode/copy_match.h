// The byte copy of an LZ77 match, shared by the decoders.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace kz {

// Copies a match whose source lies wholly before its destination in the
// buffer. Whole words are moved, so up to 15 bytes past the end may be
// written.
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
  } else if constexpr (std::endian::native == std::endian::little) {
    // A short period: one word of the repeating pattern, stored at every
    // whole number of periods that fits in a word.
    uint64_t pattern;
    std::memcpy(&pattern, src, 8);
    pattern &= (uint64_t{1} << (8 * distance)) - 1;
    pattern |= pattern << (8 * distance);
    if (distance < 4) pattern |= pattern << (16 * distance);
    const uint32_t step = 8 - 8 % distance;
    do {
      std::memcpy(dst, &pattern, 8);
      dst += step;
    } while (dst < end);
  } else {
    do *dst++ = *src++;
    while (dst < end);
  }
}

}  // namespace kz
