// ActionListParser: builds a scene's Action objects from its actions text, a JSON array of action
// elements.
//
// Each element is first read (its "thirdParty" and "type" words, required and non-empty, and its
// "name", "keyName", "payload", "delay" and "block" with their defaults), then expanded: an
// ordinary type makes one action of the element's own words; a special type makes the router
// actions its row of the expansion table names, once the element carries what that row needs.
// An element that cannot be read or expanded is logged with its position in the array and
// skipped; parsing never fails, a text with nothing usable gives no action.
//
// The messages are the scene's own and keep the module name "Scene.cpp" (ZLOG_AS) that they had
// when the scene parsed its actions itself: the router's log filters and the daemon's tests know
// them under that name. Their line numbers are this file's.
//
// Threading: a parser lives for one parse() on the calling thread and shares nothing; the scene
// calls it with its own lock held. Ownership: the actions returned belong to the caller; each
// refers weakly to the scene given.
#ifndef ZORVIK_SCENE_ACTIONLISTPARSER_H_
#define ZORVIK_SCENE_ACTIONLISTPARSER_H_

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zorvik {

class Action;
class Scene;

class ActionListParser {
 public:
  // The actions of `actionsJson` in order, their indices counting from 0; `scene` owns them.
  static std::vector<std::shared_ptr<Action>> parse(const std::string& actionsJson,
                                                    const std::weak_ptr<Scene>& scene);

 private:
  // One element whose words could be read.
  struct Element {
    std::string thirdParty;
    std::string type;
    std::string name;
    std::string keyName;
    std::string payload;
    int32_t delay;
    bool block;
    json_object* extra;  // the "extra" member, borrowed from the parsed text; null when absent
  };

  explicit ActionListParser(const std::weak_ptr<Scene>& scene) : scene_(scene) {}

  // The element at `position`, or nothing (logged) when it lacks its words.
  static std::optional<Element> readElement(size_t position, json_object* value);
  // Appends the actions `element` expands into; logs and appends nothing when a special type
  // lacks what it needs.
  void expand(size_t position, const Element& element);
  void append(const Element& element, const std::string& thirdParty, const std::string& command,
              int32_t delay, bool block, const std::string& extra);

  const std::weak_ptr<Scene> scene_;
  std::vector<std::shared_ptr<Action>> actions_;
};

}  // namespace zorvik

#endif  // ZORVIK_SCENE_ACTIONLISTPARSER_H_
