// The library's file stream: the calls the engine makes, with the Win32
// argument conventions on both platforms. Every operation reports success
// as nonzero; after a failure GetLastError() gives the system error that
// KzArchiver::SetSystemError turns into a status.
#pragma once

#include <cstdint>

#include "enginelib/path_string.h"

class KZLIB_API FileStream {
 public:
  FileStream();
  ~FileStream();
  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;

  // Opens an existing file (disposition OPEN_EXISTING) or, with other
  // dispositions, behaves as Create.
  BOOL Open(const wchar_t* path, DWORD access, DWORD share, DWORD disposition, DWORD flags,
            intptr_t reserved);
  BOOL Create(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
              DWORD attributes, intptr_t reserved);
  // A short read at the end of the file succeeds; the bytes not delivered
  // are zero-filled so that callers who do not ask for the count see zeros.
  BOOL Read(void* buffer, uint32_t length, uint32_t* countRead, intptr_t reserved);
  BOOL Write(const void* buffer, uint32_t length, uint32_t* countWritten, intptr_t reserved);
  // origin: 0 start, 1 current, 2 end.
  BOOL Seek(int64_t offset, uint32_t origin, intptr_t reserved);
  void Close();
  uint64_t GetPosition();
  BOOL GetSize(uint64_t* size);
  BOOL SetEnd();
  BOOL GetDosDateTime(uint16_t* date, uint16_t* time);
  const wchar_t* GetName() const { return name_.c_str(); }

  // Library extras.
  bool IsOpen() const;
  // Reads at an offset without regard to the current position.
  BOOL ReadAt(uint64_t offset, void* buffer, uint32_t length, uint32_t* countRead);
  // Forces written data to the disk.
  BOOL Flush();
  // Sets the file's modification time (Unix seconds).
  BOOL SetModTime(int64_t unixTime);
  // Closes a file just written, leaving it with the modification time
  // (none when negative) and the Unix permission bits given; on Windows
  // only "not writable" has a form. The file is closed even on failure.
  BOOL CloseStamped(int64_t unixTime, uint32_t permissions);
  // For a file that is forced to disk once complete: written data starts
  // on its way to the disk every few MiB, so that the final flush waits
  // for little more than the last of it. Stays set across Create and Close.
  void SetWriteBehind(bool on) { writeBehind_ = on; }

 private:
  // The stream keeps its own position and does all I/O at explicit offsets.
  // Reads of up to half the window (header fields, names, a decoder's
  // 8000-byte chunks) are served from a window read ahead of them, so that a
  // scan over many members does not cost a system call per field, nor a
  // decoder one per chunk; larger reads and all writes go straight to the
  // file, and a write drops the window.
  static constexpr uint32_t kWindowBytes = 16384;
  static constexpr uint32_t kSmallRead = 8192;
  BOOL ReadFrom(uint64_t offset, uint8_t* out, uint32_t length, uint32_t* done);
  void ResetPosition();
  // The system's side (file_stream_posix.cpp, file_stream_win32.cpp): reads
  // until `length` bytes or the end of the file, writes all or fails.
  BOOL RawReadAt(uint64_t offset, uint8_t* out, uint32_t length, uint32_t* done);
  BOOL RawWriteAt(uint64_t offset, const uint8_t* in, uint32_t length, uint32_t* done);
  BOOL RawTruncate(uint64_t size);
  static BOOL NotOpen();

  uint64_t position_ = 0;
  uint8_t* window_ = nullptr;  // kWindowBytes, allocated on first use
  uint64_t windowStart_ = 0;
  uint32_t windowLength_ = 0;  // 0: nothing read ahead
#ifdef _WIN32
  void* handle_;
#else
  int fd_;
  uint32_t unsent_ = 0;  // bytes written since writeback was last started
#endif
  bool writeBehind_ = false;
  PathString name_;
};

// Test seam: make the Nth I/O call (counting from 1) of the given kinds
// fail with a system error, to prove that every failure path is a path.
namespace kz::fault {
enum IoKind : uint32_t {
  kOpen = 1,
  kCreate = 2,
  kRead = 4,
  kWrite = 8,
  kSeek = 16,
  kTruncate = 32,
  kRename = 64,
  kAll = 127
};
// Arms the injector: the nth matching call fails (n = 0 disarms).
KZLIB_API void Arm(uint64_t n, uint32_t kinds);
KZLIB_API void Disarm();
// Matching calls seen since Arm (to size a sweep).
KZLIB_API uint64_t CallsSeen();
// True when the current call of this kind must fail (sets the last error).
KZLIB_API bool ShouldFail(IoKind kind);
}  // namespace kz::fault
