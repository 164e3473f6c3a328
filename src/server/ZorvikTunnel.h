// ZorvikTunnel: turns the JSON command of one `request` call into a scene-manager operation and
// returns that operation's reply text; it also builds the error replies that the scene manager
// uses. ZorvikHandler (its own pair of files) is the Thrift handler that hands each call here.
//
// handleCommand parses the command and looks its word up in a table that gives, for each command,
// the members it reads (with their types and whether they are optional), the lines it logs and
// the scene-manager operation it calls; the manager's reply is returned unchanged. A text that is
// not a well-formed command answers "parameter format error" (code 3), an unknown command word
// "api not exists" (code -1). A text with more opening brackets than any real command holds also
// answers code 3, unparsed, as parsing it would take far more memory than its size.
//
// Threading: the tunnel keeps no state; handleCommand runs on up to three RPC worker threads at
// once and each call parses and frees its own document. Serialising the scene operations is the
// scene manager's task.
#ifndef ZORVIK_SERVER_ZORVIKTUNNEL_H_
#define ZORVIK_SERVER_ZORVIKTUNNEL_H_

#include <json-c/json.h>

#include <string>

namespace zorvik {

class SceneManager;

class ZorvikTunnel {
 public:
  static ZorvikTunnel& getInstance();

  // The reply to one request, served by the process-wide scene manager.
  std::string handleCommand(const std::string& parameter);
  // The same, served by `manager` (tests use a manager over a temporary store).
  std::string handleCommand(const std::string& parameter, SceneManager& manager);

  // A new JSON object {"code": code, "msg": message}; the caller owns it.
  static json_object* buildErrorObject(int code);
  // The text of buildErrorObject(code) in json-c's default layout.
  static std::string buildErrorReply(int code);
  // The message of a result code; empty for codes without one (0 included).
  static const char* messageOf(int code);
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_ZORVIKTUNNEL_H_
