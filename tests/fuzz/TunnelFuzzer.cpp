// Fuzzes the request tunnel: each input line is one request, served by a scene manager over a
// fresh store (in RAM where there is some, so that SQLite's syncs cost nothing) with the timer
// thread running (requests naming TV actions are skipped). Every reply is a JSON object with an
// integer "code"; with every scene stopped no timer is pending; unless the requests reset the
// store, a manager over the reopened store shows the same scenes.
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "FuzzEnvironment.h"
#include "scene/SceneManager.h"
#include "server/ZorvikTunnel.h"
#include "store/DataManager.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

// What a client sees of each scene of a manager, by id.
std::map<int32_t, std::string> viewOf(SceneManager& manager) {
  const Json::Document reply = fuzz::requireObject(manager.getAllScenes(), "code");
  json_object* list = Json::member(reply.get(), "scene_list");
  fuzz::require(json_object_is_type(list, json_type_array));
  std::map<int32_t, std::string> view;
  for (size_t i = 0; i < json_object_array_length(list); ++i) {
    json_object* scene = json_object_array_get_idx(list, i);
    view[json_object_get_int(Json::member(scene, "id"))] =
        Json::text(Json::member(scene, "name")) + "|" +
        Json::text(Json::member(scene, "action_list"));
  }
  return view;
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zorvik;
  namespace fs = std::filesystem;
  static const std::string folder =
      (fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path()).string() +
      "/zorvik-fuzz-" + std::to_string(getpid()) + "/";
  TimerEventManager::startThread();  // once per process
  fuzz::runAndSettle([&] {
    DataManager store(folder, "");  // no factory scenes to seed
    SceneManager manager(&store, "");
    manager.addExistingAlarms();  // a trusted clock: every edit re-reads the scene's alarm
    bool storeReset = false;
    for (const std::string& request : fuzz::lines(data, size, 1)) {
      if (fuzz::namesTv(request)) continue;
      fuzz::requireObject(ZorvikTunnel::getInstance().handleCommand(request, manager), "code");
      const Json::Document parsed = Json::parse(request);
      storeReset |= Json::text(Json::member(parsed.get(), "command")) == "reset_scenes";
    }
    const auto registered = viewOf(manager);
    for (const auto& [id, view] : registered) fuzz::requireObject(manager.stopScene(id), "code");
    fuzz::require(TimerEventManager::getInstance()->pendingTimers().empty());
    DataManager reopened(folder, "");
    SceneManager restarted(&reopened, "");
    fuzz::require(storeReset || viewOf(restarted) == registered);
  });
  fs::remove_all(folder);
  return 0;
}
