// The ids of VRFs, which identify them in the checkpoint: a VRF has the same id after a restart of the
// daemon.
//
// A VRF's id is its table number. A second VRF device on the same table (the kernel allows it) and one on
// table 1 (the id of "default") get 0x80000000 | table, or the next free number from there on.
//
// A file stores the id of each VRF by name and table. A VRF that still exists when the daemon starts gets its
// id again, whichever other VRFs were created or deleted meanwhile. No other VRF gets that id, because it
// would also get the VRF's times. A VRF that is deleted while it is configured leaves a record with its id:
// when it is created again it gets this id, with any table, and no other VRF does. Without the file, of VRFs
// that appear together the one with the lower ifIndex has the table as its id.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/router/model/router.h"

namespace kernel {

class VrfIds {
 public:
  // `path`: the file; "": ids are not stored.
  explicit VrfIds(std::string path);
  ~VrfIds();
  VrfIds(const VrfIds&) = delete;
  VrfIds& operator=(const VrfIds&) = delete;

  std::uint32_t choose(const router::Router& model, const std::string& name, std::uint32_t table) const;
  // The VRF gets this id, or is refused it. While the checkpoint is open its next commit writes the file
  // first, because it may have records under the id.
  void assign(const std::string& name, std::uint32_t table, std::uint32_t id);
  // All VRFs that existed at the start have been created: the ids of the others are free.
  void end_start() { starting_ = false; }
  // A VRF was created or deleted: the next save() compares.
  void vrfs_changed() { stale_ = true; }
  // Writes the VRFs of the model to the file if they changed: on the thread of the checkpoint before its next
  // commit, or at once if the checkpoint is not open. A failure is logged once and retried by every call.
  void save(const router::Router& model);

 private:
  struct Known {
    std::uint32_t table = 0;
    std::uint32_t id = 0;
    bool operator==(const Known&) const = default;
  };
  using Names = std::map<std::string, Known>;

  struct File;  // shared with the thread that writes it

  Names names_of(const router::Router& model) const;
  void read();
  bool read_line(const std::string& line, bool has_checksum);
  bool write_before_commit();
  std::function<void()> take_write();
  std::string text() const;
  bool is_free(const router::Router& model, std::uint32_t id) const;
  bool is_reserved(const router::Router& model, const std::string& name) const;

  std::shared_ptr<File> file_;  // null: ids are not stored
  std::shared_ptr<VrfIds*> self_ = std::make_shared<VrfIds*>(this);
  Names known_;           // of the last run, until the start has ended
  bool starting_ = true;  // no VRF of this run had an id before
  bool stale_ = true;     // VRFs may have been created or deleted
  bool unwritten_ = false;
  bool waits_for_commit_ = false;
};

}  // namespace kernel
