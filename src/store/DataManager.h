// DataManager: the scene store, one SQLite table with one row per scene.
//
// It also seeds the factory's default scenes on request (addDefaultScenes) and runs the one
// command whose output the store needs (the router model). The process-wide instance uses the
// router's folders; tests construct their own with other paths.
//
// Threading: init, insertScene, modifyScene, deleteScene, getScene, loadScenes, getScenes, reset
// and recreate hold `mutex_` for their whole run. addDefaultScenes holds the mutex only inside
// each store step (count, insert); callers make sure no other seeding runs meanwhile.
#ifndef ZORVIK_STORE_DATAMANAGER_H_
#define ZORVIK_STORE_DATAMANAGER_H_

#include <sqlite3.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server/Mutex.h"

namespace zorvik {

class Scene;

class DataManager {
 public:
  static constexpr const char* kStoreFolder = "/etc/zorvik/";
  static constexpr const char* kFactoryConfigFile = "/usr/share/zorvik/zorvik.conf";

  // The process-wide store in kStoreFolder; created on first use, never destroyed.
  static DataManager* getInstance();

  // `folder` ends with "/"; the database and the local configuration file live in it.
  explicit DataManager(std::string folder = kStoreFolder,
                       std::string factoryConfigFile = kFactoryConfigFile);
  ~DataManager();
  DataManager(const DataManager&) = delete;
  DataManager& operator=(const DataManager&) = delete;

  // Opens the database, creating its folder and table, unless it is open.
  void init();
  void addDefaultScenes();
  void loadScenes(std::vector<std::shared_ptr<Scene>>& scenes);
  std::vector<std::shared_ptr<Scene>> getScenes();
  // Fills `scene` from the row with that id; false when there is none.
  bool getScene(int32_t id, Scene& scene);
  bool insertScene(const Scene& scene);
  bool modifyScene(const Scene& scene);
  bool deleteScene(int32_t id);
  void reset();
  void recreate();

  // Runs a command and returns its output with line feeds turned into blanks.
  static std::string getSystemCommandOutput(const std::string& command);

  const std::string& databasePath() const { return databasePath_; }
  const std::string& localConfigPath() const { return localConfigPath_; }
  // The router model read by init.
  static std::string model();

 private:
  void openIfClosed() REQUIRES(mutex_);
  bool ensureFolder();                   // creates the store folder when it is missing
  void openDatabase() REQUIRES(mutex_);  // opens the file and creates the table
  void closeDatabase() REQUIRES(mutex_);
  bool isOpen();
  void seedIfEmpty();
  std::optional<int> countScenes();  // nullopt when the count failed
  void seedFromFactoryFile();

  const std::string folder_;
  const std::string databasePath_;
  const std::string localConfigPath_;
  const std::string factoryConfigFile_;
  Mutex mutex_;
  sqlite3* db_ GUARDED_BY(mutex_) = nullptr;
};

}  // namespace zorvik

#endif  // ZORVIK_STORE_DATAMANAGER_H_
