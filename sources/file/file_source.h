// The router from a file (router_file.h has its grammar). The file is loaded at start and whenever it
// changes; in between, the action "router" (router_action.h) changes the router as an operator would, until
// the next load.
//
// An invalid file changes nothing. A load that fails for another reason (no disk space for the configuration,
// no memory) is retried, after a second and then at growing intervals, until it succeeds or the file changes.
// Loads are carried out one after the other; those that were asked for meanwhile are one load. Main thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/actions.h"
#include "sources/file/apply_router.h"
#include "sources/file/commands/router_action.h"
#include "sources/file/file_reader.h"
#include "sources/file/folder_watch.h"
#include "sources/file/route_feeder.h"
#include "sources/source.h"

class FileSource : public Source {
 public:
  // The model must outlive the source, and nothing else may feed it.
  // `read_changed` reads a changed file, in a thread.
  FileSource(router::Router* model, std::string path,
             router_file::BackgroundReader::Read read_changed = router_file::read);
  ~FileSource() override;

  // Reads the file and applies it to the configuration and the model, with all routes
  // that are written out; generated ones follow in steps on the manager's loop once the source is started.
  // *error is "FILE:LINE:COLUMN: what" for an invalid file (kStatusInvalid), "FILE: what" for a file that
  // cannot be read (its errno) or a change that the data store or the model refuses. Fault point
  // "file_source_load".
  [[nodiscard]] Status load(std::string* error) override;
  // Watches the file and registers the action. The manager must outlive the source. kStatusExists when it was
  // started before. Fault point "file_source_start".
  [[nodiscard]] Status start(EventManager* manager) override;
  // As the action "router reload".
  void reload(std::function<void()> done) override {
    reload_and_answer([done = std::move(done)](Status, const std::string&) { done(); });
  }
  std::string describe() const override { return path_; }
  std::vector<process_status::SourceFact> facts() const override;
  // For a router that has no file: removes what an earlier one configured.
  [[nodiscard]] static Status remove_configured(std::string* error);
  // Whether a changed file is being read or applied.
  bool is_reading() const { return stage_ != Stage::kIdle || (reader_ != nullptr && reader_->is_reading()); }

 private:
  // Of a load; the first one's steps are not separate.
  enum class Stage { kIdle, kCommitting, kApplying, kFeeding };
  void reload_and_answer(KvActionEnd end);
  void take_requests();
  void answer(Status status, const std::string& text);
  Status load_at_once(std::string* error);
  Status take_configuration(const router_file::RouterFile& file, std::string* error);
  Status check(const router_file::Reading& reading, std::string* error) const;
  void begin_applying(router_file::Reading* reading);
  void begin_commit(std::unique_ptr<router_file::Reading> reading);
  void configuration_taken(router_file::Reading* reading, Status status, const std::string& reason);
  std::string commit_error(Status status, const std::string& reason) const;
  Status apply_some(std::size_t items, std::string* error);
  Status feed_some(std::size_t rows, std::string* error);
  void apply_next();
  void stop_applying();
  std::string loaded_text() const;
  void take_reading(router_file::Reading reading);
  void begin_load();
  void end_load_if_fed(Status status, const std::string& error);
  void end_load(Status status, const std::string& error);
  void feed_later();
  void feed();
  void retry_if_useful(Status status);
  void stop_retrying();
  void note_end(Status status, const std::string& error);
  void log_failure(Status status, const std::string& error);

  router::Router* model_;
  std::string path_;
  const router_file::BackgroundReader::Read read_changed_;
  std::string commit_;  // of the last load; empty if it changed no configuration
  Stage stage_ = Stage::kIdle;
  std::vector<KvActionEnd> requests_;                            // of users, for a load that has not begun
  std::vector<KvActionEnd> waiting_;                             // of users, for the load that is in progress
  std::unique_ptr<router_file::Reading> next_;                   // what the next load applies
  std::shared_ptr<FileSource*> committing_;                      // while a load's configuration is committed
  std::unique_ptr<router_file::RouterApplication> application_;  // while a file is being applied
  std::vector<router_file::RouteGroup> routes_;                  // of that file
  router_file::RouteFeeder feeder_;
  EventManager* manager_ = nullptr;
  EventTimerId applying_ = 0;      // the timer of the next step of the application; 0 when none is set
  EventTimerId feeding_ = 0;       // the timer of the next step; 0 when none is set
  EventTimerId retrying_ = 0;      // the timer of the next attempt, likewise
  std::uint64_t retry_after_ = 0;  // nanoseconds; 0 when the last load did not fail
  std::string logged_failure_;     // of the load that is retried
  std::uint64_t loaded_ = 0;       // clock_stamp() of the last load that succeeded
  std::string problem_;            // of the last load; empty if it succeeded
  RouterAction action_;
  std::unique_ptr<FolderWatch> watch_;
  std::unique_ptr<router_file::BackgroundReader> reader_;  // from the start on
};
