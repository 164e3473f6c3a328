// The server folder's own mechanics: log lines and their sink, the real shell backend (quoting and
// the logged runs are in the transcripts' command lines) and the RPC server's workers.
#include <gtest/gtest.h>
#include <pthread.h>
#include <syslog.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include <future>
#include <sstream>
#include <thread>

#include "server/Log.h"
#include "server/ServiceServer.h"
#include "server/Shell.h"
#include "support/LogCapture.h"

namespace zorvik {
namespace {

using namespace apache::thrift;

TEST(LogTest, LinesCarryTagLevelFileLineAndTheTextAsGiven) {
  std::vector<std::pair<int, std::string>> sent;  // priority and whole line handed to the sink
  const LogSink previous =
      setLogSink([&](int priority, const std::string& text) { sent.emplace_back(priority, text); });
  // The level and text given, the priority and the line the sink receives.
  const std::tuple<int, const char*, int, const char*> rows[] = {
      {kLogInfo, "get all scenes", LOG_INFO, "[ZORVIK INFO ZorvikTunnel.cpp:106]get all scenes\n"},
      {kLogDebug, "d", LOG_DEBUG, "[ZORVIK DEBUG ZorvikTunnel.cpp:106]d\n"},
      {kLogError, "%s %n", LOG_ERR, "[ZORVIK ERROR ZorvikTunnel.cpp:106]%s %n\n"},
      {5, "", LOG_ERR, "[ZORVIK ERROR ZorvikTunnel.cpp:106]\n"},
      {-1, "minus", LOG_INFO, "[ZORVIK INFO ZorvikTunnel.cpp:106]minus\n"}};
  for (const auto& [level, text, priority, line] : rows) {
    sent.clear();
    LogMessage("ZorvikTunnel.cpp", 106, level).stream() << text;
    EXPECT_EQ(sent, (std::vector<std::pair<int, std::string>>{{priority, line}}));
  }
  setLogSink(previous);
}

TEST(LogTest, LinesOfDifferentThreadsNeverMix) {
  std::string received;  // taken a character at a time: overlapping calls would mix their lines
  const LogSink previous = setLogSink([&](int, const std::string& text) {
    for (char c : text) {
      received += c;
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) ZLOG(kLogInfo) << "thread " << i << " end";
    });
  }
  for (std::thread& thread : threads) thread.join();
  setLogSink(previous);
  std::istringstream lines(received);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_TRUE(line.rfind('[') == 0 && line.find(" end") == line.size() - 4) << line;
  }
  EXPECT_EQ(count, 2000);
}

TEST(ShellTest, RealBackendGivesResultsAndTheWholeOutputOfAQuotedWord) {
  // More output than one read takes; a quoted word that a shell would otherwise interpret.
  const std::string hostile = "x';echo injected;'$(echo sub)`echo back`\n\\";
  EXPECT_EQ(
      Shell::capture("printf %s " + Shell::quote(hostile) + "; head -c 300 /dev/zero | tr '\\0' x"),
      hostile + std::string(300, 'x'));
  EXPECT_EQ(Shell::system("true"), 0);
  EXPECT_NE(Shell::system("exit 3"), 0);
}

// Answers with the stack size and detach state of the worker running the call; tells when the
// server listens.
struct WorkerReport : ZorvikIf, server::TServerEventHandler {
  void request(std::string& reply, const std::string&) override {
    pthread_attr_t attributes;
    size_t stackSize = 0;
    int detachState = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stackSize);
    pthread_attr_getdetachstate(&attributes, &detachState);
    pthread_attr_destroy(&attributes);
    reply = std::to_string(stackSize) + (detachState == PTHREAD_CREATE_DETACHED ? " detached" : "");
  }
  void preServe() override { listening.set_value(); }
  std::promise<void> listening;
};

TEST(ServiceServerTest, WorkersRunCallsDetachedOnAOneMebibyteStack) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "Thrift's libraries are not built for ThreadSanitizer, which then takes their "
                  "reference counts shared by the I/O thread and the workers for races";
#endif
  auto report = std::make_shared<WorkerReport>();
  auto server = ServiceServer::build(report, /*port=*/0);
  server->setServerEventHandler(report);
  std::thread serving([&] { server->serve(); });
  report->listening.get_future().wait();
  auto transport = std::make_shared<transport::TFramedTransport>(
      std::make_shared<transport::TSocket>("127.0.0.1", server->getListenPort()));
  transport->open();
  std::string reply;
  ZorvikClient(std::make_shared<protocol::TBinaryProtocol>(transport)).request(reply, "");
  EXPECT_EQ(reply, "1048576 detached");
  server->stop();
  serving.join();
}

}  // namespace
}  // namespace zorvik
