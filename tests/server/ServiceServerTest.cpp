#include <gtest/gtest.h>
#include <pthread.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include <future>
#include <thread>

#include "server/ServiceServer.h"

namespace zorvik {
namespace {

using namespace apache::thrift;

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
