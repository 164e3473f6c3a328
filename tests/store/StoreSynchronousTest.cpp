// The store syncs fully, so that an answered change survives a power cut, whatever the library's
// build default: an extension setting OFF on every connection as it opens plays another one.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "store/DataManager.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

sqlite3* opened = nullptr;  // the store's connection
int openWithSynchronousOff(sqlite3* db, const char**, const sqlite3_api_routines*) {
  opened = db;
  return sqlite3_exec(db, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);
}

TEST(StoreSynchronousTest, StoreConnectionSyncsFully) {
  ShellRecorder shell;
  TempDir dir;
  const auto entry = reinterpret_cast<void (*)()>(openWithSynchronousOff);
  sqlite3_auto_extension(entry);
  DataManager store(dir.path().string() + "/", dir.file("factory.conf"));
  sqlite3_cancel_auto_extension(entry);
  sqlite3_stmt* query = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(opened, "PRAGMA synchronous", -1, &query, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_step(query), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(query, 0), 2);  // FULL
  sqlite3_finalize(query);
}

}  // namespace
}  // namespace zorvik
