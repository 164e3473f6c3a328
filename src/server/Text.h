// Text: the two text questions several modules ask, a prefix test and the look-up of a word in a
// constant table (commands, members, action kinds, TV commands, router lines, special types).
//
// Threading: stateless functions.
#ifndef ZORVIK_SERVER_TEXT_H_
#define ZORVIK_SERVER_TEXT_H_

#include <cstddef>
#include <string_view>

namespace zorvik {

// True when `text` begins with `prefix`.
inline bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// The first entry of `table` whose text field `word` equals `text` exactly, or null.
template <typename Entry, size_t N>
const Entry* findWord(const Entry (&table)[N], const char* Entry::*word, std::string_view text) {
  for (const Entry& entry : table) {
    if (text == entry.*word) return &entry;
  }
  return nullptr;
}

}  // namespace zorvik

#endif  // ZORVIK_SERVER_TEXT_H_
