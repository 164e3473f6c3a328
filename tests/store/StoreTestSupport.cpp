#include "StoreTestSupport.h"

namespace zorvik {
namespace {

std::mutex activeMutex;
StatementTrace* active = nullptr;  // guarded by activeMutex

using EntryPoint = void (*)();

}  // namespace

RawDatabase::RawDatabase(const std::string& path) { sqlite3_open(path.c_str(), &db_); }

RawDatabase::~RawDatabase() { sqlite3_close(db_); }

bool RawDatabase::exec(const std::string& sql) {
  return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::vector<std::string> RawDatabase::column(const std::string& sql) {
  std::vector<std::string> values;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
    while (sqlite3_step(statement) == SQLITE_ROW) {
      const unsigned char* text = sqlite3_column_text(statement, 0);
      values.push_back(text == nullptr ? "<null>" : reinterpret_cast<const char*>(text));
    }
  }
  sqlite3_finalize(statement);
  return values;
}

StatementTrace::StatementTrace() {
  {
    std::lock_guard<std::mutex> lock(activeMutex);
    active = this;
  }
  sqlite3_auto_extension(reinterpret_cast<EntryPoint>(&StatementTrace::onOpen));
}

StatementTrace::~StatementTrace() {
  sqlite3_cancel_auto_extension(reinterpret_cast<EntryPoint>(&StatementTrace::onOpen));
  std::lock_guard<std::mutex> lock(activeMutex);
  active = nullptr;
}

std::vector<std::string> StatementTrace::statements() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return statements_;
}

void StatementTrace::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  statements_.clear();
}

int StatementTrace::onOpen(sqlite3* db, char**, const void*) {
  sqlite3_trace_v2(db, SQLITE_TRACE_STMT, &StatementTrace::onStatement, nullptr);
  return SQLITE_OK;
}

int StatementTrace::onStatement(unsigned, void*, void*, void* text) {
  std::lock_guard<std::mutex> lock(activeMutex);
  if (active == nullptr) return 0;
  std::lock_guard<std::mutex> traceLock(active->mutex_);
  active->statements_.push_back(static_cast<const char*>(text));
  return 0;
}

}  // namespace zorvik
