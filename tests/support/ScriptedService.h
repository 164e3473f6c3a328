// ScriptedService: a real framed, binary Thrift service that answers every request with one
// scripted reply and remembers what it received; served on its own thread until the object goes
// away. Used in place of the router's sibling services.
//
// `Traits` names the generated interface and processor (Traits::If, Traits::Processor).
// `beforeServe` runs on the serving thread before it listens (for example to move that thread
// into another network namespace, where its sockets then live).
#ifndef ZORVIK_TESTS_SUPPORT_SCRIPTEDSERVICE_H_
#define ZORVIK_TESTS_SUPPORT_SCRIPTEDSERVICE_H_

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TSimpleServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>

#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace zorvik {

// A handler reply that makes the service throw instead of answering.
inline constexpr char kScriptedThrow[] = "<throw>";

template <typename ServiceIf>
class ScriptedHandler : public ServiceIf {
 public:
  explicit ScriptedHandler(std::string reply) : reply_(std::move(reply)) {}

  void request(std::string& result, const std::string& text) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      received_.push_back(text);
    }
    if (reply_ == kScriptedThrow) throw std::runtime_error("service failure");
    result = reply_;
  }

  std::vector<std::string> received() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }

 private:
  const std::string reply_;
  mutable std::mutex mutex_;
  std::vector<std::string> received_;  // guarded by mutex_
};

template <typename Traits>
class ScriptedService {
 public:
  // Serves on 127.0.0.1:`port` (0: a free port).
  explicit ScriptedService(std::string reply, int port = 0,
                           std::function<void()> beforeServe = std::function<void()>())
      : handler_(std::make_shared<ScriptedHandler<typename Traits::If>>(std::move(reply))),
        socket_(std::make_shared<apache::thrift::transport::TServerSocket>("127.0.0.1", port)),
        server_(std::make_shared<typename Traits::Processor>(handler_), socket_,
                std::make_shared<apache::thrift::transport::TFramedTransportFactory>(),
                std::make_shared<apache::thrift::protocol::TBinaryProtocolFactory>()) {
    auto ready = std::make_shared<ReadySignal>();
    server_.setServerEventHandler(ready);
    thread_ = std::thread([this, beforeServe] {
      if (beforeServe) beforeServe();
      server_.serve();
    });
    ready->wait();
  }

  ~ScriptedService() {
    server_.stop();
    thread_.join();
  }

  int port() const { return socket_->getPort(); }
  std::vector<std::string> received() const { return handler_->received(); }

 private:
  // Tells the constructor when the server listens.
  class ReadySignal : public apache::thrift::server::TServerEventHandler {
   public:
    void preServe() override { ready_.set_value(); }
    void wait() { ready_.get_future().wait(); }

   private:
    std::promise<void> ready_;
  };

  std::shared_ptr<ScriptedHandler<typename Traits::If>> handler_;
  std::shared_ptr<apache::thrift::transport::TServerSocket> socket_;
  apache::thrift::server::TSimpleServer server_;
  std::thread thread_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_SCRIPTEDSERVICE_H_
