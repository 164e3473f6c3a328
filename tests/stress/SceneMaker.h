// SceneMaker: random but valid scene contents for the stress tests. Action lists hold one to
// four actions with delays of 1 to 50 ms whose kinds reach quick stub programs or nothing at all
// (device tunnel, Wi-Fi, the expanded Wi-Fi pair, the retired "system" kind, an unknown word);
// launch modes are presence launches for a few MACs or a daily timer at kCrontabTime. Names are
// plain text that needs no escaping.
//
// Not thread-safe: each thread uses its own maker (and so its own random sequence).
#ifndef ZORVIK_TESTS_STRESS_SCENEMAKER_H_
#define ZORVIK_TESTS_STRESS_SCENEMAKER_H_

#include <cstdint>
#include <random>
#include <string>

namespace zorvik {

class SceneMaker {
 public:
  // The time of day of every timer launch, as the crontab tick names it.
  static constexpr const char* kCrontabTime = "07:30";

  explicit SceneMaker(uint32_t seed) : random_(seed) {}

  // A JSON array text of actions.
  std::string actions();
  // A JSON object text of a launch mode.
  std::string launch();
  // A MAC of the presence launches.
  std::string mac();
  // Uniform in [low, high].
  int uniform(int low, int high);
  // True with probability `p`.
  bool chance(double p);

 private:
  std::string action();

  std::mt19937 random_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_STRESS_SCENEMAKER_H_
