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

#include <cstdint>
#include <map>
#include <string>

#include "platform/router/model/router.h"

namespace kernel {

class VrfIds {
 public:
  // `path`: the file; "": ids are not stored.
  explicit VrfIds(std::string path);

  std::uint32_t choose(const router::Router& model, const std::string& name, std::uint32_t table) const;
  // All VRFs that existed at the start have been created: the ids of the others are free.
  void end_start() { starting_ = false; }
  // A VRF was created or deleted: the next save() compares.
  void vrfs_changed() { stale_ = true; }
  // Writes the VRFs of the model to the file if they changed. A failure is logged once and retried by every
  // call.
  void save(const router::Router& model);

 private:
  struct Known {
    std::uint32_t table = 0;
    std::uint32_t id = 0;
    bool operator==(const Known&) const = default;
  };
  using Names = std::map<std::string, Known>;

  Names names_of(const router::Router& model) const;
  void read();
  void write();
  bool is_free(const router::Router& model, std::uint32_t id) const;
  bool is_reserved(const router::Router& model, const std::string& name) const;

  std::string path_;
  Names known_;           // of the last run, until the start has ended
  bool starting_ = true;  // no VRF of this run had an id before
  bool stale_ = true;     // VRFs may have been created or deleted
  bool unwritten_ = false;
  bool failure_logged_ = false;
};

}  // namespace kernel
