// Helpers shared by the Windows side of the platform layer (not exported).
#pragma once

#include <cstdint>

#include "platform/win32_compat.h"

namespace kz::platform::win32 {

// Seconds between 1601-01-01 (FILETIME's origin) and 1970-01-01.
constexpr int64_t kEpochDelta = 11644473600;
constexpr int64_t kTicksPerSecond = 10000000;

inline bool FileTimeFromUnix(int64_t unixTime, FILETIME& ft) {
  if (unixTime < -kEpochDelta || unixTime > INT64_MAX / kTicksPerSecond - kEpochDelta) return false;
  uint64_t ticks = static_cast<uint64_t>(unixTime + kEpochDelta) * kTicksPerSecond;
  ft.dwLowDateTime = static_cast<DWORD>(ticks);
  ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
  return true;
}

// Whole seconds, rounded down as st_mtime is.
inline int64_t UnixFromFileTime(const FILETIME& ft) {
  uint64_t ticks = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
  return static_cast<int64_t>(ticks / kTicksPerSecond) - kEpochDelta;
}

// A file handle closed with its owner.
class Handle {
 public:
  explicit Handle(HANDLE h = INVALID_HANDLE_VALUE) : h_(h) {}
  ~Handle() {
    if (valid()) CloseHandle(h_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  void reset(HANDLE h) {
    if (valid()) CloseHandle(h_);
    h_ = h;
  }
  bool valid() const { return h_ != INVALID_HANDLE_VALUE && h_ != nullptr; }
  HANDLE get() const { return h_; }

 private:
  HANDLE h_;
};

// Every share mode: the engine's files may be renamed or removed while
// open, as on POSIX.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Opens path itself for its metadata: directories too, and a final link
// as the link when openLink is set. Fails with the system's last error.
inline HANDLE OpenForMetadata(const wchar_t* path, DWORD access, bool openLink) {
  DWORD flags = FILE_FLAG_BACKUP_SEMANTICS | (openLink ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
  return CreateFileW(ToSystemPath(path).c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags,
                     nullptr);
}

// True for the reparse points that act as links (symbolic links and
// junctions); other reparse points (deduplicated or cloud files) are
// ordinary files to the engine.
inline bool IsLinkHandle(HANDLE h) {
  FILE_ATTRIBUTE_TAG_INFO tag{};
  if (!GetFileInformationByHandleEx(h, FileAttributeTagInfo, &tag, sizeof tag)) return false;
  if ((tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  return tag.ReparseTag == IO_REPARSE_TAG_SYMLINK || tag.ReparseTag == IO_REPARSE_TAG_MOUNT_POINT;
}

}  // namespace kz::platform::win32
