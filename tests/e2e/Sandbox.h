// Sandbox: a private router for the unmodified zorvik binary. sandbox.sh builds it inside fresh
// mount, network and pid namespaces (unshare): stub router programs that record their calls,
// private /etc/zorvik, /tmp and /usr/share/zorvik, a bridge with one ARP neighbour, and a
// /dev/log that this object drains. Nothing of it reaches the host, and sandboxes running at
// the same time share nothing (each has its own folder and its own 127.0.0.1:9096).
//
// Ownership: the object owns its state folder (removed on destruction) and the namespaces
// (unshare is killed with SIGKILL on destruction, which ends every process inside).
// Threading: one test thread drives it; connectTo() briefly borrows a thread of its own to
// enter the network namespace, and the log drain runs on its own thread.
#ifndef ZORVIK_TESTS_E2E_SANDBOX_H_
#define ZORVIK_TESTS_E2E_SANDBOX_H_

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SyslogDrain.h"
#include "support/TempDir.h"

namespace zorvik {

// One call of a stub router program, as calls.log records it.
struct StubCall {
  double at;            // wall-clock seconds since the epoch
  std::string command;  // program as invoked, then its arguments joined by blanks
};

class Sandbox {
 public:
  // Why sandboxes cannot run here (not root, no unshare, namespaces refused); empty if they can.
  static std::string unavailableReason();

  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  // Writes a file of the state folder: before start() "zorvik.conf" (the factory scene file) or
  // "tmp/ntp.status"; at any time "stub/<program>.delay|out|status" (see stub.sh).
  void writeStateFile(const std::string& relative, const std::string& content) const;
  // Builds the sandbox; false with a reason in `error` when it did not come up.
  bool start(std::string& error);

  // Starts a daemon instance called `name`.
  void startDaemon(const std::string& name);
  // Kills the instance with SIGKILL and waits until it is gone.
  void stopDaemon(const std::string& name);
  // The instance's exit status once it ended; nothing if it still runs after `timeout`.
  std::optional<int> waitForExit(const std::string& name, std::chrono::milliseconds timeout) const;
  std::string daemonOutput(const std::string& name) const;
  std::string daemonErrors(const std::string& name) const;
  // Waits until 127.0.0.1:9096 of the sandbox accepts connections.
  bool waitUntilServing(std::chrono::milliseconds timeout) const;

  // A TCP connection from inside the sandbox's network to address:port; -1 (errno set) if none.
  int connectTo(const std::string& address, int port) const;
  // Moves the calling thread into the sandbox's network namespace: sockets it creates from then
  // on live there. False (errno set) when it cannot.
  bool enterNetwork() const;
  // Runs a program inside the sandbox's network only (nsenter), with its standard output and
  // error in `output`; returns its exit status.
  int runInNetwork(const std::vector<std::string>& arguments, std::string& output) const;
  // Starts a program (absolute path) inside the sandbox's network only and returns its host pid,
  // or -1; its standard output and error go to the state folder's "programs.log". The program
  // belongs to the caller, who ends and reaps it: it is not inside the sandbox's pid namespace.
  pid_t spawnInNetwork(const std::vector<std::string>& arguments) const;

  std::vector<StubCall> calls() const;
  // calls.log as it stands, for failure messages.
  std::string describeCalls() const;
  // How many calls so far begin with `prefix`.
  size_t countCalls(const std::string& prefix) const;
  // Waits until `count` calls begin with `prefix`; false after `timeout`.
  bool waitForCalls(const std::string& prefix, size_t count,
                    std::chrono::milliseconds timeout) const;
  // Host path of a file of the sandbox's /etc/zorvik.
  std::string dataFile(const std::string& name) const;
  // Host path of a file of the sandbox's own folder, seen inside as /usr/lib/zorvik-sandbox.
  std::string stateFile(const std::string& relative) const;
  const SyslogDrain& syslog() const { return *syslog_; }

 private:
  void control(const std::string& line) const;
  // `arguments` run by nsenter in the sandbox's network namespace.
  std::vector<std::string> inNetwork(const std::vector<std::string>& arguments) const;

  TempDir state_;
  std::unique_ptr<SyslogDrain> syslog_;
  pid_t unshare_ = -1;
  int network_ = -1;  // the sandbox's network namespace, open once the sandbox is up
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_E2E_SANDBOX_H_
