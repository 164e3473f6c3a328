#include "DaemonFixture.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace zorvik {
namespace {

constexpr char kLoopback[] = "127.0.0.1";

// What the sandbox puts in place of the host's files; each must stay as the host had it.
const char* const kHostPaths[] = {
    "/etc/zorvik",        "/usr/share/zorvik",        "/tmp/ntp.status", "/usr/sbin/zorvik",
    "/usr/sbin/vantpost", "/usr/sbin/teldra",         "/usr/sbin/qumbe", "/usr/sbin/pellway",
    "/usr/sbin/nvram",    "/usr/sbin/reboot_safe.sh", "/sbin/wifi",      "/usr/bin/curl",
    "/usr/bin/logger",    "/usr/lib/zorvik-sandbox",  "/dev/log",
};

// Existence, type, size and modification time of each path.
std::map<std::string, std::string> hostFootprint() {
  std::map<std::string, std::string> footprint;
  for (const char* path : kHostPaths) {
    struct stat status {};
    if (lstat(path, &status) != 0) {
      footprint[path] = "absent";
      continue;
    }
    footprint[path] = std::to_string(status.st_mode) + " " + std::to_string(status.st_size) + " " +
                      std::to_string(status.st_mtim.tv_sec) + "." +
                      std::to_string(status.st_mtim.tv_nsec);
  }
  return footprint;
}

}  // namespace

void DaemonFixture::SetUp() {
  const std::string reason = Sandbox::unavailableReason();
  if (!reason.empty()) GTEST_SKIP() << "end-to-end tests skipped: " << reason;
  hostBefore_ = hostFootprint();
  sandbox_ = std::make_unique<Sandbox>();
  prepare(*sandbox_);
  std::string error;
  ASSERT_TRUE(sandbox_->start(error)) << error;
  sandbox_->startDaemon(kDaemon);
  ASSERT_TRUE(sandbox_->waitUntilServing(kStartTimeout))
      << "the daemon does not serve; its errors: " << sandbox_->daemonErrors(kDaemon);
}

void DaemonFixture::TearDown() {
  if (!sandbox_) return;
  sandbox_.reset();
  EXPECT_EQ(hostFootprint(), hostBefore_) << "the sandbox left traces on the host";
}

std::unique_ptr<ServiceConnection> DaemonFixture::connect(int timeoutMs) {
  const int socket = sandbox_->connectTo(kLoopback, kServicePort);
  if (socket < 0) {
    ADD_FAILURE() << "cannot connect to the daemon: " << std::strerror(errno);
    return nullptr;
  }
  return std::make_unique<ServiceConnection>(socket, timeoutMs);
}

RawClient DaemonFixture::rawClient() {
  return RawClient(sandbox_->connectTo(kLoopback, kServicePort));
}

std::string DaemonFixture::request(const std::string& parameter) {
  std::unique_ptr<ServiceConnection> connection = connect();
  if (!connection) return "";
  try {
    return connection->request(parameter);
  } catch (const std::exception& error) {
    ADD_FAILURE() << "request " << parameter << " failed: " << error.what();
    return "";
  }
}

void DaemonFixture::restartDaemon(const std::string& running, const std::string& name) {
  sandbox_->stopDaemon(running);
  sandbox_->startDaemon(name);
  ASSERT_TRUE(sandbox_->waitUntilServing(kStartTimeout))
      << "the daemon does not serve again; its errors: " << sandbox_->daemonErrors(name);
}

void DaemonFixture::expectStillServing(const std::string& name) {
  EXPECT_FALSE(sandbox_->waitForExit(name, std::chrono::milliseconds(0)))
      << "the daemon ended; its errors: " << sandbox_->daemonErrors(name);
  EXPECT_EQ(request(kCountRequest).rfind("{ \"code\": 0, \"msg\": \"\", \"count\": ", 0), 0u);
}

}  // namespace zorvik
