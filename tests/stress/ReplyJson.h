// ReplyJson: the members of the daemon's JSON replies that the stress tests act on (a reply's
// code, the id of a new scene, a count), read without trusting the reply to be well formed.
//
// Stateless; any thread.
#ifndef ZORVIK_TESTS_STRESS_REPLYJSON_H_
#define ZORVIK_TESTS_STRESS_REPLYJSON_H_

#include <optional>
#include <string>

namespace zorvik {

class ReplyJson {
 public:
  // The integer member `key` of `reply`; nothing when the reply is no JSON object or has no
  // integer of that name.
  static std::optional<int> intMember(const std::string& reply, const char* key);
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_STRESS_REPLYJSON_H_
