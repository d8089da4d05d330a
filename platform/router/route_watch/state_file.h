// Writes the states of watched tables and prefixes to their file: at most once a second, on a thread. A
// failure is logged once, and tried again. Only for this folder.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/core/evm/evm.h"
#include "platform/core/evm/worker.h"
#include "platform/router/route_watch/stored_states.h"

namespace route_watch {

class StateFile {
 public:
  // `states` has what is to be written. The manager must outlive this.
  StateFile(std::string path, EventManager* manager, std::function<StoredStates()> states);
  ~StateFile();
  StateFile(const StateFile&) = delete;
  StateFile& operator=(const StateFile&) = delete;

  void write_soon();
  void write_now();  // if something has changed; waits for the disk

 private:
  void start_timer(std::uint64_t delay);
  void write();
  void end_write(Status status);

  const std::string path_;
  EventManager* manager_;
  std::function<StoredStates()> states_;
  EventWorker worker_;
  EventTimerId timer_ = 0;
  bool is_changed_ = false;  // since the last write began
  bool fails_ = false;
};

}  // namespace route_watch
