// Local time through the C library (the TZ variable and /etc/localtime).
#include <sys/stat.h>

#include <ctime>

#include "platform/local_time.h"
#include "platform/win32_compat.h"

namespace kz::platform {

bool LocalFromUnix(int64_t unixTime, CivilTime& local) {
  time_t t = static_cast<time_t>(unixTime);
  struct tm tm {};
  if (localtime_r(&t, &tm) == nullptr) return false;
  local = CivilTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
  return true;
}

int64_t UnixFromLocal(const CivilTime& local) {
  // mktime looks at the zone file again on every call (a system call each);
  // the members of an archive mostly share a few time stamps.
  thread_local CivilTime lastLocal{0, 0, 0, 0, 0, 0};
  thread_local int64_t lastResult = -1;
  if (local.Year == lastLocal.Year && local.Month == lastLocal.Month && local.Day == lastLocal.Day &&
      local.Hour == lastLocal.Hour && local.Minute == lastLocal.Minute &&
      local.Second == lastLocal.Second) {
    return lastResult;
  }
  struct tm tm {};
  tm.tm_year = local.Year - 1900;
  tm.tm_mon = local.Month - 1;
  tm.tm_mday = local.Day;
  tm.tm_hour = local.Hour;
  tm.tm_min = local.Minute;
  tm.tm_sec = local.Second;
  tm.tm_isdst = -1;
  lastResult = static_cast<int64_t>(mktime(&tm));
  lastLocal = local;
  return lastResult;
}

int64_t UtcOffsetAt(int64_t unixTime) {
  time_t t = static_cast<time_t>(unixTime);
  struct tm tm {};
  if (localtime_r(&t, &tm) == nullptr) return 0;
  return static_cast<int64_t>(tm.tm_gmtoff);
}

bool FileSizeOf(const wchar_t* path, uint64_t* size) {
  struct stat st;
  if (stat(ToSystemPath(path).c_str(), &st) != 0) return false;
  *size = static_cast<uint64_t>(st.st_size);
  return true;
}

}  // namespace kz::platform
