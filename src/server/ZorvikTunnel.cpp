#include "server/ZorvikTunnel.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <memory>

#include "scene/SceneManager.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/ResultCode.h"

namespace zorvik {
namespace {

struct ResultMessage {
  int code;
  const char* msg;
};

// The reply messages; the misspelt "thirdparty unsupport" is what callers match on.
constexpr ResultMessage kResultMessages[] = {
    {kApiNotExists, "api not exists"},
    {kParameterMissing, "parameter missing"},
    {kParameterEmpty, "parameter empty"},
    {kParameterFormatError, "parameter format error"},
    {kUnknownError, "unknown error"},
    {kUpdateDatabaseFailed, "update database failed"},
    {kSceneNotFound, "scene not found"},
    {kThirdPartyUnsupported, "thirdparty unsupport"},
    {kHalvexReturnError, "halvex return error"},
    {kSceneIsProcessing, "scene is processing"},
    {kSceneHasNoHomeLaunch, "scene has not home launch mode"},
};

// json-c spends some 700 bytes on every object and 300 on every array it builds, so parsing a
// request of nothing but "{}," would take about 270 times its size: 17 MiB for a frame at the
// bound, and three workers doing so at once would take the daemon past its memory budget. A
// request holding more opening brackets than this is refused as malformed without being parsed;
// no request a caller means comes near it (a scene's action takes one or two).
constexpr std::ptrdiff_t kMaxOpeningBrackets = 4096;

bool hasTooManyContainers(const std::string& text) {
  return std::count_if(text.begin(), text.end(), [](char c) { return c == '{' || c == '['; }) >
         kMaxOpeningBrackets;
}

// The id handed to addScene when the caller gives none: the manager then picks the next free one.
constexpr int32_t kNoSceneId = -1;

// A present member in json-c's serialisation, which is what the scene manager stores.
std::string jsonTextOf(json_object* value) { return json_object_to_json_string(value); }

// The members shared by "scene_setting" and "scene_update".
struct SceneBody {
  std::string name;
  std::string actions;
  std::string launch;  // empty when the caller gave none
};

// Reads "name" (non-empty) and "action_list" (an array), and "launch" when present.
bool readSceneBody(json_object* request, SceneBody& body) {
  json_object* name = Json::member(request, "name");
  json_object* actions = Json::member(request, "action_list");
  if (name == nullptr || actions == nullptr) return false;
  body.name = Json::text(name);
  if (body.name.empty() || !json_object_is_type(actions, json_type_array)) return false;
  body.actions = jsonTextOf(actions);
  json_object* launch = Json::member(request, "launch");
  if (launch != nullptr) body.launch = jsonTextOf(launch);
  return true;
}

// Each command handler reads its members, logs the call and returns the manager's reply; an
// empty reply means the members were refused.
using CommandHandler = std::string (*)(json_object* request, SceneManager& manager);

std::string addScene(json_object* request, SceneManager& manager) {
  SceneBody body;
  if (!readSceneBody(request, body)) return "";
  json_object* id = Json::member(request, "id");
  const int32_t sceneId = id != nullptr ? json_object_get_int(id) : kNoSceneId;
  ZLOG(kLogInfo) << "addScene: id=" << sceneId;
  ZLOG(kLogInfo) << "addScene: name=" << body.name;
  ZLOG(kLogInfo) << "addScene: actions=" << body.actions;
  if (!body.launch.empty()) ZLOG(kLogInfo) << "addScene: launch=" << body.launch;
  return manager.addScene(sceneId, body.name, body.actions, body.launch);
}

std::string getMultipleScene(json_object* request, SceneManager& manager) {
  json_object* startId = Json::member(request, "start_id");
  json_object* endId = Json::member(request, "end_id");
  if (startId == nullptr || endId == nullptr) return "";
  const int32_t start = json_object_get_int(startId);
  const int32_t end = json_object_get_int(endId);
  ZLOG(kLogInfo) << "getMultipleScene: startId=" << start << ", endId=" << end;
  return manager.getMultipleScene(start, end);
}

std::string updateScene(json_object* request, SceneManager& manager) {
  json_object* id = Json::member(request, "id");
  SceneBody body;
  if (id == nullptr || !readSceneBody(request, body)) return "";
  const int32_t sceneId = json_object_get_int(id);
  ZLOG(kLogInfo) << "updateScene: id=" << sceneId << ", name=" << body.name;
  ZLOG(kLogInfo) << "updateScene: actions=" << body.actions;
  if (!body.launch.empty()) ZLOG(kLogInfo) << "updateScene: launch=" << body.launch;
  return manager.updateScene(sceneId, body.name, body.actions, body.launch);
}

std::string setSceneLaunch(json_object* request, SceneManager& manager) {
  json_object* id = Json::member(request, "id");
  json_object* launch = Json::member(request, "launch");
  if (id == nullptr || launch == nullptr) return "";
  const std::string launchText = jsonTextOf(launch);
  if (launchText.empty()) return "";
  const int32_t sceneId = json_object_get_int(id);
  ZLOG(kLogInfo) << "setSceneLaunch: id=" << sceneId << ", launch=" << launchText;
  return manager.setSceneLaunch(sceneId, launchText);
}

std::string startSceneByDeviceStatus(json_object* request, SceneManager& manager) {
  json_object* mac = Json::member(request, "mac");
  json_object* connected = Json::member(request, "connected");
  if (mac == nullptr || connected == nullptr) return "";
  const std::string macText = Json::text(mac);
  if (macText.empty()) return "";
  const bool isConnected = json_object_get_boolean(connected);
  ZLOG(kLogInfo) << "startSceneByDeviceStatus: mac=" << macText
                 << ", connected=" << (isConnected ? 1 : 0);
  return manager.startSceneByDeviceStatus(macText, isConnected);
}

std::string startSceneByCrontab(json_object* request, SceneManager& manager) {
  json_object* week = Json::member(request, "week");
  json_object* timeOfDay = Json::member(request, "time");
  if (week == nullptr || timeOfDay == nullptr) return "";
  const std::string timeText = Json::text(timeOfDay);
  if (timeText.empty()) return "";
  const int32_t weekday = json_object_get_int(week);
  // The tick's own clock is only logged, to line the tick up with the router's time.
  ZLOG(kLogInfo) << "startSceneByCrontab: week=" << weekday << ", time=" << timeText
                 << ", utc:" << std::time(nullptr);
  return manager.startSceneByCrontab(weekday, timeText);
}

// Commands that take only a scene id: "id" must be present; logged as `label` + ": id=" + id.
template <const char* label, std::string (SceneManager::*operation)(int32_t)>
std::string runWithId(json_object* request, SceneManager& manager) {
  json_object* id = Json::member(request, "id");
  if (id == nullptr) return "";
  const int32_t sceneId = json_object_get_int(id);
  ZLOG(kLogInfo) << label << ": id=" << sceneId;
  return (manager.*operation)(sceneId);
}

// Commands without members: logged as `label`.
template <const char* label, std::string (SceneManager::*operation)()>
std::string runPlain(json_object*, SceneManager& manager) {
  ZLOG(kLogInfo) << label;
  return (manager.*operation)();
}

constexpr char kGetAllScenes[] = "get all scenes";
constexpr char kGetSingleScene[] = "getSingleScene";
constexpr char kStartScene[] = "startScene";
constexpr char kStopScene[] = "stopScene";
constexpr char kRemoveSceneLaunch[] = "removeSceneLaunch";
constexpr char kRemoveScene[] = "removeScene";
constexpr char kIsSceneProcessing[] = "isSceneProcessing";
constexpr char kGetScenesCount[] = "get scenes count";
constexpr char kResetScenes[] = "reset scenes";
constexpr char kRecordSceneByCrontab[] = "recordSceneByCrontab";

struct Command {
  const char* word;
  CommandHandler handler;
};

// The commands, in the order the command word is matched against them.
constexpr Command kCommands[] = {
    {"scene_setting", addScene},
    {"get_scene_setting", runPlain<kGetAllScenes, &SceneManager::getAllScenes>},
    {"get_single_scene_setting", runWithId<kGetSingleScene, &SceneManager::getSingleScene>},
    {"get_multiple_scene_setting", getMultipleScene},
    {"scene_update", updateScene},
    {"scene_start", runWithId<kStartScene, &SceneManager::startScene>},
    {"scene_stop", runWithId<kStopScene, &SceneManager::stopScene>},
    {"scene_launch", setSceneLaunch},
    {"scene_launch_delete", runWithId<kRemoveSceneLaunch, &SceneManager::removeSceneLaunch>},
    {"scene_delete", runWithId<kRemoveScene, &SceneManager::removeScene>},
    {"scene_start_by_device_status", startSceneByDeviceStatus},
    {"is_scene_processing", runWithId<kIsSceneProcessing, &SceneManager::isSceneProcessing>},
    {"get_scene_count", runPlain<kGetScenesCount, &SceneManager::getScenesCount>},
    {"reset_scenes", runPlain<kResetScenes, &SceneManager::resetScenes>},
    {"scene_start_by_crontab", startSceneByCrontab},
    {"scene_record_by_crontab",
     runPlain<kRecordSceneByCrontab, &SceneManager::recordSceneByCrontab>},
};

// Runs the command named by `word`; "api not exists" when no command has that name.
std::string dispatch(const std::string& word, json_object* request, SceneManager& manager) {
  for (const Command& command : kCommands) {
    if (word == command.word) return command.handler(request, manager);
  }
  return ZorvikTunnel::buildErrorReply(kApiNotExists);
}

}  // namespace

ZorvikTunnel& ZorvikTunnel::getInstance() {
  static ZorvikTunnel* tunnel = new ZorvikTunnel();
  return *tunnel;
}

std::string ZorvikTunnel::handleCommand(const std::string& parameter) {
  return handleCommand(parameter, *SceneManager::instance());
}

std::string ZorvikTunnel::handleCommand(const std::string& parameter, SceneManager& manager) {
  if (hasTooManyContainers(parameter)) return buildErrorReply(kParameterFormatError);
  const Json::Document request = Json::parse(parameter);
  if (request == nullptr) return buildErrorReply(kParameterFormatError);
  std::string reply;
  json_object* word = Json::member(request.get(), "command");
  if (word != nullptr) reply = dispatch(Json::text(word), request.get(), manager);
  // A missing "command", refused members and an empty answer all read as a malformed request.
  if (reply.empty()) reply = buildErrorReply(kParameterFormatError);
  return reply;
}

const char* ZorvikTunnel::messageOf(int code) {
  for (const ResultMessage& entry : kResultMessages) {
    if (entry.code == code) return entry.msg;
  }
  return "";
}

json_object* ZorvikTunnel::buildErrorObject(int code) {
  json_object* object = json_object_new_object();
  json_object_object_add(object, "code", json_object_new_int(code));
  json_object_object_add(object, "msg", json_object_new_string(messageOf(code)));
  return object;
}

std::string ZorvikTunnel::buildErrorReply(int code) {
  json_object* object = buildErrorObject(code);
  return Json::takeText(object);
}

}  // namespace zorvik
