// The configuration on disk: the nodes that clients set, in STATE_DIRECTORY/configuration.db (SQLite). Not
// for other folders.
//
// Each change is a transaction of its own, on the disk when put() or erase() returns. A file that is no such
// database, is damaged, or is of a newer version is never overwritten: it is renamed to
// configuration.db.unusable.N beside the new, empty one, and the log says so.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/kvtree/kvtree.h"

struct sqlite3;

namespace kvtree {

class NodeStore {
 public:
  // Opens or makes the database. kStatusIo (logged) when the directory or the file cannot be used for another
  // reason than the file's contents.
  [[nodiscard]] static Status open(const std::string& directory, std::unique_ptr<NodeStore>* store);
  ~NodeStore();
  NodeStore(const NodeStore&) = delete;
  NodeStore& operator=(const NodeStore&) = delete;

  using Visitor = std::function<void(std::string_view path, KvValue value)>;
  [[nodiscard]] Status for_each(const Visitor& visit) const;  // in the order of the paths
  // Texts and numbers only (kStatusInvalid). kStatusIo, logged, when it could not be written; then nothing
  // changed.
  [[nodiscard]] Status put(std::string_view path, const KvValue& value);
  [[nodiscard]] Status erase(std::string_view path);

 private:
  explicit NodeStore(sqlite3* database) : database_(database) {}
  sqlite3* database_;
};

}  // namespace kvtree
