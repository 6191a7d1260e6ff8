#include "cli/text.h"

#include <cstdint>
#include <cstdio>

namespace kzcli {

namespace {

constexpr uint32_t kRawByteBase = 0xDC00;

void AppendUtf8(std::string& out, uint32_t c) {
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

// Decodes one UTF-8 sequence at s[i]; returns its length, or 0 when the
// bytes there are not a valid, shortest-form encoding of a scalar value.
size_t DecodeUtf8(const std::string& s, size_t i, uint32_t* out) {
  const auto byte = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
  uint8_t b0 = byte(i);
  if (b0 < 0x80) {
    *out = b0;
    return 1;
  }
  size_t len = b0 >= 0xF0 && b0 <= 0xF4 ? 4 : b0 >= 0xE0 ? 3 : b0 >= 0xC2 && b0 < 0xE0 ? 2 : 0;
  if (len == 0 || i + len > s.size()) return 0;
  uint32_t c = b0 & (0x7F >> len);
  for (size_t k = 1; k < len; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    c = (c << 6) | (byte(i + k) & 0x3F);
  }
  static const uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < kMin[len] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  *out = c;
  return len;
}

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
      AppendUtf8(out, c);
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
    size_t len = DecodeUtf8(bytes, i, &c);
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
      AppendUtf8(out, 0xFFFD);
    } else {
      AppendUtf8(out, c);
    }
  }
  return out;
}

std::filesystem::path NativePath(const std::string& bytes) {
#ifdef _WIN32
  return std::filesystem::path(FromNative(bytes));
#else
  return std::filesystem::path(bytes);
#endif
}

std::wstring EngineArchivePath(const std::string& bytes) {
#ifdef _WIN32
  std::error_code ec;
  std::filesystem::path full = std::filesystem::absolute(NativePath(bytes), ec);
  if (!ec) return full.wstring();
#endif
  return FromNative(bytes);
}

std::wstring EngineSourceBase() {
#ifdef _WIN32
  std::error_code ec;
  std::filesystem::path cwd = std::filesystem::current_path(ec);
  if (!ec) return cwd.wstring();
#endif
  return {};
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

}  // namespace kzcli
