#include "ReplyJson.h"

#include "server/Json.h"

namespace zorvik {

std::optional<int> ReplyJson::intMember(const std::string& reply, const char* key) {
  const Json::Document root = Json::parse(reply);
  json_object* member = Json::member(root.get(), key);
  if (member == nullptr || !json_object_is_type(member, json_type_int)) return std::nullopt;
  return json_object_get_int(member);
}

}  // namespace zorvik
