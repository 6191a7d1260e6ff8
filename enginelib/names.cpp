#include "enginelib/names.h"

#include <cstring>

#include "platform/local_time.h"

namespace kz {

namespace {

constexpr wchar_t kRawByteBase = 0xDC00;  // U+DC80..U+DCFF stand for bytes 0x80..0xFF

bool IsKnownCodePage(uint32_t codePage) {
  for (uint32_t cp : kz::platform::kNameCodePages) {
    if (cp == codePage) return true;
  }
  return false;
}

// Wide characters that make one character: a UTF-16 surrogate pair is two.
size_t CharUnits(const wchar_t* p) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (p[0] >= 0xD800 && p[0] <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) return 2;
  }
  return 1;
}

}  // namespace

NameConverter::NameConverter() = default;

NameConverter::~NameConverter() = default;

bool NameConverter::IsSupported(uint32_t codePage) {
  return IsKnownCodePage(codePage) && kz::platform::CodePageCodec::IsSupported(codePage);
}

bool NameConverter::SetCodePage(uint32_t codePage) {
  if (!IsSupported(codePage)) return false;
  if (codePage != codePage_) {
    codePage_ = codePage;
    codecTried_ = false;
  }
  return true;
}

kz::platform::CodePageCodec* NameConverter::Codec() {
  if (!codecTried_) {
    codecTried_ = true;
    codec_.Open(codePage_);
  }
  return codec_.IsOpen() ? &codec_ : nullptr;
}

int NameConverter::ToWide(const char* text, wchar_t* out, uint32_t capacity) {
  const auto* in = reinterpret_cast<const unsigned char*>(text ? text : "");
  size_t length = std::strlen(reinterpret_cast<const char*>(in));
  uint32_t written = 0;
  size_t i = 0;
  // Most names are ASCII: no conversion needed.
  while (i < length && in[i] < 0x80 && written < capacity) out[written++] = static_cast<wchar_t>(in[i++]);
  kz::platform::CodePageCodec* codec = i < length && written < capacity ? Codec() : nullptr;
  while (i < length && written < capacity) {
    if (codec == nullptr) {  // no converter at all: keep the bytes readable
      out[written++] = in[i] < 0x80 ? in[i] : static_cast<wchar_t>(kRawByteBase + in[i]);
      ++i;
      continue;
    }
    size_t consumed = 0;
    size_t produced = 0;
    auto stop = codec->Decode(reinterpret_cast<const char*>(in + i), length - i, out + written,
                              capacity - written, &consumed, &produced);
    i += consumed;
    written += static_cast<uint32_t>(produced);
    if (stop == kz::platform::DecodeStop::Invalid) {
      if (written < capacity) out[written++] = static_cast<wchar_t>(kRawByteBase + in[i]);
      ++i;
    } else if (stop == kz::platform::DecodeStop::Full) {
      break;
    }
  }
  out[written] = 0;
  return static_cast<int>(written);
}

int NameConverter::FromWide(const wchar_t* text, char* out, uint32_t capacity) {
  if (capacity == 0) return 0;
  uint32_t written = 0;
  const uint32_t room = capacity - 1;
  kz::platform::CodePageCodec* codec = Codec();
  for (const wchar_t* p = text ? text : L""; *p && written < room;) {
    uint32_t c = static_cast<uint32_t>(*p);
    if (c < 0x80) {
      out[written++] = static_cast<char>(c);
      ++p;
      continue;
    }
    if (c >= 0xDC80 && c <= 0xDCFF) {
      out[written++] = static_cast<char>(c - kRawByteBase);
      ++p;
      continue;
    }
    size_t units = CharUnits(p);
    char buf[8];
    size_t n = codec != nullptr ? codec->EncodeChar(p, units, buf, sizeof buf) : 0;
    if (n == 0) {
      out[written++] = '_';  // not representable in the archive's code page
    } else {
      if (written + n > room) break;  // never split a character here
      std::memcpy(out + written, buf, n);
      written += static_cast<uint32_t>(n);
    }
    p += units;
  }
  out[written] = 0;
  return static_cast<int>(written);
}

int64_t DosToUnixTime(uint32_t dos) {
  kz::platform::CivilTime t;
  t.Year = static_cast<int>((dos >> 25) & 0x7F) + 1980;
  t.Month = static_cast<int>((dos >> 21) & 0x0F);
  t.Day = static_cast<int>((dos >> 16) & 0x1F);
  t.Hour = static_cast<int>((dos >> 11) & 0x1F);
  t.Minute = static_cast<int>((dos >> 5) & 0x3F);
  t.Second = static_cast<int>((dos & 0x1F) * 2);
  if (t.Month < 1 || t.Month > 12 || t.Day == 0 || t.Hour > 23 || t.Minute > 59 || t.Second > 59) {
    return -1;
  }
  return kz::platform::UnixFromLocal(t);
}

uint32_t UnixToDosTime(int64_t unixTime) {
  kz::platform::CivilTime t;
  if (!kz::platform::LocalFromUnix(unixTime, t) || t.Year < 1980) return (0u << 25) | (1u << 21) | (1u << 16);
  if (t.Year > 1980 + 127) return (127u << 25) | (12u << 21) | (31u << 16) | (23u << 11) | (59u << 5) | 29u;
  return (static_cast<uint32_t>(t.Year - 1980) << 25) | (static_cast<uint32_t>(t.Month) << 21) |
         (static_cast<uint32_t>(t.Day) << 16) | (static_cast<uint32_t>(t.Hour) << 11) |
         (static_cast<uint32_t>(t.Minute) << 5) | static_cast<uint32_t>(t.Second / 2);
}

}  // namespace kz
