// Code-page conversion through iconv. glibc's converters keep a shift state;
// after a stop in front of invalid bytes it is reset so the caller can step
// over them and go on.
#include <iconv.h>

#include <cerrno>

#include "platform/codepage.h"

namespace kz::platform {

namespace {

struct IconvName {
  uint32_t CodePage;
  const char* Name;
};

constexpr IconvName kIconvNames[] = {
    {932, "CP932"},   {936, "GBK"},      {949, "CP949"},        {950, "BIG5"},
    {437, "CP437"},   {850, "CP850"},    {1252, "CP1252"},      {65001, "UTF-8"},
    {20127, "ASCII"}, {28591, "ISO-8859-1"},
};

const char* NameOf(uint32_t codePage) {
  for (const auto& cp : kIconvNames) {
    if (cp.CodePage == codePage) return cp.Name;
  }
  return nullptr;
}

void* OpenIconv(const char* to, const char* from) {
  iconv_t cd = iconv_open(to, from);
  return cd == reinterpret_cast<iconv_t>(-1) ? nullptr : cd;
}

void CloseIconv(void*& cd) {
  if (cd != nullptr) iconv_close(static_cast<iconv_t>(cd));
  cd = nullptr;
}

}  // namespace

CodePageCodec::~CodePageCodec() { Release(); }

void CodePageCodec::Release() {
  CloseIconv(toWide_);
  CloseIconv(fromWide_);
  codePage_ = 0;
}

bool CodePageCodec::IsSupported(uint32_t codePage) {
  const char* name = NameOf(codePage);
  if (name == nullptr) return false;
  void* cd = OpenIconv("WCHAR_T", name);
  bool available = cd != nullptr;
  CloseIconv(cd);
  return available;
}

bool CodePageCodec::Open(uint32_t codePage) {
  Release();
  const char* name = NameOf(codePage);
  if (name == nullptr) return false;
  toWide_ = OpenIconv("WCHAR_T", name);
  fromWide_ = OpenIconv(name, "WCHAR_T");
  if (toWide_ == nullptr || fromWide_ == nullptr) {
    Release();
    return false;
  }
  codePage_ = codePage;
  return true;
}

DecodeStop CodePageCodec::Decode(const char* in, size_t n, wchar_t* out, size_t room,
                                 size_t* consumed, size_t* produced) {
  auto cd = static_cast<iconv_t>(toWide_);
  char* src = const_cast<char*>(in);
  size_t srcLeft = n;
  char* dst = reinterpret_cast<char*>(out);
  size_t dstLeft = room * sizeof(wchar_t);
  size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
  *consumed = n - srcLeft;
  *produced = static_cast<size_t>(reinterpret_cast<wchar_t*>(dst) - out);
  if (r != static_cast<size_t>(-1)) return DecodeStop::End;
  if (errno == E2BIG) return DecodeStop::Full;
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  return DecodeStop::Invalid;  // EILSEQ, or EINVAL for a sequence cut off at the end
}

size_t CodePageCodec::EncodeChar(const wchar_t* ch, size_t units, char* out, size_t room) {
  auto cd = static_cast<iconv_t>(fromWide_);
  char* src = reinterpret_cast<char*>(const_cast<wchar_t*>(ch));
  size_t srcLeft = units * sizeof(wchar_t);
  char* dst = out;
  size_t dstLeft = room;
  if (iconv(cd, &src, &srcLeft, &dst, &dstLeft) == static_cast<size_t>(-1)) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    return 0;
  }
  return static_cast<size_t>(dst - out);
}

}  // namespace kz::platform
