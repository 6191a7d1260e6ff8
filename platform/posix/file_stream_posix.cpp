// FileStream over POSIX file descriptors. Failures leave the Win32 form of
// errno in the thread's last error, which SetSystemError reads.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <cwchar>

#include "enginelib/file_stream.h"
#include "enginelib/names.h"

namespace {
constexpr uint32_t kWriteBehindBytes = 8u << 20;
}  // namespace

namespace {

BOOL Fail() {
  SetLastError(kz::platform::Win32ErrorFromErrno(errno));
  return 0;
}

std::string SystemPath(const wchar_t* path) {
  if (path != nullptr && std::wcsncmp(path, L"\\\\?\\", 4) == 0) path += 4;
  return kz::platform::ToSystemPath(path);
}

}  // namespace

FileStream::FileStream() : fd_(-1) {}

FileStream::~FileStream() {
  Close();
  delete[] window_;
}

BOOL FileStream::NotOpen() {
  errno = EBADF;
  return Fail();
}

bool FileStream::IsOpen() const { return fd_ >= 0; }

BOOL FileStream::Open(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
                      DWORD flags, intptr_t reserved) {
  if (disposition != OPEN_EXISTING) return Create(path, access, share, disposition, flags, reserved);
  Close();
  name_ = path;
  ResetPosition();
  if (kz::fault::ShouldFail(kz::fault::kOpen)) return 0;
  int mode = (access & GENERIC_WRITE) ? ((access & GENERIC_READ) ? O_RDWR : O_WRONLY) : O_RDONLY;
  int fd = ::open(SystemPath(path).c_str(), mode | O_CLOEXEC);
  if (fd < 0) return Fail();
  struct stat st;
  if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    int err = S_ISDIR(st.st_mode) ? EISDIR : errno;
    ::close(fd);
    errno = err;
    return Fail();
  }
  fd_ = fd;
  return 1;
}

BOOL FileStream::Create(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
                        DWORD attributes, intptr_t reserved) {
  Close();
  name_ = path;
  ResetPosition();
  if (kz::fault::ShouldFail(kz::fault::kCreate)) return 0;
  int mode = (access & GENERIC_READ) && (access & GENERIC_WRITE) ? O_RDWR
             : (access & GENERIC_WRITE)                          ? O_WRONLY
                                                                 : O_RDONLY;
  int how = 0;
  switch (disposition) {
    case CREATE_NEW: how = O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS: how = O_CREAT | O_TRUNC; break;
    case OPEN_ALWAYS: how = O_CREAT; break;
    case OPEN_EXISTING: how = 0; break;
    default: errno = EINVAL; return Fail();
  }
  mode_t perms = (attributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;
  int fd = ::open(SystemPath(path).c_str(), mode | how | O_CLOEXEC | O_NOFOLLOW, perms);
  if (fd < 0) return Fail();
  fd_ = fd;
  return 1;
}

BOOL FileStream::RawReadAt(uint64_t offset, uint8_t* out, uint32_t length, uint32_t* done) {
  *done = 0;
  while (*done < length) {
    const ssize_t n = ::pread(fd_, out + *done, length - *done, static_cast<off_t>(offset + *done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return Fail();
    }
    if (n == 0) break;
    *done += static_cast<uint32_t>(n);
  }
  return 1;
}

BOOL FileStream::RawWriteAt(uint64_t offset, const uint8_t* in, uint32_t length, uint32_t* done) {
  *done = 0;
  while (*done < length) {
    const ssize_t n = ::pwrite(fd_, in + *done, length - *done, static_cast<off_t>(offset + *done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return Fail();
    }
    *done += static_cast<uint32_t>(n);
  }
  if (writeBehind_ && (unsent_ += *done) >= kWriteBehindBytes) {
    // Starts writeback of the dirty pages and returns; a failure here only
    // leaves the work to the final flush.
    ::sync_file_range(fd_, 0, 0, SYNC_FILE_RANGE_WRITE);
    unsent_ = 0;
  }
  return 1;
}

BOOL FileStream::RawTruncate(uint64_t size) {
  if (::ftruncate(fd_, static_cast<off_t>(size)) != 0) return Fail();
  return 1;
}

void FileStream::Close() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
  ResetPosition();
}

BOOL FileStream::GetSize(uint64_t* size) {
  struct stat st;
  if (fd_ < 0 || fstat(fd_, &st) != 0) return Fail();
  if (size) *size = static_cast<uint64_t>(st.st_size);
  return 1;
}

BOOL FileStream::GetDosDateTime(uint16_t* date, uint16_t* time) {
  struct stat st;
  if (fd_ < 0 || fstat(fd_, &st) != 0) return Fail();
  uint32_t dos = kz::UnixToDosTime(static_cast<int64_t>(st.st_mtime));
  if (date) *date = static_cast<uint16_t>(dos >> 16);
  if (time) *time = static_cast<uint16_t>(dos & 0xFFFF);
  return 1;
}

BOOL FileStream::Flush() {
  if (fd_ < 0) {
    errno = EBADF;
    return Fail();
  }
  if (::fsync(fd_) != 0) return Fail();
  return 1;
}

// Through the descriptor: no path is resolved again (nothing planted since
// can be reached), and it spares three system calls per extracted member.
BOOL FileStream::CloseStamped(int64_t unixTime, uint32_t permissions) {
  const BOOL ok = !kz::fault::ShouldFail(kz::fault::kWrite) && (unixTime < 0 || SetModTime(unixTime)) &&
                  (::fchmod(fd_, static_cast<mode_t>(permissions & 07777)) == 0 || Fail());
  Close();
  return ok;
}

BOOL FileStream::SetModTime(int64_t unixTime) {
  if (fd_ < 0) {
    errno = EBADF;
    return Fail();
  }
  struct timespec times[2];
  times[0].tv_sec = static_cast<time_t>(unixTime);
  times[0].tv_nsec = 0;
  times[1] = times[0];
  if (::futimens(fd_, times) != 0) return Fail();
  return 1;
}
