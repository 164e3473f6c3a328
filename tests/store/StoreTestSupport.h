// Helpers of the store tests: a second SQLite connection to poke at the file behind the
// store's back, and a trace of every statement text that any connection of the process runs.
#ifndef ZORVIK_TESTS_STORE_STORETESTSUPPORT_H_
#define ZORVIK_TESTS_STORE_STORETESTSUPPORT_H_

#include <sqlite3.h>

#include <mutex>
#include <string>
#include <vector>

namespace zorvik {

// A raw connection of its own; closed when the object goes away.
class RawDatabase {
 public:
  explicit RawDatabase(const std::string& path);
  ~RawDatabase();
  RawDatabase(const RawDatabase&) = delete;
  RawDatabase& operator=(const RawDatabase&) = delete;

  // Runs `sql`; true on success.
  bool exec(const std::string& sql);
  // The first column of every result row, NULL as "<null>".
  std::vector<std::string> column(const std::string& sql);

 private:
  sqlite3* db_ = nullptr;
};

// While alive, records the text of every statement that connections opened meanwhile run.
class StatementTrace {
 public:
  StatementTrace();
  ~StatementTrace();
  StatementTrace(const StatementTrace&) = delete;
  StatementTrace& operator=(const StatementTrace&) = delete;

  std::vector<std::string> statements() const;
  void clear();

 private:
  static int onOpen(sqlite3* db, char** error, const void* api);
  static int onStatement(unsigned type, void* context, void* statement, void* text);

  mutable std::mutex mutex_;
  std::vector<std::string> statements_;  // guarded by mutex_
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_STORE_STORETESTSUPPORT_H_
