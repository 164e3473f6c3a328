// ZorvikHandler: the handler of the Zorvik Thrift service. Its one method hands the parameter of
// each `request` call to the request tunnel and answers with the tunnel's reply.
//
// Threading: the handler has no state; the server's worker threads share one instance and call
// it concurrently.
#ifndef ZORVIK_SERVER_ZORVIKHANDLER_H_
#define ZORVIK_SERVER_ZORVIKHANDLER_H_

#include <string>

#include "Zorvik.h"

namespace zorvik {

class ZorvikHandler : public ZorvikIf {
 public:
  void request(std::string& reply, const std::string& parameter) override;
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_ZORVIKHANDLER_H_
