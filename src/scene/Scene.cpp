// Scene: reads a scene's launch text, runs its actions and replays the crontab tick.
#include "scene/Scene.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "action/Action.h"
#include "scene/ActionListParser.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/ResultCode.h"
#include "server/Shell.h"
#include "server/Text.h"

namespace zorvik {
namespace {

constexpr char kFeedProgram[] = "/usr/sbin/vantpost ";
constexpr int kStatusMessageType = 5;
constexpr int32_t kMsPerMinute = 60000;
constexpr int64_t kCrontabWindowMs = kMsPerMinute;

bool containsDay(const std::vector<int32_t>& days, int32_t day) {
  for (int32_t d : days) {
    if (d == day) return true;
  }
  return false;
}

int64_t currentTimeMs() { return static_cast<int64_t>(time(nullptr)) * 1000; }

// Instants before and after every alarm's: toJson() then shows a one-time timer launch, or
// leaves it out.
constexpr int64_t kBeforeEveryAlarm = std::numeric_limits<int64_t>::min();
constexpr int64_t kAfterEveryAlarm = std::numeric_limits<int64_t>::max();

}  // namespace

Scene::Scene() : Scene(0, "", "", "") {}

Scene::Scene(int32_t id, std::string name, std::string actionsJson, std::string launchJson)
    : id_(id),
      name_(std::move(name)),
      actionsJson_(std::move(actionsJson)),
      launchJson_(std::move(launchJson)) {
  parseLaunch();
}

Scene::~Scene() = default;

bool Scene::clearAlarm() {
  MutexLock lock(mutex_);
  launchJson_.clear();
  parseLaunch();
  return true;
}

void Scene::onAlarm() {
  ZLOG(kLogInfo) << "Scene alarm event trigger";
  execute();
}

bool Scene::isAlarmEnabled() {
  MutexLock lock(mutex_);
  return isEnabled();
}

bool Scene::hasUsableAlarm() {
  MutexLock lock(mutex_);
  return isEnabled() && isValid();
}

void Scene::setId(int32_t id) {
  MutexLock lock(mutex_);
  id_.store(id, std::memory_order_relaxed);
  replyForms_.reset();
}

std::string Scene::name() const {
  MutexLock lock(mutex_);
  return name_;
}

void Scene::setName(std::string name) {
  MutexLock lock(mutex_);
  name_ = std::move(name);
  replyForms_.reset();
}

std::string Scene::actionsJson() const {
  MutexLock lock(mutex_);
  return actionsJson_;
}

void Scene::setActionsJson(std::string actionsJson) {
  MutexLock lock(mutex_);
  actionsJson_ = std::move(actionsJson);
  actionsDirty_ = true;
  replyForms_.reset();
}

std::string Scene::launchJson() const {
  MutexLock lock(mutex_);
  return launchJson_;
}

void Scene::setLaunchJson(std::string launchJson) {
  MutexLock lock(mutex_);
  launchJson_ = std::move(launchJson);
  parseLaunch();
}

void Scene::parseLaunch() {
  MutexLock lock(mutex_);
  replyForms_.reset();
  homeLaunch_.reset();
  setAlarmText("");
  if (launchJson_.empty()) return;

  const Json::Document document = Json::parse(launchJson_);
  json_object* root = document.get();
  if (root == nullptr) {
    ZLOG(kLogInfo) << "Scene launch not json format";
    return;
  }
  json_object* value = Json::member(root, "go_home");
  const bool goHome = value != nullptr;
  if (goHome || (value = Json::member(root, "leave_home")) != nullptr) {
    json_object* mac = Json::member(value, "mac");
    if (mac == nullptr) {
      ZLOG(kLogError) << (goHome ? "Scene go_home mac NULL" : "Scene leave_home mac NULL");
    } else {
      json_object* enabled = Json::member(value, "enabled");
      homeLaunch_.reset(new HomeLaunch{Json::text(mac), goHome,
                                       enabled == nullptr || json_object_get_boolean(enabled)});
    }
  } else if ((value = Json::member(root, "timer")) != nullptr) {
    setAlarmText(json_object_to_json_string(value));
  } else {
    ZLOG(kLogError) << "Scene launch mode format error";
    launchJson_.clear();
  }
}

void Scene::clearActions() {
  MutexLock lock(mutex_);
  actions_.clear();
}

void Scene::parseActions() {
  MutexLock lock(mutex_);
  actions_ = ActionListParser::parse(actionsJson_, weak_from_this());
  actionsDirty_ = false;
}

json_object* Scene::toJson(int64_t nowMs) {
  MutexLock lock(mutex_);
  json_object* object = json_object_new_object();
  json_object_object_add(object, "id", json_object_new_int(id()));
  json_object_object_add(object, "name", json_object_new_string(name_.c_str()));

  Json::Document actions = Json::parse(actionsJson_);
  if (json_object_is_type(actions.get(), json_type_array)) {
    json_object_object_add(object, "action_list", actions.release());
  }

  if (!launchJson_.empty()) {
    Json::Document launch = Json::parse(launchJson_);
    const bool gone = isLaunchGoneAt(nowMs);
    if (launch && !gone) json_object_object_add(object, "launch", launch.release());
  }
  return object;
}

bool Scene::isLaunchGoneAt(int64_t nowMs) {
  if (launchJson_.empty()) return false;
  const int64_t fireTime = utcTime();
  return fireTime > 0 && fireTime < nowMs;
}

std::string Scene::replyText() { return replyText(currentTimeMs()); }

std::string Scene::replyText(int64_t nowMs) {
  MutexLock lock(mutex_);
  if (!replyForms_) {
    ReplyForms forms;
    forms.launchShown = Json::takeText(toJson(kBeforeEveryAlarm));
    if (isLaunchGoneAt(kAfterEveryAlarm))
      forms.launchGone = Json::takeText(toJson(kAfterEveryAlarm));
    replyForms_ = std::move(forms);
  }
  return isLaunchGoneAt(nowMs) ? replyForms_->launchGone : replyForms_->launchShown;
}

uint32_t Scene::execute() {
  MutexLock lock(mutex_);
  if (processing_) return kSceneIsProcessing;
  finishedCount_ = 0;
  processing_ = true;
  ++runNumber_;
  rebuildActionsIfDirty();
  ZLOG(kLogInfo) << "Scene action size is " << actions_.size();
  if (actions_.empty()) {
    processing_ = false;
    return kParameterFormatError;
  }
  startActionsFrom(actions_.front().get());
  return kSuccess;
}

void Scene::startActionsFrom(Action* first) {
  // A non-blocking action has its successor started at once (onActionStarted names it). The
  // successors are started here one after another rather than from inside each other, so a
  // long list of non-blocking actions cannot exhaust a small thread stack.
  for (Action* action = first; action != nullptr;) {
    successorToStart_ = nullptr;
    action->execute();
    action = successorToStart_;
  }
}

void Scene::rebuildActionsIfDirty() {
  if (!actionsDirty_) return;
  ZLOG(kLogInfo) << "Scene actions dirty";
  clearActions();
  parseActions();
}

void Scene::stop() {
  MutexLock lock(mutex_);
  if (!processing_) return;
  for (const std::shared_ptr<Action>& action : actions_) {
    if (action->isRunning()) action->killTimer();
  }
  processing_ = false;
  finishedCount_ = 0;
}

bool Scene::isProcessing() const {
  MutexLock lock(mutex_);
  return processing_;
}

size_t Scene::actionCount() const {
  MutexLock lock(mutex_);
  return actions_.size();
}

std::vector<std::shared_ptr<Action>> Scene::actions() const {
  MutexLock lock(mutex_);
  return actions_;
}

Action* Scene::successorOf(const Action& action) const {
  const size_t next = action.index() + 1;
  return next < actions_.size() ? actions_[next].get() : nullptr;
}

void Scene::onActionStarted(Action* action) {
  MutexLock lock(mutex_);
  if (!action->block()) successorToStart_ = successorOf(*action);
}

std::optional<Scene::RunReport> Scene::onActionFinished(Action* action, bool report) {
  Action* next = successorOf(*action);
  if (next != nullptr && action->block()) startActionsFrom(next);
  ++finishedCount_;
  if (finishedCount_ != actions_.size()) return std::nullopt;
  if (report) return RunReport{feedCommand(), runNumber_};
  processing_ = false;
  return std::nullopt;
}

void Scene::reportRunEnd(const RunReport& report) {
  ZSHELL_RUN(kLogInfo, report.feedCommand);
  MutexLock lock(mutex_);
  if (runNumber_ == report.run) processing_ = false;
}

bool Scene::finishFiredAction(Action& action) {
  std::optional<RunReport> runEnd;
  {
    MutexLock lock(mutex_);
    const bool cancelled = action.takeCancelledFiring();
    if (cancelled || !action.isRunning()) return false;
    action.TimerObject::timerEvent();
    runEnd = onActionFinished(&action, !launchJson_.empty());
  }
  if (runEnd) reportRunEnd(*runEnd);
  return true;
}

std::string Scene::buildStatusMessage() const {
  MutexLock lock(mutex_);
  json_object* list = json_object_new_array();
  if (!actions_.empty()) {
    json_object* first = json_object_new_object();
    json_object_object_add(first, "name", json_object_new_string(actions_[0]->name().c_str()));
    json_object_object_add(first, "keyName",
                           json_object_new_string(actions_[0]->keyName().c_str()));
    json_object_array_add(list, first);
  }
  json_object* data = json_object_new_object();
  json_object_object_add(data, "name", json_object_new_string(name_.c_str()));
  json_object_object_add(data, "list", list);
  json_object* message = json_object_new_object();
  json_object_object_add(message, "type", json_object_new_int(kStatusMessageType));
  json_object_object_add(message, "data", data);
  return Json::takeText(message);
}

std::string Scene::feedCommand() const {
  // The message travels as one single-quoted word; a quote in a scene name cannot end it.
  return kFeedProgram + Shell::quote(buildStatusMessage());
}

bool Scene::startByDeviceStatus(const std::string& mac, bool connected) {
  MutexLock lock(mutex_);
  if (!homeLaunch_ || !homeLaunch_->enabled) return false;
  const std::string& expected = homeLaunch_->mac;
  if (mac.size() != expected.size()) return false;
  for (size_t i = 0; i < mac.size(); ++i) {
    if (std::toupper(static_cast<unsigned char>(mac[i])) !=
        std::toupper(static_cast<unsigned char>(expected[i]))) {
      return false;
    }
  }
  if (homeLaunch_->goHome != connected) return false;
  execute();
  return true;
}

void Scene::startByCrontab(int32_t week, const std::string& time) {
  startByCrontab(week, time, static_cast<int64_t>(::time(nullptr)));
}

void Scene::startByCrontab(int32_t week, const std::string& time, int64_t nowSeconds) {
  for (const Replay& replay : crontabReplays(week, time, nowSeconds)) {
    ZLOG(kLogInfo) << replay.logLine;
    replay.action->runByCrontab();
  }
}

std::vector<Scene::Replay> Scene::crontabReplays(int32_t week, const std::string& time,
                                                 int64_t nowSeconds) {
  MutexLock lock(mutex_);
  rebuildActionsIfDirty();
  std::vector<Replay> replays;
  if (isEnabled() && !actions_.empty()) {
    for (const std::shared_ptr<Action>& action : actions_) {
      if (isWeeklyTurn(*action, week, time)) replays.push_back(replayOf(action, "execute1: "));
    }
  }
  if (isEnabled() && !alarmText().empty() && utcTime() > 0) {
    for (const std::shared_ptr<Action>& action : actions_) {
      // Modular arithmetic, as the difference is read unsigned: a clock near the epoch (a router
      // before its first time sync) and a far instant must not overflow a signed number.
      const uint64_t late = static_cast<uint64_t>(nowSeconds) * 1000 -
                            static_cast<uint64_t>(utcTime()) -
                            static_cast<uint64_t>(static_cast<int64_t>(action->delay()));
      if (late < static_cast<uint64_t>(kCrontabWindowMs)) {
        replays.push_back(replayOf(action, "execute1 once: "));
      }
    }
  }
  return replays;
}

bool Scene::isWeeklyTurn(const Action& action, int32_t week, const std::string& time) {
  const int32_t delay = action.delay();
  const std::string& alarmTime = this->time();
  if (delay < kMsPerMinute) return startsWith(alarmTime, time) && containsDay(repeat(), week);
  std::string shifted;
  const int32_t dayOffset = shiftTime(alarmTime, delay, shifted);
  if (dayOffset < 0 || !startsWith(shifted, time)) return false;
  // Wide arithmetic: the caller's weekday may be any 32-bit number.
  const int64_t weekday = (static_cast<int64_t>(week) + 7 - dayOffset) % 7;
  return containsDay(repeat(), static_cast<int32_t>(weekday));
}

Scene::Replay Scene::replayOf(const std::shared_ptr<Action>& action, const char* label) {
  return Replay{
      action, label + action->name() + " " + time() + " " + std::to_string(action->delay()) + "ms"};
}

int32_t Scene::shiftTime(const std::string& time, int32_t delayMs, std::string& shifted) {
  const size_t colon = time.find(':');
  if (colon == std::string::npos) return -1;
  const size_t nextColon = time.find(':', colon + 1);
  const std::string minutesPart = time.substr(colon + 1, nextColon - colon - 1);
  // Wide arithmetic: the stored time text may hold any number, the delay is added to it.
  int64_t hours = atoi(time.substr(0, colon).c_str());
  const int64_t minutes = atoi(minutesPart.c_str()) + static_cast<int64_t>(delayMs / kMsPerMinute);
  hours += minutes / 60;
  char text[32];
  snprintf(text, sizeof(text), "%02lld:%02lld", static_cast<long long>(hours % 24),
           static_cast<long long>(minutes % 60));
  shifted = text;
  return static_cast<int32_t>((hours / 24) % 7);
}

}  // namespace zorvik
