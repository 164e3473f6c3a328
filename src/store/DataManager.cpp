// DataManager: the SQLite statements of the scene store and the seeding of default scenes.
#include "store/DataManager.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <variant>

#include "scene/Scene.h"
#include "server/Log.h"
#include "server/Shell.h"
#include "server/Text.h"
#include "store/Config.h"

namespace zorvik {
namespace {

const char kDatabaseFile[] = "SmartTask.db";
const char kLocalConfigFile[] = "Zorvik.conf";
const char kTable[] = "smart_task_table_v2";
const char kModelCommand[] = "/usr/sbin/nvram get model";
// The version of the factory's default scenes; the local configuration remembers that this
// version was seeded under this key.
const char kDefaultScenesTag[] = "V1";
const char kSeededValue[] = "true";
// On this router model only the first default scene is ever seeded.
const char kSingleDefaultSceneModel[] = "R1C";
const char kSynchronousFull[] = "PRAGMA synchronous=FULL";

// Columns of a stored row as "select *" returns them.
enum Column { kIdColumn = 0, kNameColumn, kActionsColumn, kLaunchColumn, kSceneColumns };

// The statement texts, the table name placed into fixed text.
struct Statements {
  const std::string create =
      std::string("CREATE TABLE IF NOT EXISTS ") + kTable +
      " (ID INTEGER PRIMARY KEY, NAME VARCHAR(256), ACTIONLIST VARCHAR(10240), LAUNCH "
      "VARCHAR(128), RESERVED1 VARCHAR(128), RESERVED2 VARCHAR(128));";
  const std::string insert =
      std::string("INSERT INTO ") + kTable + " (ID, NAME, ACTIONLIST, LAUNCH) VALUES(?, ?, ?, ?)";
  const std::string update =
      std::string("UPDATE ") + kTable + " SET NAME = ?, ACTIONLIST = ?, LAUNCH = ? where ID = ?";
  const std::string remove = std::string("DELETE FROM ") + kTable + " where ID = ?";
  const std::string readAll = std::string("select * from ") + kTable;
  const std::string readOne = std::string("select * from ") + kTable + " where ID=?";
  const std::string count = std::string("select count(*) from ") + kTable;
};

const Statements& statements() {
  static const Statements* const texts = new Statements();
  return *texts;
}

Mutex modelMutex;
std::string routerModel GUARDED_BY(modelMutex);

void setModel(std::string model) {
  MutexLock lock(modelMutex);
  routerModel = std::move(model);
}

// SQLite hands out null for NULL cells and for missing messages; both read as empty text.
const char* textOf(const char* text) { return text == nullptr ? "" : text; }
const char* textOf(const unsigned char* text) {
  return textOf(reinterpret_cast<const char*>(text));
}

// One positional parameter of a statement: an integer or a text bound with its byte length.
using Parameter = std::variant<int32_t, std::string_view>;

bool bindParameter(sqlite3_stmt* statement, int position, const Parameter& parameter) {
  if (const int32_t* number = std::get_if<int32_t>(&parameter)) {
    return sqlite3_bind_int(statement, position, *number) == SQLITE_OK;
  }
  const std::string_view text = std::get<std::string_view>(parameter);
  return sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()),
                           SQLITE_TRANSIENT) == SQLITE_OK;
}

// Prepares, binds and steps one statement; true when the step produced a row or completed.
// The statement is always finalised.
bool runStatement(sqlite3* db, const std::string& sql, std::initializer_list<Parameter> params) {
  if (db == nullptr) return false;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    sqlite3_finalize(statement);
    return false;
  }
  bool bound = true;
  int position = 1;
  for (const Parameter& parameter : params)
    bound = bound && bindParameter(statement, position++, parameter);
  const int result = bound ? sqlite3_step(statement) : SQLITE_ERROR;
  sqlite3_finalize(statement);
  return result == SQLITE_ROW || result == SQLITE_DONE;
}

// The result of sqlite3_get_table: `rows` rows of `columns` cells after a row of column names.
struct ResultTable {
  std::unique_ptr<char*, decltype(&sqlite3_free_table)> cells{nullptr, &sqlite3_free_table};
  int rows = 0;
  int columns = 0;
  // Row 0 holds the column names, so the first result row is 1.
  const char* cell(int row, int column) const { return cells.get()[row * columns + column]; }
};

// The result of `sql`; nothing, after logging `failure` and SQLite's message, when it fails.
std::optional<ResultTable> getTable(sqlite3* db, const std::string& sql, const char* failure) {
  ResultTable table;
  char** cells = nullptr;
  char* error = nullptr;
  if (sqlite3_get_table(db, sql.c_str(), &cells, &table.rows, &table.columns, &error) !=
      SQLITE_OK) {
    ZLOG(kLogError) << failure << textOf(error);
    sqlite3_free(error);
    return std::nullopt;
  }
  table.cells.reset(cells);
  return table;
}

// Fills a scene from the four texts of a stored row, in the order id, name, actions, launch.
void fillScene(Scene& scene, const char* id, const char* name, const char* actions,
               const char* launch) {
  scene.setId(std::atoi(textOf(id)));
  scene.setName(textOf(name));
  scene.setActionsJson(textOf(actions));
  scene.setLaunchJson(textOf(launch));
}

std::string defaultSceneKey(int n, const char* field) {
  return std::string(kDefaultScenesTag) + "-" + std::to_string(n) + "_" + field;
}

}  // namespace

DataManager* DataManager::getInstance() {
  static DataManager* const instance = new DataManager();
  return instance;
}

DataManager::DataManager(std::string folder, std::string factoryConfigFile)
    : folder_(std::move(folder)),
      databasePath_(folder_ + kDatabaseFile),
      localConfigPath_(folder_ + kLocalConfigFile),
      factoryConfigFile_(std::move(factoryConfigFile)) {
  init();
}

DataManager::~DataManager() {
  MutexLock lock(mutex_);
  closeDatabase();
}

std::string DataManager::model() {
  MutexLock lock(modelMutex);
  return routerModel;
}

void DataManager::init() {
  MutexLock lock(mutex_);
  openIfClosed();
}

void DataManager::openIfClosed() {
  if (db_ != nullptr) return;
  setModel(getSystemCommandOutput(kModelCommand));
  ZLOG(kLogInfo) << "Create Database folder at: " << folder_;
  if (!ensureFolder()) return;
  openDatabase();
}

bool DataManager::ensureFolder() {
  namespace fs = std::filesystem;
  std::error_code error;
  // A folder whose status cannot be read counts as missing.
  if (fs::exists(folder_, error) && !error) return true;
  error.clear();
  fs::create_directories(folder_, error);
  if (error) {
    ZLOG(kLogError) << "Create Database folder failed: " << error.message();
    return false;
  }
  // Other router programs write into this folder too; the umask must not narrow it.
  fs::permissions(folder_, fs::perms::all, error);
  return true;
}

void DataManager::openDatabase() {
  sqlite3* db = nullptr;
  if (sqlite3_open(databasePath_.c_str(), &db) != SQLITE_OK) {
    ZLOG(kLogError) << "Database Open failed: " << sqlite3_errmsg(db);
    sqlite3_close(db);
    return;
  }
  char* error = nullptr;
  if (sqlite3_exec(db, statements().create.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    ZLOG(kLogError) << "DataBase " << databasePath_ << " " << textOf(error);
    sqlite3_free(error);
    sqlite3_close(db);
    return;
  }
  // An answered change must survive a power cut, not only a crash of the daemon: FULL makes
  // every commit wait until the journal and the database are on flash. The library's default
  // depends on how it was built (NORMAL syncs less often, OFF not at all), so it is set here.
  if (sqlite3_exec(db, kSynchronousFull, nullptr, nullptr, &error) != SQLITE_OK) {
    ZLOG(kLogError) << "DataBase " << databasePath_ << " " << textOf(error);
    sqlite3_free(error);
  }
  db_ = db;
}

void DataManager::closeDatabase() {
  if (db_ == nullptr) return;
  sqlite3_close(db_);
  db_ = nullptr;
}

void DataManager::addDefaultScenes() {
  if (!isOpen()) return;
  Config localConfig(localConfigPath_, false);
  if (localConfig.getValue(kDefaultScenesTag) != kSeededValue) seedIfEmpty();
  // Written on every path, so each version is tried at most once even when seeding failed.
  ZLOG(kLogInfo) << "Have added current version's default scenes";
  localConfig.setValue(kDefaultScenesTag, kSeededValue);
}

void DataManager::seedIfEmpty() {
  ZLOG(kLogInfo) << "Have not added Current version's default scenes, try to add the default scene";
  const std::optional<int> count = countScenes();
  if (count.value_or(-1) != 0) return;
  ZLOG(kLogInfo) << "Scene count is 0, add the default scene";
  seedFromFactoryFile();
}

std::optional<int> DataManager::countScenes() {
  MutexLock lock(mutex_);
  if (db_ == nullptr) return std::nullopt;
  const std::optional<ResultTable> table =
      getTable(db_, statements().count, "DataBase get table count failed: ");
  if (!table) return std::nullopt;
  return (table->rows > 0 && table->columns > 0) ? std::atoi(textOf(table->cell(1, 0))) : 0;
}

void DataManager::seedFromFactoryFile() {
  const Config factory(factoryConfigFile_, true);
  const bool singleScene = startsWith(model(), kSingleDefaultSceneModel);
  for (int n = 1;; ++n) {
    const std::string name = factory.getValue(defaultSceneKey(n, "name"));
    if (name.empty()) return;
    const std::string actions = factory.getValue(defaultSceneKey(n, "actions"));
    if (actions.empty()) return;
    insertScene(Scene(n, name, actions, factory.getValue(defaultSceneKey(n, "launch"))));
    if (singleScene) return;
  }
}

void DataManager::loadScenes(std::vector<std::shared_ptr<Scene>>& scenes) {
  MutexLock lock(mutex_);
  if (db_ == nullptr) return;
  const std::optional<ResultTable> table =
      getTable(db_, statements().readAll, "DataBase get table failed: ");
  if (!table || table->columns < kSceneColumns) return;
  for (int row = 1; row <= table->rows; ++row) {
    auto scene = std::make_shared<Scene>();
    fillScene(*scene, table->cell(row, kIdColumn), table->cell(row, kNameColumn),
              table->cell(row, kActionsColumn), table->cell(row, kLaunchColumn));
    scenes.push_back(std::move(scene));
  }
}

std::vector<std::shared_ptr<Scene>> DataManager::getScenes() {
  std::vector<std::shared_ptr<Scene>> scenes;
  loadScenes(scenes);
  return scenes;
}

bool DataManager::getScene(int32_t id, Scene& scene) {
  MutexLock lock(mutex_);
  if (db_ == nullptr) return false;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, statements().readOne.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    sqlite3_finalize(statement);
    return false;
  }
  bool found = false;
  if (sqlite3_bind_int(statement, 1, id) == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW &&
      sqlite3_column_count(statement) >= kSceneColumns) {
    fillScene(scene, textOf(sqlite3_column_text(statement, kIdColumn)),
              textOf(sqlite3_column_text(statement, kNameColumn)),
              textOf(sqlite3_column_text(statement, kActionsColumn)),
              textOf(sqlite3_column_text(statement, kLaunchColumn)));
    found = true;
  }
  sqlite3_finalize(statement);
  return found;
}

bool DataManager::insertScene(const Scene& scene) {
  const std::string name = scene.name();
  const std::string actions = scene.actionsJson();
  const std::string launch = scene.launchJson();
  MutexLock lock(mutex_);
  return runStatement(db_, statements().insert, {scene.id(), name, actions, launch});
}

bool DataManager::modifyScene(const Scene& scene) {
  const std::string name = scene.name();
  const std::string actions = scene.actionsJson();
  const std::string launch = scene.launchJson();
  MutexLock lock(mutex_);
  return runStatement(db_, statements().update, {name, actions, launch, scene.id()});
}

bool DataManager::deleteScene(int32_t id) {
  MutexLock lock(mutex_);
  return runStatement(db_, statements().remove, {id});
}

void DataManager::reset() {
  MutexLock lock(mutex_);
  closeDatabase();
  std::remove(databasePath_.c_str());
  std::remove(localConfigPath_.c_str());
}

void DataManager::recreate() {
  MutexLock lock(mutex_);
  closeDatabase();
  std::remove(databasePath_.c_str());
  openIfClosed();
}

bool DataManager::isOpen() {
  MutexLock lock(mutex_);
  return db_ != nullptr;
}

std::string DataManager::getSystemCommandOutput(const std::string& command) {
  return ZSHELL_CAPTURE(command, Shell::LineFeeds::kAsBlanks);
}

}  // namespace zorvik
