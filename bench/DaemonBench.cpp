#include "DaemonBench.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "SceneDatabase.h"
#include "TimerAccuracy.h"

extern char** environ;

namespace zorvik {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kDaemonPort = 9096;
constexpr int kEmptyServerPort = 9196;
const char kLoopback[] = "127.0.0.1";
const char kStoreFile[] = "SmartTask.db";
// The timer thread logs this once a pass.
const char kTimerPassLine[] = "]process next event";
const char kEmpty[] = "empty server";
const char kCountRequest[] = "{\"command\":\"get_scene_count\"}";

constexpr int kStartupRepeats = 3;
constexpr int kStartupScenes[] = {0, 1000, 10000};
constexpr int kRegistryScenes = 1000;
constexpr int kLookedUpScene = 500;
constexpr int kCallerCounts[] = {1, 3, 16};
// Per server and configuration, split into alternating rounds.
constexpr milliseconds kLoadTime(2400);
constexpr int kLoadRounds = 6;
constexpr int kStoredScenes = 300;
constexpr int kStoreRounds = 6;
constexpr uint64_t kMixedRequests = 10000;
constexpr int kMixedCallers = 3;
constexpr milliseconds kSettle(1000);
constexpr milliseconds kIdleWindow(10000);
constexpr milliseconds kAnswerTimeout(60000);

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double kibToMib(long kib) { return static_cast<double>(kib) / 1024; }

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

// The request that stores scene `id`'s texts: a new scene (the manager chooses its id), or
// with `withId` an update of scene `id`.
std::string storeRequest(const char* command, int id, bool withId) {
  const SceneDatabase::SceneTexts texts = SceneDatabase::textsOf(id);
  std::string request = std::string("{\"command\":\"") + command + "\",";
  if (withId) request += "\"id\":" + std::to_string(id) + ",";
  request += "\"name\":\"" + texts.name + "\",\"action_list\":" + texts.actions;
  if (!texts.launch.empty()) request += ",\"launch\":" + texts.launch;
  return request + "}";
}

std::string idRequest(const char* command, int id) {
  return std::string("{\"command\":\"") + command + "\",\"id\":" + std::to_string(id) + "}";
}

// A day of a router's callers: mostly look-ups, some edits and new scenes.
std::string mixedRequest(int caller, uint64_t n) {
  const int id =
      static_cast<int>((n * 7 + static_cast<uint64_t>(caller) * 331) % kRegistryScenes) + 1;
  switch (n % 20) {
    case 0:
      return storeRequest("scene_setting", id, false);
    case 1:
      return storeRequest("scene_update", id, true);
    case 10:
    case 11:
    case 12:
    case 13:
      return kCountRequest;
    case 14:
    case 15:
      return idRequest("is_scene_processing", id);
    case 16:
    case 17:
      return "{\"command\":\"get_multiple_scene_setting\",\"start_id\":" + std::to_string(id) +
             ",\"end_id\":" + std::to_string(id + 9) + "}";
    case 18:
      return "{\"command\":\"scene_start_by_device_status\",\"mac\":\"02:00:00:00:00:01\","
             "\"connected\":true}";
    default:
      return idRequest("get_single_scene_setting", id);
  }
}

std::string makeScratchFolder() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "zorvik-bench-scratch.XXXXXX").string();
  return mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
}

// A TCP connection to 127.0.0.1:`port` of this network namespace; -1 when there is none.
int connectToLoopback(int port) {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, kLoopback, &peer.sin_addr);
  if (connection >= 0 &&
      connect(connection, reinterpret_cast<sockaddr*>(&peer), sizeof(peer)) == 0) {
    return connection;
  }
  if (connection >= 0) close(connection);
  return -1;
}

}  // namespace

DaemonBench::DaemonBench(const SandboxControl& sandbox, std::string logSocket, ResultTable& table)
    : sandbox_(sandbox),
      logSocket_(std::move(logSocket)),
      table_(table),
      scratch_(makeScratchFolder()) {}

DaemonBench::~DaemonBench() {
  stopEmptyServer();
  std::error_code ignored;
  if (!scratch_.empty()) std::filesystem::remove_all(scratch_, ignored);
}

const std::set<std::string>& DaemonBench::groups() {
  static const std::set<std::string> names = {"startup", "requests", "storing", "mixed",
                                              "idle",    "timers",   "size"};
  return names;
}

void DaemonBench::run(const std::set<std::string>& only) {
  auto wanted = [&only](const char* group) { return only.empty() || only.count(group) != 0; };
  // The later groups need the empty server, which start-up measures first.
  if (wanted("startup")) {
    measureStartup();
  } else {
    startEmptyServer();
    std::this_thread::sleep_for(kSettle);
    emptyIdle_ = memoryOf(DaemonProcess(emptyServer_));
  }
  startMainDaemon();
  if (wanted("requests")) measureRequests();
  if (wanted("storing")) measureStoring();
  if (wanted("mixed")) measureMixedLoad();
  if (wanted("idle")) measureIdleWakeUps();
  if (wanted("timers")) measureTimers();
  if (wanted("size")) measureBinarySize();
  stopEmptyServer();
}

RequestLoad::Connector DaemonBench::connectorTo(int port) {
  return [port] { return connectToLoopback(port); };
}

// Milliseconds from `start` to the first answer on `port` (a failure when none comes).
double DaemonBench::millisecondsToFirstAnswer(Clock::time_point start, int port) {
  const Clock::time_point deadline = start + kAnswerTimeout;
  while (Clock::now() < deadline) {
    if (RequestLoad::once(connectorTo(port), kCountRequest)) return millisecondsSince(start);
  }
  ++failures_;
  return millisecondsSince(start);
}

DaemonProcess DaemonBench::findDaemon() {
  const std::optional<DaemonProcess> daemon = DaemonProcess::find();
  if (!daemon) ++failures_;
  return daemon.value_or(DaemonProcess(kNoProcess));
}

void DaemonBench::fillStore(int scenes) const {
  std::filesystem::remove(sandbox_.dataFile(kStoreFile));
  if (scenes > 0) SceneDatabase::build(sandbox_.dataFile(kStoreFile), scenes);
}

DaemonBench::Memory DaemonBench::memoryOf(const DaemonProcess& process) {
  return {kibToMib(process.residentKiB()), kibToMib(process.privateDirtyKiB())};
}

void DaemonBench::addMemoryRows(const std::string& when, const Memory& daemon,
                                const Memory& empty) {
  table_.add({"resident memory" + when, daemon.resident, empty.resident, "MiB", kEmpty});
  table_.add(
      {"private dirty memory" + when, daemon.privateDirty, empty.privateDirty, "MiB", kEmpty});
}

double DaemonBench::startEmptyServer() {
  const Clock::time_point start = Clock::now();
  const std::string port = std::to_string(kEmptyServerPort);
  char* const arguments[] = {const_cast<char*>(EMPTY_SERVER_BINARY),
                             const_cast<char*>(port.c_str()), nullptr};
  // Thrift's notes on standard error would clutter the table.
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (posix_spawn(&emptyServer_, EMPTY_SERVER_BINARY, &quiet, nullptr, arguments, environ) != 0) {
    emptyServer_ = kNoProcess;
  }
  posix_spawn_file_actions_destroy(&quiet);
  return millisecondsToFirstAnswer(start, kEmptyServerPort);
}

void DaemonBench::stopEmptyServer() {
  if (emptyServer_ <= 0) return;
  kill(emptyServer_, SIGKILL);
  waitpid(emptyServer_, nullptr, 0);
  emptyServer_ = kNoProcess;
}

void DaemonBench::measureStartup() {
  std::vector<double> emptyTimes;
  for (int repeat = 0; repeat < kStartupRepeats; ++repeat) {
    emptyTimes.push_back(startEmptyServer());
    if (repeat + 1 < kStartupRepeats) stopEmptyServer();
  }
  std::this_thread::sleep_for(kSettle);
  emptyIdle_ = memoryOf(DaemonProcess(emptyServer_));
  const double emptyStartup = median(emptyTimes);

  for (int scenes : kStartupScenes) {
    std::vector<double> times;
    for (int repeat = 0; repeat < kStartupRepeats; ++repeat) {
      fillStore(scenes);
      const std::string name = "start-" + std::to_string(scenes) + "-" + std::to_string(repeat);
      const Clock::time_point start = Clock::now();
      sandbox_.startDaemon(name);
      times.push_back(millisecondsToFirstAnswer(start, kDaemonPort));
      if (scenes == 0 && repeat == 0) {
        const DaemonProcess daemon = findDaemon();
        std::this_thread::sleep_for(kSettle);
        addMemoryRows(", idle, 0 scenes", memoryOf(daemon), emptyIdle_);
      }
      sandbox_.stopDaemon(name);
    }
    table_.add({"start-up to first answer, " + std::to_string(scenes) + " scenes", median(times),
                emptyStartup, "ms", kEmpty});
  }
}

void DaemonBench::startMainDaemon() {
  fillStore(kRegistryScenes);
  sandbox_.startDaemon("main");
  millisecondsToFirstAnswer(Clock::now(), kDaemonPort);
  daemon_ = findDaemon();
  std::this_thread::sleep_for(kSettle);
  addMemoryRows(", idle, 1000 scenes", memoryOf(daemon_), emptyIdle_);
}

// The daemon and the empty server in alternating rounds, so that a burst of other work on
// the machine weighs on both alike.
void DaemonBench::compareLoad(const std::string& label, const std::string& request, int callers) {
  RequestLoad::Plan plan;
  plan.callers = callers;
  plan.duration = kLoadTime / kLoadRounds;
  auto fixed = [&request](int, uint64_t) { return request; };
  RequestLoad::Result daemon;
  RequestLoad::Result empty;
  for (int round = 0; round < kLoadRounds; ++round) {
    daemon.merge(RequestLoad::run(connectorTo(kDaemonPort), plan, fixed));
    empty.merge(RequestLoad::run(connectorTo(kEmptyServerPort), plan, fixed));
  }
  const std::string what =
      label + ", " + std::to_string(callers) + " client" + (callers == 1 ? "" : "s");
  table_.add({what + ": throughput", daemon.throughput(), empty.throughput(), "req/s", kEmpty});
  table_.add({what + ": median latency", daemon.latencyUs.median(), empty.latencyUs.median(), "µs",
              kEmpty});
  table_.add({what + ": p99 latency", daemon.latencyUs.p99(), empty.latencyUs.p99(), "µs", kEmpty});
  failures_ += daemon.failed + empty.failed;
}

void DaemonBench::measureRequests() {
  for (int callers : kCallerCounts) compareLoad("get_scene_count", kCountRequest, callers);
  const std::string single = idRequest("get_single_scene_setting", kLookedUpScene);
  for (int callers : kCallerCounts) compareLoad("get_single_scene_setting", single, callers);
}

// The bare store starts with the registry's scenes, as the daemon's does, and both store in
// alternating rounds, so that a burst of other disk work weighs on both alike.
void DaemonBench::measureStoring() {
  const std::string bareStore = scratch_ + "/" + kStoreFile;
  SceneDatabase::build(bareStore, kRegistryScenes);
  constexpr int perRound = kStoredScenes / kStoreRounds;
  RequestLoad::Plan plan;
  plan.requests = perRound;
  plan.warmUp = 0;
  RequestLoad::Result daemon;
  Samples bare;
  for (int round = 0; round < kStoreRounds; ++round) {
    const int firstId = kRegistryScenes + 1 + round * perRound;
    daemon.merge(RequestLoad::run(connectorTo(kDaemonPort), plan, [firstId](int, uint64_t n) {
      return storeRequest("scene_setting", firstId + static_cast<int>(n), false);
    }));
    bare.merge(SceneDatabase::timeSingleInserts(bareStore, firstId, perRound));
  }
  table_.add({"scene_setting: median latency", daemon.latencyUs.median(), bare.median(), "µs",
              "bare SQLite insert"});
  table_.add({"scene_setting: p99 latency", daemon.latencyUs.p99(), bare.p99(), "µs",
              "bare SQLite insert"});
  failures_ += daemon.failed;
}

void DaemonBench::measureMixedLoad() {
  RequestLoad::Plan plan;
  plan.callers = kMixedCallers;
  plan.requests = kMixedRequests;
  plan.warmUp = 0;
  failures_ += RequestLoad::run(connectorTo(kDaemonPort), plan, mixedRequest).failed;
  failures_ += RequestLoad::run(connectorTo(kEmptyServerPort), plan, mixedRequest).failed;
  std::this_thread::sleep_for(kSettle);
  addMemoryRows(" after 10,000 mixed requests", memoryOf(daemon_),
                memoryOf(DaemonProcess(emptyServer_)));
}

void DaemonBench::measureIdleWakeUps() {
  std::this_thread::sleep_for(kSettle);
  const DaemonProcess emptyServer(emptyServer_);
  const long daemonBefore = daemon_.contextSwitches();
  const long emptyBefore = emptyServer.contextSwitches();
  const int passesBefore = sandbox_.countLogLines(kTimerPassLine);
  std::this_thread::sleep_for(kIdleWindow);
  const double seconds = std::chrono::duration<double>(kIdleWindow).count();
  const double daemonRate = (daemon_.contextSwitches() - daemonBefore) / seconds;
  const double emptyRate = (emptyServer.contextSwitches() - emptyBefore) / seconds;
  const double passRate = (sandbox_.countLogLines(kTimerPassLine) - passesBefore) / seconds;
  table_.add({"idle wake-ups, all threads", daemonRate, emptyRate, "per s", kEmpty});
  table_.add(
      {"idle timer-thread passes (\"process next event\")", passRate, 0, "per s", "none expected"});
}

void DaemonBench::measureTimers() {
  struct TimerCase {
    const char* label;
    TimerAccuracy::Plan plan;
  };
  const TimerCase cases[] = {
      {"1 pending, 10 ms delays", {1, milliseconds(10), 0, milliseconds(3000)}},
      {"1000 pending, whole-second delays", {1000, milliseconds(1000), 0, milliseconds(3000)}},
      {"1000 pending, 1-2 s delays", {1000, milliseconds(1000), 1000, milliseconds(4000)}},
  };
  for (const TimerCase& timerCase : cases) {
    const Samples daemon = TimerAccuracy::daemonTimers(timerCase.plan, logSocket_);
    const Samples plain = TimerAccuracy::conditionVariableTimers(timerCase.plan);
    const std::string what = std::string("timer lateness, ") + timerCase.label;
    table_.add(
        {what + ": median", daemon.median(), plain.median(), "µs", "condition_variable loop"});
    table_.add({what + ": p99", daemon.p99(), plain.p99(), "µs", "condition_variable loop"});
  }
}

double DaemonBench::strippedKiB(const std::string& binary) const {
  const std::string copy = scratch_ + "/stripped";
  const std::string command = "strip --strip-all -o '" + copy + "' '" + binary + "'";
  if (std::system(command.c_str()) != 0) return 0;
  return static_cast<double>(std::filesystem::file_size(copy)) / 1024;
}

void DaemonBench::measureBinarySize() {
  table_.add({"stripped binary size", strippedKiB(ZORVIK_BINARY), strippedKiB(EMPTY_SERVER_BINARY),
              "KiB", kEmpty});
}

void DaemonBench::addMethodNotes(ResultTable& table) {
  table.note(
      "The daemon is the Release build, unmodified, in the end-to-end tests' sandbox; its "
      "syslog goes to the sandbox's /dev/log, which a reader inside the sandbox drains into "
      "a file. The empty server and the benchmark run in the sandbox's network namespace. "
      "Clients, servers and the benchmark share all CPUs, and request figures are taken in "
      "alternating rounds of daemon and empty server.");
  table.note(
      "get_single_scene_setting asks for scene 500 of 1000; scene_setting stores scenes "
      "of the same texts one at a time (SQLite's default journal, one transaction each), in "
      "alternating rounds with bare SQLite, whose store also starts with 1000 scenes; "
      "the mixed load is 10,000 calls of 3 clients: 45% get_single_scene_setting, 20% "
      "get_scene_count, 10% each is_scene_processing and get_multiple_scene_setting, 5% "
      "each scene_setting, scene_update and scene_start_by_device_status.");
  table.note(
      "Start-up is the time from the start command to the first answered "
      "get_scene_count; it includes the 200 ms pause the scene manager takes after "
      "starting its timer thread, and with a trusted clock the first reading of every "
      "stored alarm (four log lines each).");
  table.note(
      "Timer lateness is measured in this process with the daemon's timer thread, its "
      "log lines sent as datagrams to the sandbox's /dev/log like syslog's; every timer "
      "re-arms itself when it fires. With delays that are not whole seconds, an expiry's "
      "microseconds may exceed "
      "999999; a pass in the last second before such a timer is due computes a negative "
      "select() timeout, fails and sleeps one second, as the timer thread is specified to "
      "do, and every timer due meanwhile fires late.");
  table.note(
      "Private dirty memory is Private_Dirty of /proc/PID/smaps_rollup: the pages the process "
      "wrote itself (heap, stacks, the libraries' written data; here the same as its "
      "anonymous pages). The resident size also counts the shared libraries' pages, which on "
      "a desktop (Thrift built with OpenSSL) say little about the router.");
  table.note(
      "Idle wake-ups count the context switches of all threads over 10 s after the "
      "load, with no timer pending.");
}

}  // namespace zorvik
