// The router from a file (router_file.h says how it is written): loaded once, loaded again whenever the file
// changes, and changed in between by the action "router" (router_action.h), as an operator changes a router.
//
// A file with a mistake changes nothing: the router stays what it was. A change that fails for another reason
// (no disk space for the configuration, no memory) is tried again, after a second and then less and less
// often, until it succeeds or the file changes. What the action changed lasts until the next load. Main
// thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/file/commands/router_action.h"
#include "sources/file/file_reader.h"
#include "sources/file/folder_watch.h"
#include "sources/file/route_feeder.h"
#include "sources/source.h"

class FileSource : public Source {
 public:
  // The model must outlive the source, and nothing else may feed it.
  FileSource(router::Router* model, std::string path);
  ~FileSource() override;

  // Reads the file and brings the configuration (file_configuration.h) and the model to it, with all routes
  // that are written out; generated ones follow in steps on the manager's loop once the source is started. In
  // *error, on failure: "FILE:LINE:COLUMN: what" for a mistake in the file (kStatusInvalid), "FILE: what" for
  // a file that cannot be read (its errno) or a change that the data store or the model refuses. Fault point
  // "file_source_load".
  [[nodiscard]] Status load(std::string* error) override;
  // From here the file is watched and the action is there. The manager must outlive the source. kStatusExists
  // when it was started before. Fault point "file_source_start".
  [[nodiscard]] Status start(EventManager* manager) override;
  std::string describe() const override { return path_; }
  // For a router that has no file: removes what an earlier one configured.
  [[nodiscard]] static Status release(std::string* error);
  // Whether a change of the file that was noticed is still being read.
  bool is_reading() const { return reader_ != nullptr && reader_->is_reading(); }

 private:
  Status reload(std::string* text);
  Status load_into_model(router_file::Changes* changes, std::string* error);
  Status take_configuration(const router_file::RouterFile& file, std::string* error);
  Status take(router_file::Reading* reading, router_file::Changes* changes, std::string* error);
  std::string loaded_text(const router_file::Changes& changes) const;
  void was_read(router_file::Reading reading);
  void feed_later();
  void feed();
  void retry_if_useful(Status status);
  void stop_retrying();
  void tell_failure(Status status, const std::string& error);

  router::Router* model_;
  std::string path_;
  std::string commit_;  // that the last load made; empty for none
  router_file::RouteFeeder feeder_;
  EventManager* manager_ = nullptr;
  EventTimerId feeding_ = 0;       // the timer of the next step; 0 when none is set
  EventTimerId retrying_ = 0;      // the timer of the next attempt, likewise
  std::uint64_t retry_after_ = 0;  // nanoseconds; 0 when the last load did not fail
  std::string told_failure_;       // of the load that is tried again
  RouterAction action_;
  std::unique_ptr<FolderWatch> watch_;
  std::unique_ptr<router_file::BackgroundReader> reader_;  // from the start on
};
