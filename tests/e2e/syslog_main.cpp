// zorvik-syslog PATH: binds PATH as a system log socket and prints every line logged to it until
// it gets SIGINT or SIGTERM, then removes PATH. A development sandbox shows it as /dev/log.
#include <csignal>
#include <cstdio>
#include <exception>

#include "SyslogDrain.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: zorvik-syslog SOCKET_PATH\n");
    return 2;
  }
  // Blocked before the drain's thread exists, so that only this thread takes the signals.
  sigset_t endSignals;
  sigemptyset(&endSignals);
  sigaddset(&endSignals, SIGTERM);
  sigaddset(&endSignals, SIGINT);
  sigprocmask(SIG_BLOCK, &endSignals, nullptr);
  try {
    zorvik::SyslogDrain drain(argv[1], stdout);
    int received = 0;
    sigwait(&endSignals, &received);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zorvik-syslog: %s\n", error.what());
    return 1;
  }
  return 0;
}
