// Alarm texts that once misled the arithmetic: time texts that made the duration reader
// overflow inside its number conversion, and one-time instants beyond the calendar that were
// cut into this century.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <stdexcept>
#include <string>

#include "support/LogCapture.h"
#include "timer/ScopedTimeZone.h"
#include "timer/TestAlarm.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;
namespace gr = boost::gregorian;

constexpr int64_t kMinute = 60 * 1000;

// 2024-01-01 was a Monday.
pt::ptime mondayAt(int hour, int minute) {
  return pt::ptime(gr::date(2024, 1, 1), pt::hours(hour) + pt::minutes(minute));
}

std::string mondays(const std::string& time) {
  return "{\"time\":\"" + time + "\",\"repeat\":\"1\"}";
}

class AlarmHostileTextTest : public ::testing::Test {
 protected:
  ScopedTimeZone zone_{"UTC"};
  LogCapture logs_;
};

// Before the fix, the minutes "0-214748)36480" overflowed a signed integer inside the reader
// (caught by the sanitizer builds) before the reader refused them.
TEST_F(AlarmHostileTextTest, MinutesOrSecondsWithOtherCharactersAreRefusedLikeTheReaderDoes) {
  for (const std::string time :
       {"07:0-214748)36480", "07:30:123456)", "07:ab", "07:+", "07:30x", "07:30:1 5"}) {
    TestAlarm alarm(mondays(time));
    EXPECT_THROW(alarm.getFirstAlarm(mondayAt(7, 0)), std::exception) << time;
    EXPECT_THROW(alarm.getNextAlarm(mondayAt(7, 0)), std::exception) << time;
  }
}

TEST_F(AlarmHostileTextTest, TimesTheReaderAcceptsStillCount) {
  // A sign before the minutes, an empty field, and a fifth field (ignored) all read as before.
  for (const std::string time : {"07:+30", "07::30", "07:30:00.0:abc", "07:00030"}) {
    TestAlarm alarm(mondays(time));
    EXPECT_EQ(alarm.getFirstAlarm(mondayAt(7, 0)), 30 * kMinute) << time;
  }
  TestAlarm empty(mondays(""));
  EXPECT_FALSE(empty.isValid());
}

// Before the fix, the year 67562 was cut to 16 bits and read as 2026: a first firing two years
// away instead of sixty-five thousand.
TEST_F(AlarmHostileTextTest, OneTimeInstantBeyondTheCalendarIsRefused) {
  const int64_t year67562 = 2069896291200000;  // 67562-06-01 00:00 UTC
  TestAlarm alarm("{\"utc_time\":" + std::to_string(year67562) + "}");
  ASSERT_TRUE(alarm.isOnce());
  EXPECT_THROW(alarm.getFirstAlarm(mondayAt(7, 0)), std::out_of_range);
}

TEST_F(AlarmHostileTextTest, OneTimeInstantInTheLastCalendarYearStillCounts) {
  const int64_t endOf9999 = 253402300799000;  // 9999-12-31 23:59:59 UTC
  TestAlarm alarm("{\"utc_time\":" + std::to_string(endOf9999) + "}");
  const pt::ptime now = mondayAt(7, 0);
  const int64_t expected =
      (pt::ptime(gr::date(9999, 12, 31), pt::hours(23) + pt::minutes(59) + pt::seconds(59)) - now)
          .total_milliseconds();
  EXPECT_EQ(alarm.getFirstAlarm(now), expected);
}

}  // namespace
}  // namespace zorvik
