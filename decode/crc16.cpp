// CRC-16/ARC. Crc16Table is the byte-at-a-time table that archive
// initialisation fills; the update itself runs slicing-by-8 over tables
// computed at compile time, so it never reads a table that another thread
// may be rewriting and never depends on BuildCrc16Table having run.
#include "decode/crc16.h"

#include <array>
#include <bit>
#include <cstring>

namespace kz {

uint16_t Crc16Table[256];

namespace {

constexpr uint16_t kPolynomial = 0xA001;  // 0x8005 reflected

constexpr uint16_t TableEntry(uint32_t index) {
  uint16_t c = static_cast<uint16_t>(index);
  for (int bit = 0; bit < 8; ++bit) c = (c & 1) ? static_cast<uint16_t>((c >> 1) ^ kPolynomial) : c >> 1;
  return c;
}

// Slice k maps a byte to its CRC contribution when k more zero bytes follow
// it, so eight bytes fold into the CRC with eight independent lookups.
using Slices = std::array<std::array<uint16_t, 256>, 8>;

constexpr Slices MakeSlices() {
  Slices s{};
  for (uint32_t i = 0; i < 256; ++i) s[0][i] = TableEntry(i);
  for (int k = 1; k < 8; ++k)
    for (uint32_t i = 0; i < 256; ++i)
      s[k][i] = static_cast<uint16_t>((s[k - 1][i] >> 8) ^ s[0][s[k - 1][i] & 0xFF]);
  return s;
}

constexpr Slices kSlices = MakeSlices();

static_assert(std::endian::native == std::endian::little, "the 8-byte fold reads words little-endian");

static_assert(kSlices[0][1] == 0xC0C1 && kSlices[0][128] == 0xA001 && kSlices[0][255] == 0x4040);

}  // namespace

void BuildCrc16Table() {
  for (uint32_t i = 0; i < 256; ++i) Crc16Table[i] = TableEntry(i);
}

uint16_t UpdateCrc16(uint16_t crc, const uint8_t* data, int32_t length) {
  if (length <= 0) return crc;
  size_t n = static_cast<size_t>(length);
  uint32_t c = crc;
  while (n >= 8) {
    uint64_t v;
    std::memcpy(&v, data, 8);  // little-endian: byte 0 in the low bits
    v ^= c;
    c = kSlices[7][v & 0xFF] ^ kSlices[6][(v >> 8) & 0xFF] ^ kSlices[5][(v >> 16) & 0xFF] ^
        kSlices[4][(v >> 24) & 0xFF] ^ kSlices[3][(v >> 32) & 0xFF] ^
        kSlices[2][(v >> 40) & 0xFF] ^ kSlices[1][(v >> 48) & 0xFF] ^ kSlices[0][v >> 56];
    data += 8;
    n -= 8;
  }
  while (n--) c = kSlices[0][(c ^ *data++) & 0xFF] ^ (c >> 8);
  return static_cast<uint16_t>(c);
}

}  // namespace kz
