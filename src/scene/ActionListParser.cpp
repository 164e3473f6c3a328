// ActionListParser: reads the elements of a scene's actions text and expands each into actions.
#include "scene/ActionListParser.h"

#include "action/Action.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/Text.h"

namespace zorvik {
namespace {

// The module the parsing messages name, the scene's (see the header).
constexpr char kSceneLogModule[] = "Scene.cpp";

// What a special type's element must carry before it expands.
enum class Needs { kNothing, kExtra, kExtraWithDuration };
// Where an expanded action takes its delay from: the element's "delay", or the "duration" in
// its "extra" (the second action of a pair then runs that long after the first finished).
enum class DelayFrom { kElement, kDuration };

struct ExpandedAction {
  const char* command;
  DelayFrom delay;
  bool block;
};

// A special type expands into router actions of its own "thirdParty" word, ignoring the
// element's "thirdParty" and "block"; the element's "type", "name", "keyName" and "payload"
// are kept. The actions carry the "extra" text when the type needs one.
struct SpecialType {
  const char* type;
  const char* thirdParty;
  Needs needs;
  ExpandedAction actions[2];  // in order; a null command ends the list
};

// The first of a pair and the shutdown hold the chain; the reboot never does, so that it cannot
// keep the actions after it waiting.
constexpr SpecialType kSpecialTypes[] = {
    {"normal_wan_forbidden",
     "brelkrouter_group",
     Needs::kExtraWithDuration,
     {{"wan_block", DelayFrom::kElement, true}, {"wan_unblock", DelayFrom::kDuration, false}}},
    {"normal_wifi_down",
     "brelkrouter_group",
     Needs::kExtraWithDuration,
     {{"wifi_down", DelayFrom::kElement, true}, {"wifi_up", DelayFrom::kDuration, false}}},
    {"normal_shutdown", "brelkrouter_shutdown", Needs::kExtra, {{"", DelayFrom::kElement, true}}},
    {"normal_reboot", "brelkrouter_reboot", Needs::kNothing, {{"", DelayFrom::kElement, false}}},
};

}  // namespace

std::vector<std::shared_ptr<Action>> ActionListParser::parse(const std::string& actionsJson,
                                                             const std::weak_ptr<Scene>& scene) {
  const Json::Document document = Json::parse(actionsJson);
  json_object* root = document.get();
  if (root == nullptr) {
    ZLOG_AS(kSceneLogModule, kLogError) << "Scene actions not json format";
    return {};
  }
  if (!json_object_is_type(root, json_type_array)) {
    ZLOG_AS(kSceneLogModule, kLogError) << "Scene actions not json array";
    return {};
  }
  const size_t length = json_object_array_length(root);
  if (length == 0) {
    ZLOG_AS(kSceneLogModule, kLogInfo) << "Scene actions length is 0";
    return {};
  }
  ActionListParser parser(scene);
  for (size_t position = 0; position < length; ++position) {
    const std::optional<Element> element =
        readElement(position, json_object_array_get_idx(root, position));
    if (element) parser.expand(position, *element);
  }
  return std::move(parser.actions_);
}

std::optional<ActionListParser::Element> ActionListParser::readElement(size_t position,
                                                                       json_object* value) {
  if (value == nullptr) {
    ZLOG_AS(kSceneLogModule, kLogError) << "Scene actions[" << position << "] is null";
    return std::nullopt;
  }
  json_object* thirdParty = Json::member(value, "thirdParty");
  json_object* type = Json::member(value, "type");
  if (thirdParty == nullptr || type == nullptr) {
    ZLOG_AS(kSceneLogModule, kLogError)
        << "Scene actions[" << position << "] thirdParty or type is null";
    return std::nullopt;
  }
  Element element;
  element.thirdParty = Json::text(thirdParty);
  element.type = Json::text(type);
  if (element.thirdParty.empty() || element.type.empty()) {
    ZLOG_AS(kSceneLogModule, kLogError)
        << "Scene actions[" << position << "] thirdParty or type is empty";
    return std::nullopt;
  }
  element.name = Json::memberText(value, "name");
  element.keyName = Json::memberText(value, "keyName");
  element.payload = Json::memberText(value, "payload");
  json_object* delay = Json::member(value, "delay");
  element.delay = delay == nullptr ? 0 : json_object_get_int(delay);
  json_object* block = Json::member(value, "block");
  element.block = block == nullptr || json_object_get_boolean(block);
  element.extra = Json::member(value, "extra");
  return element;
}

void ActionListParser::expand(size_t position, const Element& element) {
  const SpecialType* special = findWord(kSpecialTypes, &SpecialType::type, element.type);
  if (special == nullptr) {
    append(element, element.thirdParty, "", element.delay, element.block, "");
    return;
  }
  if (special->needs != Needs::kNothing && element.extra == nullptr) {
    ZLOG_AS(kSceneLogModule, kLogError)
        << "Scene actions[" << position << "] special type extra is null";
    return;
  }
  int32_t duration = 0;
  if (special->needs == Needs::kExtraWithDuration) {
    json_object* durationValue = Json::member(element.extra, "duration");
    if (durationValue == nullptr) {
      ZLOG_AS(kSceneLogModule, kLogError)
          << "Scene actions[" << position << "] special type extra duration is null";
      return;
    }
    duration = json_object_get_int(durationValue);
  }
  const std::string extra = special->needs == Needs::kNothing ? "" : Json::text(element.extra);
  for (const ExpandedAction& action : special->actions) {
    if (action.command == nullptr) break;
    const int32_t delay = action.delay == DelayFrom::kElement ? element.delay : duration;
    append(element, special->thirdParty, action.command, delay, action.block, extra);
  }
}

void ActionListParser::append(const Element& element, const std::string& thirdParty,
                              const std::string& command, int32_t delay, bool block,
                              const std::string& extra) {
  actions_.push_back(std::make_shared<Action>(
      scene_, static_cast<uint32_t>(actions_.size()), thirdParty, element.type, element.name,
      element.keyName, element.payload, delay, block, extra, command));
}

}  // namespace zorvik
