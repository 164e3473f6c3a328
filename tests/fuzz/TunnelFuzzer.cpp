// Fuzzes the request tunnel end to end over a fresh scene store. Each input line is one request
// text handed to ZorvikTunnel::handleCommand, served by a scene manager over a store in a
// scratch folder (never the daemon's own); the timer thread runs, so started scenes run their
// actions, with every shell command swallowed (requests naming TV actions are skipped). Every reply
// must be a JSON object with an integer "code". At the end every scene is stopped, after which no
// timer may be left pending, and unless the requests reset the store, the stored scenes must be
// exactly the registered ones.
#include <json-c/json.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "FuzzEnvironment.h"
#include "scene/Scene.h"
#include "scene/SceneManager.h"
#include "server/ZorvikTunnel.h"
#include "store/DataManager.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

const char kStoreFolder[] = "store/";
const char kFactoryFile[] = "factory.conf";
const char kNtpStatusFile[] = "ntp.status";
const char kResetCommand[] = "reset_scenes";
const char kAllScenesRequest[] = "{\"command\":\"get_scene_setting\"}";

void require(bool condition) {
  if (!condition) std::abort();
}

struct JsonDeleter {
  void operator()(json_object* object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, JsonDeleter>;

json_object* member(json_object* object, const char* key) {
  json_object* value = nullptr;
  json_object_object_get_ex(object, key, &value);
  return value;
}

std::string textOf(json_object* value) {
  return value == nullptr ? std::string() : json_object_to_json_string(value);
}

// A reply must be a JSON object with an integer "code"; returns it parsed.
Json checkedReply(const std::string& reply) {
  Json parsed(json_tokener_parse(reply.c_str()));
  require(parsed != nullptr && json_object_is_type(parsed.get(), json_type_object));
  require(json_object_is_type(member(parsed.get(), "code"), json_type_int));
  return parsed;
}

// A TV action waits up to a minute for the set to wake, holding the timer thread (the TV helper
// has tests of its own); requests that could store one are left out so that scenes keep running.
bool mayDriveTv(const std::string& request) {
  Json parsed(json_tokener_parse(request.c_str()));
  if (parsed == nullptr) return false;
  const std::string text = json_object_to_json_string(parsed.get());
  return text.find("\"tevra\"") != std::string::npos ||
         text.find("\"tarwen\"") != std::string::npos;
}

// True when the request names the command that deletes the store under the registry.
bool resetsStore(const std::string& request) {
  Json parsed(json_tokener_parse(request.c_str()));
  json_object* command = parsed == nullptr ? nullptr : member(parsed.get(), "command");
  const char* word = command == nullptr ? nullptr : json_object_get_string(command);
  return word != nullptr && std::string(word) == kResetCommand;
}

// The reply form of each scene by id: what a client sees of it.
using SceneView = std::map<int32_t, std::string>;

std::string viewOf(json_object* scene) {
  return textOf(member(scene, "name")) + "|" + textOf(member(scene, "action_list"));
}

SceneView registeredScenes(json_object* allScenesReply) {
  SceneView view;
  json_object* list = member(allScenesReply, "scene_list");
  require(json_object_is_type(list, json_type_array));
  for (size_t i = 0; i < json_object_array_length(list); ++i) {
    json_object* scene = json_object_array_get_idx(list, i);
    view[json_object_get_int(member(scene, "id"))] = viewOf(scene);
  }
  return view;
}

SceneView storedScenes(const std::string& folder, const std::string& factoryFile) {
  SceneView view;
  DataManager store(folder, factoryFile);
  for (const std::shared_ptr<Scene>& scene : store.getScenes()) {
    Json reply(scene->toJson());
    view[scene->id()] = viewOf(reply.get());
  }
  return view;
}

void stopEveryScene(ZorvikTunnel& tunnel, SceneManager& manager, const SceneView& scenes) {
  for (const auto& [id, view] : scenes) {
    const std::string stop = "{\"command\":\"scene_stop\",\"id\":" + std::to_string(id) + "}";
    checkedReply(tunnel.handleCommand(stop, manager));
  }
}

void startTimerThreadOnce() {
  static const bool started = [] {
    TimerEventManager::startThread();
    return true;
  }();
  (void)started;
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zorvik;
  const FuzzEnvironment& environment = FuzzEnvironment::get();
  startTimerThreadOnce();
  const std::string folder = environment.folder() + kStoreFolder;
  const std::string factoryFile = environment.folder() + kFactoryFile;
  std::filesystem::remove_all(folder);

  ZorvikTunnel& tunnel = ZorvikTunnel::getInstance();
  const int threads = FuzzEnvironment::threadCount();
  bool storeReset = false;
  {
    DataManager store(folder, factoryFile);
    SceneManager manager(&store, environment.folder() + kNtpStatusFile);
    // A trusted clock makes every edit re-read the scene's alarm.
    manager.addExistingAlarms();
    for (const std::string& request : FuzzEnvironment::splitLines(data, size)) {
      if (mayDriveTv(request)) continue;
      checkedReply(tunnel.handleCommand(request, manager));
      storeReset = storeReset || resetsStore(request);
    }
    const Json all = checkedReply(tunnel.handleCommand(kAllScenesRequest, manager));
    const SceneView registered = registeredScenes(all.get());
    stopEveryScene(tunnel, manager, registered);
    require(TimerEventManager::getInstance()->pendingTimers().empty());
    if (!storeReset) require(storedScenes(folder, factoryFile) == registered);
  }
  FuzzEnvironment::waitForThreads(threads);
  return 0;
}
