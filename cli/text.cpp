#include "cli/text.h"

#include <cstdint>
#include <cstdio>

#include "platform/utf8.h"

namespace kzcli {

namespace {

constexpr uint32_t kRawByteBase = 0xDC00;

void AppendEscape(std::string& out, const char* format, uint32_t c) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, format, static_cast<unsigned>(c));
  out += buffer;
}

bool IsDirectionControl(uint32_t c) {
  return c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);
}

std::string Display(const wchar_t* text, bool separators) {
  std::string out;
  if (text == nullptr) return out;
  for (const wchar_t* p = text; *p != L'\0'; ++p) {
    uint32_t c = static_cast<uint32_t>(*p);
    if (c == '\\' && separators) {
      out.push_back('/');
    } else if (c >= kRawByteBase + 0x80 && c <= kRawByteBase + 0xFF) {
      AppendEscape(out, "\\x%02X", c - kRawByteBase);
    } else if (c < 0x20 || c == 0x7F) {
      AppendEscape(out, "\\x%02X", c);
    } else if ((c >= 0x80 && c < 0xA0) || IsDirectionControl(c) || (c >= 0xD800 && c <= 0xDFFF)) {
      AppendEscape(out, "\\u%04X", c);
    } else if (c > 0x10FFFF) {
      AppendEscape(out, "\\U%08X", c);
    } else {
      kz::utf8::Append(out, c);
    }
  }
  return out;
}

}  // namespace

std::wstring FromNative(const std::string& bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  for (size_t i = 0; i < bytes.size();) {
    uint32_t c = 0;
    size_t len = kz::utf8::Decode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), i, &c);
    if (len == 0) {
      out.push_back(static_cast<wchar_t>(kRawByteBase + static_cast<uint8_t>(bytes[i])));
      ++i;
    } else {
      if (sizeof(wchar_t) == 2 && c >= 0x10000) {  // UTF-16: a surrogate pair
        out.push_back(static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10)));
        c = 0xDC00 + ((c - 0x10000) & 0x3FF);
      }
      out.push_back(static_cast<wchar_t>(c));
      i += len;
    }
  }
  return out;
}

std::string ToNative(const std::wstring& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t c = static_cast<uint32_t>(text[i]);
    if (sizeof(wchar_t) == 2 && c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() &&
        text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {  // UTF-16: a surrogate pair
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint32_t>(text[++i]) - 0xDC00);
    }
    if (c >= kRawByteBase + 0x80 && c <= kRawByteBase + 0xFF) {
      out.push_back(static_cast<char>(c - kRawByteBase));
    } else if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
      kz::utf8::Append(out, 0xFFFD);
    } else {
      kz::utf8::Append(out, c);
    }
  }
  return out;
}

std::string DisplayName(const wchar_t* name) { return Display(name, true); }
std::string DisplayName(const std::wstring& name) { return Display(name.c_str(), true); }
std::string DisplayText(const wchar_t* text) { return Display(text, false); }

std::string JsonEscape(const std::string& utf8) {
  std::string out;
  out.reserve(utf8.size() + 2);
  for (char ch : utf8) {
    auto c = static_cast<uint8_t>(ch);
    if (ch == '"' || ch == '\\') {
      out.push_back('\\');
      out.push_back(ch);
    } else if (c < 0x20 || c == 0x7F) {
      AppendEscape(out, "\\u%04x", c);
    } else {
      out.push_back(ch);
    }
  }
  return out;
}

std::wstring BackslashSeparators(std::wstring text) {
  for (wchar_t& c : text) {
    if (c == L'/') c = L'\\';
  }
  return text;
}

}  // namespace kzcli
