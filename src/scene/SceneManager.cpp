// SceneManager: the command operations over the registry of scenes and the store.
#include "scene/SceneManager.h"

#include <json-c/printbuf.h>

#include <algorithm>
#include <cctype>
#include <thread>

#include "scene/Scene.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/ResultCode.h"
#include "server/Shell.h"
#include "server/TextFile.h"
#include "server/ZorvikTunnel.h"
#include "store/DataManager.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

// Ids up to this value are assigned by the manager; callers may choose larger ones.
constexpr int32_t kLargestAutomaticId = 29999;

// The timer thread gets this long to settle before the clock is checked.
constexpr std::chrono::milliseconds kStartupPause(200);
// The NTP wait polls quickly for its first tries, then slowly, forever.
constexpr int kShortPauseTries = 20;
constexpr std::chrono::seconds kShortNtpPause(5);
constexpr std::chrono::seconds kLongNtpPause(20);
const char kNtpOkMark[] = "OK";

const char kRecordCommand[] = "logger stat_points_none ";
const char kRecordPrefix[] = "\"zorvik_scene_status=";
const char kRecordSuffix[] = "\"";

void sleepFor(std::chrono::milliseconds pause) { std::this_thread::sleep_for(pause); }

std::string reply(int code) { return ZorvikTunnel::buildErrorReply(code); }

// The reply for `code` with one more member; the reply takes ownership of `value`.
std::string replyWith(int code, const char* key, json_object* value) {
  json_object* object = ZorvikTunnel::buildErrorObject(code);
  json_object_object_add(object, key, value);
  return Json::takeText(object);
}

int writeSerialisedText(json_object* value, printbuf* out, int, int) {
  const auto* text = static_cast<const std::string*>(json_object_get_userdata(value));
  return printbuf_memappend(out, text->data(), static_cast<int>(text->size()));
}

void deleteSerialisedText(json_object*, void* text) { delete static_cast<std::string*>(text); }

// A value that json-c writes out as `text`, a JSON text it serialised before (a scene's reply
// form): the reply around it is still laid out by json-c, byte for byte as if the value had been
// built again.
json_object* serialisedValue(std::string text) {
  json_object* value = json_object_new_object();
  json_object_set_serializer(value, writeSerialisedText, new std::string(std::move(text)),
                             deleteSerialisedText);
  return value;
}

json_object* replyValueOf(Scene& scene) { return serialisedValue(scene.replyText()); }

std::string sceneListReply(const std::vector<std::shared_ptr<Scene>>& scenes) {
  json_object* list = json_object_new_array();
  for (const std::shared_ptr<Scene>& scene : scenes)
    json_object_array_add(list, replyValueOf(*scene));
  return replyWith(kSuccess, "scene_list", list);
}

void stopIfRunning(Scene& scene) {
  if (scene.isProcessing()) scene.stop();
}

}  // namespace

SceneManager* SceneManager::instance() {
  static SceneManager* const manager = new SceneManager(DataManager::getInstance());
  return manager;
}

SceneManager::SceneManager(DataManager* store, std::string ntpStatusFile, Sleeper sleeper)
    : store_(store),
      ntpStatusFile_(std::move(ntpStatusFile)),
      sleeper_(sleeper ? std::move(sleeper) : Sleeper(sleepFor)) {
  MutexLock lock(mutex_);
  store_->loadScenes(scenes_);
}

SceneManager::~SceneManager() = default;

std::shared_ptr<Scene> SceneManager::findScene(int32_t id) {
  for (const std::shared_ptr<Scene>& scene : scenes_) {
    if (scene->id() == id) return scene;
  }
  return nullptr;
}

template <typename Operation>
std::string SceneManager::withScene(int32_t id, Operation operation) {
  MutexLock lock(mutex_);
  const std::shared_ptr<Scene> scene = findScene(id);
  if (!scene) return reply(kSceneNotFound);
  return operation(*scene);
}

std::optional<int32_t> SceneManager::chooseId(int32_t requested) {
  // Large ids are the caller's own and kept as given, without a uniqueness check.
  if (requested > kLargestAutomaticId) return requested;
  int64_t largest = 0;
  for (const std::shared_ptr<Scene>& scene : scenes_)
    largest = std::max<int64_t>(largest, scene->id());
  // Once a caller's large id is registered, every automatic id lands above the limit.
  if (largest + 1 > kLargestAutomaticId) return std::nullopt;
  return static_cast<int32_t>(largest + 1);
}

void SceneManager::refreshAlarm(Scene& scene) {
  if (!ntpReady_.load()) return;
  // Only the re-read matters here: nothing schedules the alarm from this answer.
  scene.hasUsableAlarm();
}

std::string SceneManager::addScene(int32_t id, const std::string& name, const std::string& actions,
                                   const std::string& launch) {
  MutexLock lock(mutex_);
  const std::optional<int32_t> chosen = chooseId(id);
  if (!chosen) return reply(kUpdateDatabaseFailed);
  auto scene = std::make_shared<Scene>(*chosen, name, actions, launch);
  if (!store_->insertScene(*scene)) return reply(kUpdateDatabaseFailed);
  scenes_.push_back(scene);
  refreshAlarm(*scene);
  return replyWith(kSuccess, "id", json_object_new_int(*chosen));
}

std::string SceneManager::getAllScenes() {
  MutexLock lock(mutex_);
  return sceneListReply(scenes_);
}

std::string SceneManager::getSingleScene(int32_t id) {
  MutexLock lock(mutex_);
  const std::shared_ptr<Scene> scene = findScene(id);
  // An unknown id is not an error: the reply just has no scene.
  if (!scene) return reply(kSuccess);
  return replyWith(kSuccess, "scene", replyValueOf(*scene));
}

std::string SceneManager::getMultipleScene(int32_t startId, int32_t endId) {
  MutexLock lock(mutex_);
  std::vector<std::shared_ptr<Scene>> inRange;
  for (const std::shared_ptr<Scene>& scene : scenes_) {
    const int32_t id = scene->id();
    if (startId <= id && id <= endId) inRange.push_back(scene);
  }
  return sceneListReply(inRange);
}

// A running scene is stopped before its data changes, so no armed action timer outlives the
// change. The live scene changes only once the store has accepted the new values.
std::string SceneManager::updateScene(int32_t id, const std::string& name,
                                      const std::string& actions, const std::string& launch) {
  return withScene(id, [&](Scene& scene) REQUIRES(mutex_) {
    stopIfRunning(scene);
    if (!store_->modifyScene(Scene(id, name, actions, launch))) return reply(kUpdateDatabaseFailed);
    scene.setName(name);
    scene.setActionsJson(actions);
    scene.setLaunchJson(launch);
    refreshAlarm(scene);
    return reply(kSuccess);
  });
}

std::string SceneManager::startScene(int32_t id) {
  return withScene(id, [](Scene& scene) {
    if (scene.isProcessing()) return reply(kSceneIsProcessing);
    return reply(static_cast<int>(scene.execute()));
  });
}

std::string SceneManager::stopScene(int32_t id) {
  return withScene(id, [](Scene& scene) {
    stopIfRunning(scene);
    return reply(kSuccess);
  });
}

std::string SceneManager::setSceneLaunch(int32_t id, const std::string& launch) {
  return changeLaunch(id, launch, true);
}

std::string SceneManager::removeSceneLaunch(int32_t id) { return changeLaunch(id, "", false); }

std::string SceneManager::changeLaunch(int32_t id, const std::string& launch, bool refresh) {
  return withScene(id, [&](Scene& scene) REQUIRES(mutex_) {
    stopIfRunning(scene);
    if (!store_->modifyScene(Scene(id, scene.name(), scene.actionsJson(), launch))) {
      return reply(kUpdateDatabaseFailed);
    }
    scene.setLaunchJson(launch);
    if (refresh) refreshAlarm(scene);
    return reply(kSuccess);
  });
}

std::string SceneManager::removeScene(int32_t id) {
  return withScene(id, [&](Scene& scene) REQUIRES(mutex_) {
    stopIfRunning(scene);
    // A refused delete keeps the scene registered (stopped), in step with the store.
    if (!store_->deleteScene(id)) return reply(kUpdateDatabaseFailed);
    scenes_.erase(std::find(scenes_.begin(), scenes_.end(), scene.shared_from_this()));
    return reply(kSuccess);
  });
}

std::string SceneManager::startSceneByDeviceStatus(const std::string& mac, bool connected) {
  MutexLock lock(mutex_);
  // Every scene hears the event; several may start.
  bool started = false;
  for (const std::shared_ptr<Scene>& scene : scenes_) {
    if (scene->startByDeviceStatus(mac, connected)) started = true;
  }
  return reply(started ? kSuccess : kSceneHasNoHomeLaunch);
}

std::string SceneManager::isSceneProcessing(int32_t id) {
  return withScene(id, [](Scene& scene) {
    return replyWith(kSuccess, "processing", json_object_new_int(scene.isProcessing() ? 1 : 0));
  });
}

std::string SceneManager::getScenesCount() {
  MutexLock lock(mutex_);
  return replyWith(kSuccess, "count", json_object_new_int(static_cast<int32_t>(scenes_.size())));
}

// The registry is left as it is: it is rebuilt from the emptied store when the daemon restarts.
std::string SceneManager::resetScenes() {
  store_->reset();
  return reply(kSuccess);
}

// The replayed handlers may take minutes (the TV helper, a sibling service): they run without the
// manager's lock, over the scenes registered when the tick came.
std::string SceneManager::startSceneByCrontab(int32_t week, const std::string& time) {
  for (const std::shared_ptr<Scene>& scene : registeredScenes()) scene->startByCrontab(week, time);
  return reply(kSuccess);
}

std::vector<std::shared_ptr<Scene>> SceneManager::registeredScenes() {
  MutexLock lock(mutex_);
  return scenes_;
}

// Reports which scenes have their alarm enabled, as "id:1" or "id:0" joined by "|".
std::string SceneManager::recordSceneByCrontab() {
  MutexLock lock(mutex_);
  if (scenes_.empty()) return reply(kSuccess);
  std::string states;
  for (const std::shared_ptr<Scene>& scene : scenes_) {
    if (!states.empty()) states += '|';
    states += std::to_string(scene->id()) + ":" + (scene->isAlarmEnabled() ? "1" : "0");
  }
  const std::string record = kRecordPrefix + states + kRecordSuffix;
  ZLOG(kLogInfo) << "record: " << record;
  if (Shell::system(kRecordCommand + record) != 0) ZLOG(kLogError) << "system call error";
  return reply(kSuccess);
}

void SceneManager::start() {
  TimerEventManager::startThread();
  sleeper_(kStartupPause);
  if (isNtpOk()) {
    addExistingAlarms();
    return;
  }
  std::thread(&SceneManager::ntpWaitLoop, this).detach();
}

bool SceneManager::isNtpOk() {
  const std::optional<std::string> status = TextFile::read(ntpStatusFile_);
  if (!status) {
    ZLOG(kLogError) << "Can not find ntp status file: " << ntpStatusFile_;
    return false;
  }
  std::string line = status->substr(0, status->find('\n'));
  for (char& c : line) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ZLOG(kLogError) << "===========> upper buffer: " << line;
  return line.find(kNtpOkMark) != std::string::npos;
}

void SceneManager::ntpWaitLoop() {
  int tries = 0;
  while (!isNtpOk()) {
    const std::chrono::seconds pause = tries < kShortPauseTries ? kShortNtpPause : kLongNtpPause;
    ++tries;
    ZLOG(kLogInfo) << "Waiting for ntp status ok, times: " << tries
                   << " duration: " << pause.count();
    sleeper_(pause);
  }
  addExistingAlarms();
}

void SceneManager::addExistingAlarms() {
  MutexLock lock(mutex_);
  ZLOG(kLogInfo) << "Ntp status ok, now add existing alarm";
  // The eligible scenes are gathered (which re-reads their alarms) but handed to no scheduler:
  // weekly starts arrive through the crontab tick instead.
  std::vector<std::shared_ptr<Scene>> alarmScenes;
  for (const std::shared_ptr<Scene>& scene : scenes_) {
    if (scene->hasUsableAlarm()) alarmScenes.push_back(scene);
  }
  ntpReady_.store(true);
}

}  // namespace zorvik
