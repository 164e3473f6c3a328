// TextFile: reads and writes small text files whole, through descriptors that are close-on-exec.
// std::fstream opens its files inheritable, so a shell command that another thread starts at
// that moment would keep the file open; these do not.
//
// Threading: stateless; callers serialise access to one file.
#ifndef ZORVIK_SERVER_TEXTFILE_H_
#define ZORVIK_SERVER_TEXTFILE_H_

#include <optional>
#include <string>

namespace zorvik {

class TextFile {
 public:
  // The whole content, or nothing when the file cannot be opened.
  static std::optional<std::string> read(const std::string& path);
  // Replaces the content; false when the file cannot be opened for writing.
  static bool write(const std::string& path, const std::string& text);
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_TEXTFILE_H_
