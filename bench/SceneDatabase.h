// SceneDatabase: scene store files made with SQLite directly, in the daemon's own table layout,
// and the bare-SQLite baseline of storing one scene.
//
// Threading: stateless static functions.
#ifndef ZORVIK_BENCH_SCENEDATABASE_H_
#define ZORVIK_BENCH_SCENEDATABASE_H_

#include <string>

#include "Samples.h"

namespace zorvik {

class SceneDatabase {
 public:
  // The texts of one benchmark scene: a name, two actions and (for some scenes) a launch mode.
  struct SceneTexts {
    std::string name;
    std::string actions;
    std::string launch;
  };
  static SceneTexts textsOf(int id);

  // Writes a fresh store file at `path` holding scenes 1..count (one transaction).
  static void build(const std::string& path, int count);
  // Stores scenes firstId, firstId + 1, ... (`count` of them) one at a time into the store file
  // at `path` as the daemon does (its statement, default journal settings, one implicit
  // transaction per scene); the time of each, in microseconds.
  static Samples timeSingleInserts(const std::string& path, int firstId, int count);
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_SCENEDATABASE_H_
