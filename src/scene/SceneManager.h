// SceneManager: the registry of live scenes and the operations of the daemon's commands.
//
// It loads every stored scene at construction, keeps the store in step with the registry,
// starts scenes on request, on device presence and on the crontab tick, and waits for the
// clock to be trusted (NTP) before it evaluates alarm launches. Every operation returns the
// complete JSON reply text.
//
// Threading: every operation but resetScenes and start holds the recursive `mutex_` for its
// whole run; they are called from the RPC worker threads and the NTP wait thread. Scenes are
// shared: the registry holds one owner, running actions may hold others.
#ifndef ZORVIK_SCENE_SCENEMANAGER_H_
#define ZORVIK_SCENE_SCENEMANAGER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zorvik {

class DataManager;
class Scene;

class SceneManager {
 public:
  static constexpr const char* kNtpStatusFile = "/tmp/ntp.status";

  // The process-wide manager over DataManager::getInstance(); created on first use.
  static SceneManager* instance();

  // A manager over another store (tests); loads its scenes at once.
  explicit SceneManager(DataManager* store, std::string ntpStatusFile = kNtpStatusFile);
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
  void addExistingAlarms();
  bool ntpReady() const { return ntpReady_.load(); }

 private:
  std::shared_ptr<Scene> findScene(int32_t id);  // mutex_ held
  void refreshAlarm(Scene& scene);                // mutex_ held
  void ntpWaitLoop();

  DataManager* const store_;
  const std::string ntpStatusFile_;
  std::atomic<bool> ntpReady_{false};
  std::vector<std::shared_ptr<Scene>> scenes_;  // guarded by mutex_
  std::recursive_mutex mutex_;
};

}  // namespace zorvik

#endif  // ZORVIK_SCENE_SCENEMANAGER_H_
