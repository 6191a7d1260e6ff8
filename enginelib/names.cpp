#include "enginelib/names.h"

#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace kz {

namespace {

struct CodePageName {
  uint32_t CodePage;
  const char* IconvName;
};

constexpr CodePageName kCodePages[] = {
    {932, "CP932"},   {936, "GBK"},      {949, "CP949"},        {950, "BIG5"},
    {437, "CP437"},   {850, "CP850"},    {1252, "CP1252"},      {65001, "UTF-8"},
    {20127, "ASCII"}, {28591, "ISO-8859-1"},
};

const char* IconvName(uint32_t codePage) {
  for (const auto& cp : kCodePages) {
    if (cp.CodePage == codePage) return cp.IconvName;
  }
  return nullptr;
}

void CloseIconv(void*& cd) {
  if (cd != nullptr) iconv_close(static_cast<iconv_t>(cd));
  cd = nullptr;
}

constexpr wchar_t kRawByteBase = 0xDC00;  // U+DC80..U+DCFF stand for bytes 0x80..0xFF

}  // namespace

NameConverter::NameConverter() = default;

NameConverter::~NameConverter() {
  CloseIconv(toWide_);
  CloseIconv(fromWide_);
}

bool NameConverter::IsSupported(uint32_t codePage) {
  const char* name = IconvName(codePage);
  if (name == nullptr) return false;
  iconv_t cd = iconv_open("WCHAR_T", name);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  iconv_close(cd);
  return true;
}

bool NameConverter::SetCodePage(uint32_t codePage) {
  if (!IsSupported(codePage)) return false;
  if (codePage != codePage_) {
    CloseIconv(toWide_);
    CloseIconv(fromWide_);
    codePage_ = codePage;
  }
  return true;
}

int NameConverter::ToWide(const char* text, wchar_t* out, uint32_t capacity) {
  const auto* in = reinterpret_cast<const unsigned char*>(text ? text : "");
  size_t length = std::strlen(reinterpret_cast<const char*>(in));
  uint32_t written = 0;
  size_t i = 0;
  // Most names are ASCII: no conversion needed.
  while (i < length && in[i] < 0x80 && written < capacity) out[written++] = static_cast<wchar_t>(in[i++]);
  if (i < length && written < capacity) {
    if (toWide_ == nullptr) {
      iconv_t cd = iconv_open("WCHAR_T", IconvName(codePage_));
      toWide_ = cd == reinterpret_cast<iconv_t>(-1) ? nullptr : cd;
    }
    auto cd = static_cast<iconv_t>(toWide_);
    while (i < length && written < capacity) {
      if (cd == nullptr) {  // no converter at all: keep the bytes readable
        out[written++] = in[i] < 0x80 ? in[i] : static_cast<wchar_t>(kRawByteBase + in[i]);
        ++i;
        continue;
      }
      char* src = const_cast<char*>(reinterpret_cast<const char*>(in + i));
      size_t srcLeft = length - i;
      char* dst = reinterpret_cast<char*>(out + written);
      size_t dstLeft = (capacity - written) * sizeof(wchar_t);
      size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
      written = static_cast<uint32_t>(reinterpret_cast<wchar_t*>(dst) - out);
      i = length - srcLeft;
      if (r == static_cast<size_t>(-1) && (errno == EILSEQ || errno == EINVAL)) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        if (written < capacity) out[written++] = static_cast<wchar_t>(kRawByteBase + in[i]);
        ++i;
      } else if (r == static_cast<size_t>(-1)) {
        break;  // E2BIG: out of room
      }
    }
  }
  out[written] = 0;
  return static_cast<int>(written);
}

int NameConverter::FromWide(const wchar_t* text, char* out, uint32_t capacity) {
  if (capacity == 0) return 0;
  uint32_t written = 0;
  const uint32_t room = capacity - 1;
  if (fromWide_ == nullptr) {
    iconv_t cd = iconv_open(IconvName(codePage_), "WCHAR_T");
    fromWide_ = cd == reinterpret_cast<iconv_t>(-1) ? nullptr : cd;
  }
  auto cd = static_cast<iconv_t>(fromWide_);
  for (const wchar_t* p = text ? text : L""; *p && written < room; ++p) {
    uint32_t c = static_cast<uint32_t>(*p);
    if (c < 0x80) {
      out[written++] = static_cast<char>(c);
      continue;
    }
    if (c >= 0xDC80 && c <= 0xDCFF) {
      out[written++] = static_cast<char>(c - kRawByteBase);
      continue;
    }
    char buf[8];
    char* src = reinterpret_cast<char*>(const_cast<wchar_t*>(p));
    size_t srcLeft = sizeof(wchar_t);
    char* dst = buf;
    size_t dstLeft = sizeof buf;
    if (cd != nullptr && iconv(cd, &src, &srcLeft, &dst, &dstLeft) != static_cast<size_t>(-1)) {
      size_t n = static_cast<size_t>(dst - buf);
      if (written + n > room) break;  // never split a character here
      std::memcpy(out + written, buf, n);
      written += static_cast<uint32_t>(n);
    } else {
      if (cd != nullptr) iconv(cd, nullptr, nullptr, nullptr, nullptr);
      out[written++] = '_';  // not representable in the archive's code page
    }
  }
  out[written] = 0;
  return static_cast<int>(written);
}

int64_t DosToUnixTime(uint32_t dos) {
  struct tm t {};
  t.tm_year = static_cast<int>((dos >> 25) & 0x7F) + 80;
  t.tm_mon = static_cast<int>((dos >> 21) & 0x0F) - 1;
  t.tm_mday = static_cast<int>((dos >> 16) & 0x1F);
  t.tm_hour = static_cast<int>((dos >> 11) & 0x1F);
  t.tm_min = static_cast<int>((dos >> 5) & 0x3F);
  t.tm_sec = static_cast<int>((dos & 0x1F) * 2);
  if (t.tm_mon < 0 || t.tm_mon > 11 || t.tm_mday == 0 || t.tm_hour > 23 || t.tm_min > 59 ||
      t.tm_sec > 59) {
    return -1;
  }
  t.tm_isdst = -1;
  time_t result = mktime(&t);
  return static_cast<int64_t>(result);
}

uint32_t UnixToDosTime(int64_t unixTime) {
  time_t tt = static_cast<time_t>(unixTime);
  struct tm t {};
  if (localtime_r(&tt, &t) == nullptr || t.tm_year < 80) return (0u << 25) | (1u << 21) | (1u << 16);
  if (t.tm_year > 80 + 127) return (127u << 25) | (12u << 21) | (31u << 16) | (23u << 11) | (59u << 5) | 29u;
  return (static_cast<uint32_t>(t.tm_year - 80) << 25) | (static_cast<uint32_t>(t.tm_mon + 1) << 21) |
         (static_cast<uint32_t>(t.tm_mday) << 16) | (static_cast<uint32_t>(t.tm_hour) << 11) |
         (static_cast<uint32_t>(t.tm_min) << 5) | static_cast<uint32_t>(t.tm_sec / 2);
}

}  // namespace kz
