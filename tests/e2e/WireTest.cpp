#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "DaemonFixture.h"

namespace zorvik {
namespace {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::T_CALL;
using apache::thrift::protocol::T_EXCEPTION;
using apache::thrift::protocol::TMessageType;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using PeerState = RawClient::PeerState;

const char kRecordRequest[] = R"({"command":"scene_record_by_crontab"})";

class DaemonWireTest : public DaemonFixture {};

TEST_F(DaemonWireTest, UnknownMethodIsRefusedAndTheConnectionStaysUsable) {
  std::unique_ptr<ServiceConnection> connection = connect();
  ASSERT_TRUE(connection);
  apache::thrift::protocol::TProtocol& protocol = connection->protocol();
  const std::string parameter = kCountRequest;
  protocol.writeMessageBegin("Request", T_CALL, 7);
  Zorvik_request_pargs arguments;
  arguments.parameter = &parameter;
  arguments.write(&protocol);
  protocol.writeMessageEnd();
  protocol.getTransport()->writeEnd();
  protocol.getTransport()->flush();

  std::string name;
  TMessageType type;
  int32_t sequence = 0;
  protocol.readMessageBegin(name, type, sequence);
  TApplicationException refusal;
  refusal.read(&protocol);
  protocol.readMessageEnd();
  protocol.getTransport()->readEnd();
  EXPECT_EQ(type, T_EXCEPTION);
  EXPECT_EQ(name, "Request");
  EXPECT_EQ(sequence, 7);
  EXPECT_EQ(refusal.getType(), TApplicationException::UNKNOWN_METHOD);
  EXPECT_STREQ(refusal.what(), "Invalid method name: 'Request'");

  EXPECT_EQ(connection->request(R"({"command":"nope"})"), kApiNotExistsReply);
}

TEST_F(DaemonWireTest, EmptyParameterReachesTheTunnel) {
  EXPECT_EQ(request(""), kFormatErrorReply);
}

TEST_F(DaemonWireTest, GarbageInsideAFrameIsNotAnswered) {
  RawClient garbage = rawClient();
  ASSERT_TRUE(garbage.send(RawClient::frame("\xff\xff\xff\xff not thrift at all")));
  EXPECT_NE(garbage.awaitPeer(milliseconds(1000)), PeerState::kAnswered);
  EXPECT_TRUE(sandbox().syslog().waitFor("Bad version identifier", milliseconds(5000)))
      << "Thrift's own diagnostics reach the daemon's log";
  expectStillServing();
}

// A small frame whose parameter claims to be 2 GiB long gets no answer and harms no one.
TEST_F(DaemonWireTest, ParameterLongerThanItsFrameIsNotAnswered) {
  const std::string call = RawClient::callMessage("");
  // The call ends with the parameter's length (0) and the stop byte: claim 2 GiB instead.
  const std::string boasting =
      call.substr(0, call.size() - 5) + RawClient::frameHeader(0x7ffffff0) + "\0";
  RawClient caller = rawClient();
  ASSERT_TRUE(caller.send(RawClient::frame(boasting)));
  EXPECT_NE(caller.awaitPeer(milliseconds(1000)), PeerState::kAnswered);
  expectStillServing();
}

TEST_F(DaemonWireTest, HttpRequestReadsAsAnOversizedFrameAndIsCutOff) {
  RawClient http = rawClient();
  ASSERT_TRUE(http.send("GET / HTTP/1.1\r\nHost: router\r\n\r\n"));
  EXPECT_EQ(http.awaitPeer(milliseconds(5000)), PeerState::kClosed);
  expectStillServing();
}

TEST_F(DaemonWireTest, FramesBeyondFourMebibytesAreCutOffWhileLargeOnesAreServed) {
  RawClient huge = rawClient();
  ASSERT_TRUE(huge.send(RawClient::frameHeader(kFrameBound + 1)));
  EXPECT_EQ(huge.awaitPeer(milliseconds(5000)), PeerState::kClosed);
  RawClient enormous = rawClient();
  ASSERT_TRUE(enormous.send(RawClient::frameHeader(0x7fffffff)));
  EXPECT_EQ(enormous.awaitPeer(milliseconds(5000)), PeerState::kClosed);

  const std::string padding(3 * 1024 * 1024, 'x');
  EXPECT_EQ(request(R"({"command":"nope","pad":")" + padding + "\"}"), kApiNotExistsReply);
  expectStillServing();
}

// An empty frame is no call: nothing answers it, and the next bytes end the connection.
TEST_F(DaemonWireTest, ZeroLengthFrameIsNotAnsweredAndEndsTheConnection) {
  RawClient empty = rawClient();
  ASSERT_TRUE(empty.send(RawClient::frameHeader(0)));
  EXPECT_EQ(empty.awaitPeer(milliseconds(500)), PeerState::kSilent);
  ASSERT_TRUE(empty.send(RawClient::requestFrame(kCountRequest)));
  EXPECT_EQ(empty.awaitPeer(milliseconds(5000)), PeerState::kClosed);
  expectStillServing();
}

TEST_F(DaemonWireTest, IdleAndTruncatedConnectionsDoNotHoldUpOthers) {
  RawClient idle = rawClient();
  RawClient truncated = rawClient();
  const std::string call = RawClient::requestFrame(kCountRequest);
  ASSERT_TRUE(truncated.send(call.substr(0, call.size() / 2)));

  const Clock::time_point asked = Clock::now();
  EXPECT_EQ(request(kCountRequest), kNoScenesReply);
  EXPECT_LT(Clock::now() - asked, milliseconds(5000));
  EXPECT_EQ(idle.awaitPeer(milliseconds(200)), PeerState::kSilent);
  EXPECT_EQ(truncated.awaitPeer(milliseconds(200)), PeerState::kSilent);

  // The rest of the truncated call arrives late: it is answered all the same.
  ASSERT_TRUE(truncated.send(call.substr(call.size() / 2)));
  EXPECT_EQ(truncated.awaitPeer(milliseconds(5000)), PeerState::kAnswered);
  expectStillServing();
}

TEST_F(DaemonWireTest, CallerGoneBeforeTheReplyDoesNotTakeTheDaemonDown) {
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Night","action_list":[]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  // The status record waits on a slow logger, so the reply is written after the caller reset
  // the connection.
  sandbox().writeStateFile("stub/logger.delay", "0.5");
  RawClient caller = rawClient();
  ASSERT_TRUE(caller.send(RawClient::requestFrame(kRecordRequest)));
  ASSERT_TRUE(sandbox().waitForCalls("/usr/bin/logger", 1, milliseconds(5000)));
  caller.abort();
  std::this_thread::sleep_for(milliseconds(1000));
  expectStillServing();
}

// Three status records hold the three workers (the logger stub takes 1.5 s each, and the scene
// manager runs them one after another). A fourth request, which needs no scene at all, can
// only be answered once the first worker is free: after the first record, well before the
// second.
TEST_F(DaemonWireTest, FourthRequestWaitsForAFreeWorker) {
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Night","action_list":[]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  sandbox().writeStateFile("stub/logger.delay", "1.5");

  std::vector<std::unique_ptr<ServiceConnection>> slow;
  for (int i = 0; i < 3; ++i) {
    slow.push_back(connect());
    ASSERT_TRUE(slow.back());
  }
  std::unique_ptr<ServiceConnection> fourth = connect();
  ASSERT_TRUE(fourth);

  std::vector<std::future<Clock::time_point>> answered;
  for (std::unique_ptr<ServiceConnection>& connection : slow) {
    answered.push_back(std::async(std::launch::async, [&connection] {
      connection->request(kRecordRequest);
      return Clock::now();
    }));
  }
  ASSERT_TRUE(sandbox().waitForCalls("/usr/bin/logger", 1, milliseconds(5000)));
  std::this_thread::sleep_for(milliseconds(300));
  const Clock::time_point asked = Clock::now();
  EXPECT_EQ(fourth->request(R"({"command":"scene_start"})"), kFormatErrorReply);
  const Clock::time_point fourthAnswered = Clock::now();

  std::vector<Clock::time_point> slowAnswered;
  for (std::future<Clock::time_point>& done : answered) slowAnswered.push_back(done.get());
  std::sort(slowAnswered.begin(), slowAnswered.end());
  EXPECT_GE(fourthAnswered - asked, milliseconds(800));
  EXPECT_GE(fourthAnswered, slowAnswered[0] - milliseconds(200));
  EXPECT_LT(fourthAnswered, slowAnswered[1]);
  EXPECT_TRUE(sandbox().waitForCalls("/usr/bin/logger", 3, milliseconds(5000)));
}

}  // namespace
}  // namespace zorvik
