// Json: the few json-c operations every module needs when it reads a JSON text: parsing into an
// owned document, looking a member up, and taking a value's text the way json-c gives it.
//
// A member whose value is JSON null counts as absent, wherever the daemon reads JSON: json-c
// keeps a null value as no object, so member() is the one place that reads a member and treats
// both alike. A null command member is missing, a null alarm key keeps its default ("enabled":
// null leaves the alarm on, "utc_time": null leaves it without an instant), a null launch entry
// is no launch entry, and a sibling service's {"code": null} carries no code.
//
// Threading: stateless; documents belong to the caller.
#ifndef ZORVIK_SERVER_JSON_H_
#define ZORVIK_SERVER_JSON_H_

#include <json-c/json.h>

#include <memory>
#include <string>

namespace zorvik {

class Json {
 public:
  struct Deleter {
    void operator()(json_object* object) const { json_object_put(object); }
  };
  using Document = std::unique_ptr<json_object, Deleter>;

  // The parsed text, or null when it is not JSON (json-c also reads "null" as a failure).
  static Document parse(const std::string& text);
  // The member `key` of `object`, or null when it is absent or JSON null or `object` is no object.
  static json_object* member(json_object* object, const char* key);
  // json-c's string form of a value: a string's text (up to an embedded NUL), the JSON text of
  // anything else; empty for null.
  static std::string text(json_object* value);
  // text() of the member `key`: empty when the member is absent.
  static std::string memberText(json_object* object, const char* key) {
    return text(member(object, key));
  }
  // The serialised text of `object` in json-c's default layout; frees the object.
  static std::string takeText(json_object* object);
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_JSON_H_
