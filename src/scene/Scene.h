// Scene: one user-defined automation, an id, a name, an ordered list of actions (JSON array
// text) and an optional launch mode (JSON object text) that says what else starts it: a device
// coming home, a device leaving, or a timer (kept in the AlarmObject part).
//
// A scene reads its launch text itself; its Action objects are built from the actions text by
// ActionListParser at the start of a run (or of a crontab tick) after the text changed. It runs
// them one after another with their delays and blocking rules, reports the end of a run through
// the feed program when it has a launch mode, and replays timed actions on the crontab tick.
//
// Ownership: scenes are always held by std::shared_ptr (the registry holds one owner). The
// scene owns its actions through shared pointers; an action refers back to its scene weakly, and
// the timer thread holds an owner of the action and of its scene while the action's handler runs,
// so a scene stopped, re-run or dropped meanwhile is never freed under it.
//
// Threading: `mutex_` guards every field of the scene but the id, and the AlarmObject part: the
// scene reads and writes its alarm only under it (Clang checks both, see server/Mutex.h), and
// others ask about the alarm through isAlarmEnabled() and hasUsableAlarm(), which take it.
// AlarmObject's own accessors are hidden from the scene's users for that reason. Only the alarm
// manager would reach the alarm part without the scene's lock, through AlarmObject; the daemon
// never hands it a scene. The lock is taken by the operations below, called from the RPC worker
// threads and the scene manager's start-up, and by the action callbacks on the timer thread. It is
// recursive: starting an action calls back into the scene (execute -> Action::execute ->
// onActionStarted), and operations call one another under it. Lock order: the scene manager's lock,
// then this one (the store also takes it under its own, filling a scene), then the timer manager's
// (arming and killing action timers) and the log's; the scene never takes the manager's or the
// store's. Nothing slow runs under it: the action handlers, the crontab replay's handlers and the
// feed command are decided under the lock and run after it is released, so a handler that takes
// minutes holds up neither requests nor the timer thread on this scene. The id is atomic: the
// manager reads it for every scene it passes while looking one up, without this lock.
#ifndef ZORVIK_SCENE_SCENE_H_
#define ZORVIK_SCENE_SCENE_H_

#include <json-c/json.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server/Mutex.h"
#include "timer/AlarmObject.h"

namespace zorvik {

class Action;

// The device-presence launch of a scene.
struct HomeLaunch {
  std::string mac;  // as given; compared ignoring letter case
  bool goHome;      // true: starts on connect (go_home), false: on disconnect (leave_home)
  bool enabled;
};

class Scene : public AlarmObject, public std::enable_shared_from_this<Scene> {
 public:
  Scene();
  Scene(int32_t id, std::string name, std::string actionsJson, std::string launchJson);
  ~Scene() override;

  // Drops every launch mode at once (the launch text becomes empty).
  bool clearAlarm() override;
  // Logs "Scene alarm event trigger" and runs the scene.
  void onAlarm() override;
  // The alarm's switch; and whether the alarm is switched on and holds a valid one-time or weekly
  // alarm. Asking re-reads an alarm text that changed.
  bool isAlarmEnabled();
  bool hasUsableAlarm();

  int32_t id() const { return id_.load(std::memory_order_relaxed); }
  void setId(int32_t id);
  std::string name() const;
  void setName(std::string name);
  std::string actionsJson() const;
  // Replaces the actions text; the actions are rebuilt at the start of the next run.
  void setActionsJson(std::string actionsJson);
  std::string launchJson() const;
  // Replaces the launch text and re-reads the launch mode.
  void setLaunchJson(std::string launchJson);

  // Rebuilds the launch data from the launch text.
  void parseLaunch();
  // Destroys every action.
  void clearActions();
  // Rebuilds the actions from the actions text (ActionListParser).
  void parseActions();
  // A new JSON object describing the scene for replies; the caller owns it. `nowMs` is the
  // current time in milliseconds since the epoch (a past one-time timer launch is left out).
  json_object* toJson(int64_t nowMs);
  // The text of toJson() in json-c's layout, as replies carry it. It is kept from one reply to
  // the next until a text of the scene changes, so that look-ups do not parse the texts again.
  std::string replyText();
  std::string replyText(int64_t nowMs);

  // Starts a run: 0, 3 (no valid action) or 3505 (already running).
  uint32_t execute();
  // Ends a run: kills pending action timers; handlers in progress are not interrupted.
  void stop();
  bool isProcessing() const;
  size_t actionCount() const;
  // The current actions, in order (a snapshot).
  std::vector<std::shared_ptr<Action>> actions() const;

  // Called by an action right after it armed its timer.
  void onActionStarted(Action* action);
  // Called on the timer thread when an action's timer fired, before its work runs: forgets the
  // action's timer and counts it finished (onActionFinished). False when the action's timer was
  // killed meanwhile (nothing to do). When that ends a run of a scene with a launch, the feed
  // command runs after the lock is released; the run ends (the scene stops processing) only
  // when the command returns.
  bool finishFiredAction(Action& action);
  // The feed's status message: the scene name and its first action.
  std::string buildStatusMessage() const;
  // The command that reports a finished run to the feed program.
  std::string feedCommand() const;

  // Runs the scene when its presence launch matches; true when it matched.
  bool startByDeviceStatus(const std::string& mac, bool connected);
  // The crontab tick: replays the timed actions due at this weekday and time of day.
  void startByCrontab(int32_t week, const std::string& time);
  void startByCrontab(int32_t week, const std::string& time, int64_t nowSeconds);
  // Shifts "HH:MM" by a delay; writes the shifted time and returns the day offset, or -1.
  static int32_t shiftTime(const std::string& time, int32_t delayMs, std::string& shifted);

 private:
  // The alarm part, read and written only under mutex_ (see the threading note above): the parts
  // the scene uses are wrapped so that the lock is checked, the others are hidden.
  const std::string& alarmText() const REQUIRES(mutex_) { return AlarmObject::alarmText(); }
  void setAlarmText(const std::string& text) REQUIRES(mutex_) { AlarmObject::setAlarmText(text); }
  bool isEnabled() REQUIRES(mutex_) { return AlarmObject::isEnabled(); }
  bool isValid() REQUIRES(mutex_) { return AlarmObject::isValid(); }
  int64_t utcTime() REQUIRES(mutex_) { return AlarmObject::utcTime(); }
  const std::string& time() REQUIRES(mutex_) { return AlarmObject::time(); }
  const std::vector<int32_t>& repeat() REQUIRES(mutex_) { return AlarmObject::repeat(); }
  using AlarmObject::getFirstAlarm;
  using AlarmObject::getNextAlarm;
  using AlarmObject::isOnce;
  using AlarmObject::isPeriod;

  // The end of a run that still has to be reported to the feed program.
  struct RunReport {
    std::string feedCommand;
    uint64_t run;  // runNumber_ of the run that ended
  };
  // The scene's reply texts, built on the first reply after a change of its texts.
  struct ReplyForms {
    std::string launchShown;
    std::string launchGone;  // for a one-time timer launch whose instant may pass; else empty
  };
  // One action the crontab tick replays, with its log line.
  struct Replay {
    std::shared_ptr<Action> action;
    std::string logLine;
  };

  // Runs the feed command, then ends the run unless it was stopped or restarted meanwhile.
  void reportRunEnd(const RunReport& report) EXCLUDES(mutex_);
  // The actions the crontab tick replays now; takes mutex_.
  std::vector<Replay> crontabReplays(int32_t week, const std::string& time, int64_t nowSeconds);

  // The helpers below run with mutex_ held.
  // Counts `action` finished and starts its blocked successor; the report to send when this
  // ended a run that reports.
  std::optional<RunReport> onActionFinished(Action* action, bool report) REQUIRES(mutex_);
  void rebuildActionsIfDirty() REQUIRES(mutex_);
  // True when the launch is a one-time timer whose instant lies before `nowMs`: replies leave it
  // out.
  bool isLaunchGoneAt(int64_t nowMs) REQUIRES(mutex_);
  void startActionsFrom(Action* first) REQUIRES(mutex_);
  Action* successorOf(const Action& action) const REQUIRES(mutex_);
  bool isWeeklyTurn(const Action& action, int32_t week, const std::string& time) REQUIRES(mutex_);
  Replay replayOf(const std::shared_ptr<Action>& action, const char* label) REQUIRES(mutex_);

  mutable RecursiveMutex mutex_;  // recursive: see the threading note above
  std::vector<std::shared_ptr<Action>> actions_ GUARDED_BY(mutex_);
  std::atomic<int32_t> id_{0};  // atomic: read without the lock, written under it
  std::string name_ GUARDED_BY(mutex_);
  std::string actionsJson_ GUARDED_BY(mutex_);
  std::string launchJson_ GUARDED_BY(mutex_);
  std::unique_ptr<HomeLaunch> homeLaunch_ GUARDED_BY(mutex_);
  bool actionsDirty_ GUARDED_BY(mutex_) = true;
  bool processing_ GUARDED_BY(mutex_) = false;
  uint32_t finishedCount_ GUARDED_BY(mutex_) = 0;
  uint64_t runNumber_ GUARDED_BY(mutex_) = 0;              // counts the runs started
  Action* successorToStart_ GUARDED_BY(mutex_) = nullptr;  // see startActionsFrom
  // Dropped by every change of the id, the name or a text.
  std::optional<ReplyForms> replyForms_ GUARDED_BY(mutex_);
};

}  // namespace zorvik

#endif  // ZORVIK_SCENE_SCENE_H_
