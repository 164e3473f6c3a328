// What only the store shows (folder, failures, NULL cells, default scenes, syncing, configuration
// files).
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "scene/Scene.h"
#include "server/TextFile.h"
#include "store/Config.h"
#include "store/DataManager.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
const std::string kUnable = "E Config.cpp Unable to open config file: ~/";

// Runs `sql` on a connection of the test's own, open while `during` runs.
bool exec(const std::string& path, const std::string& sql, std::function<void()> during = {}) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  const bool done = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  if (during) during();
  sqlite3_close(db);  // which also ends a transaction `sql` began
  return done;
}
// Each captured line as "L File.cpp message", `dir` written "~".
Lines logged(const LogCapture& capture, const TempDir& dir) {
  Lines lines;
  for (std::string text : capture.entries()) {
    const size_t at = text.find(dir.path().native());
    lines.push_back(at == std::string::npos ? text
                                            : text.replace(at, dir.path().native().size(), "~"));
  }
  return lines;
}
// Scenes as "id|name|actions|launch".
Lines rowsOf(const std::vector<std::shared_ptr<Scene>>& scenes) {
  Lines rows;
  for (const auto& s : scenes)
    rows.push_back(std::to_string(s->id()) + "|" + s->name() + "|" + s->actionsJson() + "|" +
                   s->launchJson());
  return rows;
}

// A missing folder is made with its parents and mode 0777 whatever the umask, an existing one used
// as it is. A store that cannot open logs why, reads nothing and leaves the file as it was (that a
// closed store refuses writes, scene/manager.t shows after a reset). The model's output is logged
// with line feeds as blanks; not when the command can't run.
TEST(StoreTest, OpensOrStaysClosed) {
  ShellRecorder shell;
  const std::string info = "I DataManager.cpp ";
  const std::string model = info + "system command: /usr/sbin/nvram get model ,output: R1C x ";
  const std::string at = info + "Create Database folder at: ~/a/b/store/";
  // What is made first (a folder, or without the "/" a file); what a store that stays closed logs.
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"a/b/store/", ""},
      {"a/b/store", "Create Database folder failed: File exists"},
      {"a/b/store/SmartTask.db/", "Database Open failed: unable to open database file"},
      {"a/b/store/SmartTask.db", "DataBase ~/a/b/store/SmartTask.db file is not a database"},
  };
  const mode_t mask = umask(077);  // what the test makes is the owner's only
  for (const auto& [made, failure] : cases) {
    SCOPED_TRACE(made);
    TempDir dir;
    const std::string folder = dir.file("a/b/store/"), database = folder + "SmartTask.db";
    fs::create_directories((dir.path() / made).parent_path());
    if (!made.empty() && made.back() != '/') dir.write(made, std::string(4096, 'Z'));
    const bool opens = failure.empty();
    shell.setOutput(
        [opens](auto&) { return opens ? std::optional<std::string>("R1C\nx\n") : std::nullopt; });
    const std::optional<std::string> before = TextFile::read(database);
    LogCapture capture;
    DataManager store(folder, dir.file("factory.conf"));
    const Lines log = opens ? Lines{model, at} : Lines{at, "E DataManager.cpp " + failure};
    EXPECT_EQ(logged(capture, dir), log);
    EXPECT_EQ(rowsOf(store.getScenes()), Lines{});
    const auto mode = made.empty() ? fs::perms::all : fs::perms::owner_all;
    EXPECT_TRUE(opens ? fs::status(folder).permissions() == mode
                      : TextFile::read(database) == before);
  }
  umask(mask);
}

// Plays a library built with another default: sets OFF on every connection as it opens.
sqlite3* opened = nullptr;  // the store's connection
int openWithSynchronousOff(sqlite3* db, const char**, const sqlite3_api_routines*) {
  opened = db;
  return sqlite3_exec(db, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);
}

// The store syncs fully whatever the library's build default, so that an answered change survives
// a power cut. A lock held elsewhere refuses writes until released. NULL cells read as empty text;
// changing or removing a missing row succeeds, reading fails.
TEST(StoreTest, ConnectionSyncsFullyAndMeetsOtherWritersOfTheFile) {
  ShellRecorder shell;
  TempDir dir;
  const auto entry = reinterpret_cast<void (*)()>(openWithSynchronousOff);
  sqlite3_auto_extension(entry);
  DataManager store(dir.file("store/"), dir.file("factory.conf"));
  sqlite3_cancel_auto_extension(entry);
  int synchronous = -1;
  const auto read = [](void* out, int, char** cells, char**) {
    return *static_cast<int*>(out) = std::atoi(cells[0]), 0;
  };
  ASSERT_EQ(sqlite3_exec(opened, "PRAGMA synchronous", read, &synchronous, nullptr), SQLITE_OK);
  EXPECT_EQ(synchronous, 2);  // FULL
  const std::string database = store.databasePath();
  EXPECT_TRUE(exec(database, "BEGIN EXCLUSIVE", [&] {
    LogCapture capture;
    EXPECT_FALSE(store.insertScene(Scene(2, "b", "[]", "")) ||
                 store.modifyScene(Scene(1, "c", "[]", "")) || store.deleteScene(1));
    EXPECT_EQ(rowsOf(store.getScenes()), Lines{});
    const Lines log{"E DataManager.cpp DataBase get table failed: database is locked"};
    EXPECT_EQ(logged(capture, dir), log);
  }));
  ASSERT_TRUE(exec(database, "INSERT INTO smart_task_table_v2 (ID) VALUES(12)"));
  auto scene = std::make_shared<Scene>(1, "x", "[1]", "{}");
  ASSERT_TRUE(store.getScene(12, *scene) && store.insertScene(Scene(1, "a", "[]", "")));
  EXPECT_TRUE(store.deleteScene(4) && store.modifyScene(Scene()) && !store.getScene(4, *scene));
  EXPECT_EQ(rowsOf(store.getScenes()), (Lines{"1|a|[]|", "12|||"}));
  EXPECT_EQ(rowsOf({scene}), Lines{"12|||"});
}

// Default scenes are seeded once per version tag, from numbered factory entries, into an empty
// table only; the version is recorded in the local configuration file on every path.
TEST(StoreTest, SeedsTheFactoryScenesOncePerVersion) {
  ShellRecorder shell;
  // clang-format off
  const std::string noLocal = kUnable + "store/Zorvik.conf", noFactory = kUnable + "factory.conf";
  const std::string trying = "I DataManager.cpp Have not added Current version's default "
                             "scenes, try to add the default scene";
  const std::string empty = "I DataManager.cpp Scene count is 0, add the default scene";
  const std::string countFailed = "E DataManager.cpp DataBase get table count failed: "
                                  "no such table: smart_task_table_v2";
  const std::string done = "I DataManager.cpp Have added current version's default scenes";
  // Scenes 1 and 2; 3 has no actions, which ends the seeding before 4.
  const std::string factory = "Config default scenes\nV1-1_name = Home\nV1-1_actions = [1]\n"
                              "V1-1_launch = {\"go_home\":{\"mac\":\"AA\"}}\nV1-2_name = Away\n"
                              "V1-2_actions = [2]\nV1-3_name = c\nV1-4_name = d\n"
                              "V1-4_actions = [4]\nV2-1_name = other version\n";
  // clang-format on
  const std::string home = "1|Home|[1]|{\"go_home\":{\"mac\":\"AA\"}}", away = "2|Away|[2]|";
  using Step = std::function<void(DataManager&)>;
  const Step mine = [](DataManager& s) { s.insertScene(Scene(9, "mine", "[]", "")); };
  const Step seeded = [](auto& s) { Config(s.localConfigPath(), false).setValue("V1", "true"); };
  const Step dropTable = [](auto& s) { exec(s.databasePath(), "DROP TABLE smart_task_table_v2"); };
  const Step reset = [&](DataManager& s) { seeded(s), mine(s), s.reset(), s.init(); };
  const Step recreate = [&](DataManager& s) { seeded(s), mine(s), s.recreate(); };
  const struct {
    std::optional<std::string> factoryFile;  // none: no file
    std::string model;
    Step before;
    Lines rows, log;
  } cases[] = {
      {factory, "RA70\n", nullptr, {home, away}, {noLocal, trying, empty, done}},
      {factory, "R1CM\n", nullptr, {home}, {noLocal, trying, empty, done}},
      {"V1-1_actions = [1]\n", "", nullptr, {}, {noLocal, trying, empty, done}},
      {std::nullopt, "", nullptr, {}, {noLocal, trying, empty, noFactory, done}},
      {factory, "", seeded, {}, {done}},
      {factory, "", mine, {"9|mine|[]|"}, {noLocal, trying, done}},
      {factory, "", dropTable, {}, {noLocal, trying, countFailed, done}},
      {factory, "", reset, {home, away}, {noLocal, trying, empty, done}},
      {factory, "", recreate, {}, {done}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    TempDir dir;
    if (c.factoryFile) dir.write("factory.conf", *c.factoryFile);
    shell.setOutput([&c](auto&) { return c.model; });
    DataManager store(dir.file("store/"), dir.file("factory.conf"));
    if (c.before) c.before(store);
    LogCapture capture;
    store.addDefaultScenes();
    EXPECT_EQ(logged(capture, dir), c.log);
    EXPECT_EQ(rowsOf(store.getScenes()), c.rows);
    EXPECT_EQ(TextFile::read(store.localConfigPath()), "V1 = true\n");
  }
}

// Entries: lines with "=" not beginning with "//" or "Config", split at the first "=", trimmed, the
// last repeat winning. setValue rewrites them sorted, unless read-only; a failed write still sets.
TEST(ConfigTest, ReadsAndRewritesFiles) {
  TempDir dir;
  const std::string lines =
      "  V1 =   true  \nurl=http://x/?a=b=c\n\tspaced key\t=\tvalue\r\n\n//hidden = 1\n"
      "Config hidden = 2\nno separator\nkept = a // b\n //indented = 3\nk = 1\nk = 2\nempty =\n"
      "= orphan\nlast=end";
  LogCapture capture;
  Config writable(dir.write("a.conf", lines), false), readOnly(dir.write("b.conf", lines), true);
  Config unwritable(dir.file("no/a.conf"), false);
  for (Config* config : {&writable, &readOnly, &unwritable}) config->setValue("new", "set");
  EXPECT_EQ(TextFile::read(dir.file("a.conf")),
            " = orphan\n//indented = 3\nV1 = true\nempty = \nk = 2\nkept = a // b\nlast = end\n"
            "new = set\nspaced key = value\nurl = http://x/?a=b=c\n");
  EXPECT_EQ(TextFile::read(dir.file("b.conf")), lines);
  EXPECT_EQ(readOnly.getValue("new") + "|" + unwritable.getValue("new"), "|set");
  EXPECT_EQ(logged(capture, dir), (Lines{kUnable + "no/a.conf", kUnable + "no/a.conffor write"}));
}

}  // namespace
}  // namespace zorvik
