// Several clients hammer the daemon with every command at once while scenes with delays of a
// few milliseconds run, are stopped, changed and removed under them. Run against a
// ThreadSanitizer build of the daemon, this is where data races, lock-order inversions and
// use-after-free of scenes and actions show (StressFixture fails the test on any report).
// Afterwards the daemon still answers and its registry and its store agree row by row.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ReplyJson.h"
#include "SceneMaker.h"
#include "StressFixture.h"

namespace zorvik {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kClients = 6;
constexpr std::chrono::seconds kMixDuration(20);
constexpr int kMostRequestsPerClient = 2500;
// The clients keep the registry between these sizes, adding below and removing above.
constexpr size_t kFewestScenes = 4;
constexpr size_t kMostScenes = 24;
constexpr int kAnyWeekday = 6;
constexpr int32_t kUnknownId = 29000;

// The ids the clients believe to exist (another client may have removed one a moment ago).
class KnownIds {
 public:
  void add(int32_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    ids_.push_back(id);
  }
  void remove(int32_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    ids_.erase(std::remove(ids_.begin(), ids_.end(), id), ids_.end());
  }
  size_t size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ids_.size();
  }
  // A known id, or now and then one that never existed.
  int32_t pick(SceneMaker& maker) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (ids_.empty() || maker.chance(0.05)) return kUnknownId;
    return ids_[static_cast<size_t>(maker.uniform(0, static_cast<int>(ids_.size()) - 1))];
  }

 private:
  mutable std::mutex mutex_;
  std::vector<int32_t> ids_;  // guarded by mutex_
};

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// The members after "command" of one request; `id` is a scene id where the command takes one.
using MemberBuilder = std::string (*)(SceneMaker& maker, int32_t id);

std::string sceneMembers(SceneMaker& maker) {
  std::string members = R"(,"name":)" + quoted("mix-" + std::to_string(maker.uniform(0, 99999))) +
                        R"(,"action_list":)" + maker.actions();
  return maker.chance(0.6) ? members + R"(,"launch":)" + maker.launch() : members;
}

std::string idMember(int32_t id) { return R"(,"id":)" + std::to_string(id); }

// One command of the mix: how often it is sent, the reply codes it may get while the other
// clients work on the same scenes, and its members.
struct MixCommand {
  const char* name;
  int weight;
  std::set<int> codes;
  MemberBuilder members;
};

const MixCommand kMix[] = {
    {"scene_setting", 10, {0}, [](SceneMaker& m, int32_t) { return sceneMembers(m); }},
    {"scene_update",
     8,
     {0, 3502},
     [](SceneMaker& m, int32_t id) { return idMember(id) + sceneMembers(m); }},
    {"scene_start", 14, {0, 3502, 3505}, [](SceneMaker&, int32_t id) { return idMember(id); }},
    {"scene_stop", 8, {0, 3502}, [](SceneMaker&, int32_t id) { return idMember(id); }},
    {"scene_launch",
     5,
     {0, 3502},
     [](SceneMaker& m, int32_t id) { return idMember(id) + R"(,"launch":)" + m.launch(); }},
    {"scene_launch_delete", 4, {0, 3502}, [](SceneMaker&, int32_t id) { return idMember(id); }},
    {"scene_delete", 6, {0, 3502}, [](SceneMaker&, int32_t id) { return idMember(id); }},
    {"get_scene_setting", 5, {0}, [](SceneMaker&, int32_t) { return std::string(); }},
    {"get_single_scene_setting", 4, {0}, [](SceneMaker&, int32_t id) { return idMember(id); }},
    {"get_multiple_scene_setting",
     3,
     {0},
     [](SceneMaker& m, int32_t) {
       const int start = m.uniform(0, 60);
       return R"(,"start_id":)" + std::to_string(start) + R"(,"end_id":)" +
              std::to_string(start + m.uniform(0, 30));
     }},
    {"is_scene_processing", 6, {0, 3502}, [](SceneMaker&, int32_t id) { return idMember(id); }},
    {"scene_start_by_device_status",
     6,
     {0, 3506},
     [](SceneMaker& m, int32_t) {
       return R"(,"mac":)" + quoted(m.mac()) + R"(,"connected":)" +
              (m.chance(0.5) ? "true" : "false");
     }},
    {"scene_start_by_crontab",
     2,
     {0},
     [](SceneMaker& m, int32_t) {
       return R"(,"week":)" + std::to_string(m.uniform(0, kAnyWeekday)) + R"(,"time":)" +
              quoted(SceneMaker::kCrontabTime);
     }},
    {"scene_record_by_crontab", 2, {0}, [](SceneMaker&, int32_t) { return std::string(); }},
    {"get_scene_count", 4, {0}, [](SceneMaker&, int32_t) { return std::string(); }},
};

const MixCommand& mixCommand(const std::string& name) {
  for (const MixCommand& command : kMix) {
    if (name == command.name) return command;
  }
  throw std::logic_error("no such command in the mix: " + name);
}

// A command drawn by weight, kept from emptying or overfilling the registry.
const MixCommand& drawCommand(SceneMaker& maker, size_t scenes) {
  if (scenes < kFewestScenes) return mixCommand("scene_setting");
  int total = 0;
  for (const MixCommand& command : kMix) total += command.weight;
  int draw = maker.uniform(1, total);
  for (const MixCommand& command : kMix) {
    draw -= command.weight;
    if (draw > 0) continue;
    if (scenes >= kMostScenes && std::string(command.name) == "scene_setting") {
      return mixCommand("scene_delete");
    }
    return command;
  }
  return kMix[0];
}

// What one client saw.
struct ClientTally {
  int requests = 0;
  std::map<std::string, int> succeeded;  // code 0 replies by command
  std::vector<std::string> faults;
};

class ConcurrencyStressTest : public StressFixture {
 protected:
  void runClient(uint32_t seed, Clock::time_point end, ClientTally& tally) {
    SceneMaker maker(seed);
    std::unique_ptr<ServiceConnection> connection;
    while (Clock::now() < end && tally.requests < kMostRequestsPerClient) {
      const MixCommand& command = drawCommand(maker, ids_.size());
      const int32_t id = ids_.pick(maker);
      const std::string parameter =
          R"({"command":)" + quoted(command.name) + command.members(maker, id) + "}";
      ++tally.requests;
      try {
        if (!connection) connection = connect();
        if (!connection) return;
        judge(command, id, parameter, connection->request(parameter), tally);
      } catch (const std::exception& error) {
        tally.faults.push_back(parameter + " failed: " + error.what());
        connection.reset();
      }
    }
  }

  void judge(const MixCommand& command, int32_t id, const std::string& parameter,
             const std::string& reply, ClientTally& tally) {
    const std::optional<int> code = ReplyJson::intMember(reply, "code");
    if (!code || command.codes.count(*code) == 0) {
      tally.faults.push_back(parameter + " answered " + reply);
      return;
    }
    if (*code != 0) return;
    ++tally.succeeded[command.name];
    const std::string name = command.name;
    if (name == "scene_setting") {
      const std::optional<int> added = ReplyJson::intMember(reply, "id");
      if (added) ids_.add(*added);
      if (!added) tally.faults.push_back(parameter + " answered without id: " + reply);
    } else if (name == "scene_delete") {
      ids_.remove(id);
    } else if (name == "get_scene_setting" && !SceneTable::fromReply(reply)) {
      tally.faults.push_back("unreadable scene list: " + reply);
    }
  }

  KnownIds ids_;
};

TEST_F(ConcurrencyStressTest, EveryCommandAtOnceWhileScenesRunLeavesRegistryAndStoreInStep) {
  const uint32_t seed = std::random_device{}();
  RecordProperty("seed", std::to_string(seed));
  const Clock::time_point end = Clock::now() + kMixDuration;
  std::vector<ClientTally> tallies(kClients);
  std::vector<std::thread> clients;
  for (int i = 0; i < kClients; ++i) {
    ClientTally& tally = tallies[static_cast<size_t>(i)];
    clients.emplace_back(
        [this, seed, i, end, &tally] { runClient(seed + static_cast<uint32_t>(i), end, tally); });
  }
  for (std::thread& client : clients) client.join();

  ClientTally total;
  for (const ClientTally& tally : tallies) {
    total.requests += tally.requests;
    for (const auto& [name, count] : tally.succeeded) total.succeeded[name] += count;
    total.faults.insert(total.faults.end(), tally.faults.begin(), tally.faults.end());
  }
  EXPECT_TRUE(total.faults.empty())
      << total.faults.size() << " of " << total.requests << " requests went wrong (seed " << seed
      << "):" << describeFaults(total.faults);
  for (const MixCommand& command : kMix) {
    EXPECT_GT(total.succeeded[command.name], 0) << command.name << " never succeeded";
  }
  std::cout << total.requests << " requests (seed " << seed << ")" << std::endl;

  expectStillServing();
  const std::optional<SceneMap> listed = listedScenes();
  std::string error;
  const std::optional<SceneMap> stored = storedScenes(error);
  ASSERT_TRUE(listed) << "get_scene_setting is not a scene list";
  ASSERT_TRUE(stored) << error;
  EXPECT_EQ(*listed, *stored) << "registry:" << *listed << "\nstore:" << *stored;
  EXPECT_EQ(ReplyJson::intMember(request(kCountRequest), "count"),
            static_cast<int>(listed->size()));
  const size_t tunnelCalls = sandbox().countCalls("/usr/sbin/pellway 6 ");
  const size_t wifiCalls = sandbox().countCalls("/sbin/wifi");
  EXPECT_GT(tunnelCalls, 0u) << "no tunnel action ran";
  EXPECT_GT(wifiCalls, 0u) << "no Wi-Fi action ran";
  std::cout << tunnelCalls << " tunnel and " << wifiCalls << " Wi-Fi commands ran, "
            << sandbox().countCalls("/usr/sbin/vantpost ") << " runs were reported" << std::endl;
}

}  // namespace
}  // namespace zorvik
