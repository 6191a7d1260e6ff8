// The system-independent half of FileStream: the position, the read-ahead
// window, and the operations built on them.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "enginelib/file_stream.h"

void FileStream::ResetPosition() {
  position_ = 0;
  windowLength_ = 0;
}

// A short result means the end of the file; a window shorter than its
// capacity ended there too.
BOOL FileStream::ReadFrom(uint64_t offset, uint8_t* out, uint32_t length, uint32_t* done) {
  *done = 0;
  if (length > kSmallRead) return RawReadAt(offset, out, length, done);
  if (windowLength_ == 0 || offset < windowStart_ || offset - windowStart_ >= windowLength_ ||
      (offset - windowStart_ + length > windowLength_ && windowLength_ == kWindowBytes)) {
    if (window_ == nullptr) window_ = new (std::nothrow) uint8_t[kWindowBytes];
    if (window_ == nullptr) return RawReadAt(offset, out, length, done);
    windowLength_ = 0;
    uint32_t got = 0;
    if (!RawReadAt(offset, window_, kWindowBytes, &got)) return 0;
    windowStart_ = offset;
    windowLength_ = got;
    if (got == 0) return 1;
  }
  const uint64_t from = offset - windowStart_;
  *done = static_cast<uint32_t>(std::min<uint64_t>(length, windowLength_ - from));
  std::memcpy(out, window_ + from, *done);
  return 1;
}

BOOL FileStream::ReadAt(uint64_t offset, void* buffer, uint32_t length, uint32_t* countRead) {
  if (countRead) *countRead = 0;
  if (!IsOpen()) return NotOpen();
  if (kz::fault::ShouldFail(kz::fault::kRead)) return 0;
  auto* out = static_cast<uint8_t*>(buffer);
  uint32_t done = 0;
  if (!ReadFrom(offset, out, length, &done)) return 0;
  // A short read at the end succeeds, the rest zero-filled.
  if (done < length) std::memset(out + done, 0, length - done);
  if (countRead) *countRead = done;
  return 1;
}

BOOL FileStream::Read(void* buffer, uint32_t length, uint32_t* countRead, intptr_t) {
  uint32_t done = 0;
  const BOOL ok = ReadAt(position_, buffer, length, &done);
  position_ += done;
  if (countRead) *countRead = done;
  return ok;
}

BOOL FileStream::Write(const void* buffer, uint32_t length, uint32_t* countWritten, intptr_t) {
  if (countWritten) *countWritten = 0;
  if (!IsOpen()) return NotOpen();
  if (kz::fault::ShouldFail(kz::fault::kWrite)) return 0;
  windowLength_ = 0;
  uint32_t done = 0;
  const BOOL ok = RawWriteAt(position_, static_cast<const uint8_t*>(buffer), length, &done);
  position_ += done;
  if (countWritten) *countWritten = done;
  return ok;
}

BOOL FileStream::Seek(int64_t offset, uint32_t origin, intptr_t) {
  if (!IsOpen()) return NotOpen();
  if (kz::fault::ShouldFail(kz::fault::kSeek)) return 0;
  int64_t base = 0;
  if (origin == 1) {
    base = static_cast<int64_t>(position_);
  } else if (origin == 2) {
    uint64_t size = 0;
    if (!GetSize(&size)) return 0;
    base = static_cast<int64_t>(size);
  } else if (origin != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  // Neither before the start nor past what a file offset can hold.
  if (offset < 0 ? base + offset < 0 : base > INT64_MAX - offset) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  position_ = static_cast<uint64_t>(base + offset);
  return 1;
}

uint64_t FileStream::GetPosition() { return IsOpen() ? position_ : 0; }

BOOL FileStream::SetEnd() {
  if (!IsOpen()) return NotOpen();
  if (kz::fault::ShouldFail(kz::fault::kTruncate)) return 0;
  windowLength_ = 0;
  return RawTruncate(position_);
}
