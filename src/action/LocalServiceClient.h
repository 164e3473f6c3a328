// LocalServiceClient: forwards an action's request to a sibling service on this router.
//
// "halvex" actions go to the HalvexServ service, "kelmora" actions to Kelmora; both take the
// payload as their one request string and answer a JSON object whose "code" 0 means success.
// Every call opens its own framed binary connection to "localhost" and closes it at the end;
// no time-outs are set, so a service that accepts and never answers holds the caller. Faults are
// logged as part of the action module (kActionLogModule).
//
// Threading: stateless static functions, called on the timer thread; each call owns its
// transport objects and shares nothing.
#ifndef ZORVIK_ACTION_LOCALSERVICECLIENT_H_
#define ZORVIK_ACTION_LOCALSERVICECLIENT_H_

#include <string>

namespace zorvik {

class LocalServiceClient {
 public:
  static constexpr char kServiceHost[] = "localhost";
  static constexpr int kHalvexPort = 9092;
  static constexpr int kKelmoraPort = 9090;

  // Sends `payload` byte for byte and returns true exactly when the reply's "code" is 0. An
  // unreachable service or a broken reply reads as {"code": -1}: false without a log line. A
  // reply that is not JSON or has no "code" logs one error line and gives false.
  static bool sendToHalvex(const std::string& payload, int port = kHalvexPort);
  static bool sendToKelmora(const std::string& payload, int port = kKelmoraPort);
};

}  // namespace zorvik

#endif  // ZORVIK_ACTION_LOCALSERVICECLIENT_H_
