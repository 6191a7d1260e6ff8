#include "enginelib/safe_path.h"

#include <kzlha/kzlha.h>

#include <string_view>
#include <vector>

namespace kz {
namespace {

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }
bool IsAsciiLetter(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); }
wchar_t AsciiLower(wchar_t c) { return (c >= L'A' && c <= L'Z') ? c + (L'a' - L'A') : c; }

bool EqualsNoCase(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

// "..", "...", ". ." and the like: Windows folds trailing dots and spaces
// away, so any of them can climb there; they are dropped everywhere so that
// both systems extract the same tree.
bool IsDotsAndSpaces(std::wstring_view c) {
  for (wchar_t ch : c) {
    if (ch != L'.' && ch != L' ') return false;
  }
  return true;
}

bool IsControl(wchar_t c) { return c < 0x20 || c == 0x7F || (c >= 0x80 && c <= 0x9F); }

struct Split {
  std::vector<std::wstring_view> Parts;
  bool Dropped = false;
};

// Length of a leading "\\?\" or "\\.\" prefix with an optional "UNC\" after
// it (0 if there is none).
size_t DevicePrefixLength(std::wstring_view s) {
  if (s.size() < 3 || !IsSeparator(s[0]) || !IsSeparator(s[1])) return 0;
  if (s[2] != L'?' && s[2] != L'.') return 0;
  if (s.size() > 3 && !IsSeparator(s[3])) return 0;
  size_t i = 3;
  while (i < s.size() && IsSeparator(s[i])) ++i;
  std::wstring_view rest = s.substr(i);
  if (rest.size() >= 3 && EqualsNoCase(rest.substr(0, 3), L"UNC") &&
      (rest.size() == 3 || IsSeparator(rest[3]))) {
    i += 3;
  }
  return i;
}

// The relative components of s: prefixes, roots, a drive, empty, "." and
// dot-only components removed.
Split SplitRelative(std::wstring_view s) {
  Split out;
  size_t i = DevicePrefixLength(s);
  if (i > 0 || (!s.empty() && IsSeparator(s[0]))) out.Dropped = true;
  bool first = true;
  while (i <= s.size()) {
    size_t end = i;
    while (end < s.size() && !IsSeparator(s[end])) ++end;
    std::wstring_view part = s.substr(i, end - i);
    if (first && part.size() >= 2 && IsAsciiLetter(part[0]) && part[1] == L':') {
      part.remove_prefix(2);
      out.Dropped = true;
    }
    if (!part.empty()) first = false;
    if (part == L".") {
      // harmless: "./x" is common in archives made from a current directory
    } else if (!part.empty() && IsDotsAndSpaces(part)) {
      out.Dropped = true;
    } else if (!part.empty()) {
      out.Parts.push_back(part);
    }
    i = end + 1;
  }
  return out;
}

void AppendSafe(std::wstring& out, std::wstring_view part) {
  for (wchar_t c : part) {
#ifdef _WIN32
    // Characters Windows refuses in names; ':' would open a data stream.
    if (c == L':' || c == L'*' || c == L'?' || c == L'"' || c == L'<' || c == L'>' || c == L'|') {
      c = L'_';
    }
#endif
    out.push_back(IsControl(c) ? L'_' : c);
  }
}

}  // namespace

SanitizeResult SanitizeMemberPath(const wchar_t* name, uint32_t pathMode) {
  SanitizeResult result;
  Split split = SplitRelative(name ? std::wstring_view(name) : std::wstring_view());
  result.Dropped = split.Dropped;
  if (split.Parts.empty()) return result;
  size_t from = pathMode == KZ_PATHS_NONE ? split.Parts.size() - 1 : 0;
  for (size_t k = from; k < split.Parts.size(); ++k) {
    if (!result.Path.empty()) result.Path.push_back(L'\\');
    AppendSafe(result.Path, split.Parts[k]);
  }
  return result;
}

std::wstring MakeRelativeName(const wchar_t* path) {
  Split split = SplitRelative(path ? std::wstring_view(path) : std::wstring_view());
  std::wstring out;
  for (std::wstring_view part : split.Parts) {
    if (!out.empty()) out.push_back(L'\\');
    out.append(part);
  }
  return out;
}

bool IsAbsolutePath(const wchar_t* path) {
  if (path == nullptr || path[0] == 0) return false;
  if (IsSeparator(path[0])) return true;
  return IsAsciiLetter(path[0]) && path[1] == L':';
}

std::wstring MemberNameKey(const wchar_t* name) {
  std::wstring key = name ? name : L"";
  for (wchar_t& c : key) c = (c == L'/') ? L'\\' : AsciiLower(c);
  return key;
}

bool SameMemberName(const wchar_t* a, const wchar_t* b) {
  if (a == nullptr || b == nullptr) return a == b;
  for (;; ++a, ++b) {
    wchar_t ca = *a == L'/' ? L'\\' : AsciiLower(*a);
    wchar_t cb = *b == L'/' ? L'\\' : AsciiLower(*b);
    if (ca != cb) return false;
    if (ca == 0) return true;
  }
}

}  // namespace kz
