// Config: a small text file of "key = value" lines, read whole at construction.
//
// The scene store keeps two of them: the local flags in its own folder (written back) and the
// factory's default scenes (only read). Lines that are empty, begin with "//" or "Config", or
// hold no "=" are skipped; otherwise the text before the first "=" is the key and the rest the
// value, both trimmed of white space. When a key repeats, the last line wins. Writing rewrites
// the whole file in key order, so comments, header lines and the original order are lost.
//
// Threading: a Config is a short-lived local object with no lock of its own; callers serialise
// access to one file (the store does so under its own mutex).
#ifndef ZORVIK_STORE_CONFIG_H_
#define ZORVIK_STORE_CONFIG_H_

#include <map>
#include <string>

namespace zorvik {

class Config {
 public:
  // Reads `path` at once; a file that cannot be opened reads as empty (and is logged).
  Config(std::string path, bool readOnly);

  // The value of `key`, or an empty text when the key is absent.
  std::string getValue(const std::string& key) const;
  // Sets the entry and rewrites the file; does nothing at all on a read-only Config.
  void setValue(const std::string& key, const std::string& value);

 private:
  void read();
  void parseLine(const std::string& line);
  void write() const;

  const std::string path_;
  const bool readOnly_;
  std::map<std::string, std::string> entries_;
};

}  // namespace zorvik

#endif  // ZORVIK_STORE_CONFIG_H_
