// SceneTable: the scenes of a sandboxed daemon in a form that can be compared, read either from
// its store file (SQLite, opened directly from the host side) or from a get_scene_setting reply.
// JSON texts are brought to json-c's serialisation, which is how the daemon stores a caller's
// action list and launch mode, so the two sources agree exactly when the daemon is right.
//
// Stateless; any thread. The store file must not be written while it is read (the tests read it
// while no request is in flight or while the daemon is down).
#ifndef ZORVIK_TESTS_STRESS_SCENETABLE_H_
#define ZORVIK_TESTS_STRESS_SCENETABLE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>

namespace zorvik {

struct SceneRecord {
  std::string name;
  std::string actions;  // json-c text of the action list
  std::string launch;   // json-c text of the launch mode; empty when the scene has none

  bool operator==(const SceneRecord& other) const {
    return name == other.name && actions == other.actions && launch == other.launch;
  }
  bool operator!=(const SceneRecord& other) const { return !(*this == other); }
};

// Scenes by id.
using SceneMap = std::map<int32_t, SceneRecord>;

std::ostream& operator<<(std::ostream& out, const SceneRecord& record);
std::ostream& operator<<(std::ostream& out, const SceneMap& scenes);

class SceneTable {
 public:
  // Every row of the store file at `path`; nothing, with the reason in `error`, when it cannot be
  // read.
  static std::optional<SceneMap> readStore(const std::string& path, std::string& error);
  // The "scene_list" of a get_scene_setting reply; nothing when the reply is not a code 0 reply
  // with a list of well-formed scenes, or when an id appears twice.
  static std::optional<SceneMap> fromReply(const std::string& reply);
  // json-c's serialisation of a JSON text; the text itself when it does not parse.
  static std::string canonical(const std::string& json);
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_STRESS_SCENETABLE_H_
