// zorvik_empty_server: the baseline of the request benchmarks. It serves the Zorvik service with
// exactly the daemon's Thrift server (the same builder, so the same stack, workers and bounds),
// but its handler does no work: every call is answered with the same short success reply.
//
// Usage: zorvik_empty_server PORT (listens on 127.0.0.1:PORT until killed).
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "server/ServiceServer.h"

namespace {

const char kReply[] = "{ \"code\": 0, \"msg\": \"\" }";

class EmptyHandler : public zorvik::ZorvikIf {
 public:
  void request(std::string& reply, const std::string&) override { reply = kReply; }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: zorvik_empty_server PORT" << std::endl;
    return 2;
  }
  zorvik::ServiceServer::build(std::make_shared<EmptyHandler>(), std::atoi(argv[1]))->serve();
  return 0;
}
