// FileStream over Win32 file handles. Failures leave the system's error in
// GetLastError(), which SetSystemError reads. Every handle shares delete
// access so that a file may be replaced or removed while another stream
// reads it, as on POSIX.
#include <cstring>

#include "enginelib/file_stream.h"
#include "enginelib/names.h"
#include "platform/fs.h"
#include "platform/win32/win32_util.h"

namespace {

using kz::platform::win32::FileTimeFromUnix;
using kz::platform::win32::UnixFromFileTime;

HANDLE AsHandle(void* h) { return static_cast<HANDLE>(h); }

// Reads and writes at an explicit offset: the handle's own file pointer is
// never relied on.
OVERLAPPED At(uint64_t offset) {
  OVERLAPPED o{};
  o.Offset = static_cast<DWORD>(offset);
  o.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return o;
}

}  // namespace

FileStream::FileStream() : handle_(INVALID_HANDLE_VALUE) {}

FileStream::~FileStream() {
  Close();
  delete[] window_;
}

BOOL FileStream::NotOpen() {
  SetLastError(ERROR_INVALID_HANDLE);
  return 0;
}

bool FileStream::IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }

BOOL FileStream::Open(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
                      DWORD flags, intptr_t reserved) {
  if (disposition != OPEN_EXISTING) return Create(path, access, share, disposition, flags, reserved);
  Close();
  name_ = path;
  ResetPosition();
  if (kz::fault::ShouldFail(kz::fault::kOpen)) return 0;
  // A directory fails here with ERROR_ACCESS_DENIED (no backup semantics).
  HANDLE h = CreateFileW(kz::platform::ToSystemPath(path).c_str(), access,
                         share | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  if (h == INVALID_HANDLE_VALUE) return 0;
  handle_ = h;
  return 1;
}

BOOL FileStream::Create(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
                        DWORD attributes, intptr_t) {
  Close();
  name_ = path;
  ResetPosition();
  if (kz::fault::ShouldFail(kz::fault::kCreate)) return 0;
  DWORD attrs = attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN);
  // The link itself is opened, never its target: a link where a new file
  // goes is refused, as O_NOFOLLOW refuses it on POSIX.
  HANDLE h = CreateFileW(kz::platform::ToSystemPath(path).c_str(), access,
                         share | FILE_SHARE_DELETE, nullptr, disposition,
                         (attrs != 0 ? attrs : FILE_ATTRIBUTE_NORMAL) | FILE_FLAG_OPEN_REPARSE_POINT,
                         nullptr);
  if (h == INVALID_HANDLE_VALUE) return 0;
  if (kz::platform::win32::IsLinkHandle(h)) {
    CloseHandle(h);
    SetLastError(ERROR_CANT_RESOLVE_FILENAME);
    return 0;
  }
  handle_ = h;
  return 1;
}

// ReadFile and WriteFile take 32-bit counts and may deliver less than asked.
BOOL FileStream::RawReadAt(uint64_t offset, uint8_t* out, uint32_t length, uint32_t* done) {
  *done = 0;
  while (*done < length) {
    DWORD got = 0;
    OVERLAPPED at = At(offset + *done);
    if (!ReadFile(AsHandle(handle_), out + *done, length - *done, &got, &at)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      return 0;
    }
    if (got == 0) break;
    *done += got;
  }
  return 1;
}

BOOL FileStream::RawWriteAt(uint64_t offset, const uint8_t* in, uint32_t length, uint32_t* done) {
  *done = 0;
  while (*done < length) {
    DWORD put = 0;
    OVERLAPPED at = At(offset + *done);
    if (!WriteFile(AsHandle(handle_), in + *done, length - *done, &put, &at)) return 0;
    if (put == 0) {
      SetLastError(ERROR_DISK_FULL);
      return 0;
    }
    *done += put;
  }
  return 1;
}

BOOL FileStream::RawTruncate(uint64_t size) {
  LARGE_INTEGER end{};
  end.QuadPart = static_cast<LONGLONG>(size);
  return SetFilePointerEx(AsHandle(handle_), end, nullptr, FILE_BEGIN) &&
                 SetEndOfFile(AsHandle(handle_))
             ? 1
             : 0;
}

void FileStream::Close() {
  if (IsOpen()) {
    CloseHandle(AsHandle(handle_));
    handle_ = INVALID_HANDLE_VALUE;
  }
  ResetPosition();
}

BOOL FileStream::GetSize(uint64_t* size) {
  if (!IsOpen()) return NotOpen();
  LARGE_INTEGER li{};
  if (!GetFileSizeEx(AsHandle(handle_), &li)) return 0;
  if (size) *size = static_cast<uint64_t>(li.QuadPart);
  return 1;
}

BOOL FileStream::GetDosDateTime(uint16_t* date, uint16_t* time) {
  if (!IsOpen()) return NotOpen();
  FILETIME written;
  if (!GetFileTime(AsHandle(handle_), nullptr, nullptr, &written)) return 0;
  // The zone's rules for the file's own date (as localtime does on POSIX),
  // not today's offset that FileTimeToLocalFileTime would apply.
  SYSTEMTIME utc;
  SYSTEMTIME local;
  FILETIME localTime;
  WORD dosDate = 0;
  WORD dosTime = 0;
  if (FileTimeToSystemTime(&written, &utc) && SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) &&
      SystemTimeToFileTime(&local, &localTime) && FileTimeToDosDateTime(&localTime, &dosDate, &dosTime)) {
    if (date) *date = dosDate;
    if (time) *time = dosTime;
    return 1;
  }
  // Outside 1980..2107: clamped as on POSIX.
  uint32_t dos = kz::UnixToDosTime(UnixFromFileTime(written));
  if (date) *date = static_cast<uint16_t>(dos >> 16);
  if (time) *time = static_cast<uint16_t>(dos & 0xFFFF);
  return 1;
}

BOOL FileStream::Flush() {
  if (!IsOpen()) return NotOpen();
  return FlushFileBuffers(AsHandle(handle_)) ? 1 : 0;
}

// By path once closed: the attributes want a handle that may read them,
// which the written one is not.
BOOL FileStream::CloseStamped(int64_t unixTime, uint32_t permissions) {
  Close();
  const wchar_t* path = name_.c_str();
  return (unixTime < 0 || kz::fs::SetModTime(path, unixTime)) && kz::fs::SetPermissions(path, permissions);
}

BOOL FileStream::SetModTime(int64_t unixTime) {
  if (!IsOpen()) return NotOpen();
  FILETIME ft;
  if (!FileTimeFromUnix(unixTime, ft)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  return SetFileTime(AsHandle(handle_), nullptr, &ft, &ft) ? 1 : 0;
}
