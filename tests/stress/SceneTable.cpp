#include "SceneTable.h"

#include <sqlite3.h>

#include "server/Json.h"

namespace zorvik {
namespace {

const char kReadAll[] = "SELECT ID, NAME, ACTIONLIST, LAUNCH FROM smart_task_table_v2";

std::string textOf(const unsigned char* text) {
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

// The member's json-c serialisation; empty when it is absent.
std::string serialisedMember(json_object* object, const char* key) {
  json_object* member = Json::member(object, key);
  return member == nullptr ? "" : json_object_to_json_string(member);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const SceneRecord& record) {
  return out << "{name=" << record.name << " actions=" << record.actions
             << " launch=" << record.launch << "}";
}

std::ostream& operator<<(std::ostream& out, const SceneMap& scenes) {
  for (const auto& [id, record] : scenes) out << "\n  " << id << ": " << record;
  return out;
}

std::optional<SceneMap> SceneTable::readStore(const std::string& path, std::string& error) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    error = "cannot open " + path + ": " + sqlite3_errmsg(db);
    sqlite3_close(db);
    return std::nullopt;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, kReadAll, -1, &statement, nullptr) != SQLITE_OK) {
    error = std::string("cannot read the scene table: ") + sqlite3_errmsg(db);
    sqlite3_close(db);
    return std::nullopt;
  }
  SceneMap scenes;
  int step = SQLITE_ROW;
  while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
    scenes[sqlite3_column_int(statement, 0)] =
        SceneRecord{textOf(sqlite3_column_text(statement, 1)),
                    canonical(textOf(sqlite3_column_text(statement, 2))),
                    canonical(textOf(sqlite3_column_text(statement, 3)))};
  }
  if (step != SQLITE_DONE) error = std::string("reading stopped: ") + sqlite3_errmsg(db);
  sqlite3_finalize(statement);
  sqlite3_close(db);
  if (step != SQLITE_DONE) return std::nullopt;
  return scenes;
}

std::optional<SceneMap> SceneTable::fromReply(const std::string& reply) {
  const Json::Document root = Json::parse(reply);
  json_object* code = nullptr;
  json_object* list = nullptr;
  if (!root || !json_object_object_get_ex(root.get(), "code", &code) ||
      json_object_get_int(code) != 0 ||
      !json_object_object_get_ex(root.get(), "scene_list", &list) ||
      !json_object_is_type(list, json_type_array)) {
    return std::nullopt;
  }
  SceneMap scenes;
  for (size_t i = 0; i < json_object_array_length(list); ++i) {
    json_object* scene = json_object_array_get_idx(list, i);
    json_object* id = nullptr;
    json_object* name = nullptr;
    if (!json_object_object_get_ex(scene, "id", &id) ||
        !json_object_object_get_ex(scene, "name", &name) || name == nullptr) {
      return std::nullopt;
    }
    const bool added =
        scenes
            .emplace(json_object_get_int(id), SceneRecord{json_object_get_string(name),
                                                          serialisedMember(scene, "action_list"),
                                                          serialisedMember(scene, "launch")})
            .second;
    if (!added) return std::nullopt;
  }
  return scenes;
}

std::string SceneTable::canonical(const std::string& json) {
  const Json::Document parsed = Json::parse(json);
  return parsed ? json_object_to_json_string(parsed.get()) : json;
}

}  // namespace zorvik
