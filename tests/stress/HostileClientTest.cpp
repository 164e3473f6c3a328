// Hostile local clients: connections left idle, requests dribbled a byte at a time, frames at and
// beyond the size bound, garbage at a high rate, more connections than the daemon has
// descriptors for, and tiny frames that announce huge strings. Throughout, a well-behaved caller
// must be answered in time, and afterwards the daemon's memory must come back down.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "RawClient.h"
#include "StressFixture.h"

namespace zorvik {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const char kLoopback[] = "127.0.0.1";
const char kAddRequest[] =
    R"({"command":"scene_setting","name":"Hall","action_list":[{"thirdParty":"quiro",)"
    R"("type":"light","name":"Lamp","keyName":"on","delay":5,"payload":"on"}]})";
const char kCountOfOne[] = R"({ "code": 0, "msg": "", "count": 1 })";

constexpr int kIdleConnections = 200;
constexpr int kSlowSenders = 10;
constexpr int kSlowRequestsEach = 2;
constexpr milliseconds kSlowBytePause(3);
constexpr int kBoundFrames = 3;
constexpr int kGarbageSenders = 4;
constexpr milliseconds kGarbageDuration(2000);
constexpr size_t kGarbageChunk = 1024;
constexpr int kGarbageConnectionsEach = 2000;
constexpr milliseconds kPollPeriod(50);
// After the hostile clients are gone the daemon may keep this much more than when it was idle.
constexpr long kResidentSlackKiB = 16 * 1024;
constexpr milliseconds kSettleTimeout(15000);
// The descriptor limit the daemon is started with when it must run out of descriptors.
constexpr rlim_t kLowDescriptorLimit = 128;
// A claimed string length far above the frame bound, but harmless for the test machine if the
// daemon does allocate it.
constexpr uint32_t kHugeStringClaim = 256u * 1024 * 1024;
constexpr long kPeakSlackKiB = 64 * 1024;

// A well-behaved caller on its own thread: one count request every kPollPeriod on a connection
// of its own (made again when it breaks), each expected back within kReplyBound.
class Poller {
 public:
  Poller(const Sandbox& sandbox, int port, std::string expectedReply, milliseconds bound)
      : sandbox_(sandbox), port_(port), expected_(std::move(expectedReply)), bound_(bound) {
    thread_ = std::thread(&Poller::run, this);
  }
  ~Poller() { stop(); }

  void stop() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
  }
  // Read after stop().
  int requests() const { return requests_; }
  milliseconds slowest() const { return slowest_; }
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  void run() {
    std::unique_ptr<ServiceConnection> connection;
    while (!stopping_) {
      const Clock::time_point started = Clock::now();
      pollOnce(connection);
      const milliseconds took = std::chrono::duration_cast<milliseconds>(Clock::now() - started);
      slowest_ = std::max(slowest_, took);
      if (took > bound_) faults_.push_back("a reply took " + std::to_string(took.count()) + " ms");
      std::this_thread::sleep_until(started + kPollPeriod);
    }
  }

  void pollOnce(std::unique_ptr<ServiceConnection>& connection) {
    ++requests_;
    try {
      if (!connection) {
        const int socket = sandbox_.connectTo(kLoopback, port_);
        if (socket < 0) throw std::runtime_error("cannot connect");
        connection = std::make_unique<ServiceConnection>(socket, 2 * bound_.count());
      }
      const std::string reply = connection->request(kCountRequest);
      if (reply != expected_) faults_.push_back("wrong reply " + reply);
    } catch (const std::exception& error) {
      faults_.push_back(std::string("request failed: ") + error.what());
      connection.reset();
    }
  }

  const Sandbox& sandbox_;
  const int port_;
  const std::string expected_;
  const milliseconds bound_;
  std::atomic<bool> stopping_{false};
  int requests_ = 0;                 // poller thread only until stop()
  milliseconds slowest_{0};          // poller thread only until stop()
  std::vector<std::string> faults_;  // poller thread only until stop()
  std::thread thread_;
};

class HostileClientTest : public StressFixture {
 protected:
  // Adds the one scene the count replies report and lets the daemon settle.
  void warmUp() {
    ASSERT_EQ(request(kAddRequest).rfind(R"({ "code": 0, "msg": "", "id": )", 0), 0u);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(request(kCountRequest), kCountOfOne);
    std::this_thread::sleep_for(milliseconds(500));
  }

  // Each sender dribbles whole requests a byte at a time and expects their replies; the number
  // of correct replies is added to `answered`.
  std::vector<std::thread> startSlowSenders(std::atomic<int>& answered) {
    std::vector<std::thread> senders;
    for (int i = 0; i < kSlowSenders; ++i) {
      senders.emplace_back([this, &answered] {
        RawClient client = rawClient();
        for (int n = 0; n < kSlowRequestsEach; ++n) {
          if (!client.sendSlowly(RawClient::requestFrame(kCountRequest), kSlowBytePause)) return;
          if (client.readReply(kReplyBound) == std::optional<std::string>(kCountOfOne)) ++answered;
        }
      });
    }
    return senders;
  }

  // For kGarbageDuration, half the senders write random bytes as fast as they can (read as
  // absurd frame lengths, so the daemon cuts them off) and the others wrap random bytes in
  // frames of random length up to the bound (which the daemon reads whole and must then refuse
  // to decode). Both connect again whenever the daemon closes the connection; the connections
  // used are added to `used`.
  std::vector<std::thread> startGarbageSenders(uint32_t seed, std::atomic<int>& used) {
    std::vector<std::thread> senders;
    for (int i = 0; i < kGarbageSenders; ++i) {
      senders.emplace_back([this, seed, i, &used] {
        std::mt19937 random(seed + static_cast<uint32_t>(i));
        const bool framed = i % 2 == 1;
        const Clock::time_point end = Clock::now() + kGarbageDuration;
        for (int c = 0; c < kGarbageConnectionsEach && Clock::now() < end; ++c) {
          RawClient client = rawClient();
          ++used;
          while (Clock::now() < end && client.send(garbage(random, framed))) {
          }
        }
      });
    }
    return senders;
  }

  static std::string garbage(std::mt19937& random, bool framed) {
    const uint32_t size = framed ? 1 + random() % kFrameBound : kGarbageChunk;
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return framed ? RawClient::frame(bytes) : bytes;
  }

  // Waits until the daemon's resident memory is at most `limitKiB`; the last value seen.
  long settledResidentKiB(const DaemonProcess& daemon, long limitKiB) {
    const Clock::time_point end = Clock::now() + kSettleTimeout;
    long resident = daemon.residentKiB();
    while (resident > limitKiB && Clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(200));
      resident = daemon.residentKiB();
    }
    return resident;
  }
};

TEST_F(HostileClientTest, WellBehavedCallerIsServedThroughIdleSlowOversizedAndGarbageClients) {
  const uint32_t seed = std::random_device{}();
  RecordProperty("seed", std::to_string(seed));
  warmUp();
  std::optional<DaemonProcess> daemon = daemonProcess();
  ASSERT_TRUE(daemon);
  const long idleKiB = daemon->residentKiB();
  const long idleDescriptors = daemon->openDescriptors();
  Poller poller(sandbox(), kServicePort, kCountOfOne, kReplyBound);

  std::vector<RawClient> idle;
  for (int i = 0; i < kIdleConnections; ++i) idle.push_back(rawClient());
  for (const RawClient& client : idle) ASSERT_TRUE(client.connected());

  std::atomic<int> slowAnswered{0};
  std::atomic<int> garbageConnections{0};
  std::vector<std::thread> slow = startSlowSenders(slowAnswered);
  std::vector<std::thread> garbage = startGarbageSenders(seed, garbageConnections);

  for (int i = 0; i < kBoundFrames; ++i) {
    RawClient atBound = rawClient();
    const std::string frame = RawClient::paddedRequestFrame("get_scene_count", kFrameBound);
    ASSERT_EQ(frame.size(), kFrameBound + 4);
    ASSERT_TRUE(atBound.send(frame));
    EXPECT_EQ(atBound.readReply(5 * kReplyBound), std::optional<std::string>(kCountOfOne))
        << "a frame exactly at the bound is served";
    RawClient aboveBound = rawClient();
    aboveBound.send(RawClient::frameHeader(kFrameBound + 1) + std::string(64 * 1024, 'x'));
    EXPECT_TRUE(aboveBound.closedByPeer(kReplyBound)) << "a frame one byte above is cut off";
  }
  for (std::thread& sender : slow) sender.join();
  for (std::thread& sender : garbage) sender.join();

  EXPECT_GE(daemon->openDescriptors(), idleDescriptors + kIdleConnections)
      << "every idle connection is still held open";
  const long busyKiB = daemon->residentKiB();
  idle.clear();
  const long settledKiB = settledResidentKiB(*daemon, idleKiB + kResidentSlackKiB);
  poller.stop();

  EXPECT_EQ(slowAnswered.load(), kSlowSenders * kSlowRequestsEach) << "dribbled requests";
  EXPECT_GT(garbageConnections.load(), kGarbageSenders);
  EXPECT_TRUE(poller.faults().empty()) << poller.faults().size() << " of " << poller.requests()
                                       << " polls failed:" << describeFaults(poller.faults());
  EXPECT_GT(poller.requests(), 20);
  EXPECT_LE(settledKiB, idleKiB + kResidentSlackKiB)
      << "resident memory: idle " << idleKiB << " KiB, under load " << busyKiB
      << " KiB, afterwards " << settledKiB << " KiB";
  std::cout << "polls " << poller.requests() << ", slowest " << poller.slowest().count()
            << " ms; garbage connections " << garbageConnections.load() << "; resident KiB idle "
            << idleKiB << ", busy " << busyKiB << ", after " << settledKiB << std::endl;
  expectStillServing();
}

// The daemon of these tests starts with few descriptors, as on a router whose limit is low.
class DescriptorLimitTest : public HostileClientTest {
 protected:
  void prepare(Sandbox& sandbox) override {
    HostileClientTest::prepare(sandbox);
    // The sandbox, and the daemon in it, inherit this process's limit when they start.
    getrlimit(RLIMIT_NOFILE, &saved_);
    rlimit low = saved_;
    low.rlim_cur = std::min(saved_.rlim_cur, kLowDescriptorLimit);
    setrlimit(RLIMIT_NOFILE, &low);
  }
  void restoreLimit() { setrlimit(RLIMIT_NOFILE, &saved_); }
  void TearDown() override {
    restoreLimit();
    HostileClientTest::TearDown();
  }

  rlimit saved_{};
};

TEST_F(DescriptorLimitTest, ConnectionsBeyondTheDescriptorLimitAreRefusedAndTheDaemonStays) {
  restoreLimit();
  warmUp();
  std::optional<DaemonProcess> daemon = daemonProcess();
  ASSERT_TRUE(daemon);
  ASSERT_EQ(daemon->descriptorLimit(), static_cast<long>(kLowDescriptorLimit));
  Poller poller(sandbox(), kServicePort, kCountOfOne, kReplyBound);
  std::this_thread::sleep_for(4 * kPollPeriod);

  std::vector<RawClient> idle;
  for (int i = 0; i < kIdleConnections; ++i) idle.push_back(rawClient());
  int refused = 0;
  for (RawClient& client : idle) refused += client.closedByPeer(milliseconds(50)) ? 1 : 0;
  EXPECT_GT(refused, 0) << "connections beyond the limit are closed at once";
  EXPECT_LT(daemon->openDescriptors(), static_cast<long>(kLowDescriptorLimit));
  std::this_thread::sleep_for(10 * kPollPeriod);
  EXPECT_FALSE(sandbox().waitForExit(kDaemon, milliseconds(0)))
      << "the daemon ended: " << sandbox().daemonErrors(kDaemon);

  idle.clear();
  std::this_thread::sleep_for(10 * kPollPeriod);
  poller.stop();
  EXPECT_TRUE(poller.faults().empty()) << poller.faults().size() << " of " << poller.requests()
                                       << " polls failed:" << describeFaults(poller.faults());
  EXPECT_EQ(request(kCountRequest), kCountOfOne) << "new connections are served again";
  expectStillServing();
}

TEST_F(HostileClientTest, TinyFramesAnnouncingHugeStringsAreNotAllocated) {
  warmUp();
  std::optional<DaemonProcess> daemon = daemonProcess();
  ASSERT_TRUE(daemon);
  const long peakBeforeKiB = daemon->peakResidentKiB();
  // Strict reading is off, so a message may begin with the length of its method name; and a
  // proper call may announce a parameter far longer than its frame.
  const std::string unversionedName = RawClient::frameHeader(kHugeStringClaim) + "request";
  const std::string callHead = RawClient::callMessage("");
  const std::string longParameter =
      callHead.substr(0, callHead.size() - 5) + RawClient::frameHeader(kHugeStringClaim) + "{";
  for (const std::string& body : {unversionedName, longParameter}) {
    RawClient client = rawClient();
    ASSERT_TRUE(client.send(RawClient::frame(body)));
    // Such a frame gets no reply and leaves the connection open: the reply to the request
    // behind it shows that the daemon is done with it.
    ASSERT_TRUE(client.send(RawClient::requestFrame(kCountRequest)));
    EXPECT_EQ(client.readReply(kReplyBound), std::optional<std::string>(kCountOfOne));
  }
  expectStillServing();
  const long peakAfterKiB = daemon->peakResidentKiB();
  EXPECT_LT(peakAfterKiB, peakBeforeKiB + kPeakSlackKiB)
      << "peak resident memory went from " << peakBeforeKiB << " to " << peakAfterKiB << " KiB";
}

}  // namespace
}  // namespace zorvik
