#include <gtest/gtest.h>

#include "store/Config.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

TEST(ConfigReadTest, TrimsKeyAndValueAroundTheFirstEqualsSign) {
  TempDir dir;
  const std::string path = dir.write("a.conf",
                                     "  V1 =   true  \n"
                                     "url=http://x/?a=b=c\n"
                                     "\tspaced key\t=\tspaced value\r\n");
  Config config(path, true);
  EXPECT_EQ(config.getValue("V1"), "true");
  EXPECT_EQ(config.getValue("url"), "http://x/?a=b=c");
  EXPECT_EQ(config.getValue("spaced key"), "spaced value");
}

TEST(ConfigReadTest, SkipsEmptyCommentHeaderAndSeparatorlessLines) {
  TempDir dir;
  const std::string path = dir.write("a.conf",
                                     "\n"
                                     "//hidden = 1\n"
                                     "Config hidden2 = 2\n"
                                     "no separator here\n"
                                     "kept = a // not a comment\n"
                                     " //indented = 3\n"
                                     "last=without line feed");
  Config config(path, true);
  EXPECT_EQ(config.getValue("//hidden"), "");
  EXPECT_EQ(config.getValue("Config hidden2"), "");
  EXPECT_EQ(config.getValue("no separator here"), "");
  EXPECT_EQ(config.getValue("kept"), "a // not a comment");
  // Only a line that begins with the marker is a comment.
  EXPECT_EQ(config.getValue("//indented"), "3");
  EXPECT_EQ(config.getValue("last"), "without line feed");
}

TEST(ConfigReadTest, EmptyValueAndEmptyKeyAreEntries) {
  TempDir dir;
  const std::string path = dir.write("a.conf", "empty =\n= orphan\n");
  Config config(path, false);
  EXPECT_EQ(config.getValue("empty"), "");
  EXPECT_EQ(config.getValue(""), "orphan");
  config.setValue("x", "1");
  EXPECT_EQ(TempDir::read(path), " = orphan\nempty = \nx = 1\n");
}

TEST(ConfigReadTest, LastOfRepeatedKeysWins) {
  TempDir dir;
  Config config(dir.write("a.conf", "k = first\nk = second\n"), true);
  EXPECT_EQ(config.getValue("k"), "second");
}

TEST(ConfigReadTest, MissingFileReadsAsEmptyAndIsLogged) {
  LogCapture capture;
  TempDir dir;
  const std::string path = dir.file("absent.conf");
  Config config(path, true);
  EXPECT_EQ(config.getValue("V1"), "");
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].priority, 3);
  EXPECT_EQ(capture.messages()[0], "Unable to open config file: " + path);
  EXPECT_EQ(capture.lines()[0].text.rfind("[ZORVIK ERROR Config.cpp:", 0), 0u);
}

TEST(ConfigWriteTest, RewritesOnlyEntriesSortedByKey) {
  TempDir dir;
  const std::string path = dir.write("a.conf",
                                     "Config header\n"
                                     "// comment\n"
                                     "zeta=last\n"
                                     "  alpha =  first \n");
  Config config(path, false);
  config.setValue("V1", "true");
  EXPECT_EQ(TempDir::read(path), "V1 = true\nalpha = first\nzeta = last\n");
  EXPECT_EQ(config.getValue("V1"), "true");

  config.setValue("alpha", "changed");
  EXPECT_EQ(TempDir::read(path), "V1 = true\nalpha = changed\nzeta = last\n");
  EXPECT_EQ(Config(path, true).getValue("alpha"), "changed");
}

TEST(ConfigWriteTest, SetValueCreatesAMissingFile) {
  TempDir dir;
  const std::string path = dir.file("new.conf");
  Config config(path, false);
  config.setValue("V1", "true");
  EXPECT_EQ(TempDir::read(path), "V1 = true\n");
}

TEST(ConfigWriteTest, ReadOnlyConfigChangesNothing) {
  TempDir dir;
  const std::string original = "// comment\nV1=false\n";
  const std::string path = dir.write("a.conf", original);
  Config config(path, true);
  config.setValue("V1", "true");
  config.setValue("other", "x");
  EXPECT_EQ(config.getValue("V1"), "false");
  EXPECT_EQ(config.getValue("other"), "");
  EXPECT_EQ(TempDir::read(path), original);
}

TEST(ConfigWriteTest, UnwritableFileLogsAndKeepsTheEntryInMemory) {
  TempDir dir;
  const std::string path = dir.file("missing-folder/a.conf");
  Config config(path, false);
  LogCapture capture;
  config.setValue("V1", "true");
  EXPECT_EQ(config.getValue("V1"), "true");
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0], "Unable to open config file: " + path + "for write");
  EXPECT_EQ(capture.lines()[0].priority, 3);
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace zorvik
