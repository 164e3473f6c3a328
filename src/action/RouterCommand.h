// RouterCommand: the actions that act on the router itself.
//
// Blocking or unblocking a client's internet access by MAC address, switching the Wi-Fi off or
// on, powering the router down for a while and rebooting it. Each builds one command line and
// runs it; every line is logged at the error level (deliberately, even when it succeeds), as
// part of the action module (kActionLogModule).
//
// Threading: stateless static functions called on the timer thread. doRouterShutdown() runs
// shutdownWorker() on a detached thread of its own, which only reads its integer argument.
// Nothing is owned.
#ifndef ZORVIK_ACTION_ROUTERCOMMAND_H_
#define ZORVIK_ACTION_ROUTERCOMMAND_H_

#include <string>

namespace zorvik {

class RouterCommand {
 public:
  // "brelkrouter": `payload` is a JSON object with "command" and, for the wan commands, "mac".
  static void doRouterCommand(const std::string& payload);
  // "brelkrouter_group": the group `command`; `extra` holds "mac" for the wan commands.
  static void doRouterGroup(const std::string& command, const std::string& extra);
  // "brelkrouter_shutdown": `extra` holds "duration" in milliseconds. Returns at once; the
  // power-down command runs on a detached thread.
  static void doRouterShutdown(const std::string& extra);
  // Powers the router down for durationMs, in whole minutes rounded toward zero.
  static void shutdownWorker(int durationMs);
  // "brelkrouter_reboot".
  static void doRouterReboot();

  // True for a MAC text that cannot change a command line: hexadecimal digits, ':' and '-'.
  static bool isSafeMac(const std::string& mac);
};

}  // namespace zorvik

#endif  // ZORVIK_ACTION_ROUTERCOMMAND_H_
