#include "SceneDatabase.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace zorvik {
namespace {

// The daemon's table and statements, word for word.
const char kCreate[] =
    "CREATE TABLE IF NOT EXISTS smart_task_table_v2 (ID INTEGER PRIMARY KEY, NAME VARCHAR(256), "
    "ACTIONLIST VARCHAR(10240), LAUNCH VARCHAR(128), RESERVED1 VARCHAR(128), RESERVED2 "
    "VARCHAR(128));";
// Every commit waits until journal and database are on the disk, as the daemon pins it.
const char kSynchronousFull[] = "PRAGMA synchronous=FULL";
const char kInsert[] =
    "INSERT INTO smart_task_table_v2 (ID, NAME, ACTIONLIST, LAUNCH) VALUES(?, ?, ?, ?)";

// Every third scene starts when a device comes home, every third is weekly, the rest only run
// on request: the registry then holds each kind of launch.
const char* const kLaunches[] = {
    "",
    "{ \"go_home\": { \"mac\": \"AA:BB:CC:DD:EE:%02X\", \"enabled\": true } }",
    "{ \"timer\": { \"time\": \"07:30\", \"repeat\": \"1,2,3,4,5\", \"enabled\": true } }",
};
constexpr int kLaunchKinds = 3;

sqlite3* openStore(const std::string& path) {
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) != SQLITE_OK ||
      sqlite3_exec(db, kCreate, nullptr, nullptr, nullptr) != SQLITE_OK ||
      sqlite3_exec(db, kSynchronousFull, nullptr, nullptr, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    throw std::runtime_error("cannot create the scene store " + path);
  }
  return db;
}

void insert(sqlite3* db, int id) {
  const SceneDatabase::SceneTexts texts = SceneDatabase::textsOf(id);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, kInsert, -1, &statement, nullptr);
  sqlite3_bind_int(statement, 1, id);
  sqlite3_bind_text(statement, 2, texts.name.c_str(), static_cast<int>(texts.name.size()),
                    SQLITE_TRANSIENT);
  sqlite3_bind_text(statement, 3, texts.actions.c_str(), static_cast<int>(texts.actions.size()),
                    SQLITE_TRANSIENT);
  sqlite3_bind_text(statement, 4, texts.launch.c_str(), static_cast<int>(texts.launch.size()),
                    SQLITE_TRANSIENT);
  const int stepped = sqlite3_step(statement);
  sqlite3_finalize(statement);
  if (stepped != SQLITE_DONE) throw std::runtime_error("insert failed");
}

}  // namespace

SceneDatabase::SceneTexts SceneDatabase::textsOf(int id) {
  char launch[128];
  std::snprintf(launch, sizeof(launch), kLaunches[id % kLaunchKinds], id % 256);
  return {"Scene " + std::to_string(id),
          "[ { \"thirdParty\": \"quiro\", \"type\": \"light\", \"name\": \"Lamp\", \"keyName\": "
          "\"on\", \"payload\": \"{\\\"power\\\":1}\", \"delay\": 0, \"block\": true }, { "
          "\"thirdParty\": \"brelkrouter\", \"type\": \"router\", \"name\": \"Wi-Fi\", "
          "\"keyName\": \"off\", \"payload\": \"{\\\"command\\\":\\\"wifi_down\\\"}\", \"delay\": "
          "60000, \"block\": false } ]",
          launch};
}

void SceneDatabase::build(const std::string& path, int count) {
  std::remove(path.c_str());
  sqlite3* db = openStore(path);
  sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
  for (int id = 1; id <= count; ++id) insert(db, id);
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

Samples SceneDatabase::timeSingleInserts(const std::string& path, int firstId, int count) {
  sqlite3* db = openStore(path);
  Samples micros;
  for (int id = firstId; id < firstId + count; ++id) {
    const auto start = std::chrono::steady_clock::now();
    insert(db, id);
    micros.add(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                   .count());
  }
  sqlite3_close(db);
  return micros;
}

}  // namespace zorvik
