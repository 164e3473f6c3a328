// ZorvikTunnel: turns the JSON command of one `request` call into a scene-manager operation and
// returns that operation's reply text; it also builds the error replies that the scene manager
// uses. ZorvikHandler is the Thrift handler that hands each call to the tunnel.
//
// Threading: the tunnel keeps no state; handleCommand runs on up to three RPC worker threads at
// once and each call parses and frees its own document.
#ifndef ZORVIK_SERVER_ZORVIKTUNNEL_H_
#define ZORVIK_SERVER_ZORVIKTUNNEL_H_

#include <json-c/json.h>

#include <string>

namespace zorvik {

class ZorvikTunnel {
 public:
  static ZorvikTunnel& getInstance();

  // A new JSON object {"code": code, "msg": message}; the caller owns it.
  static json_object* buildErrorObject(int code);
  // The text of buildErrorObject(code) in json-c's default layout.
  static std::string buildErrorReply(int code);
  // The message of a result code; empty for codes without one (0 included).
  static const char* messageOf(int code);
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_ZORVIKTUNNEL_H_
