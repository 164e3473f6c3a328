#include "SceneMaker.h"

#include <iterator>

namespace zorvik {
namespace {

constexpr int kMostActions = 4;
constexpr int kShortestDelayMs = 1;
constexpr int kLongestDelayMs = 50;
const char* const kMacs[] = {"AA:BB:CC:00:00:01", "AA:BB:CC:00:00:02", "aa:bb:cc:00:00:03"};

// Action templates; "%D" is replaced by the delay, "%B" by the block flag, "%N" by a number.
const char* const kActionTemplates[] = {
    R"({"thirdParty":"quiro","type":"light","name":"Lamp","keyName":"on","delay":%D,)"
    R"("block":%B,"payload":"{\"on\":%N}"})",
    R"({"thirdParty":"lumdex","type":"curtain","name":"Curtain","keyName":"open","delay":%D,)"
    R"("block":%B,"payload":{"open":%N}})",
    R"({"thirdParty":"brelkrouter","type":"router","name":"Wifi","keyName":"down","delay":%D,)"
    R"("block":%B,"payload":{"command":"wifi_down"}})",
    R"({"thirdParty":"brelkrouter","type":"router","name":"Wifi","keyName":"up","delay":%D,)"
    R"("block":%B,"payload":{"command":"wifi_up"}})",
    R"({"thirdParty":"brelkrouter","type":"normal_wifi_down","name":"Pause","keyName":"wifi",)"
    R"("delay":%D,"extra":{"duration":%N}})",
    R"({"thirdParty":"system","type":"legacy","name":"Old","delay":%D})",
    R"({"thirdParty":"nothing","type":"noop","name":"Noop","delay":%D,"block":%B})",
};

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

std::string SceneMaker::actions() {
  std::string list = "[";
  const int count = uniform(1, kMostActions);
  for (int i = 0; i < count; ++i) list += (i == 0 ? "" : ",") + action();
  return list + "]";
}

std::string SceneMaker::action() {
  std::string text =
      kActionTemplates[uniform(0, static_cast<int>(std::size(kActionTemplates)) - 1)];
  replaceAll(text, "%D", std::to_string(uniform(kShortestDelayMs, kLongestDelayMs)));
  replaceAll(text, "%B", chance(0.5) ? "true" : "false");
  replaceAll(text, "%N", std::to_string(uniform(kShortestDelayMs, kLongestDelayMs)));
  return text;
}

std::string SceneMaker::launch() {
  switch (uniform(0, 2)) {
    case 0:
      return R"({"go_home":{"mac":")" + mac() + R"("}})";
    case 1:
      return R"({"leave_home":{"mac":")" + mac() + R"(","enabled":true}})";
    default:
      return std::string(R"({"timer":{"time":")") + kCrontabTime +
             R"(","repeat":"0,1,2,3,4,5,6"}})";
  }
}

std::string SceneMaker::mac() { return kMacs[uniform(0, static_cast<int>(std::size(kMacs)) - 1)]; }

int SceneMaker::uniform(int low, int high) {
  return std::uniform_int_distribution<int>(low, high)(random_);
}

bool SceneMaker::chance(double p) { return std::bernoulli_distribution(p)(random_); }

}  // namespace zorvik
