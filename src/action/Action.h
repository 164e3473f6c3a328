// Action: one step of a scene, "do X on device or service Y after Z milliseconds".
//
// A scene creates its actions from its actions text. execute() arms the action's timer for its
// delay and tells the scene; when the timer fires (on the timer thread) the action tells the
// scene that its turn has come and then dispatches on its `thirdParty` word to the handler that
// does the work (router, local services, TV, device tunnel).
//
// Ownership: owned by its scene through a shared pointer; it refers to the scene weakly. All
// fields are written only at construction, so handlers read them without a lock.
#ifndef ZORVIK_ACTION_ACTION_H_
#define ZORVIK_ACTION_ACTION_H_

#include <cstdint>
#include <memory>
#include <string>

#include "timer/TimerObject.h"

namespace zorvik {

class Scene;

// The name that the action module's log lines carry. The module is Action.cpp and the back ends
// it dispatches to (RouterCommand, LocalServiceClient, DeviceTunnel): each back end has a file of
// its own so that it reads on its own, and they all log as "Action.cpp", the name under which
// readers of the log and its callers have always found these messages. The number in a line is
// that of the statement that wrote it, in its own file; the message tells which back end it is.
inline constexpr char kActionLogModule[] = "Action.cpp";

class Action : public TimerObject {
 public:
  Action(std::weak_ptr<Scene> scene, uint32_t index, std::string thirdParty, std::string type,
         std::string name, std::string keyName, std::string payload, int32_t delay, bool block,
         std::string extra, std::string command);

  // Arms the timer for the delay (500 ms for the first action, 100 ms for later ones when the
  // delay is below 1) and tells the scene. Returns 0.
  uint32_t execute();
  void timerEvent() override;
  // The crontab replay: the feed report when this is the last action, then the work.
  void runByCrontab();
  // Runs the handler of `thirdParty`: 0, or 3504 when a "halvex" call did not succeed.
  uint32_t dispatch() const;

  uint32_t index() const { return index_; }
  const std::string& thirdParty() const { return thirdParty_; }
  const std::string& name() const { return name_; }
  const std::string& keyName() const { return keyName_; }
  const std::string& payload() const { return payload_; }
  int32_t delay() const { return delay_; }
  bool block() const { return block_; }
  const std::string& extra() const { return extra_; }
  const std::string& command() const { return command_; }

  // The interval execute() arms: `delay`, or 500 / 100 ms when the delay is below 1.
  int32_t interval() const;

 private:
  void perform(Scene& scene);

  const std::weak_ptr<Scene> scene_;
  const uint32_t index_;
  const std::string thirdParty_;
  const std::string type_;  // the element's "type" word, also for an expanded special type
  const std::string name_;
  const std::string keyName_;
  const std::string payload_;
  const int32_t delay_;
  const bool block_;
  const std::string extra_;
  const std::string command_;
};

}  // namespace zorvik

#endif  // ZORVIK_ACTION_ACTION_H_
