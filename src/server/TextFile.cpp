#include "server/TextFile.h"

#include <cstdio>
#include <memory>

namespace zorvik {
namespace {

// "e": the descriptor is opened close-on-exec.
constexpr char kReadMode[] = "re";
constexpr char kWriteMode[] = "we";
constexpr size_t kReadPiece = 4096;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File open(const std::string& path, const char* mode) {
  return File(std::fopen(path.c_str(), mode), &std::fclose);
}

}  // namespace

std::optional<std::string> TextFile::read(const std::string& path) {
  File file = open(path, kReadMode);
  if (!file) return std::nullopt;
  std::string text;
  char piece[kReadPiece];
  size_t got;
  while ((got = std::fread(piece, 1, sizeof(piece), file.get())) > 0) text.append(piece, got);
  return text;
}

bool TextFile::write(const std::string& path, const std::string& text) {
  File file = open(path, kWriteMode);
  if (!file) return false;
  std::fwrite(text.data(), 1, text.size(), file.get());
  return true;
}

}  // namespace zorvik
