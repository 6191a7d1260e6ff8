// Linux stand-ins for the Windows functions the engine calls. Only the
// behaviour the engine relies on is reproduced.
#include "platform/win32_compat.h"

#include "platform/utf8.h"

#include <errno.h>
#include <sys/stat.h>

#include <cstring>
#include <cwchar>

namespace {

thread_local DWORD g_lastError = 0;
thread_local UINT g_errorMode = 0;

}  // namespace

namespace kz::platform {

uint32_t Win32ErrorFromErrno(int err) {
  switch (err) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case EROFS: return ERROR_WRITE_PROTECT;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EBUSY:
    case ETXTBSY: return ERROR_SHARING_VIOLATION;
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL;
    case EFBIG: return ERROR_FILE_TOO_LARGE;
    case EEXIST: return ERROR_FILE_EXISTS;
    case ENAMETOOLONG:
    case EILSEQ: return ERROR_INVALID_NAME;
    case ELOOP: return ERROR_CANT_RESOLVE_FILENAME;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case ENOTSUP: return ERROR_NOT_SUPPORTED;
    default: return ERROR_GEN_FAILURE;
  }
}

std::string ToSystemPath(const wchar_t* path) {
  std::string out;
  if (path == nullptr) return out;
  for (const wchar_t* p = path; *p; ++p) {
    uint32_t c = static_cast<uint32_t>(*p);
    if (c == L'\\') c = L'/';
    if (c >= 0xDC80 && c <= 0xDCFF) {  // a raw byte that did not decode
      out.push_back(static_cast<char>(c - 0xDC00));
    } else {
      kz::utf8::Append(out, c);
    }
  }
  return out;
}

std::wstring FromSystemPath(const std::string& path) {
  // UTF-8 to wide; bytes that are not valid UTF-8 become U+DC80..U+DCFF.
  std::wstring out;
  const auto* s = reinterpret_cast<const unsigned char*>(path.data());
  size_t n = path.size();
  for (size_t i = 0; i < n;) {
    uint32_t cp = 0;
    const size_t len = kz::utf8::Decode(s, n, i, &cp);
    if (len == 0) {
      out.push_back(static_cast<wchar_t>(0xDC00 + s[i]));
      ++i;
      continue;
    }
    out.push_back(static_cast<wchar_t>(cp));
    i += len;
  }
  return out;
}

}  // namespace kz::platform

DWORD GetLastError() { return g_lastError; }
void SetLastError(DWORD code) { g_lastError = code; }

UINT SetErrorMode(UINT mode) {
  UINT previous = g_errorMode;
  g_errorMode = mode;
  return previous;
}

DWORD GetFileAttributesW(LPCWSTR path) {
  // The long-path prefix means nothing here.
  if (path != nullptr && std::wcsncmp(path, L"\\\\?\\", 4) == 0) path += 4;
  std::string sys = kz::platform::ToSystemPath(path);
  struct stat st;
  if (sys.empty()) {
    SetLastError(ERROR_INVALID_NAME);
    return INVALID_FILE_ATTRIBUTES;
  }
  if (stat(sys.c_str(), &st) != 0) {
    SetLastError(kz::platform::Win32ErrorFromErrno(errno));
    return INVALID_FILE_ATTRIBUTES;
  }
  DWORD attributes = 0;
  if (S_ISDIR(st.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
  if ((st.st_mode & S_IWUSR) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
  if (!S_ISDIR(st.st_mode)) attributes |= FILE_ATTRIBUTE_ARCHIVE;
  return attributes;
}

BOOL PathIsUNCW(LPCWSTR path) {
  // "\\server\share" and "\\?\UNC\server\share"; a plain "\\?\" path is not UNC.
  if (path == nullptr || path[0] != L'\\' || path[1] != L'\\') return 0;
  if (path[2] == L'?' && path[3] == L'\\') {
    return std::wcsncmp(path + 4, L"UNC\\", 4) == 0 ? 1 : 0;
  }
  return 1;
}

BOOL PathRemoveFileSpecW(LPWSTR path) {
  // Removes the last component and its separator; keeps a root ("\" or
  // "X:\"). Returns nonzero when something was removed.
  if (path == nullptr || path[0] == 0) return 0;
  size_t len = std::wcslen(path);
  wchar_t* lastSep = nullptr;
  for (wchar_t* p = path; *p; ++p) {
    if (*p == L'\\') lastSep = p;
  }
  if (lastSep == nullptr) {
    // "X:" or "X:name" keeps the drive; a bare name goes entirely.
    if (len >= 2 && path[1] == L':') {
      if (len == 2) return 0;
      path[2] = 0;
      return 1;
    }
    path[0] = 0;
    return 1;
  }
  if (lastSep == path) {  // "\name" -> "\", "\" stays
    if (path[1] == 0) return 0;
    path[1] = 0;
    return 1;
  }
  if (lastSep == path + 2 && path[1] == L':') {  // "X:\name" -> "X:\"
    if (path[3] == 0) return 0;
    path[3] = 0;
    return 1;
  }
  *lastSep = 0;
  return 1;
}

LPWSTR PathFindFileNameW(LPCWSTR path) {
  if (path == nullptr) return nullptr;
  const wchar_t* name = path;
  for (const wchar_t* p = path; *p; ++p) {
    if ((*p == L'\\' || *p == L'/' || *p == L':') && p[1] != 0 && p[1] != L'\\' &&
        p[1] != L'/') {
      name = p + 1;
    }
  }
  return const_cast<LPWSTR>(name);
}

LPWSTR CharPrevW(LPCWSTR start, LPCWSTR current) {
  if (current <= start) return const_cast<LPWSTR>(start);
  return const_cast<LPWSTR>(current - 1);
}

int lstrlenA(const char* s) { return s == nullptr ? 0 : static_cast<int>(std::strlen(s)); }
int lstrlenW(LPCWSTR s) { return s == nullptr ? 0 : static_cast<int>(std::wcslen(s)); }
