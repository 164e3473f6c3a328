// ScriptedService: a framed, binary Thrift service on 127.0.0.1 standing in for a sibling service.
// It answers every request with one scripted reply (kScriptedThrow: it throws instead) and
// remembers what it received; it serves on a free port, on its own thread, until it goes away.
#ifndef ZORVIK_TESTS_SUPPORT_SCRIPTEDSERVICE_H_
#define ZORVIK_TESTS_SUPPORT_SCRIPTEDSERVICE_H_

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TSimpleServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>

#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace zorvik {

inline constexpr char kScriptedThrow[] = "<throw>";

// `ServiceIf` and `Processor` are the generated interface and processor of the service.
template <typename ServiceIf, typename Processor>
class ScriptedService {
 public:
  // Returns once the service listens.
  explicit ScriptedService(std::string reply)
      : handler_(std::make_shared<Handler>(std::move(reply))),
        socket_(std::make_shared<apache::thrift::transport::TServerSocket>("127.0.0.1", 0)),
        server_(std::make_shared<Processor>(handler_), socket_,
                std::make_shared<apache::thrift::transport::TFramedTransportFactory>(),
                std::make_shared<apache::thrift::protocol::TBinaryProtocolFactory>()) {
    auto ready = std::make_shared<ReadySignal>();
    server_.setServerEventHandler(ready);
    thread_ = std::thread([this] { server_.serve(); });
    ready->listening.get_future().wait();
  }
  ~ScriptedService() {
    server_.stop();
    thread_.join();
  }

  int port() const { return socket_->getPort(); }
  std::vector<std::string> received() const {
    std::lock_guard<std::mutex> lock(handler_->mutex);
    return handler_->received;
  }

 private:
  struct Handler : ServiceIf {
    explicit Handler(std::string scripted) : reply(std::move(scripted)) {}
    void request(std::string& result, const std::string& text) override {
      std::lock_guard<std::mutex> lock(mutex);
      received.push_back(text);
      if (reply == kScriptedThrow) throw std::runtime_error("service failure");
      result = reply;
    }
    const std::string reply;
    std::mutex mutex;
    std::vector<std::string> received;  // guarded by mutex
  };
  struct ReadySignal : apache::thrift::server::TServerEventHandler {
    void preServe() override { listening.set_value(); }
    std::promise<void> listening;
  };

  std::shared_ptr<Handler> handler_;
  std::shared_ptr<apache::thrift::transport::TServerSocket> socket_;
  apache::thrift::server::TSimpleServer server_;
  std::thread thread_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_SCRIPTEDSERVICE_H_
