// TevraHelper: drives a television on the home network for "tevra" and "tarwen" actions.
//
// It finds the TV's IPv4 address from its MAC address in the kernel's ARP table, wakes the TV
// through the device tunnel when it is off or silent, and sends it HTTP requests with curl: the
// power key, power on or off, or a video address to play. The payload is a JSON object with
// "mac", "command", "keycode" and "url".
//
// Threading: run() creates a helper, runs process() on a thread of its own and joins it at
// once, so the caller waits for the whole exchange (up to about a minute per wake phase). A
// helper is used by one thread at a time; it shares nothing but the log and the shell.
#ifndef ZORVIK_ACTION_TEVRAHELPER_H_
#define ZORVIK_ACTION_TEVRAHELPER_H_

#include <chrono>
#include <string>

struct json_object;

namespace zorvik {

class TevraHelper {
 public:
  static constexpr char kArpTablePath[] = "/proc/net/arp";
  // Wake-on-LAN rounds per wake phase, and the pause after each.
  static constexpr int kWakeTries = 6;
  static constexpr std::chrono::milliseconds kWakePause = std::chrono::seconds(5);

  // `extra` is the action's payload; `arpPath` and `wakePause` let tests stand in for the
  // kernel's table and the five-second pause.
  explicit TevraHelper(std::string extra, std::string arpPath = kArpTablePath,
                       std::chrono::milliseconds wakePause = kWakePause);

  // Runs process() for `payload` on its own thread and returns when it is done.
  static void run(const std::string& payload);

  // Reads the payload and drives the TV. Every fault is one log line and an early return.
  void process();

  // The TV's address, or "" when its MAC is not in the ARP table.
  std::string getIpByMac() const;

  // Group 1 of the first line of the ARP table at `arpPath` that matches the address pattern
  // followed by `mac` in lower case, taken as pattern text; "" when no line matches or the
  // pattern does not compile.
  static std::string ipFromArpTable(const std::string& arpPath, const std::string& mac);

  // Letters, digits and "-._~" stay; a blank becomes "+"; every other byte "%xx" in lower-case
  // hexadecimal ("é" gives "%c3%a9").
  static std::string urlEncode(const std::string& url);

 private:
  // What one "command" word does: an optional step before the wake sequence that returns true
  // when the command needs no wake-up, and an optional step once the TV answers. Any other word
  // only wakes the TV.
  struct CommandStep {
    const char* command;
    bool (TevraHelper::*beforeWake)(json_object* json);
    void (TevraHelper::*afterWake)(const std::string& ip, json_object* json);
  };
  static const CommandStep kCommandSteps[];

  bool pressPowerKey(json_object* json);
  bool powerOnIfFound(json_object* json);
  bool powerOffIfFound(json_object* json);
  void playRequestedVideo(const std::string& ip, json_object* json);

  // The TV's address once it is in the ARP table and answers, or "" after logging why not.
  std::string wakeUp();
  void sendKeyEvent(const std::string& key);
  void powerControl(const std::string& ip, bool off);
  void playVideo(const std::string& ip, const std::string& url);
  void sendWakeOnLan();
  // True when the alive check printed anything at all.
  bool isAlive(const std::string& ip);
  // Runs `line` through popen and returns its standard output, logging both (Shell::captureLogged).
  std::string runCommand(const std::string& line);

  const std::string extra_;
  const std::string arpPath_;
  const std::chrono::milliseconds wakePause_;
  std::string mac_;  // set by process() from the payload
};

}  // namespace zorvik

#endif  // ZORVIK_ACTION_TEVRAHELPER_H_
