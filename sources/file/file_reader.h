// A router file read from the disk, at once or beside the loop.
//
// A router of ten thousand VRFs that are written out takes a second or more to parse. While the process
// serves, that is a thread's work: it sees the path and the result, nothing else, so the loop goes on
// answering; what was read is handed over on the loop.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "sources/file/reader/router_file.h"

namespace router_file {

struct Reading {
  Status status = kStatusOk;  // kStatusInvalid for a mistake in the file, else the errno of reading it
  std::string error;          // "FILE:LINE:COLUMN: what" or "FILE: what"; empty when it was read
  RouterFile file;
};

// Any thread.
Reading read(const std::string& path);

// Reads on a thread of its own, one file at a time. Used on the manager's thread.
class BackgroundReader {
 public:
  using Done = std::function<void(Reading)>;
  // `done` is called on the manager's loop, once for the last of the reads that were asked for.
  BackgroundReader(EventManager* manager, std::string path, Done done);
  // Waits for a read that is under way.
  ~BackgroundReader();
  BackgroundReader(const BackgroundReader&) = delete;
  BackgroundReader& operator=(const BackgroundReader&) = delete;

  // Asks for the file as it is from now on: a read that is under way is done again. When there is no thread
  // to be had, that is the result, from inside this call. Fault point "file_reader_thread".
  void start();
  // What is under way is of no interest any more, and not done again.
  void forget() { is_wanted_ = again_ = false; }
  bool is_reading() const { return thread_.joinable(); }

 private:
  void run();
  Status start_thread();
  void finished(Reading reading);

  EventManager* manager_;
  const std::string path_;
  Done done_;
  std::thread thread_;
  bool is_wanted_ = false;  // the result of the read under way
  bool again_ = false;      // asked for while it was under way
  std::shared_ptr<BackgroundReader*> self_ = std::make_shared<BackgroundReader*>(this);  // for what is posted
};

}  // namespace router_file
