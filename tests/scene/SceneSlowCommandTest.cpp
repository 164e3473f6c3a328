// A scene answers while its slow commands (a replayed handler, the feed program) run: the timer
// thread takes the scene's action turns under its lock, and no timer may wait for a command.
#include <gtest/gtest.h>

#include <future>

#include "scene/Scene.h"
#include "server/Shell.h"
#include "support/TimerThread.h"

namespace zorvik {
namespace {

// Runs nothing; a command that begins with `prefix` (one per case) waits until `opened` is set.
struct GateShell : Shell::Backend {
  explicit GateShell(std::string prefix) : prefix(std::move(prefix)) {}
  int system(const std::string& command) override {
    if (command.rfind(prefix, 0) == 0) {
      entered.set_value();
      opened.get_future().wait();
    }
    return 0;
  }
  std::optional<std::string> capture(const std::string&) override { return std::string(); }
  const std::string prefix;
  std::promise<void> entered, opened;
};

TEST(SceneSlowCommandTest, SceneAnswersWhileItsCommandRuns) {
  startTimerThreadOnce();
  const struct {
    const char *blocked, *actions, *launch;
    bool replay;      // started by the crontab tick, else a run whose end is reported
    bool processing;  // a run is over only once its end is reported
  } cases[] = {
      {"/sbin/wifi", R"([{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wifi_up"}}])",
       R"({"timer":{"time":"07:30","repeat":"1"}})", true, false},
      {"/usr/sbin/vantpost", R"([{"thirdParty":"x","type":"t","delay":1}])",
       R"({"go_home":{"mac":"AA:BB"}})", false, true},
  };
  for (const auto& c : cases) {
    auto gate = std::make_shared<GateShell>(c.blocked);
    const std::shared_ptr<Shell::Backend> previous = Shell::setBackend(gate);
    auto scene = std::make_shared<Scene>(1, "A", c.actions, c.launch);
    auto started = std::async(std::launch::async, [&] {
      c.replay ? scene->startByCrontab(1, "07:30") : static_cast<void>(scene->execute());
    });
    ASSERT_EQ(gate->entered.get_future().wait_for(std::chrono::seconds(5)),
              std::future_status::ready);
    auto answer = std::async(std::launch::async, [&scene] { return scene->isProcessing(); });
    EXPECT_EQ(answer.wait_for(std::chrono::seconds(1)), std::future_status::ready) << c.blocked;
    gate->opened.set_value();
    EXPECT_EQ(answer.get(), c.processing) << c.blocked;
    Shell::setBackend(previous);
  }
}

}  // namespace
}  // namespace zorvik
