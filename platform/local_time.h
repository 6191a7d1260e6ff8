// Local time of the machine's time zone, and the size of a file by name:
// the two system questions the library's generic code asks outside the
// file-system layer (platform/fs.h).
#pragma once

#include <cstdint>

#include "platform/kzlib_api.h"

namespace kz::platform {

// Broken-down civil time; Month 1..12, Day 1..31.
struct CivilTime {
  int Year = 1970;
  int Month = 1;
  int Day = 1;
  int Hour = 0;
  int Minute = 0;
  int Second = 0;
};

// Unix seconds to local civil time; false when the system cannot tell.
KZLIB_API bool LocalFromUnix(int64_t unixTime, CivilTime& local);
// Local civil time to Unix seconds. Fields out of range carry over as
// mktime does (day 31 of a 30-day month is the next month's first); -1 when
// the system cannot tell.
KZLIB_API int64_t UnixFromLocal(const CivilTime& local);
// Seconds east of UTC in effect at unixTime.
KZLIB_API int64_t UtcOffsetAt(int64_t unixTime);

// Size of the file at path (engine form), following links; false when there
// is none. Outside the fault-injection seam: it only informs a listing.
KZLIB_API bool FileSizeOf(const wchar_t* path, uint64_t* size);

}  // namespace kz::platform
