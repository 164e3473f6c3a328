// Json: thin wrappers over json-c's parsing, member look-up and serialisation.
#include "server/Json.h"

namespace zorvik {

Json::Document Json::parse(const std::string& text) {
  return Document(json_tokener_parse(text.c_str()));
}

json_object* Json::member(json_object* object, const char* key) {
  json_object* value = nullptr;
  if (!json_object_object_get_ex(object, key, &value)) return nullptr;
  return value;
}

std::string Json::text(json_object* value) {
  const char* text = json_object_get_string(value);
  return text == nullptr ? "" : text;
}

std::string Json::takeText(json_object* object) {
  std::string text = json_object_to_json_string(object);
  json_object_put(object);
  return text;
}

}  // namespace zorvik
