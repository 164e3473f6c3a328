// The crontab tick's arithmetic at the edges of its numbers: a weekday, a stored time text or a
// one-time instant that once overflowed signed integers while the tick looked for due actions.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include "scene/Scene.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"

namespace zorvik {
namespace {

// One "quiro" action a minute after the alarm; its command shows when it is replayed.
const char kDelayedAction[] =
    R"([{"thirdParty":"quiro","type":"t","name":"n","payload":"a","delay":60000}])";
const char kMondayTunnelLine[] = "/usr/sbin/pellway 6 'YQ'";

class SceneCrontabLimitsTest : public ::testing::Test {
 protected:
  LogCapture log_;
  ShellRecorder shell_;
};

TEST_F(SceneCrontabLimitsTest, ShiftTimeOfHugeMinutesCarriesWithoutOverflow) {
  std::string shifted;
  // 2147483647 minutes plus one: 35791394 hours and 8 minutes, a whole number of weeks of days.
  EXPECT_EQ(Scene::shiftTime("0:2147483647", 60000, shifted), 0);
  EXPECT_EQ(shifted, "02:08");
  // 2147483647 hours plus the largest delay (35791 minutes, carrying 596 hours).
  EXPECT_EQ(Scene::shiftTime("2147483647:00", INT_MAX, shifted), 2);
  EXPECT_EQ(shifted, "03:31");
}

TEST_F(SceneCrontabLimitsTest, LargestWeekdayCountsModuloSeven) {
  // 2147483647 is 1 modulo 7: Monday, the alarm's day.
  auto scene =
      std::make_shared<Scene>(1, "W", kDelayedAction, R"({"timer":{"time":"07:30","repeat":"1"}})");
  scene->startByCrontab(INT_MAX, "07:31");
  EXPECT_EQ(shell_.lines().back(), kMondayTunnelLine);
}

TEST_F(SceneCrontabLimitsTest, SmallestWeekdayMatchesNoDay) {
  auto scene = std::make_shared<Scene>(1, "W", kDelayedAction,
                                       R"({"timer":{"time":"07:30","repeat":"0,1,2,3,4,5,6"}})");
  scene->startByCrontab(INT_MIN, "07:31");
  EXPECT_TRUE(shell_.lines().empty());
}

// Before the fix, a clock at the epoch minus the largest instant minus the delay overflowed.
TEST_F(SceneCrontabLimitsTest, FarOneTimeInstantSeenFromTheEpochIsNotDue) {
  auto scene = std::make_shared<Scene>(1, "O", kDelayedAction,
                                       R"({"timer":{"utc_time":9223372036854775807}})");
  scene->startByCrontab(1, "07:31", 0);
  EXPECT_TRUE(shell_.lines().empty());
}

TEST_F(SceneCrontabLimitsTest, OneTimeActionIsReplayedWithinItsMinute) {
  auto scene = std::make_shared<Scene>(1, "O", kDelayedAction, R"({"timer":{"utc_time":1000000}})");
  // Due at 1000 s plus the one-minute delay: 1060 s. Replayed from then for one minute.
  scene->startByCrontab(1, "07:31", 1059);
  EXPECT_TRUE(shell_.lines().empty());
  scene->startByCrontab(1, "07:31", 1119);
  EXPECT_EQ(shell_.lines().back(), kMondayTunnelLine);
}

}  // namespace
}  // namespace zorvik
