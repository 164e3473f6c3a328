#include "Sandbox.h"

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

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace zorvik {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kServicePort = 9096;
constexpr const char* kLoopback = "127.0.0.1";
constexpr milliseconds kPollStep(20);
constexpr milliseconds kReadyTimeout(20000);
constexpr milliseconds kStopTimeout(10000);

// The namespaces of a sandbox: mount, network and pid, torn down with unshare.
const std::vector<std::string> kUnshare = {"unshare",       "--mount",      "--net",
                                           "--pid",         "--kill-child", "--mount-proc",
                                           "--propagation", "private",      "--"};

std::string readFile(const std::string& path) { return TempDir::read(path); }

// Starts `arguments` (searched on PATH) with standard input from /dev/null and standard output
// and error appended to `outputFile`; -1 when it cannot be started.
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

// The exit status of a finished child; -1 when it did not exit normally.
int exitStatusOf(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

int run(const std::vector<std::string>& arguments, const std::string& outputFile) {
  const pid_t pid = spawn(arguments, outputFile);
  return pid < 0 ? -1 : exitStatusOf(pid);
}

bool hasExited(pid_t pid) {
  int status = 0;
  return waitpid(pid, &status, WNOHANG) == pid;
}

// The first child of `pid`, the sandbox's process 1 for unshare.
pid_t firstChildOf(pid_t pid) {
  std::ifstream children("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) +
                         "/children");
  pid_t child = -1;
  children >> child;
  return child;
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

std::string probeNamespaces() {
  if (geteuid() != 0) return "they need root to build namespaces and mounts";
  TempDir probe;
  const std::string output = probe.file("probe.log");
  if (run({"ip", "-V"}, output) != 0) return "ip (iproute2) is not installed";
  std::vector<std::string> arguments = {"unshare", "--mount",      "--net",         "--pid",
                                        "--fork",  "--mount-proc", "--propagation", "private",
                                        "--",      "true"};
  const pid_t pid = spawn(arguments, output);
  if (pid < 0) return "unshare is not installed";
  if (exitStatusOf(pid) != 0) return "this machine refuses new namespaces: " + readFile(output);
  return "";
}

}  // namespace

std::string Sandbox::unavailableReason() {
  static const std::string reason = probeNamespaces();
  return reason;
}

Sandbox::Sandbox()
    : syslog_(std::make_unique<SyslogDrain>((state_.path() / "log.sock").string())) {}

Sandbox::~Sandbox() {
  if (unshare_ > 0) {
    const pid_t first = firstChildOf(unshare_);
    kill(unshare_, SIGKILL);
    waitpid(unshare_, nullptr, 0);
    // As subreaper this process inherits the sandbox's process 1; once it is reaped, every
    // process of the sandbox is gone and nothing writes into the state folder any more.
    if (first > 0) waitpid(first, nullptr, 0);
  }
  if (network_ >= 0) close(network_);
}

std::string Sandbox::stateFile(const std::string& relative) const { return state_.file(relative); }

void Sandbox::writeStateFile(const std::string& relative, const std::string& content) const {
  const std::filesystem::path path = stateFile(relative);
  std::filesystem::create_directories(path.parent_path());
  const std::string fresh = path.string() + ".new";
  std::ofstream(fresh, std::ios::binary | std::ios::trunc) << content;
  // Renamed into place, so that a stub never reads a half-written answer.
  std::filesystem::rename(fresh, path);
}

bool Sandbox::start(std::string& error) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const std::string state = state_.path().string();
  std::vector<std::string> arguments = kUnshare;
  for (const std::string& argument :
       {std::string("/bin/sh"), std::string(ZORVIK_SANDBOX_SCRIPT), std::string("--state"), state,
        std::string("--daemon"), std::string(ZORVIK_BINARY), std::string("--log-socket"),
        syslog_->path(), std::string("--private-net")}) {
    arguments.push_back(argument);
  }
  unshare_ = spawn(arguments, stateFile("sandbox.log"));
  if (unshare_ < 0) {
    error = "cannot start unshare";
    return false;
  }
  bool ended = false;
  pollUntil(kReadyTimeout, [&] {
    ended = hasExited(unshare_);
    return ended || std::filesystem::exists(stateFile("ready"));
  });
  if (ended) unshare_ = -1;
  if (ended || !std::filesystem::exists(stateFile("ready"))) {
    error = "the sandbox did not come up: " + readFile(stateFile("sandbox.log"));
    return false;
  }
  network_ = open(("/proc/" + std::to_string(unshare_) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
  if (network_ < 0) {
    error = "cannot open the sandbox's network namespace";
    return false;
  }
  return true;
}

void Sandbox::control(const std::string& line) const {
  // sandbox.sh holds the FIFO open for reading, so opening it never blocks.
  const int fifo = open(stateFile("control").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (fifo < 0) return;
  const std::string command = line + "\n";
  if (write(fifo, command.data(), command.size()) < 0) {
    // The sandbox is gone; the caller notices when the daemon does not behave.
  }
  close(fifo);
}

void Sandbox::startDaemon(const std::string& name) {
  std::filesystem::remove(stateFile("daemon/" + name + ".status"));
  control("start " + name);
}

void Sandbox::stopDaemon(const std::string& name) {
  control("stop " + name);
  waitForExit(name, kStopTimeout);
}

std::optional<int> Sandbox::waitForExit(const std::string& name, milliseconds timeout) const {
  const std::string status = stateFile("daemon/" + name + ".status");
  if (!pollUntil(timeout, [&] { return std::filesystem::exists(status); })) return std::nullopt;
  return std::stoi(readFile(status));
}

std::string Sandbox::daemonOutput(const std::string& name) const {
  return readFile(stateFile("daemon/" + name + ".stdout"));
}

std::string Sandbox::daemonErrors(const std::string& name) const {
  return readFile(stateFile("daemon/" + name + ".stderr"));
}

bool Sandbox::waitUntilServing(milliseconds timeout) const {
  return pollUntil(timeout, [&] {
    const int connection = connectTo(kLoopback, kServicePort);
    if (connection < 0) return false;
    close(connection);
    return true;
  });
}

bool Sandbox::enterNetwork() const { return setns(network_, CLONE_NEWNET) == 0; }

int Sandbox::connectTo(const std::string& address, int port) const {
  // A socket belongs to the network namespace it was created in, whichever thread uses it later:
  // a short-lived thread enters the sandbox's namespace just to create it.
  int connection = -1;
  int error = 0;
  std::thread([&] {
    if (!enterNetwork()) {
      error = errno;
      return;
    }
    connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    error = errno;
  }).join();
  if (connection < 0) {
    errno = error;
    return -1;
  }
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
  if (connect(connection, reinterpret_cast<sockaddr*>(&peer), sizeof(peer)) != 0) {
    error = errno;
    close(connection);
    errno = error;
    return -1;
  }
  return connection;
}

std::vector<std::string> Sandbox::inNetwork(const std::vector<std::string>& arguments) const {
  // Entering only a network namespace, nsenter runs the program in its own place (no fork), so
  // its pid is the program's.
  std::vector<std::string> command = {"nsenter", "-t", std::to_string(unshare_), "-n", "--"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

int Sandbox::runInNetwork(const std::vector<std::string>& arguments, std::string& output) const {
  TempDir scratch;
  const std::string outputFile = scratch.file("output");
  const int status = run(inNetwork(arguments), outputFile);
  output = readFile(outputFile);
  return status;
}

pid_t Sandbox::spawnInNetwork(const std::vector<std::string>& arguments) const {
  return spawn(inNetwork(arguments), stateFile("programs.log"));
}

std::vector<StubCall> Sandbox::calls() const {
  std::vector<StubCall> calls;
  std::istringstream log(readFile(stateFile("calls.log")));
  std::string line;
  while (std::getline(log, line)) {
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) continue;
    calls.push_back({std::stod(line.substr(0, tab)), line.substr(tab + 1)});
  }
  return calls;
}

std::string Sandbox::describeCalls() const {
  return "stub calls so far:\n" + readFile(stateFile("calls.log"));
}

size_t Sandbox::countCalls(const std::string& prefix) const {
  size_t found = 0;
  for (const StubCall& call : calls()) found += call.command.rfind(prefix, 0) == 0 ? 1 : 0;
  return found;
}

bool Sandbox::waitForCalls(const std::string& prefix, size_t count, milliseconds timeout) const {
  return pollUntil(timeout, [&] { return countCalls(prefix) >= count; });
}

std::string Sandbox::dataFile(const std::string& name) const {
  return stateFile("etc-zorvik/" + name);
}

}  // namespace zorvik
