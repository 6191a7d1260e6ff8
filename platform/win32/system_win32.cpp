// Windows: system path form, local time through the time-zone functions
// (the zone's rules for the date asked about), and file sizes.
#include <cwchar>
#include <string>

#include "platform/local_time.h"
#include "platform/win32/win32_util.h"

namespace kz::platform {

namespace {

using win32::FileTimeFromUnix;
using win32::UnixFromFileTime;

// Paths this long no longer fit the classic limit (MAX_PATH less room for
// an 8.3 name, as CreateDirectoryW counts).
constexpr size_t kClassicLimit = MAX_PATH - 12;

bool StartsWith(const std::wstring& s, const wchar_t* prefix) {
  return s.compare(0, std::wcslen(prefix), prefix) == 0;
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

// The civil fields read as if they were UTC, with carries: seconds since 1970.
int64_t CivilSeconds(const CivilTime& t) {
  int64_t months = static_cast<int64_t>(t.Year) * 12 + (t.Month - 1);
  int64_t year = months >= 0 ? months / 12 : (months - 11) / 12;
  int64_t month = months - year * 12 + 1;
  return (DaysFromCivil(year, month, 1) + t.Day - 1) * 86400 + int64_t{t.Hour} * 3600 +
         int64_t{t.Minute} * 60 + t.Second;
}

bool SystemTimeFromUnix(int64_t unixTime, SYSTEMTIME& st) {
  FILETIME ft;
  return FileTimeFromUnix(unixTime, ft) && FileTimeToSystemTime(&ft, &st);
}

}  // namespace

std::wstring ToSystemPath(const wchar_t* path) {
  std::wstring p = path != nullptr ? path : L"";
  for (wchar_t& c : p) {
    if (c == L'/') c = L'\\';
  }
  if (p.size() < kClassicLimit || StartsWith(p, L"\\\\?\\")) return p;
  DWORD need = GetFullPathNameW(p.c_str(), 0, nullptr, nullptr);
  if (need == 0) return p;
  std::wstring full(need, L'\0');
  DWORD got = GetFullPathNameW(p.c_str(), need, full.data(), nullptr);
  if (got == 0 || got >= need) return p;
  full.resize(got);
  if (StartsWith(full, L"\\\\.\\")) return full;  // a device path keeps its form
  if (StartsWith(full, L"\\\\")) return L"\\\\?\\UNC\\" + full.substr(2);
  return L"\\\\?\\" + full;
}

bool LocalFromUnix(int64_t unixTime, CivilTime& local) {
  SYSTEMTIME utc;
  SYSTEMTIME lt;
  if (!SystemTimeFromUnix(unixTime, utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &lt)) {
    return false;
  }
  local = CivilTime{lt.wYear, lt.wMonth, lt.wDay, lt.wHour, lt.wMinute, lt.wSecond};
  return true;
}

int64_t UnixFromLocal(const CivilTime& local) {
  // Carry the fields over first, then let the zone say which instant that
  // local time is.
  SYSTEMTIME lt;
  SYSTEMTIME utc;
  FILETIME ft;
  if (!SystemTimeFromUnix(CivilSeconds(local), lt) ||
      !TzSpecificLocalTimeToSystemTime(nullptr, &lt, &utc) || !SystemTimeToFileTime(&utc, &ft)) {
    return -1;
  }
  return UnixFromFileTime(ft);
}

int64_t UtcOffsetAt(int64_t unixTime) {
  CivilTime local;
  if (!LocalFromUnix(unixTime, local)) return 0;
  return CivilSeconds(local) - unixTime;
}

bool FileSizeOf(const wchar_t* path, uint64_t* size) {
  win32::Handle h(win32::OpenForMetadata(path, FILE_READ_ATTRIBUTES, false));
  LARGE_INTEGER li;
  if (!h.valid() || !GetFileSizeEx(h.get(), &li)) return false;
  *size = static_cast<uint64_t>(li.QuadPart);
  return true;
}

}  // namespace kz::platform
