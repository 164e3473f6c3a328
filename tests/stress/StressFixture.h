// StressFixture: an end-to-end sandbox with one serving daemon (DaemonFixture), plus what the
// stress tests check around it: the scenes as the daemon lists them and as its store file holds
// them, the daemon process seen from the host, and, after each test, that no instance of the
// daemon wrote a sanitizer report (in sanitizer builds the daemon is instrumented too, and its
// standard error is kept by the sandbox).
//
// Threading: the fixture's own functions are for the test's thread; connect() and request() of
// DaemonFixture may be used from client threads (each call makes its own connection).
#ifndef ZORVIK_TESTS_STRESS_STRESSFIXTURE_H_
#define ZORVIK_TESTS_STRESS_STRESSFIXTURE_H_

#include <optional>
#include <string>
#include <vector>

#include "DaemonFixture.h"
#include "DaemonProcess.h"
#include "SceneTable.h"

namespace zorvik {

class StressFixture : public DaemonFixture {
 protected:
  // Generous bound for one request of a well-behaved client: the machine is small and shared,
  // and sanitizer builds run the daemon several times slower.
  static const std::chrono::milliseconds kReplyBound;

  // Gives a ThreadSanitizer build of the daemon its suppressions inside the sandbox.
  void prepare(Sandbox& sandbox) override;
  void TearDown() override;

  // Kills instance `running` and starts instance `name`, which is then checked like the first.
  void restart(const std::string& running, const std::string& name);
  // The standard error of every instance that wrote a sanitizer report; empty when none did.
  std::string sanitizerReports();
  // The scenes as get_scene_setting lists them; nothing when the reply is not such a list.
  std::optional<SceneMap> listedScenes();
  // The rows of the sandbox's store file, read directly; nothing, with `error`, when unreadable.
  std::optional<SceneMap> storedScenes(std::string& error);
  // The running daemon seen from the host; fails the test when it cannot be found.
  std::optional<DaemonProcess> daemonProcess();
  // The first faults a test collected, one to a line, for its failure message.
  static std::string describeFaults(const std::vector<std::string>& faults);

 private:
  std::vector<std::string> instances_{kDaemon};
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_STRESS_STRESSFIXTURE_H_
