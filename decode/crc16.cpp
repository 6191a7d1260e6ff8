// CRC-16/ARC. Crc16Table is the byte-at-a-time table that archive
// initialisation fills; the update itself never reads it, so it does not
// depend on BuildCrc16Table having run nor race with another thread
// rewriting it. Long runs fold 64 bytes at a time with carry-less multiplies
// where the processor has them; the rest goes slicing-by-8 over tables
// computed at compile time.
#include "decode/crc16.h"

#include <array>
#include <bit>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <cpuid.h>
#include <immintrin.h>
#define KZ_CRC_CLMUL 1
#endif

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

uint32_t Slicing8(uint32_t c, const uint8_t* data, size_t n) {
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
  return c;
}

#ifdef KZ_CRC_CLMUL

// The reflected CRC-16 is the reflected CRC-32 of the polynomial
// x^16 * P(x) with the register's upper half zero, so the folding scheme
// of reflected CRC-32 serves with constants for that polynomial.
namespace fold {

constexpr uint64_t kPoly32 = 0x180050000;  // x^32 + x^31 + x^18 + x^16

constexpr uint64_t XPowMod(uint32_t n) {
  uint64_t r = 1;
  for (uint32_t i = 0; i < n; ++i) {
    r <<= 1;
    if (r >> 32 & 1) r ^= kPoly32;
  }
  return r;
}

constexpr uint64_t Reflect(uint64_t v, uint32_t bits) {
  uint64_t r = 0;
  for (uint32_t i = 0; i < bits; ++i)
    if (v >> i & 1) r |= uint64_t{1} << (bits - 1 - i);
  return r;
}

// floor(x^64 / P)
constexpr uint64_t Quotient() {
  unsigned __int128 r = static_cast<unsigned __int128>(1) << 64;
  uint64_t q = 0;
  for (int i = 64; i >= 32; --i) {
    if (static_cast<uint64_t>(r >> i) & 1) {
      q |= uint64_t{1} << (i - 32);
      r ^= static_cast<unsigned __int128>(kPoly32) << (i - 32);
    }
  }
  return q;
}

constexpr uint64_t K(uint32_t n) { return Reflect(XPowMod(n) << 32, 64) << 1; }

constexpr uint64_t k1 = K(4 * 128 + 32), k2 = K(4 * 128 - 32);  // 512-bit folds
constexpr uint64_t k3 = K(128 + 32), k4 = K(128 - 32);          // 128-bit folds
constexpr uint64_t k5 = K(64);                                  // 64 to 32 bits
constexpr uint64_t kPoly = Reflect(kPoly32, 33), kMu = Reflect(Quotient(), 33);

[[gnu::target("pclmul,sse2")]] inline __m128i Fold(__m128i x, __m128i k) {
  return _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_clmulepi64_si128(x, k, 0x11));
}

inline __m128i Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// n >= 64, a multiple of 16.
[[gnu::target("pclmul,sse2")]] uint32_t Blocks(uint32_t crc, const uint8_t* p, size_t n) {
  __m128i x0 = _mm_xor_si128(Load(p), _mm_cvtsi32_si128(static_cast<int>(crc)));
  __m128i x1 = Load(p + 16), x2 = Load(p + 32), x3 = Load(p + 48);
  p += 64;
  n -= 64;
  const __m128i k12 = _mm_set_epi64x(static_cast<int64_t>(k2), static_cast<int64_t>(k1));
  for (; n >= 64; p += 64, n -= 64) {
    x0 = _mm_xor_si128(Fold(x0, k12), Load(p));
    x1 = _mm_xor_si128(Fold(x1, k12), Load(p + 16));
    x2 = _mm_xor_si128(Fold(x2, k12), Load(p + 32));
    x3 = _mm_xor_si128(Fold(x3, k12), Load(p + 48));
  }
  const __m128i k34 = _mm_set_epi64x(static_cast<int64_t>(k4), static_cast<int64_t>(k3));
  __m128i x = _mm_xor_si128(Fold(x0, k34), x1);
  x = _mm_xor_si128(Fold(x, k34), x2);
  x = _mm_xor_si128(Fold(x, k34), x3);
  for (; n >= 16; p += 16, n -= 16) x = _mm_xor_si128(Fold(x, k34), Load(p));
  // 128 to 64 bits (appending 32 zero bits), then to 32.
  x = _mm_xor_si128(_mm_clmulepi64_si128(x, k34, 0x10), _mm_srli_si128(x, 8));
  const __m128i mask32 = _mm_set_epi32(0, 0, 0, -1);
  const __m128i k5v = _mm_set_epi64x(0, static_cast<int64_t>(k5));
  x = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(x, mask32), k5v, 0x00), _mm_srli_si128(x, 4));
  // Barrett reduction of 64 to 32 bits.
  const __m128i pm = _mm_set_epi64x(static_cast<int64_t>(kMu), static_cast<int64_t>(kPoly));
  __m128i t = _mm_and_si128(_mm_clmulepi64_si128(_mm_and_si128(x, mask32), pm, 0x10), mask32);
  t = _mm_xor_si128(_mm_clmulepi64_si128(t, pm, 0x00), x);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(t, 4)));
}

// One CPUID leaf, asked on first use: a virtual machine traps every CPUID,
// and a module's load should not pay for a full feature survey.
bool HaveClmul() {
  static const bool have = [] {
    unsigned a, b, c, d;
    return __get_cpuid(1, &a, &b, &c, &d) && (c & bit_PCLMUL) != 0;
  }();
  return have;
}

}  // namespace fold

#endif  // KZ_CRC_CLMUL

}  // namespace

void BuildCrc16Table() {
  for (uint32_t i = 0; i < 256; ++i) Crc16Table[i] = TableEntry(i);
}

uint16_t UpdateCrc16(uint16_t crc, const uint8_t* data, int32_t length) {
  if (length <= 0) return crc;
  size_t n = static_cast<size_t>(length);
  uint32_t c = crc;
#ifdef KZ_CRC_CLMUL
  if (n >= 64 && fold::HaveClmul()) {
    size_t whole = n & ~size_t{15};
    c = fold::Blocks(c, data, whole);
    data += whole;
    n -= whole;
  }
#endif
  return static_cast<uint16_t>(Slicing8(c, data, n));
}

}  // namespace kz
