// Eight packed bytes as one big-endian word: the bit readers take the
// stream most significant bit first.
#pragma once

#include <cstdint>
#include <cstring>

namespace kz {

inline uint64_t LoadBigEndian64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return __builtin_bswap64(v);
}

}  // namespace kz
