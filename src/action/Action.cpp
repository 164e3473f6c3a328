// Action: arms an action's timer, hands its turn to the scene and dispatches to its handler.
#include "action/Action.h"

#include "action/DeviceTunnel.h"
#include "action/LocalServiceClient.h"
#include "action/RouterCommand.h"
#include "action/TevraHelper.h"
#include "scene/Scene.h"
#include "server/Log.h"
#include "server/ResultCode.h"
#include "server/Shell.h"
#include "server/Text.h"

namespace zorvik {
namespace {

// Without a delay of its own, the first action of a run waits half a second and later ones a
// tenth; a zero delay never means "now".
constexpr int32_t kFirstActionDefaultInterval = 500;
constexpr int32_t kLaterActionDefaultInterval = 100;

uint32_t sendToHalvex(const Action& action) {
  return LocalServiceClient::sendToHalvex(action.payload()) ? kSuccess : kHalvexReturnError;
}

uint32_t sendToKelmora(const Action& action) {
  LocalServiceClient::sendToKelmora(action.payload());
  return kSuccess;
}

// Kept so that old scenes holding this retired kind still parse and run.
uint32_t retiredSystemVendor(const Action&) {
  ZLOG(kLogError) << "system vendor no longer support.";
  return kSuccess;
}

uint32_t routerCommand(const Action& action) {
  RouterCommand::doRouterCommand(action.payload());
  return kSuccess;
}

uint32_t routerGroup(const Action& action) {
  RouterCommand::doRouterGroup(action.command(), action.extra());
  return kSuccess;
}

uint32_t routerShutdown(const Action& action) {
  RouterCommand::doRouterShutdown(action.extra());
  return kSuccess;
}

uint32_t routerReboot(const Action&) {
  RouterCommand::doRouterReboot();
  return kSuccess;
}

uint32_t television(const Action& action) {
  TevraHelper::run(action.payload());
  return kSuccess;
}

uint32_t deviceTunnel(const Action& action) {
  DeviceTunnel::doTunnel(action.payload());
  return kSuccess;
}

struct Handler {
  const char* thirdParty;
  uint32_t (*run)(const Action&);
};

// Looked up in this order; an unknown word does nothing.
constexpr Handler kHandlers[] = {
    {"halvex", sendToHalvex},
    {"kelmora", sendToKelmora},
    {"system", retiredSystemVendor},
    {"brelkrouter", routerCommand},
    {"brelkrouter_group", routerGroup},
    {"brelkrouter_shutdown", routerShutdown},
    {"brelkrouter_reboot", routerReboot},
    {"tevra", television},
    {"quiro", deviceTunnel},
    {"lumdex", deviceTunnel},
    {"tarwen", television},
};

}  // namespace

Action::Action(std::weak_ptr<Scene> scene, uint32_t index, std::string thirdParty, std::string type,
               std::string name, std::string keyName, std::string payload, int32_t delay,
               bool block, std::string extra, std::string command)
    : scene_(std::move(scene)),
      index_(index),
      thirdParty_(std::move(thirdParty)),
      type_(std::move(type)),
      name_(std::move(name)),
      keyName_(std::move(keyName)),
      payload_(std::move(payload)),
      delay_(delay),
      block_(block),
      extra_(std::move(extra)),
      command_(std::move(command)) {}

int32_t Action::interval() const {
  if (delay_ >= 1) return delay_;
  return index_ == 0 ? kFirstActionDefaultInterval : kLaterActionDefaultInterval;
}

uint32_t Action::execute() {
  ZLOG(kLogInfo) << "action [" << index_ << "] prepare to execute";
  startTimer(interval());
  if (std::shared_ptr<Scene> scene = scene_.lock()) scene->onActionStarted(this);
  return kSuccess;
}

void Action::timerEvent() {
  ZLOG(kLogInfo) << "action timer event ...";
  // Holding an owner of the scene keeps it alive while the handler runs, even if it is
  // removed meanwhile.
  std::shared_ptr<Scene> scene = scene_.lock();
  if (scene) perform(*scene);
}

void Action::perform(Scene& scene) {
  // The scene learns that this action is done (and may arm the next one) before the work runs.
  if (scene.finishFiredAction(*this)) dispatch();
}

void Action::runByCrontab() {
  if (std::shared_ptr<Scene> scene = scene_.lock()) {
    if (index_ + 1 == scene->actionCount()) ZSHELL_RUN(kLogInfo, scene->feedCommand());
  }
  dispatch();
}

uint32_t Action::dispatch() const {
  const Handler* handler = findWord(kHandlers, &Handler::thirdParty, thirdParty_);
  if (handler == nullptr) return kSuccess;
  return handler->run(*this);
}

}  // namespace zorvik
