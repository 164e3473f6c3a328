#include "DaemonSandbox.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "ProcessProbe.h"

extern char** environ;

namespace zorvik {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const char kStatePattern[] = "/tmp/zorvik-bench-XXXXXX";
const char kLoopback[] = "127.0.0.1";
const char kDaemonName[] = "zorvik";
constexpr milliseconds kPollStep(1);
constexpr milliseconds kReadyTimeout(20000);
constexpr milliseconds kDaemonTimeout(10000);

pid_t spawn(const std::vector<std::string>& arguments, const std::string& outputFile) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, outputFile.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0644);
  posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
  pid_t pid = -1;
  const int failed = posix_spawnp(&pid, argv[0], &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  return failed == 0 ? pid : -1;
}

template <typename Condition>
bool pollUntil(milliseconds timeout, Condition condition) {
  const Clock::time_point deadline = Clock::now() + timeout;
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(kPollStep);
  }
  return true;
}

std::string makeStateFolder() {
  std::string pattern = kStatePattern;
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return pattern;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

DaemonSandbox::DaemonSandbox(std::string daemonBinary, std::string sandboxScript)
    : daemonBinary_(std::move(daemonBinary)),
      sandboxScript_(std::move(sandboxScript)),
      state_(makeStateFolder()),
      syslog_(std::make_unique<SyslogCounter>(state_ + "/log.sock")) {
  std::filesystem::create_directories(dataFolder());
  std::filesystem::create_directories(scratchFolder());
}

DaemonSandbox::~DaemonSandbox() {
  if (unshare_ > 0) {
    kill(unshare_, SIGKILL);
    waitpid(unshare_, nullptr, 0);
  }
  if (network_ >= 0) close(network_);
  syslog_.reset();
  std::error_code ignored;
  std::filesystem::remove_all(state_, ignored);
}

bool DaemonSandbox::start(std::string& error) {
  // Orphans of the sandbox are reaped here rather than by the host's init.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  unshare_ = spawn({"unshare", "--mount", "--net", "--pid", "--kill-child", "--mount-proc",
                    "--propagation", "private", "--", "/bin/sh", sandboxScript_, "--state", state_,
                    "--daemon", daemonBinary_, "--log-socket", syslog_->path(), "--private-net"},
                   state_ + "/sandbox.log");
  if (unshare_ < 0) {
    error = "cannot start unshare";
    return false;
  }
  if (!pollUntil(kReadyTimeout, [&] { return std::filesystem::exists(state_ + "/ready"); })) {
    error = "the sandbox did not come up: " + readFile(state_ + "/sandbox.log");
    return false;
  }
  network_ = open(("/proc/" + std::to_string(unshare_) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
  if (network_ < 0) {
    error = "cannot open the sandbox's network namespace";
    return false;
  }
  return true;
}

void DaemonSandbox::control(const std::string& line) const {
  const int fifo = open((state_ + "/control").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (fifo < 0) return;
  const std::string command = line + "\n";
  if (write(fifo, command.data(), command.size()) < 0) {
    // The sandbox is gone; the measurement that needs the daemon reports it.
  }
  close(fifo);
}

pid_t DaemonSandbox::startDaemon(const std::string& name) {
  std::filesystem::remove(state_ + "/daemon/" + name + ".status");
  control("start " + name);
  pid_t pid = -1;
  pollUntil(kDaemonTimeout, [&] {
    pid = ProcessProbe::findDescendant(unshare_, kDaemonName);
    return pid > 0;
  });
  return pid;
}

void DaemonSandbox::stopDaemon(const std::string& name) {
  control("stop " + name);
  const std::string status = state_ + "/daemon/" + name + ".status";
  pollUntil(kDaemonTimeout, [&] {
    return std::filesystem::exists(status) &&
           ProcessProbe::findDescendant(unshare_, kDaemonName) < 0;
  });
}

int DaemonSandbox::connect(int port) const {
  // A socket belongs to the network namespace it was created in, whichever thread uses it later:
  // a short-lived thread enters the sandbox's namespace to create and connect it.
  int connection = -1;
  std::thread([&] {
    if (setns(network_, CLONE_NEWNET) != 0) return;
    connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0) return;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, kLoopback, &peer.sin_addr);
    if (::connect(connection, reinterpret_cast<sockaddr*>(&peer), sizeof(peer)) != 0) {
      close(connection);
      connection = -1;
    }
  }).join();
  return connection;
}

pid_t DaemonSandbox::spawnInNetwork(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command = {"nsenter", "-t", std::to_string(unshare_), "-n", "--"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return spawn(command, state_ + "/programs.log");
}

}  // namespace zorvik
