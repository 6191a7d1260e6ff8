// The few Windows functions the engine calls, with one spelling on both
// platforms. On Windows these are the real ones; on Linux a small stand-in
// (posix/win32_compat.cpp) gives exactly the behaviour the engine relies
// on: Win32 error codes derived from errno, the attribute value
// 0xFFFFFFFF for "no such file" and the directory bit 0x10.
#pragma once

#include <cstdint>
#include <string>

#include "platform/kzlib_api.h"

#ifdef _WIN32
#include <windows.h>
#include <shlwapi.h>
// windows.h would rename these engine names to their A/W functions.
#undef CreateDirectory
#undef ReplaceFile
#else


using DWORD = uint32_t;
using UINT = uint32_t;
using BOOL = int;
using LPCWSTR = const wchar_t*;
using LPWSTR = wchar_t*;

constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;
constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr UINT SEM_FAILCRITICALERRORS = 0x0001;

constexpr DWORD GENERIC_READ = 0x80000000u;
constexpr DWORD GENERIC_WRITE = 0x40000000u;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_CRC = 23;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_HANDLE_EOF = 38;
constexpr DWORD ERROR_HANDLE_DISK_FULL = 39;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_FILE_TOO_LARGE = 223;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;
constexpr DWORD ERROR_GEN_FAILURE = 31;

extern "C++" {
KZLIB_API DWORD GetFileAttributesW(LPCWSTR path);
KZLIB_API UINT SetErrorMode(UINT mode);
KZLIB_API DWORD GetLastError();
KZLIB_API void SetLastError(DWORD code);
KZLIB_API BOOL PathIsUNCW(LPCWSTR path);
KZLIB_API BOOL PathRemoveFileSpecW(LPWSTR path);
KZLIB_API LPWSTR PathFindFileNameW(LPCWSTR path);
KZLIB_API LPWSTR CharPrevW(LPCWSTR start, LPCWSTR current);
KZLIB_API int lstrlenA(const char* s);
KZLIB_API int lstrlenW(LPCWSTR s);
}

#endif  // _WIN32

namespace kz::platform {

#ifdef _WIN32
// The engine's path as the system wants it: every "/" becomes "\", and a
// path too long for the classic limit is made absolute and given the
// "\\?\" (or "\\?\UNC\") form; a path in that form already stays as it is.
KZLIB_API std::wstring ToSystemPath(const wchar_t* path);
#else
// Win32 error code for an errno value.
KZLIB_API uint32_t Win32ErrorFromErrno(int err);

// The engine's backslashed path as the system wants it: every backslash
// becomes "/" and the text becomes UTF-8; the characters U+DC80..U+DCFF
// carry raw bytes that did not decode and go back as those bytes.
KZLIB_API std::string ToSystemPath(const wchar_t* path);
KZLIB_API std::wstring FromSystemPath(const std::string& path);
#endif

}  // namespace kz::platform
