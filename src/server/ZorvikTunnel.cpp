// ZorvikTunnel: the command table and the reading, logging and dispatch of one request.
#include "server/ZorvikTunnel.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "scene/SceneManager.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/ResultCode.h"
#include "server/Text.h"

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

// How a member is read. Integers and booleans take json-c's conversions of other JSON types,
// and so do strings, which must not read as empty; an array must be a JSON array and, like JSON
// text, travels in json-c's serialisation, which is what the scene manager stores.
enum Type { kInteger, kBoolean, kNonEmptyString, kArray, kJsonText };

struct Member {
  const char* key;
  Type type;
};

constexpr Member kMembers[] = {
    {"id", kInteger},         {"start_id", kInteger},    {"end_id", kInteger},
    {"week", kInteger},       {"connected", kBoolean},   {"name", kNonEmptyString},
    {"mac", kNonEmptyString}, {"time", kNonEmptyString}, {"action_list", kArray},
    {"launch", kJsonText},
};

constexpr char kOptionalMark = '?';
constexpr int32_t kNoSceneId = -1;
constexpr char kNowPlaceholder[] = "now";

using Value = std::variant<int32_t, bool, std::string>;
// The values of a command's members by key, in the order of its members.
using Values = std::vector<std::pair<std::string_view, Value>>;
using Operation = std::string (*)(SceneManager& manager, const Values& values);

// One command: its word, its members, its log lines and its scene-manager operation.
struct Command {
  const char* word;
  // The keys of the members, in the order the operation takes them. Each must be present (a JSON
  // null is absent) unless marked optional with "?": then an absent integer reads as -1 (the id
  // addScene then picks itself) and anything else as empty text.
  const char* members;
  // The info lines logged before the operation runs, one per line of this text: "{key}" shows
  // that member's value (a boolean as 1 or 0), "{now}" the time in seconds since the epoch. A
  // line that would show an empty value (an absent optional member) is left out.
  const char* log;
  Operation operation;
};

template <typename... Parameters, size_t... index>
std::string call(std::string (SceneManager::*operation)(Parameters...), SceneManager& manager,
                 const Values& values, std::index_sequence<index...>) {
  return (manager.*operation)(std::get<std::decay_t<Parameters>>(values[index].second)...);
}

template <typename... Parameters>
std::string call(std::string (SceneManager::*operation)(Parameters...), SceneManager& manager,
                 const Values& values) {
  return call(operation, manager, values, std::index_sequence_for<Parameters...>());
}

// Calls `operation` with the values in order, each taken as the type of its parameter.
template <auto operation>
std::string run(SceneManager& manager, const Values& values) {
  return call(operation, manager, values);
}

// The commands, in the order the command word is matched against them. The crontab tick's own
// clock is only logged, to line the tick up with the router's time.
constexpr Command kCommands[] = {
    {"scene_setting", "id? name action_list launch?",
     "addScene: id={id}\naddScene: name={name}\naddScene: actions={action_list}\n"
     "addScene: launch={launch}",
     run<&SceneManager::addScene>},
    {"get_scene_setting", "", "get all scenes", run<&SceneManager::getAllScenes>},
    {"get_single_scene_setting", "id", "getSingleScene: id={id}",
     run<&SceneManager::getSingleScene>},
    {"get_multiple_scene_setting", "start_id end_id",
     "getMultipleScene: startId={start_id}, endId={end_id}", run<&SceneManager::getMultipleScene>},
    {"scene_update", "id name action_list launch?",
     "updateScene: id={id}, name={name}\nupdateScene: actions={action_list}\n"
     "updateScene: launch={launch}",
     run<&SceneManager::updateScene>},
    {"scene_start", "id", "startScene: id={id}", run<&SceneManager::startScene>},
    {"scene_stop", "id", "stopScene: id={id}", run<&SceneManager::stopScene>},
    {"scene_launch", "id launch", "setSceneLaunch: id={id}, launch={launch}",
     run<&SceneManager::setSceneLaunch>},
    {"scene_launch_delete", "id", "removeSceneLaunch: id={id}",
     run<&SceneManager::removeSceneLaunch>},
    {"scene_delete", "id", "removeScene: id={id}", run<&SceneManager::removeScene>},
    {"scene_start_by_device_status", "mac connected",
     "startSceneByDeviceStatus: mac={mac}, connected={connected}",
     run<&SceneManager::startSceneByDeviceStatus>},
    {"is_scene_processing", "id", "isSceneProcessing: id={id}",
     run<&SceneManager::isSceneProcessing>},
    {"get_scene_count", "", "get scenes count", run<&SceneManager::getScenesCount>},
    {"reset_scenes", "", "reset scenes", run<&SceneManager::resetScenes>},
    {"scene_start_by_crontab", "week time",
     "startSceneByCrontab: week={week}, time={time}, utc:{now}",
     run<&SceneManager::startSceneByCrontab>},
    {"scene_record_by_crontab", "", "recordSceneByCrontab",
     run<&SceneManager::recordSceneByCrontab>},
};

// The piece of `text` up to the first `separator`; `text` loses the piece and the separator.
std::string_view takePiece(std::string_view& text, char separator) {
  const size_t end = std::min(text.find(separator), text.size());
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return piece;
}

// The value of `member` in `request`, or nothing when it is refused.
std::optional<Value> read(json_object* request, const Member& member, bool optional) {
  json_object* value = Json::member(request, member.key);
  if (value == nullptr && !optional) return std::nullopt;
  if (value == nullptr) return member.type == kInteger ? Value(kNoSceneId) : Value(std::string());
  switch (member.type) {
    case kInteger:
      return Value(json_object_get_int(value));
    case kBoolean:
      return Value(json_object_get_boolean(value) != 0);
    case kNonEmptyString:
      if (Json::text(value).empty()) return std::nullopt;
      return Value(Json::text(value));
    case kArray:
      if (!json_object_is_type(value, json_type_array)) return std::nullopt;
      [[fallthrough]];
    case kJsonText:
      return Value(std::string(json_object_to_json_string(value)));
  }
  return std::nullopt;
}

// The command's member values, or nothing when one of them is refused.
std::optional<Values> readMembers(const Command& command, json_object* request) {
  Values values;
  for (std::string_view keys = command.members; !keys.empty();) {
    std::string_view key = takePiece(keys, ' ');
    const bool optional = key.back() == kOptionalMark;
    if (optional) key.remove_suffix(1);
    std::optional<Value> value = read(request, *findWord(kMembers, &Member::key, key), optional);
    if (!value) return std::nullopt;
    values.emplace_back(key, std::move(*value));
  }
  return values;
}

// What a log line shows for the placeholder `key`.
std::string shown(const Values& values, std::string_view key) {
  if (key == kNowPlaceholder) return std::to_string(std::time(nullptr));
  for (const auto& [member, value] : values) {
    if (member != key) continue;
    if (const int32_t* number = std::get_if<int32_t>(&value)) return std::to_string(*number);
    if (const bool* flag = std::get_if<bool>(&value)) return *flag ? "1" : "0";
    return std::get<std::string>(value);
  }
  return "";
}

void logCall(const Command& command, const Values& values) {
  for (std::string_view format = command.log; !format.empty();) {
    std::string_view line = takePiece(format, '\n');
    std::string text;
    bool complete = true;
    for (size_t open; (open = line.find('{')) != std::string_view::npos;) {
      text += line.substr(0, open);
      line.remove_prefix(open + 1);
      const std::string value = shown(values, takePiece(line, '}'));
      complete = complete && !value.empty();
      text += value;
    }
    if (complete) ZLOG(kLogInfo) << text << line;
  }
}

// Runs the command named by `word`: reads and checks its members, logs the call and returns the
// operation's reply; empty when a member is refused, "api not exists" for an unknown word.
std::string dispatch(const std::string& word, json_object* request, SceneManager& manager) {
  const Command* command = findWord(kCommands, &Command::word, word);
  if (command == nullptr) return ZorvikTunnel::buildErrorReply(kApiNotExists);
  const std::optional<Values> values = readMembers(*command, request);
  if (!values) return "";
  logCall(*command, *values);
  return command->operation(manager, *values);
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
  return Json::takeText(buildErrorObject(code));
}

}  // namespace zorvik
