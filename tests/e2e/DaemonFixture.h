// DaemonFixture: each end-to-end test gets a sandbox of its own with one daemon instance,
// kDaemon, already serving. Where sandboxes cannot run (not root, no unshare) the tests are
// skipped with the reason. After each test the host must look exactly as before: no stub
// program, no /etc/zorvik, no /tmp/ntp.status that was not there already.
//
// Threading: used from the test's thread only.
#ifndef ZORVIK_TESTS_E2E_DAEMONFIXTURE_H_
#define ZORVIK_TESTS_E2E_DAEMONFIXTURE_H_

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "RawClient.h"
#include "Sandbox.h"
#include "ServiceConnection.h"

namespace zorvik {

// Replies and requests that many tests use, to the byte.
inline constexpr char kSuccessReply[] = R"({ "code": 0, "msg": "" })";
inline constexpr char kFormatErrorReply[] = R"({ "code": 3, "msg": "parameter format error" })";
inline constexpr char kApiNotExistsReply[] = R"({ "code": -1, "msg": "api not exists" })";
inline constexpr char kNoScenesReply[] = R"({ "code": 0, "msg": "", "count": 0 })";
inline constexpr char kCountRequest[] = R"({"command":"get_scene_count"})";
// The daemon's largest accepted frame.
inline constexpr uint32_t kFrameBound = 4 * 1024 * 1024;

class DaemonFixture : public ::testing::Test {
 protected:
  static constexpr const char* kDaemon = "zorvik";
  static constexpr int kServicePort = 9096;
  static constexpr std::chrono::milliseconds kStartTimeout{20000};

  void SetUp() override;
  void TearDown() override;
  // Places files the sandbox needs before it is built; nothing by default.
  virtual void prepare(Sandbox&) {}

  Sandbox& sandbox() { return *sandbox_; }
  // A connection to the daemon from inside the sandbox.
  std::unique_ptr<ServiceConnection> connect(int timeoutMs = 30000);
  // A connection to the daemon from inside the sandbox for hand-made bytes; not connected (every
  // operation fails) when the daemon cannot be reached.
  RawClient rawClient();
  // One request on a connection of its own.
  std::string request(const std::string& parameter);
  // Starts another instance `name` once the current one, `running`, has been killed.
  void restartDaemon(const std::string& running, const std::string& name);
  // The daemon still runs and still answers.
  void expectStillServing(const std::string& name = kDaemon);

 private:
  std::unique_ptr<Sandbox> sandbox_;
  std::map<std::string, std::string> hostBefore_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_E2E_DAEMONFIXTURE_H_
