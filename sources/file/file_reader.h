// Reads a router file, at once or in a thread.
//
// A large router takes tenths of a second to parse. While the process serves, a thread does it, so that the
// loop can answer meanwhile. The thread sees only the path and the result, and delivers the result on the
// loop.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/worker.h"
#include "sources/file/reader/router_file.h"

namespace router_file {

struct Reading {
  Status status = kStatusOk;  // kStatusInvalid for an invalid file, else the errno of reading it
  std::string error;          // "FILE:LINE:COLUMN: what" or "FILE: what"; empty when it was read
  RouterFile file;
};

// Any thread.
Reading read(const std::string& path);

// Reads in a thread of its own, one file at a time. Used on the manager's thread.
class BackgroundReader {
 public:
  using Done = std::function<void(Reading)>;
  using Read = std::function<Reading(const std::string& path)>;
  // `done` is called on the manager's loop, once for the last of the requested reads. `read` runs in the
  // thread.
  BackgroundReader(EventManager* manager, std::string path, Done done, Read read = router_file::read);
  // Waits for a read in progress.
  ~BackgroundReader();
  BackgroundReader(const BackgroundReader&) = delete;
  BackgroundReader& operator=(const BackgroundReader&) = delete;

  // Reads the file as it is now; a read in progress is repeated when it ends. If no thread can be started,
  // `done` is called with that error from inside this call. Fault point "file_reader_thread".
  void start();
  // Drops the result of a read in progress and does not repeat it.
  void forget() { is_wanted_ = again_ = false; }
  // Frees a result that is not used, which takes tens of milliseconds, on a thread.
  void drop(Reading reading);
  bool is_reading() const { return thread_.joinable(); }

 private:
  void run();
  Status start_thread();
  void finished(Reading reading);

  EventManager* manager_;
  const std::string path_;
  Done done_;
  const Read read_;
  EventWorker drops_;
  std::thread thread_;
  bool is_wanted_ = false;  // the result of the read in progress
  bool again_ = false;      // requested while it was in progress
  std::shared_ptr<BackgroundReader*> self_ = std::make_shared<BackgroundReader*>(this);  // for posted results
};

}  // namespace router_file
