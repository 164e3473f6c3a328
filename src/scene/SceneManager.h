// SceneManager: the registry of live scenes and the operations of the daemon's commands.
//
// It loads every stored scene at construction, keeps the store in step with the registry,
// starts scenes on request, on device presence and on the crontab tick, and waits for the
// clock to be trusted (NTP) before it evaluates alarm launches. Every operation returns the
// complete JSON reply text.
//
// Threading: `mutex_` guards the registry. addExistingAlarms and every command operation but
// resetScenes and startSceneByCrontab hold it for their whole run, so that the store and the
// registry change in step; they are called from the RPC worker threads, start-up and the NTP wait
// thread. startSceneByCrontab holds it only to take the list of scenes, as the handlers it
// replays may take minutes. It is a plain mutex: nothing that runs under it comes back into the
// manager (scenes, the store, the shell and the log know nothing of it, and an action's timer
// fires on the timer thread, never inside the call that arms it). Lock order: this lock before the
// store's and before any scene's (see Scene). Scenes are shared: the registry holds one owner,
// running actions may hold others. The store is not owned: it outlives the manager. The NTP wait
// thread runs detached and refers to the manager, so a manager that started one must never be
// destroyed (the daemon's never is).
#ifndef ZORVIK_SCENE_SCENEMANAGER_H_
#define ZORVIK_SCENE_SCENEMANAGER_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server/Mutex.h"

namespace zorvik {

class DataManager;
class Scene;

class SceneManager {
 public:
  static constexpr const char* kNtpStatusFile = "/tmp/ntp.status";

  // How start-up and the NTP wait pause; the default sleeps the calling thread.
  using Sleeper = std::function<void(std::chrono::milliseconds)>;

  // The process-wide manager over DataManager::getInstance(); created on first use.
  static SceneManager* instance();

  // A manager over another store (tests); loads its scenes at once.
  explicit SceneManager(DataManager* store, std::string ntpStatusFile = kNtpStatusFile,
                        Sleeper sleeper = Sleeper());
  virtual ~SceneManager();

  std::string addScene(int32_t id, const std::string& name, const std::string& actions,
                       const std::string& launch);
  std::string getAllScenes();
  std::string getSingleScene(int32_t id);
  std::string getMultipleScene(int32_t startId, int32_t endId);
  std::string updateScene(int32_t id, const std::string& name, const std::string& actions,
                          const std::string& launch);
  std::string startScene(int32_t id);
  std::string stopScene(int32_t id);
  std::string setSceneLaunch(int32_t id, const std::string& launch);
  std::string removeSceneLaunch(int32_t id);
  std::string removeScene(int32_t id);
  std::string startSceneByDeviceStatus(const std::string& mac, bool connected);
  std::string isSceneProcessing(int32_t id);
  std::string getScenesCount();
  std::string resetScenes();
  std::string startSceneByCrontab(int32_t week, const std::string& time);
  std::string recordSceneByCrontab();

  // Start-up: starts the timer thread, then trusts the clock or waits for NTP on a thread.
  void start();

  bool isNtpOk();
  // Polls the NTP status until it is OK, then adds the existing alarms. start() runs it on a
  // detached thread when the clock is not trusted yet.
  void ntpWaitLoop();
  void addExistingAlarms();
  bool ntpReady() const { return ntpReady_.load(); }

 private:
  std::shared_ptr<Scene> findScene(int32_t id) REQUIRES(mutex_);
  // Runs `operation` (Scene& -> reply) on the scene `id` under mutex_; "scene not found" (3502)
  // when no scene has that id. An operation that touches the registry says REQUIRES(mutex_).
  template <typename Operation>
  std::string withScene(int32_t id, Operation operation) EXCLUDES(mutex_);
  std::vector<std::shared_ptr<Scene>> registeredScenes() EXCLUDES(mutex_);
  // The id addScene uses for a requested one; none when the automatic ids are exhausted.
  std::optional<int32_t> chooseId(int32_t requested) REQUIRES(mutex_);
  // Stores and applies a new launch text (setSceneLaunch, removeSceneLaunch).
  std::string changeLaunch(int32_t id, const std::string& launch, bool refresh);
  // Re-reads the scene's alarm once the clock is trusted. Under mutex_, so that a scene added
  // while addExistingAlarms runs is either among the scenes it passes or sees the clock trusted.
  void refreshAlarm(Scene& scene) REQUIRES(mutex_);

  DataManager* const store_;
  const std::string ntpStatusFile_;
  const Sleeper sleeper_;
  std::atomic<bool> ntpReady_{false};  // atomic: ntpReady() reads it without the lock
  Mutex mutex_;
  std::vector<std::shared_ptr<Scene>> scenes_ GUARDED_BY(mutex_);
};

}  // namespace zorvik

#endif  // ZORVIK_SCENE_SCENEMANAGER_H_
