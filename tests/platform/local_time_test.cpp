// Local time and DOS times, whatever the machine's time zone: conversions
// that go there and back arrive where they started, out-of-range fields
// carry over as mktime carries them, and DOS times outside 1980..2107 are
// clamped.
#include <gtest/gtest.h>

#include <cstdint>

#include "enginelib/names.h"
#include "platform/local_time.h"

namespace {

using kz::platform::CivilTime;

// Seconds since 1970 of civil fields read as UTC.
int64_t CivilSeconds(const CivilTime& t) {
  int64_t y = t.Year - (t.Month <= 2);
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (t.Month + (t.Month > 2 ? -3 : 9)) + 2) / 5 + t.Day - 1;
  int64_t days = era * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + doy - 719468;
  return days * 86400 + t.Hour * 3600 + t.Minute * 60 + t.Second;
}

constexpr uint32_t Dos(int year, int month, int day, int hour, int minute, int second) {
  return (static_cast<uint32_t>(year - 1980) << 25) | (static_cast<uint32_t>(month) << 21) |
         (static_cast<uint32_t>(day) << 16) | (static_cast<uint32_t>(hour) << 11) |
         (static_cast<uint32_t>(minute) << 5) | static_cast<uint32_t>(second / 2);
}

class Instants : public ::testing::TestWithParam<int64_t> {};

TEST_P(Instants, LocalTimeGoesThereAndBack) {
  const int64_t t = GetParam();
  CivilTime local;
  ASSERT_TRUE(kz::platform::LocalFromUnix(t, local));
  EXPECT_EQ(kz::platform::UnixFromLocal(local), t);
  const int64_t offset = kz::platform::UtcOffsetAt(t);
  EXPECT_EQ(CivilSeconds(local) - t, offset);
  EXPECT_LE(offset < 0 ? -offset : offset, 14 * 3600);
  EXPECT_EQ(offset % 60, 0);
}

// Noon in the middle of winter and of summer, far from any change of
// daylight-saving time, in years from 1980 on.
INSTANTIATE_TEST_SUITE_P(Noons, Instants,
                         ::testing::Values(316353600, 963403200, 1200398400, 1373889600,
                                           1705320000, 4103697600));

TEST(LocalTime, FieldsOutOfRangeCarryOver) {
  auto at = [](int y, int mo, int d, int h) { return kz::platform::UnixFromLocal({y, mo, d, h, 0, 0}); };
  EXPECT_EQ(at(2021, 4, 31, 12), at(2021, 5, 1, 12));
  EXPECT_EQ(at(2021, 2, 29, 12), at(2021, 3, 1, 12));
  EXPECT_EQ(at(2020, 2, 30, 12), at(2020, 3, 1, 12));
  EXPECT_EQ(at(2021, 13, 1, 12), at(2022, 1, 1, 12));
  EXPECT_EQ(at(2021, 5, 1, 12) - at(2021, 5, 1, 11), 3600);
}

TEST(DosTime, OutsideItsRangeIsClamped) {
  // 1970 lies before the first DOS date; 2200 after the last.
  EXPECT_EQ(kz::UnixToDosTime(86400 * 365), Dos(1980, 1, 1, 0, 0, 0));
  EXPECT_EQ(kz::UnixToDosTime(7258118400), Dos(2107, 12, 31, 23, 59, 58));
}

TEST(DosTime, KeepsEvenSecondsAndRefusesImpossibleFields) {
  const int64_t t = kz::platform::UnixFromLocal({2010, 6, 15, 10, 20, 31});
  EXPECT_EQ(kz::UnixToDosTime(t), Dos(2010, 6, 15, 10, 20, 30));
  EXPECT_EQ(kz::DosToUnixTime(Dos(2010, 6, 15, 10, 20, 30)), t - 1);
  EXPECT_EQ(kz::DosToUnixTime(Dos(2010, 6, 15, 24, 0, 0)), -1);
  EXPECT_EQ(kz::DosToUnixTime(Dos(2010, 6, 0, 10, 0, 0)), -1);
  // Day 31 of a 30-day month is read as the next month's first day.
  EXPECT_EQ(kz::DosToUnixTime(Dos(2010, 6, 31, 10, 0, 0)), kz::DosToUnixTime(Dos(2010, 7, 1, 10, 0, 0)));
}

}  // namespace
