// The timer thread's arithmetic, ids, order and wake-ups; alarms and the alarm manager as tables.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <future>
#include <map>
#include <new>
#include <regex>
#include <sstream>
#include <thread>

#include "support/LogCapture.h"
#include "timer/AlarmManager.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;
using TimeValue = TimerEventManager::TimeValue;

// The messages logged from modules matching `modules`, joined by "; ", each one of another
// level than INFO preceded by its level word.
std::string logOf(const LogCapture& logs, const std::string& modules) {
  const std::regex line("\\[ZORVIK (\\w+) (" + modules + ")\\.cpp:\\d+\\](.*)\n");
  std::string text;
  std::smatch m;
  for (const std::string& logged : logs.lines()) {
    if (!std::regex_match(logged, m, line)) continue;
    text += (text.empty() ? "" : "; ") + (m[1] == "INFO" ? "" : m[1].str() + " ") + m[3].str();
  }
  return text;
}

// Logs "fire <name>" when its timer or its alarm fires (then runs `then`) and "clear <name>".
struct Probe : TimerObject, AlarmObject {
  explicit Probe(std::string name, std::string text = "", std::function<void()> then = {})
      : name(std::move(name)), then(std::move(then)) {
    setAlarmText(text);
  }
  void timerEvent() override {
    TimerObject::timerEvent();
    onAlarm();
  }
  void onAlarm() override {
    ZLOG(kLogInfo) << "fire " << name;
    if (then) then();
  }
  bool clearAlarm() override {
    ZLOG(kLogInfo) << "clear " << name;
    return AlarmObject::clearAlarm();
  }
  const std::string name;
  const std::function<void()> then;
};

// A timer manager on a clock the test sets, whose passes the test runs itself.
class TimerThreadTest : public ::testing::Test {
 protected:
  int32_t add(const std::string& name, int32_t intervalMs, std::function<void()> then = {}) {
    probes_.push_back(std::make_shared<Probe>(name, "", std::move(then)));
    return manager_.addTimer(intervalMs, probes_.back().get());
  }
  LogCapture logs_;
  TimeValue now_{100, 0};
  TimerEventManager manager_{[this] { return now_; }};
  std::vector<std::shared_ptr<Probe>> probes_;
};

TEST_F(TimerThreadTest, TimeArithmetic) {
  // Only microseconds above 1000000 are carried when times are compared.
  const int64_t rows[][5] = {{1, 1000000, 2, 0, -1}, {1, 1000001, 2, 1, 0},      {5, 9, 5, 10, -1},
                             {5, 10, 5, 10, 0},      {1, 1998999, 2, 998999, 0}, {-1, 0, 0, 0, -1}};
  for (const auto& r : rows)
    EXPECT_EQ(TimerEventManager::compareTime(r[0], r[1], r[2], r[3]), r[4]) << r[0] << "." << r[1];
  const auto pass = [this](int32_t ms, TimeValue added, TimeValue at) {
    now_ = added;
    add("a", ms);
    now_ = at;
    logs_.clear();
    manager_.processNextEvent();
    return logOf(logs_, "TimerEventManager");
  };
  // Expiries are not carried, so a timeout can stay negative: select() refuses it.
  EXPECT_EQ(pass(1500, {100, 600000}, {103, -950000}),
            "process next event ...; current time: sec=102, usec=50000; timer info: sec=101, "
            "usec=1100000; before select, timeval.sec=-1, usec=1050000; ERROR select can not "
            "find valid connect");
  // A timeout borrows seconds for negative microseconds.
  EXPECT_EQ(pass(1100, {100, 0}, {100, 950000}),
            "process next event ...; current time: sec=100, usec=950000; timer info: sec=101, "
            "usec=100000; before select, timeval.sec=0, usec=150000; select timeout; "
            "activate timers ...");
}

TEST_F(TimerThreadTest, IdsKillsTheOrderOfFiringAndAFailingHandler) {
  now_ = {100, 600000};
  int32_t id = 0;
  for (const auto& [name, ms] : {std::pair{"a", 300}, {"b", 500}, {"x", 0}, {"c", 100}, {"d", 500}})
    EXPECT_EQ(add(name, ms), ++id);
  manager_.killTimer(3);
  EXPECT_EQ(add("e", -1500), 6);  // the largest pending id plus one
  manager_.killTimer(7);
  manager_.killTimer(4, probes_[0].get());  // an id a remembered, now c's: left alone
  manager_.killReceiverTimers(probes_[0].get());
  now_ = {100, 1600000};
  manager_.processNextEvent();  // one timer per pass
  EXPECT_EQ(logOf(logs_, "TimerEventManager|TimingTest"),
            "process next event ...; current time: sec=101, usec=600000; timer info: sec=99, "
            "usec=100000; timer has expired, execute it right now; before select, timeval.sec=0, "
            "usec=0; select timeout; activate timers ...; send timer event; fire e");
  logs_.clear();
  for (int pass = 0; pass < 3; ++pass) manager_.processNextEvent();
  // By expiry; equal expiries in the order of registration.
  EXPECT_EQ(logOf(logs_, "TimingTest"), "fire c; fire b; fire d");
  // The list emptied, ids start again; a handler that throws loses its own event only.
  EXPECT_EQ(add("f", 0, [] { throw std::bad_alloc(); }), 1);
  logs_.clear();
  EXPECT_NO_THROW(manager_.activateTimers());
  EXPECT_EQ(
      logOf(logs_, "TimerEventManager|TimingTest"),
      "activate timers ...; send timer event; fire f; ERROR timer event failed: std::bad_alloc");
}

// A timer added as a pass goes to sleep without a timeout (the list was empty) wakes the thread:
// here it is added, from another thread, the moment the pass logs that it will sleep.
TEST(TimerThreadWakeTest, TimerAddedAsThePassGoesToSleepWakesIt) {
  // Like the daemon's, this manager and its thread live until the program ends.
  static TimerEventManager* const manager = new TimerEventManager();
  const auto probe = std::make_shared<Probe>("woken");
  std::vector<std::string> messages;
  std::promise<void> fired;
  const LogSink previous = setLogSink([&](int, const std::string& text) {
    // One line at a time; the third is "before select, timeval is NULL".
    messages.push_back(LogCapture::shortOf(text));
    if (messages.size() == 3)
      std::async(std::launch::async, [&] { manager->addTimer(0, probe.get()); }).wait();
    if (messages.back() == "I TimingTest.cpp fire woken") fired.set_value();
  });
  std::thread(&TimerEventManager::run, manager).detach();
  const auto woken = fired.get_future().wait_for(std::chrono::seconds(10));
  setLogSink(previous);
  ASSERT_EQ(woken, std::future_status::ready);
  messages.resize(4);
  EXPECT_EQ(messages, (std::vector<std::string>{
                          "I TimerEventManager.cpp run thread to process timer event ... ",
                          "I TimerEventManager.cpp process next event ...",
                          "I TimerEventManager.cpp before select, timeval is NULL",
                          "I TimerEventManager.cpp select right event coming"}));
}

void useZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}
// "MM-DD hh:mm[:ss.ffffff]" in 2024, when January 1st was a Monday.
pt::ptime at(const std::string& text) { return pt::time_from_string("2024-" + text); }
std::string weekly(const std::string& time, const std::string& repeat = "1") {
  return R"({"time":")" + time + R"(","repeat":")" + repeat + "\"}";
}
// A computation's result as a duration, -1, or "throws" when the text is refused.
std::string resultOf(const std::function<int64_t()>& compute) {
  try {
    const int64_t ms = compute();
    return ms < 0 ? std::to_string(ms) : pt::to_simple_string(pt::milliseconds(ms));
  } catch (const std::exception&) {
    return "throws";
  }
}

// Text, clock reading, zone; expected: "off", "once", "weekly" or "invalid"; first; next firing.
struct Row {
  std::string text;
  const char* now;
  const char* expected;
  const char* zone = "UTC";
};

const Row kRows[] = {
    {weekly("07:30", "1,3,5"), "01-01 07:00", "weekly 00:30:00 48:30:00"},
    {weekly("07:30"), "01-01 07:30", "weekly 00:00:00 168:00:00"},
    {weekly("07:30"), "01-01 07:30:00.000001", "weekly 167:59:59.999000 167:59:59.999000"},
    {weekly("07:30", "7"), "01-06 12:00", "weekly 19:30:00 19:30:00"},
    {weekly("07:30", "1,,2"), "01-06 12:00", "weekly 19:30:00 19:30:00"},
    {weekly("07:30", "8,-1"), "01-06 12:00", "invalid -1 -1"},
    {weekly("07:30", ""), "01-06 12:00", "invalid -1 -1"},
    {R"({"time":"07:30","repeat":"1","enabled":false})", "01-01 07:00", "off weekly -1 -1"},
    // A null member counts as absent.
    {R"({"time":"07:30","repeat":"1","enabled":null,"utc_time":null})", "01-01 07:00",
     "weekly 00:30:00 168:30:00"},
    {weekly("07:30:15.5"), "01-01 07:00", "weekly 00:30:15.500000 168:30:15.500000"},
    {weekly("07:+30"), "01-01 07:00", "weekly 00:30:00 168:30:00"},
    {weekly("07:xx"), "01-01 07:00", "weekly throws throws"},
    {weekly("07:0-214748)36480"), "01-01 07:00", "weekly throws throws"},
    {R"({"utc_time":1704153600999})", "01-01 00:00", "once 24:00:00 -1"},  // 01-02 00:00 UTC
    {R"({"utc_time":1704092400000})", "01-01 07:00", "once 00:00:00 -1"},  // 07:00 UTC
    {R"({"utc_time":"1000"})", "01-01 07:00", "once -1 -1"},
    {R"({"utc_time":0,"repeat":"1"})", "01-01 07:00", "invalid -1 -1"},  // no time: not weekly
    {R"({"time":"07:30","repeat":"1","utc_time":1704099600000})", "01-01 07:30",
     "once weekly 01:30:00 168:00:00"},
    {R"({"utc_time":2069896291200000})", "01-01 07:00", "once throws -1"},  // year 67562
    {R"({"utc_time":253402300799000})", "01-01 07:00", "once 69916168:59:59 -1"},
    {"", "01-01 07:00", "invalid -1 -1"},
    {"not json", "01-01 07:00", "invalid -1 -1"},
    // Clocks went from 02:00 to 03:00 on Sunday, March 31st: local times on both sides.
    {weekly("07:30"), "03-30 07:30", "weekly 48:00:00 48:00:00", "Europe/Berlin"},
    {weekly("07:30"), "03-25 07:30", "weekly 00:00:00 168:00:00", "Europe/Berlin"},
    {R"({"utc_time":1711863000000})", "03-30 07:30", "once 24:00:00 -1", "Europe/Berlin"},
};

TEST(AlarmObjectTest, KindAndFirstAndNextFiring) {
  for (const Row& row : kRows) {
    useZone(row.zone);
    Probe alarm("t", row.text);
    const pt::ptime now = at(row.now);
    const std::string seen = std::string(alarm.isEnabled() ? "" : "off ") +
                             (alarm.isOnce() ? "once " : "") + (alarm.isPeriod() ? "weekly " : "") +
                             (alarm.isValid() ? "" : "invalid ") +
                             resultOf([&] { return alarm.getFirstAlarm(now); }) + " " +
                             resultOf([&] { return alarm.getNextAlarm(now); });
    EXPECT_EQ(seen, row.expected) << row.text << " at " << row.now << " in " << row.zone;
  }
}

TEST(AlarmObjectTest, ParsingOnceAndEachComputationLogTheirSteps) {
  useZone("UTC");
  LogCapture logs;
  Probe weeklyAlarm("t", weekly("07:30", "1,3,5"));
  weeklyAlarm.getFirstAlarm(at("01-01 07:00"));
  weeklyAlarm.getNextAlarm(at("01-01 07:30:00.001"));
  Probe("t", R"({"utc_time":1000})").getFirstAlarm(at("01-01 07:00"));
  Probe("t", "not json").isValid();
  EXPECT_EQ(logOf(logs, "AlarmObject"),
            "get first alarm ; Alarm timer time: 07:30; Alarm timer repeat: 1,3,5; "
            "Alarm timer utc_time: -1; Alarm timer enabled: 1; period alarm, minDuration=0; "
            "period alarm, now: 2024-Jan-01 07:00:00; period alarm next: 2024-Jan-01 07:30:00; "
            "period alarm, 00:30:00, milliseconds=1800000; get next alarm ; "
            "period alarm, minDuration=2; period alarm, now: 2024-Jan-01 07:30:00.001000; "
            "period alarm, next: 2024-Jan-03 07:30:00; "
            "period alarm, 47:59:59.999000, milliseconds=172799999; get first alarm ; "
            "Alarm timer time: ; Alarm timer utc_time: 1000; Alarm timer enabled: 1; "
            "once alarm, now: 2024-Jan-01 07:00:00; once alarm, next: 1970-Jan-01 00:00:01; "
            "once alarm, -473358:59:59, milliseconds=-1; Alarm timer not json format");
}

// The alarms of the scripts: a and c weekly, 10 minutes away, b 20; o once, 20 minutes away, p
// past, m 30 days away; x disabled; r is a, but unregisters itself when it fires.
std::string textOf(char name) {
  if (name == 'b') return weekly("07:50");
  if (name == 'o') return R"({"utc_time":1704095400000})";  // 07:50
  if (name == 'p') return R"({"utc_time":1704092400000})";  // 07:00
  if (name == 'm') return R"({"utc_time":1706686200000})";  // 01-31 07:30
  if (name == 'x') return R"({"time":"07:35","repeat":"1","enabled":false})";
  return weekly("07:40");
}

// Steps against a manager whose clock shows Monday 2024-01-01 07:30 (UTC) until @hh:mm sets it:
// +x add, -x remove, ~x update, *xyz set the alarms x, y, z, x=hh:mm make x weekly on Mondays
// ("x=" empties it), ! fire the receiver's timer (id 1, the only one) as the timer thread would.
TEST(AlarmManagerTest, ScriptsOfRegistrationsAndFirings) {
  const std::pair<const char*, const char*> rows[] = {
      // The smallest stored value takes the timer; an equal one does not take it over.
      {"+b +a +c +b", "arm 1200000; kill 1; arm 600000"},
      {"+a @07:31 +a -a !", "arm 600000; kill 1; arm 540000; fire a; arm 605340000"},
      // Stored values are not brought up to date: after a, b is armed for its 20 minutes.
      {"+a +b @07:40 ! @07:50 ! !",
       "arm 600000; fire a; arm 1200000; fire b; arm 604800000; fire a; arm 604200000"},
      {"+m ! +o @07:50 ! +o", "arm -1702967296; fire m; clear m; arm 1200000; fire o; clear o"},
      {"! +p +x ~a", "ERROR Error: nearest alarm is null ???; arm 600000"},
      {"*bxpab ! ! !",
       "clear p; arm 600000; fire a; arm 1200000; fire b; arm 1200000; fire b; arm 605400000"},
      {"+a +b +b -b -c +b -a -b", "arm 600000; kill 1; arm 1200000; kill 1"},
      {"+a +b a=08:00 ~a ! !",
       "arm 600000; kill 1; arm 1200000; fire b; arm 1800000; fire a; arm 606000000"},
      {"+a +b b=07:35 ~b !", "arm 600000; kill 1; arm 300000; fire b; arm 600000"},
      {"+a +b a= ~a !", "arm 600000; kill 1; arm 1200000; fire b; arm 606000000"},
      // Updated without a future firing, an alarm that is not the nearest fires next.
      {"+a +o @07:55 ~o !", "arm 600000; kill 1; arm -1; fire o; clear o; arm 600000"},
      {"+a +b a=07:xx !", "arm 600000; fire a; ERROR failed; arm 1200000"},
      {"+r +b ! !",
       "arm 600000; fire r; kill -1; ERROR object has not existing timer; arm 1200000; "
       "arm 1200000; ERROR object has existing timer; fire b; arm 606000000"},
  };
  const std::pair<const char*, const char*> words[] = {{"start timer, interval=", "arm "},
                                                       {"kill timer, id= ", "kill "},
                                                       {"alarm failed: [^;]*", "failed"}};
  useZone("UTC");
  for (const auto& [steps, expected] : rows) {
    LogCapture logs;
    pt::ptime now = at("01-01 07:30");
    AlarmManager manager([&] { return now; });
    std::map<char, std::shared_ptr<AlarmObject>> alarms;
    for (const char name : std::string("abcopmx"))
      alarms[name] = std::make_shared<Probe>(std::string(1, name), textOf(name));
    alarms['r'] =
        std::make_shared<Probe>("r", textOf('r'), [&] { manager.removeAlarm(alarms['r']); });
    std::istringstream in(steps);
    for (std::string step; in >> step;) {
      const std::string rest = step.substr(1);
      if (step[0] == '@') now = pt::ptime(now.date(), pt::duration_from_string(rest));
      if (step[0] == '+') manager.addAlarm(alarms.at(rest[0]));
      if (step[0] == '-') manager.removeAlarm(alarms.at(rest[0]));
      if (step[0] == '~') manager.updateAlarm(alarms.at(rest[0]));
      if (step[0] == '!') TimerEventManager::getInstance()->killTimer(1);
      if (step[0] == '!') manager.receiver()->timerEvent();
      if (step[0] == '*') {
        std::vector<std::shared_ptr<AlarmObject>> list;
        for (char name : rest) list.push_back(alarms.at(name));
        manager.setAlarms(list);
      }
      if (rest[0] == '=')
        alarms.at(step[0])->setAlarmText(rest == "=" ? "" : weekly(rest.substr(1)));
    }
    std::string trace = logOf(logs, "TimerObject|AlarmManager|TimingTest");
    for (const auto& [from, to] : words) trace = std::regex_replace(trace, std::regex(from), to);
    EXPECT_EQ(trace, expected) << steps;
  }
}

}  // namespace
}  // namespace zorvik
