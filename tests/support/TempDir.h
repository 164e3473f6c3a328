// TempDir: a fresh folder under the system's temporary folder, removed with everything in it
// when the object goes away.
#ifndef ZORVIK_TESTS_SUPPORT_TEMPDIR_H_
#define ZORVIK_TESTS_SUPPORT_TEMPDIR_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace zorvik {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zorvik-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  // Writes `content` to file(name) and returns that path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_TEMPDIR_H_
