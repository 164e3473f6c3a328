// zorvik_scene_start_bench: how long starting a huge scene takes. A scene of non-blocking
// actions arms one timer per action at once, so its start costs what the timer list charges for
// an id and a sorted insert, times the number of actions, all under the scene manager's, the
// scene's and the timer manager's locks.
//
// Each round builds a fresh scene of N minimal actions ({"thirdParty":"x","type":"t",
// "block":false}, an unknown kind that would do nothing) and times Scene::execute(): parsing the
// actions and arming their timers. The timer thread is not started, so nothing fires; stop()
// then cancels the timers. Log lines are dropped, so that the figure is the engine's own.
//
// Usage: zorvik_scene_start_bench [ACTIONS [ROUNDS]]   (defaults: 10000 actions, 5 rounds)
// Prints the median and the fastest round in milliseconds.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "scene/Scene.h"
#include "server/Log.h"

namespace {

constexpr int kDefaultActions = 10000;
constexpr int kDefaultRounds = 5;
constexpr char kMinimalAction[] = R"({"thirdParty":"x","type":"t","block":false})";

std::string actionList(int actions) {
  std::string list = "[";
  for (int i = 0; i < actions; ++i) list += (i == 0 ? "" : ",") + std::string(kMinimalAction);
  return list + "]";
}

double startMilliseconds(const std::string& actions) {
  auto scene = std::make_shared<zorvik::Scene>(1, "bench", actions, "");
  const auto begin = std::chrono::steady_clock::now();
  scene->execute();
  const auto end = std::chrono::steady_clock::now();
  scene->stop();
  return std::chrono::duration<double, std::milli>(end - begin).count();
}

}  // namespace

int main(int argc, char** argv) {
  const int actions = argc > 1 ? std::atoi(argv[1]) : kDefaultActions;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : kDefaultRounds;
  if (actions < 1 || rounds < 1) {
    std::cerr << "usage: zorvik_scene_start_bench [ACTIONS [ROUNDS]]" << std::endl;
    return 2;
  }
  zorvik::setLogSink([](int, const std::string&) {});
  const std::string list = actionList(actions);
  std::vector<double> times;
  for (int i = 0; i < rounds; ++i) times.push_back(startMilliseconds(list));
  std::sort(times.begin(), times.end());
  std::cout << "start of a " << actions << "-action scene: median " << times[times.size() / 2]
            << " ms, fastest " << times.front() << " ms (" << rounds << " rounds)" << std::endl;
  return 0;
}
