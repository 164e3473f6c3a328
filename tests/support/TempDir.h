// TempDir: a fresh folder under the system's temporary folder, removed with everything in it
// when the object goes away.
#ifndef ZORVIK_TESTS_SUPPORT_TEMPDIR_H_
#define ZORVIK_TESTS_SUPPORT_TEMPDIR_H_

#include <filesystem>
#include <string>

namespace zorvik {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // path() / name as text.
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  // Writes `content` to path() / name and returns the full path.
  std::string write(const std::string& name, const std::string& content) const;

  static std::string read(const std::string& path);

 private:
  std::filesystem::path path_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_TEMPDIR_H_
