#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "StoreTestSupport.h"
#include "scene/Scene.h"
#include "store/DataManager.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kTable[] = "smart_task_table_v2";
const char kModelCommand[] = "/usr/sbin/nvram get model";

struct SceneTexts {
  int32_t id;
  std::string name;
  std::string actions;
  std::string launch;
  bool operator==(const SceneTexts& other) const {
    return id == other.id && name == other.name && actions == other.actions &&
           launch == other.launch;
  }
};

std::ostream& operator<<(std::ostream& out, const SceneTexts& s) {
  return out << "{" << s.id << ", " << s.name << ", " << s.actions << ", " << s.launch << "}";
}

std::vector<SceneTexts> textsOf(const std::vector<std::shared_ptr<Scene>>& scenes) {
  std::vector<SceneTexts> texts;
  for (const auto& scene : scenes) {
    texts.push_back({scene->id(), scene->name(), scene->actionsJson(), scene->launchJson()});
  }
  return texts;
}

// A closed or locked store refuses every write of scene 1 and of a new scene 2.
void expectWritesRefused(DataManager& store) {
  EXPECT_FALSE(store.insertScene(Scene(2, "b", "[]", "")));
  EXPECT_FALSE(store.modifyScene(Scene(1, "changed", "[]", "")));
  EXPECT_FALSE(store.deleteScene(1));
}

class DataManagerTest : public ::testing::Test {
 protected:
  // The store folder (with its trailing "/") and the factory file path.
  std::string folder() const { return dir.file("store") + "/"; }
  std::string factory() const { return dir.file("factory.conf"); }
  std::unique_ptr<DataManager> open() { return std::make_unique<DataManager>(folder(), factory()); }

  TempDir dir;
  ShellRecorder shell;
};

TEST_F(DataManagerTest, CreatesTheMissingFolderWithAllParentsAndMode0777) {
  const mode_t previousMask = umask(022);
  const std::string nested = dir.file("a/b/store") + "/";
  LogCapture capture;
  DataManager store(nested, factory());
  umask(previousMask);

  struct stat info {};
  ASSERT_EQ(stat(nested.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0777u);
  EXPECT_TRUE(fs::is_regular_file(nested + "SmartTask.db"));
  EXPECT_EQ(store.databasePath(), nested + "SmartTask.db");
  EXPECT_EQ(store.localConfigPath(), nested + "Zorvik.conf");
  EXPECT_THAT(capture.messages(),
              ElementsAre(std::string("system command: ") + kModelCommand + " ,output: ",
                          "Create Database folder at: " + nested));
  EXPECT_EQ(shell.lines(), std::vector<std::string>{kModelCommand});
}

TEST_F(DataManagerTest, UsesAnExistingFolderAsItIs) {
  fs::create_directories(folder());
  fs::permissions(folder(), fs::perms::owner_all, fs::perm_options::replace);
  DataManager store(folder(), factory());
  EXPECT_EQ(fs::status(folder()).permissions(), fs::perms::owner_all);
  EXPECT_TRUE(store.insertScene(Scene(1, "a", "[]", "")));
}

TEST_F(DataManagerTest, CreatesTheTableWithItsSchema) {
  auto store = open();
  RawDatabase raw(store->databasePath());
  EXPECT_THAT(raw.column("select sql from sqlite_master where type='table'"),
              ElementsAre(std::string("CREATE TABLE ") + kTable +
                          " (ID INTEGER PRIMARY KEY, NAME VARCHAR(256), ACTIONLIST "
                          "VARCHAR(10240), LAUNCH VARCHAR(128), RESERVED1 VARCHAR(128), "
                          "RESERVED2 VARCHAR(128))"));
}

TEST_F(DataManagerTest, RunsExactlyTheStatementTextsWithBoundParameters) {
  StatementTrace trace;
  auto store = open();
  Scene scene(7, "n", "[]", "");
  ASSERT_TRUE(store->insertScene(scene));
  ASSERT_TRUE(store->modifyScene(scene));
  Scene read;
  ASSERT_TRUE(store->getScene(7, read));
  store->getScenes();
  ASSERT_TRUE(store->deleteScene(7));
  const std::string table = kTable;
  EXPECT_THAT(
      trace.statements(),
      ElementsAre("CREATE TABLE IF NOT EXISTS " + table +
                      " (ID INTEGER PRIMARY KEY, NAME VARCHAR(256), ACTIONLIST VARCHAR(10240), "
                      "LAUNCH VARCHAR(128), RESERVED1 VARCHAR(128), RESERVED2 VARCHAR(128));",
                  "INSERT INTO " + table + " (ID, NAME, ACTIONLIST, LAUNCH) VALUES(?, ?, ?, ?)",
                  "UPDATE " + table + " SET NAME = ?, ACTIONLIST = ?, LAUNCH = ? where ID = ?",
                  "select * from " + table + " where ID=?", "select * from " + table,
                  "DELETE FROM " + table + " where ID = ?"));
}

TEST_F(DataManagerTest, InsertUpdateDeleteAndLoadRoundTrip) {
  auto store = open();
  // Texts that would break a statement built by concatenation, and bytes beyond ASCII.
  const std::string awkward = "it's \"quoted\"; DROP TABLE x; -- \xc3\xa9";
  ASSERT_TRUE(store->insertScene(Scene(3, awkward, R"([{"a":1}])", "")));
  ASSERT_TRUE(store->insertScene(Scene(1, "first", "[]", R"({"go_home":{"mac":"AA"}})")));
  EXPECT_THAT(textsOf(store->getScenes()),
              ElementsAre(SceneTexts{1, "first", "[]", R"({"go_home":{"mac":"AA"}})"},
                          SceneTexts{3, awkward, R"([{"a":1}])", ""}));

  ASSERT_TRUE(store->modifyScene(Scene(3, "renamed", "[1]", R"({"timer":{"time":"07:30"}})")));
  Scene read;
  ASSERT_TRUE(store->getScene(3, read));
  EXPECT_EQ((SceneTexts{read.id(), read.name(), read.actionsJson(), read.launchJson()}),
            (SceneTexts{3, "renamed", "[1]", R"({"timer":{"time":"07:30"}})"}));

  ASSERT_TRUE(store->deleteScene(1));
  std::vector<std::shared_ptr<Scene>> loaded;
  loaded.push_back(std::make_shared<Scene>(99, "kept", "", ""));
  store->loadScenes(loaded);
  EXPECT_THAT(textsOf(loaded),
              ElementsAre(SceneTexts{99, "kept", "", ""},
                          SceneTexts{3, "renamed", "[1]", R"({"timer":{"time":"07:30"}})"}));
}

TEST_F(DataManagerTest, ChangesSurviveReopening) {
  {
    auto store = open();
    ASSERT_TRUE(store->insertScene(Scene(5, "five", "[]", "")));
    ASSERT_TRUE(store->insertScene(Scene(6, "six", "[]", "")));
    ASSERT_TRUE(store->modifyScene(Scene(5, "FIVE", "[2]", "")));
    ASSERT_TRUE(store->deleteScene(6));
  }
  auto reopened = open();
  EXPECT_THAT(textsOf(reopened->getScenes()), ElementsAre(SceneTexts{5, "FIVE", "[2]", ""}));
}

TEST_F(DataManagerTest, MissingRowsAndDuplicateIds) {
  auto store = open();
  EXPECT_TRUE(store->deleteScene(42));
  EXPECT_TRUE(store->modifyScene(Scene(42, "x", "[]", "")));
  Scene untouched(8, "untouched", "[]", "");
  EXPECT_FALSE(store->getScene(42, untouched));
  EXPECT_EQ(untouched.name(), "untouched");
  EXPECT_TRUE(store->getScenes().empty());

  ASSERT_TRUE(store->insertScene(Scene(4, "a", "[]", "")));
  EXPECT_FALSE(store->insertScene(Scene(4, "b", "[]", "")));
  EXPECT_THAT(textsOf(store->getScenes()), ElementsAre(SceneTexts{4, "a", "[]", ""}));
}

TEST_F(DataManagerTest, NullColumnsReadAsEmptyText) {
  auto store = open();
  {
    RawDatabase raw(store->databasePath());
    ASSERT_TRUE(raw.exec(std::string("INSERT INTO ") + kTable +
                         " (ID, NAME, ACTIONLIST, LAUNCH) VALUES(12, NULL, '[]', NULL)"));
  }
  EXPECT_THAT(textsOf(store->getScenes()), ElementsAre(SceneTexts{12, "", "[]", ""}));
  Scene read;
  ASSERT_TRUE(store->getScene(12, read));
  EXPECT_EQ(read.id(), 12);
  EXPECT_EQ(read.name(), "");
  EXPECT_EQ(read.launchJson(), "");
}

TEST_F(DataManagerTest, ResetRemovesDatabaseAndLocalConfigAndRecreateStartsEmpty) {
  auto store = open();
  ASSERT_TRUE(store->insertScene(Scene(1, "a", "[]", "")));
  dir.write("store/Zorvik.conf", "V1 = true\n");

  store->reset();
  EXPECT_FALSE(fs::exists(store->databasePath()));
  EXPECT_FALSE(fs::exists(store->localConfigPath()));
  // Closed until it is opened again.
  expectWritesRefused(*store);
  EXPECT_TRUE(store->getScenes().empty());

  store->init();
  EXPECT_TRUE(store->getScenes().empty());
  ASSERT_TRUE(store->insertScene(Scene(2, "b", "[]", "")));

  store->recreate();
  EXPECT_TRUE(fs::exists(store->databasePath()));
  EXPECT_TRUE(store->getScenes().empty());
  EXPECT_TRUE(store->insertScene(Scene(3, "c", "[]", "")));
}

class DataManagerFailureTest : public DataManagerTest {};

TEST_F(DataManagerFailureTest, FolderThatCannotBeCreatedLeavesTheStoreClosed) {
  dir.write("blocker", "a file where a folder should be");
  const std::string blocked = dir.file("blocker/store") + "/";
  LogCapture capture;
  DataManager store(blocked, factory());
  const auto messages = capture.messages();
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[1], "Create Database folder at: " + blocked);
  EXPECT_THAT(messages[2], ::testing::StartsWith("Create Database folder failed: "));
  EXPECT_EQ(capture.lines()[2].priority, 3);
  expectWritesRefused(store);
  EXPECT_TRUE(store.getScenes().empty());
}

TEST_F(DataManagerFailureTest, DatabasePathThatCannotBeOpenedIsLogged) {
  fs::create_directories(folder() + "SmartTask.db");
  LogCapture capture;
  auto store = open();
  EXPECT_EQ(capture.messages().back(), "Database Open failed: unable to open database file");
  EXPECT_FALSE(store->insertScene(Scene(1, "a", "[]", "")));
}

TEST_F(DataManagerFailureTest, CorruptFileIsRefusedAndLeftAsItWas) {
  const std::string garbage(4096, '\x5a');
  fs::create_directories(folder());
  const std::string path = dir.write("store/SmartTask.db", garbage);
  LogCapture capture;
  auto store = open();
  EXPECT_EQ(capture.messages().back(), "DataBase " + path + " file is not a database");
  EXPECT_EQ(capture.lines().back().priority, 3);
  EXPECT_FALSE(store->insertScene(Scene(1, "a", "[]", "")));
  EXPECT_TRUE(store->getScenes().empty());
  EXPECT_EQ(TempDir::read(path), garbage);
}

TEST_F(DataManagerFailureTest, LockedDatabaseRefusesWritesUntilReleased) {
  auto store = open();
  ASSERT_TRUE(store->insertScene(Scene(1, "a", "[]", "")));
  RawDatabase other(store->databasePath());
  ASSERT_TRUE(other.exec("BEGIN EXCLUSIVE"));
  expectWritesRefused(*store);
  LogCapture capture;
  EXPECT_TRUE(store->getScenes().empty());
  EXPECT_THAT(capture.messages(), ElementsAre("DataBase get table failed: database is locked"));
  ASSERT_TRUE(other.exec("COMMIT"));
  EXPECT_THAT(textsOf(store->getScenes()), ElementsAre(SceneTexts{1, "a", "[]", ""}));
}

TEST_F(DataManagerFailureTest, DatabaseFileReplacedWhileOpenRefusesWrites) {
  auto store = open();
  ASSERT_TRUE(store->insertScene(Scene(1, "a", "[]", "")));
  fs::remove(store->databasePath());
  fs::create_directory(store->databasePath());
  expectWritesRefused(*store);
  EXPECT_TRUE(fs::is_directory(store->databasePath()));
}

class DefaultScenesTest : public DataManagerTest {
 protected:
  void writeFactory(const std::string& content) { dir.write("factory.conf", content); }
  std::string localConfig() { return TempDir::read(folder() + "Zorvik.conf"); }

  const std::string twoScenes =
      "Config default scenes\n"
      "V1-1_name = Home\n"
      "V1-1_actions = [{\"thirdParty\":\"quiro\",\"type\":\"t\"}]\n"
      "V1-1_launch = {\"go_home\":{\"mac\":\"AA:BB\"}}\n"
      "V1-2_name = Away\n"
      "V1-2_actions = [2]\n"
      "V1-3_actions = [3]\n"
      "V2-1_name = other version\n";
};

TEST_F(DefaultScenesTest, SeedsEveryNumberedSceneUntilOneIsMissing) {
  writeFactory(twoScenes);
  auto store = open();
  LogCapture capture;
  store->addDefaultScenes();
  EXPECT_THAT(textsOf(store->getScenes()),
              ElementsAre(SceneTexts{1, "Home", R"([{"thirdParty":"quiro","type":"t"}])",
                                     R"({"go_home":{"mac":"AA:BB"}})"},
                          SceneTexts{2, "Away", "[2]", ""}));
  EXPECT_EQ(localConfig(), "V1 = true\n");
  EXPECT_THAT(capture.messages(),
              ElementsAre("Unable to open config file: " + folder() + "Zorvik.conf",
                          "Have not added Current version's default scenes, try to add the "
                          "default scene",
                          "Scene count is 0, add the default scene",
                          "Have added current version's default scenes"));
}

TEST_F(DefaultScenesTest, SceneWithoutActionsEndsTheSeeding) {
  writeFactory(
      "V1-1_name = a\nV1-1_actions = [1]\nV1-2_name = b\nV1-3_name = c\n"
      "V1-3_actions = [3]\n");
  auto store = open();
  store->addDefaultScenes();
  EXPECT_THAT(textsOf(store->getScenes()), ElementsAre(SceneTexts{1, "a", "[1]", ""}));
}

TEST_F(DefaultScenesTest, ModelR1CGetsOnlyTheFirstSceneAndOtherModelsEveryScene) {
  writeFactory(twoScenes);
  const struct {
    std::string model;
    std::vector<int32_t> seededIds;
  } cases[] = {{"R1CM", {1}}, {"RA70", {1, 2}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.model);
    fs::remove_all(folder());
    shell.setOutput(kModelCommand, c.model + "\n");
    auto store = open();
    EXPECT_EQ(DataManager::model(), c.model + " ");
    store->addDefaultScenes();
    std::vector<int32_t> ids;
    for (const SceneTexts& scene : textsOf(store->getScenes())) ids.push_back(scene.id);
    EXPECT_EQ(ids, c.seededIds);
    EXPECT_EQ(localConfig(), "V1 = true\n");
  }
}

TEST_F(DefaultScenesTest, AlreadySeededVersionSeedsNothingEvenWhenEmpty) {
  writeFactory(twoScenes);
  fs::create_directories(folder());
  dir.write("store/Zorvik.conf", "// local flags\nV1=true\nother = 1\n");
  auto store = open();
  LogCapture capture;
  store->addDefaultScenes();
  EXPECT_TRUE(store->getScenes().empty());
  EXPECT_THAT(capture.messages(), ElementsAre("Have added current version's default scenes"));
  EXPECT_EQ(localConfig(), "V1 = true\nother = 1\n");
}

TEST_F(DefaultScenesTest, NonEmptyTableSeedsNothingButRecordsTheVersion) {
  writeFactory(twoScenes);
  auto store = open();
  ASSERT_TRUE(store->insertScene(Scene(9, "mine", "[]", "")));
  LogCapture capture;
  store->addDefaultScenes();
  EXPECT_THAT(textsOf(store->getScenes()), ElementsAre(SceneTexts{9, "mine", "[]", ""}));
  EXPECT_EQ(localConfig(), "V1 = true\n");
  EXPECT_EQ(capture.count("Scene count is 0"), 0);

  // The second time the version is known and nothing is even counted.
  ASSERT_TRUE(store->deleteScene(9));
  store->addDefaultScenes();
  EXPECT_TRUE(store->getScenes().empty());
}

TEST_F(DefaultScenesTest, FailedCountStillRecordsTheVersion) {
  writeFactory(twoScenes);
  auto store = open();
  {
    RawDatabase raw(store->databasePath());
    ASSERT_TRUE(raw.exec(std::string("DROP TABLE ") + kTable));
  }
  LogCapture capture;
  store->addDefaultScenes();
  EXPECT_TRUE(
      capture.contains(std::string("DataBase get table count failed: no such table: ") + kTable));
  EXPECT_EQ(capture.count("Scene count is 0"), 0);
  EXPECT_EQ(localConfig(), "V1 = true\n");
}

TEST_F(DefaultScenesTest, MissingFactoryFileSeedsNothing) {
  auto store = open();
  store->addDefaultScenes();
  EXPECT_TRUE(store->getScenes().empty());
  EXPECT_EQ(localConfig(), "V1 = true\n");
}

TEST(DataManagerCommandTest, CommandOutputHasLineFeedsTurnedIntoBlanks) {
  ShellRecorder shell;
  shell.setOutput("model", std::string("R1C\nsecond\n"));
  LogCapture capture;
  EXPECT_EQ(DataManager::getSystemCommandOutput("model"), "R1C second ");
  EXPECT_THAT(capture.messages(), ElementsAre("system command: model ,output: R1C second "));
  EXPECT_EQ(capture.lines()[0].text.rfind("[ZORVIK INFO DataManager.cpp:", 0), 0u);
}

TEST(DataManagerCommandTest, CommandThatCannotStartGivesEmptyText) {
  ShellRecorder shell;
  shell.setOutput("broken", std::nullopt);
  LogCapture capture;
  EXPECT_EQ(DataManager::getSystemCommandOutput("broken"), "");
  EXPECT_THAT(capture.messages(), IsEmpty());
}

TEST(DataManagerCommandTest, RealCommandOutputIsCaptured) {
  EXPECT_EQ(DataManager::getSystemCommandOutput("printf 'a\\nb\\n'"), "a b ");
}

}  // namespace
}  // namespace zorvik
