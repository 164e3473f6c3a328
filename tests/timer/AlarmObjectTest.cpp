#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdlib>

#include "support/LogCapture.h"
#include "timer/AlarmObject.h"
#include "timer/ScopedTimeZone.h"
#include "timer/TestAlarm.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;
namespace gr = boost::gregorian;

constexpr int64_t kMinute = 60 * 1000;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;
constexpr int64_t kWeek = 7 * kDay;

// 2024-01-01 was a Monday.
pt::ptime at(int year, int month, int day, int hour, int minute, int64_t microseconds = 0) {
  return pt::ptime(gr::date(year, month, day),
                   pt::hours(hour) + pt::minutes(minute) + pt::microseconds(microseconds));
}
pt::ptime monday(int hour, int minute, int64_t microseconds = 0) {
  return at(2024, 1, 1, hour, minute, microseconds);
}
pt::ptime saturday(int hour, int minute) { return at(2024, 1, 6, hour, minute); }

// Milliseconds since the epoch of a UTC time.
int64_t epochMs(const pt::ptime& utc) {
  return (utc - pt::ptime(gr::date(1970, 1, 1))).total_milliseconds();
}

std::string weekly(const std::string& time, const std::string& repeat) {
  return "{\"time\":\"" + time + "\",\"repeat\":\"" + repeat + "\"}";
}
std::string once(int64_t utcMs) { return "{\"utc_time\":" + std::to_string(utcMs) + "}"; }

class AlarmObjectTest : public ::testing::Test {
 protected:
  ScopedTimeZone zone_{"UTC"};
  LogCapture logs_;
};

// ---------------------------------------------------------------------------------------------
// Parsing

TEST_F(AlarmObjectTest, ParsingLogsEachKeyInOrder) {
  TestAlarm alarm(weekly("07:30", "1,3,5"));
  EXPECT_TRUE(alarm.isPeriod());
  EXPECT_EQ(logs_.messages(),
            (std::vector<std::string>{"Alarm timer time: 07:30", "Alarm timer repeat: 1,3,5",
                                      "Alarm timer utc_time: -1", "Alarm timer enabled: 1"}));
  for (const CapturedLine& line : logs_.lines()) {
    EXPECT_EQ(line.text.rfind("[ZORVIK INFO AlarmObject.cpp:", 0), 0u) << line.text;
  }
}

TEST_F(AlarmObjectTest, AbsentKeysAreLoggedWithTheirDefaultsExceptRepeat) {
  TestAlarm alarm("{}");
  EXPECT_FALSE(alarm.isValid());
  EXPECT_EQ(logs_.messages(),
            (std::vector<std::string>{"Alarm timer time: ", "Alarm timer utc_time: -1",
                                      "Alarm timer enabled: 1"}));
}

TEST_F(AlarmObjectTest, TextIsParsedOnceUntilItChanges) {
  TestAlarm alarm(weekly("07:30", "1"));
  alarm.isEnabled();
  alarm.isPeriod();
  alarm.isValid();
  EXPECT_EQ(logs_.count("Alarm timer time: "), 1);
  alarm.setAlarmText(weekly("08:00", "2"));
  EXPECT_EQ(alarm.time(), "08:00");
  EXPECT_EQ(alarm.repeat(), std::vector<int32_t>{2});
  EXPECT_EQ(logs_.count("Alarm timer time: "), 2);
}

TEST_F(AlarmObjectTest, RepeatKeepsEmptyPiecesAsSundayAndDropsOutOfRangeDays) {
  TestAlarm alarm(weekly("07:30", "1,,2"));
  EXPECT_EQ(alarm.repeat(), (std::vector<int32_t>{1, 0, 2}));
  alarm.setAlarmText(weekly("07:30", "1,2,"));
  EXPECT_EQ(alarm.repeat(), (std::vector<int32_t>{1, 2, 0}));
  alarm.setAlarmText(weekly("07:30", "7"));
  EXPECT_EQ(alarm.repeat(), std::vector<int32_t>{0});
  alarm.setAlarmText(weekly("07:30", "3,3,x,6"));
  EXPECT_EQ(alarm.repeat(), (std::vector<int32_t>{3, 3, 0, 6}));
  alarm.setAlarmText(weekly("07:30", "8,-1"));
  EXPECT_TRUE(alarm.repeat().empty());
  EXPECT_FALSE(alarm.isPeriod());
  EXPECT_FALSE(alarm.isValid());
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1);
}

TEST_F(AlarmObjectTest, EmptyRepeatStringIsLoggedButGivesNoDays) {
  TestAlarm alarm(weekly("07:30", ""));
  EXPECT_TRUE(alarm.repeat().empty());
  EXPECT_TRUE(logs_.contains("Alarm timer repeat: "));
  EXPECT_FALSE(alarm.isValid());
}

TEST_F(AlarmObjectTest, KeysOfOtherTypesAreReadWithJsonConversions) {
  TestAlarm alarm("{\"time\":null,\"repeat\":3,\"utc_time\":\"1000\",\"enabled\":\"false\"}");
  EXPECT_EQ(alarm.time(), "");
  EXPECT_EQ(alarm.repeat(), std::vector<int32_t>{3});
  EXPECT_EQ(alarm.utcTime(), 1000);
  EXPECT_TRUE(alarm.isEnabled());  // any non-empty string reads as true
}

TEST_F(AlarmObjectTest, TextThatIsNotJsonIsAnEnabledButInvalidAlarm) {
  for (const std::string text : {"not json", "null", "{\"time\":"}) {
    logs_.clear();
    TestAlarm alarm(text);
    EXPECT_TRUE(alarm.isEnabled()) << text;
    EXPECT_FALSE(alarm.isValid()) << text;
    EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1) << text;
    EXPECT_EQ(logs_.count("Alarm timer not json format"), 1) << text;
  }
}

TEST_F(AlarmObjectTest, EmptyTextIsEnabledButInvalid) {
  TestAlarm alarm("");
  EXPECT_TRUE(alarm.isEnabled());
  EXPECT_FALSE(alarm.isOnce());
  EXPECT_FALSE(alarm.isPeriod());
  EXPECT_FALSE(alarm.isValid());
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1);
  EXPECT_EQ(alarm.getNextAlarm(monday(7, 0)), -1);
  EXPECT_FALSE(logs_.contains("Alarm timer"));
}

TEST_F(AlarmObjectTest, ClearAlarmEmptiesTheText) {
  TestAlarm alarm(weekly("07:30", "1"));
  ASSERT_TRUE(alarm.isValid());
  EXPECT_TRUE(alarm.AlarmObject::clearAlarm());
  EXPECT_EQ(alarm.alarmText(), "");
  EXPECT_FALSE(alarm.isValid());
  EXPECT_TRUE(alarm.repeat().empty());
  EXPECT_EQ(alarm.time(), "");
}

// ---------------------------------------------------------------------------------------------
// Weekly alarms

TEST_F(AlarmObjectTest, WeeklyAlarmLaterToday) {
  TestAlarm alarm(weekly("07:30", "1,3,5"));
  ASSERT_TRUE(alarm.isValid());  // parsed before the computation
  logs_.clear();
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), 30 * kMinute);
  EXPECT_EQ(logs_.messages(), (std::vector<std::string>{
                                  "get first alarm ",
                                  "period alarm, minDuration=0",
                                  "period alarm, now: 2024-Jan-01 07:00:00",
                                  "period alarm next: 2024-Jan-01 07:30:00",
                                  "period alarm, 00:30:00, milliseconds=1800000",
                              }));
}

TEST_F(AlarmObjectTest, WeeklyAlarmWhoseTimePassedTodayTakesTheNextListedDay) {
  TestAlarm alarm(weekly("07:30", "1,3,5"));
  EXPECT_EQ(alarm.getFirstAlarm(monday(8, 0)), 2 * kDay - 30 * kMinute);
  EXPECT_TRUE(logs_.contains("period alarm, minDuration=2"));
  EXPECT_TRUE(logs_.contains("period alarm next: 2024-Jan-03 07:30:00"));
}

TEST_F(AlarmObjectTest, OnlyTodayListedButEarlierGivesAWeek) {
  TestAlarm alarm(weekly("07:30", "1"));
  EXPECT_EQ(alarm.getFirstAlarm(monday(8, 0)), kWeek - 30 * kMinute);
  EXPECT_TRUE(logs_.contains("period alarm, minDuration=7"));
  // One microsecond late is late; microseconds are truncated to milliseconds.
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 30, 1)), kWeek - 1);
}

TEST_F(AlarmObjectTest, AlarmDueExactlyNowFiresNow) {
  TestAlarm alarm(weekly("07:30", "1"));
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 30)), 0);
  EXPECT_TRUE(logs_.contains("period alarm, minDuration=0"));
}

TEST_F(AlarmObjectTest, WeekdaysWrapAroundTheWeekend) {
  TestAlarm alarm(weekly("07:30", "1"));
  EXPECT_EQ(alarm.getFirstAlarm(saturday(12, 0)), 2 * kDay - 4 * kHour - 30 * kMinute);
  alarm.setAlarmText(weekly("07:30", "7"));
  EXPECT_EQ(alarm.getFirstAlarm(saturday(12, 0)), kDay - 4 * kHour - 30 * kMinute);
  alarm.setAlarmText(weekly("07:30", "0"));
  EXPECT_EQ(alarm.getFirstAlarm(saturday(12, 0)), kDay - 4 * kHour - 30 * kMinute);
  EXPECT_EQ(alarm.getNextAlarm(saturday(12, 0)), kDay - 4 * kHour - 30 * kMinute);
}

TEST_F(AlarmObjectTest, NextAlarmUnderAMillisecondAwayIsZero) {
  TestAlarm alarm(weekly("00:00", "2"));
  EXPECT_EQ(alarm.getNextAlarm(monday(23, 59, 59999992)), 0);
  EXPECT_EQ(alarm.getFirstAlarm(monday(23, 59, 59999992)), 0);
}

TEST_F(AlarmObjectTest, TimeWithSecondsAndFraction) {
  TestAlarm alarm(weekly("07:30:15.5", "1"));
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), 30 * kMinute + 15500);
}

TEST_F(AlarmObjectTest, NextAlarmCountsTodayAsAWeekAway) {
  TestAlarm alarm(weekly("07:30", "1,3,5"));
  EXPECT_EQ(alarm.getNextAlarm(monday(7, 30, 1000)), 2 * kDay - 1);
  EXPECT_TRUE(logs_.contains("period alarm, next: 2024-Jan-03 07:30:00"));
  alarm.setAlarmText(weekly("07:30", "1"));
  logs_.clear();
  EXPECT_EQ(alarm.getNextAlarm(monday(7, 30)), kWeek);
  // The changed text is parsed by the computation itself.
  EXPECT_EQ(logs_.messages(), (std::vector<std::string>{
                                  "get next alarm ",
                                  "Alarm timer time: 07:30",
                                  "Alarm timer repeat: 1",
                                  "Alarm timer utc_time: -1",
                                  "Alarm timer enabled: 1",
                                  "period alarm, minDuration=7",
                                  "period alarm, now: 2024-Jan-01 07:30:00",
                                  "period alarm, next: 2024-Jan-08 07:30:00",
                                  "period alarm, 168:00:00, milliseconds=604800000",
                              }));
}

TEST_F(AlarmObjectTest, DisabledAlarmsNeverFire) {
  TestAlarm alarm("{\"time\":\"07:30\",\"repeat\":\"1\",\"enabled\":false}");
  EXPECT_FALSE(alarm.isEnabled());
  EXPECT_TRUE(alarm.isValid());
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1);
  EXPECT_EQ(alarm.getNextAlarm(monday(7, 0)), -1);
  EXPECT_TRUE(logs_.contains("Alarm timer enabled: 0"));
  alarm.setAlarmText("{\"utc_time\":" + std::to_string(epochMs(monday(9, 0))) +
                     ",\"enabled\":false}");
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1);
}

TEST_F(AlarmObjectTest, UnreadableTimeThrowsOutOfTheComputations) {
  TestAlarm alarm(weekly("07:xx", "1"));
  ASSERT_TRUE(alarm.isPeriod());
  EXPECT_THROW(alarm.getFirstAlarm(monday(7, 0)), std::exception);
  EXPECT_THROW(alarm.getNextAlarm(monday(7, 0)), std::exception);
}

// ---------------------------------------------------------------------------------------------
// Once alarms

TEST_F(AlarmObjectTest, OnceAlarmInTheFutureDropsTheMillisecondRemainder) {
  TestAlarm alarm(once(epochMs(at(2024, 1, 2, 0, 0)) + 999));
  ASSERT_TRUE(alarm.isOnce());
  logs_.clear();
  EXPECT_EQ(alarm.getFirstAlarm(monday(0, 0)), kDay);
  EXPECT_EQ(logs_.messages(), (std::vector<std::string>{
                                  "get first alarm ",
                                  "once alarm, now: 2024-Jan-01 00:00:00",
                                  "once alarm, next: 2024-Jan-02 00:00:00",
                                  "once alarm, 24:00:00, milliseconds=86400000",
                              }));
}

TEST_F(AlarmObjectTest, OnceAlarmInThePastGivesMinusOneAndStillLogs) {
  TestAlarm alarm(once(1000));
  EXPECT_TRUE(alarm.isOnce());
  EXPECT_TRUE(alarm.isValid());
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1);
  EXPECT_TRUE(logs_.contains("once alarm, next: 1970-Jan-01 00:00:01"));
  EXPECT_TRUE(logs_.contains(", milliseconds=-1"));
}

TEST_F(AlarmObjectTest, OnceAlarmExactlyNowIsZero) {
  TestAlarm alarm(once(epochMs(monday(7, 0))));
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), 0);
}

TEST_F(AlarmObjectTest, UtcTimeZeroIsNotAOnceAlarm) {
  TestAlarm alarm(once(0));
  EXPECT_FALSE(alarm.isOnce());
  EXPECT_FALSE(alarm.isValid());
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), -1);
}

TEST_F(AlarmObjectTest, NextAlarmOfAOnceAlarmIsMinusOne) {
  TestAlarm alarm(once(epochMs(monday(9, 0))));
  EXPECT_EQ(alarm.getNextAlarm(monday(7, 0)), -1);
}

TEST_F(AlarmObjectTest, AlarmWithBothPartsIsOnceFirstAndWeeklyNext) {
  TestAlarm alarm("{\"time\":\"07:30\",\"repeat\":\"1\",\"utc_time\":" +
                  std::to_string(epochMs(monday(9, 0))) + "}");
  EXPECT_EQ(alarm.getFirstAlarm(monday(7, 0)), 2 * kHour);
  EXPECT_EQ(alarm.getNextAlarm(monday(7, 30)), kWeek);
}

// ---------------------------------------------------------------------------------------------
// Local time

class AlarmObjectBerlinTest : public ::testing::Test {
 protected:
  ScopedTimeZone zone_{"Europe/Berlin"};
  LogCapture logs_;
};

TEST_F(AlarmObjectBerlinTest, WeeklyAlarmKeepsItsLocalTimeAcrossTheSpringChange) {
  // Clocks went from 02:00 to 03:00 on Sunday 2024-03-31.
  TestAlarm alarm(weekly("07:30", "1"));
  EXPECT_EQ(alarm.getFirstAlarm(at(2024, 3, 30, 7, 30)), 2 * kDay);
  EXPECT_TRUE(logs_.contains("period alarm next: 2024-Apr-01 07:30:00"));
  EXPECT_EQ(alarm.getNextAlarm(at(2024, 3, 25, 7, 30)), kWeek);
  EXPECT_TRUE(logs_.contains("period alarm, next: 2024-Apr-01 07:30:00"));
}

TEST_F(AlarmObjectBerlinTest, OnceAlarmIsConvertedToLocalTimeOfItsOwnDate) {
  // 05:30 UTC on 2024-03-31 is 07:30 summer time; 07:30 on the day before was winter time.
  TestAlarm alarm(once(epochMs(at(2024, 3, 31, 5, 30))));
  EXPECT_EQ(alarm.getFirstAlarm(at(2024, 3, 30, 7, 30)), kDay);
  EXPECT_TRUE(logs_.contains("once alarm, next: 2024-Mar-31 07:30:00"));
  // In January the same clock reading is an hour after UTC.
  alarm.setAlarmText(once(epochMs(at(2024, 1, 15, 6, 30))));
  EXPECT_EQ(alarm.getFirstAlarm(at(2024, 1, 15, 7, 0)), 30 * kMinute);
}

TEST_F(AlarmObjectBerlinTest, LocalNowFollowsTheTimeZone) {
  const pt::ptime utc = pt::microsec_clock::universal_time();
  const pt::time_duration offset = AlarmObject::localNow() - utc;
  // Berlin is one or two hours ahead of UTC; allow a generous margin for a slow machine.
  const int64_t minutes = offset.total_seconds() / 60;
  EXPECT_TRUE((minutes >= 59 && minutes <= 61) || (minutes >= 119 && minutes <= 121)) << offset;
}

TEST(AlarmObjectClockTest, ComputationsWithoutNowUseTheRealClock) {
  ScopedTimeZone zone("UTC");
  LogCapture logs;
  const pt::ptime inAnHour = pt::microsec_clock::universal_time() + pt::hours(1);
  TestAlarm alarm(once(epochMs(inAnHour)));
  const int64_t ms = alarm.getFirstAlarm();
  EXPECT_GT(ms, 50 * kMinute);
  EXPECT_LE(ms, kHour);
}

}  // namespace
}  // namespace zorvik
