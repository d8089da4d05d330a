// A load reads, parses and checks the whole file before it changes the model. The first load is synchronous.
// Later the file is read in a thread (file_reader.h), because the YAML parser takes about three seconds for a
// router with 100,000 written interfaces (10 MB); applying the result takes a fraction of that.
//
// The configuration is committed first, as one commit, so a refused commit leaves everything unchanged and a
// VRF is named by its configuration before it is created. The data store remembers what the last load
// committed, so only differences are changes, also after a restart.
//
// The VRFs and interfaces of such a file follow in steps, so that a large router delays no answer. A file
// that changes meanwhile is applied after them, so that steady changes cannot prevent the end of a load.
//
// Routes are added last, in the feeder's steps: the first step of a synchronous load adds all written ones,
// the following steps run on the loop, a few milliseconds each, between other work. A load ends when
// at most generated ones are left; then the users who asked for it have their answer.
#include "sources/file/file_source.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/kvtree.h"
#include "sources/file/apply_router.h"

namespace {

constexpr char kActionName[] = "router";
constexpr std::size_t kRowsPerStep = 1000;  // about a millisecond
constexpr std::size_t kItemsPerStep = 500;  // VRFs and interfaces, unless reconcile::kStepTime passes

constexpr char kRetried[] = " (it is tried again)";
constexpr std::uint64_t kFirstRetry = kNanosecondsPerSecond;
constexpr std::uint64_t kLongestRetry = 60 * kNanosecondsPerSecond;

// Whether a retry is useless until the file changes, which the watch notices.
bool is_file_error(Status status) {
  return status == kStatusInvalid || status == kStatusNoSuchRow || status == kStatusMessageTooLarge;
}

// The rows of the first step of a load: all written ones and a step's share.
std::size_t rows_at_once(const std::vector<router_file::RouteGroup>& groups) {
  const auto is_written = [](const router_file::RouteGroup& group) { return group.count == 1; };
  return static_cast<std::size_t>(std::count_if(groups.begin(), groups.end(), is_written)) + kRowsPerStep;
}

Status run_action(const KvActionContext& context, const std::vector<std::string>& words, std::string* text,
                  void* argument) {
  return static_cast<RouterAction*>(argument)->run(context, words, text);
}

}  // namespace

FileSource::FileSource(router::Router* model, std::string path,
                       router_file::BackgroundReader::Read read_changed)
    : model_(model),
      path_(std::move(path)),
      read_changed_(std::move(read_changed)),
      feeder_(model),
      action_(model, [this](KvActionEnd end) { reload_and_answer(std::move(end)); }) {
  model_->set_rd_owner(kConfigOwnerFile);
}

FileSource::~FileSource() {
  if (feeding_ != 0) event_timer_cancel(manager_, feeding_);
  stop_applying();
  stop_retrying();
  if (watch_) kvtree_unregister_action(kActionName);
  take_requests();
  answer(kStatusNotConnected, path_ + ": the process ended before the file was loaded");
}

Status FileSource::remove_configured(std::string* error) {
  return kvtree_config_replace(kConfigOwnerFile, {}, "there is no router file", nullptr, error);
}

Status FileSource::load(std::string* error) {
  if (reader_) reader_->forget();  // this load is newer
  next_.reset();
  stop_applying();
  take_requests();
  const Status status = load_at_once(error);
  note_end(status, *error);
  answer(status, status ? *error : loaded_text());
  application_.reset();
  return status;
}

Status FileSource::load_at_once(std::string* error) {
  router_file::Reading reading = router_file::read(path_);
  if (const Status status = check(reading, error)) return status;
  if (const Status status = take_configuration(reading.file, error)) return status;
  begin_applying(&reading);
  do {
    if (const Status status = apply_some(SIZE_MAX, error)) return status;
  } while (!application_->is_done());
  const std::size_t rows = rows_at_once(routes_);
  feeder_.begin(std::exchange(routes_, {}));
  do {
    if (const Status status = feed_some(rows, error)) return status;
  } while (!feeder_.written_are_done());
  feed_later();
  return kStatusOk;
}

Status FileSource::take_configuration(const router_file::RouterFile& file, std::string* error) {
  std::string reason;
  const Status status =
      kvtree_config_replace(kConfigOwnerFile, file.configuration, "router file " + path_, &commit_, &reason);
  if (status) *error = commit_error(status, reason);
  return status;
}

std::string FileSource::commit_error(Status status, const std::string& reason) const {
  return path_ + ": cannot change the configuration: " + (reason.empty() ? err_text(status) : reason);
}

// Whether the file can be applied.
Status FileSource::check(const router_file::Reading& reading, std::string* error) const {
  if (const Status status = fault_check("file_source_load")) {
    *error = path_ + ": " + err_text(status);
    return status;
  }
  if (reading.status) *error = reading.error;
  return reading.status;
}

// Prepares the application of the file to the model.
void FileSource::begin_applying(router_file::Reading* reading) {
  application_ = std::make_unique<router_file::RouterApplication>(&reading->file, model_);
  routes_ = std::move(reading->file.routes);
}

// A failure ends the application.
Status FileSource::apply_some(std::size_t items, std::string* error) {
  const Status status = application_->step(items);
  if (status == kStatusOk) return kStatusOk;
  *error = path_ + ": " + application_->error();
  application_.reset();
  return status;
}

Status FileSource::feed_some(std::size_t rows, std::string* error) {
  const Status status = feeder_.step(rows);
  if (status) *error = path_ + ": cannot add a route: " + err_text(status);
  return status;
}

// The model keeps what was applied so far; the next application continues from there.
void FileSource::stop_applying() {
  stage_ = Stage::kIdle;
  committing_.reset();
  if (applying_ != 0) event_timer_cancel(manager_, std::exchange(applying_, 0));
  application_.reset();
}

// Schedules the next step if rows are left and the source is started.
void FileSource::feed_later() {
  if (manager_ == nullptr || feeding_ != 0 || feeder_.is_done()) return;
  feeding_ = event_timer_start(manager_, 0, [this] { feed(); });
}

void FileSource::feed() {
  feeding_ = 0;
  std::string error;
  const Status status = feed_some(kRowsPerStep, &error);
  feed_later();
  if (stage_ == Stage::kFeeding) return end_load_if_fed(status, error);
  if (status != kStatusOk) {
    note_end(status, error);
    log_failure(status, error);
    retry_if_useful(status);
  } else if (feeder_.is_done()) {
    log_notice("", "%s: %s", path_.c_str(), router_file::changes_text({}, feeder_.changes()).c_str());
  }
}

Status FileSource::start(EventManager* manager) {
  if (const Status status = fault_check("file_source_start")) return status;
  if (watch_) return kStatusExists;
  auto watch = std::make_unique<FolderWatch>(path_, [this] { reader_->start(); });
  if (const Status status = watch->start(manager)) return status;
  if (const Status status = kvtree_register_action(kActionName, run_action, &action_)) return status;
  watch_ = std::move(watch);
  manager_ = manager;
  reader_ = std::make_unique<router_file::BackgroundReader>(
      manager, path_, [this](router_file::Reading reading) { take_reading(std::move(reading)); },
      read_changed_);
  feed_later();
  return kStatusOk;
}

// The answer follows when the file, as it is now, has been loaded.
void FileSource::reload_and_answer(KvActionEnd end) {
  requests_.push_back(std::move(end));
  reader_->start();
}

// The load that begins is what all requests so far are waiting for.
void FileSource::take_requests() {
  std::ranges::move(requests_, std::back_inserter(waiting_));
  requests_.clear();
}

void FileSource::answer(Status status, const std::string& text) {
  for (const KvActionEnd& end : std::exchange(waiting_, {})) end(status, text);
}

void FileSource::stop_retrying() {
  if (retrying_ != 0) event_timer_cancel(manager_, std::exchange(retrying_, 0));
}

// Called after every load once the source is started.
void FileSource::retry_if_useful(Status status) {
  stop_retrying();
  if (status == kStatusOk || is_file_error(status)) {
    retry_after_ = 0;
    logged_failure_.clear();
    return;
  }
  retry_after_ = retry_after_ == 0 ? kFirstRetry : std::min(2 * retry_after_, kLongestRetry);
  retrying_ = event_timer_start(manager_, retry_after_, [this] {
    retrying_ = 0;
    reader_->start();
  });
}

void FileSource::note_end(Status status, const std::string& error) {
  problem_ = status == kStatusOk ? std::string() : error;
  if (status == kStatusOk) loaded_ = clock_stamp();
}

std::vector<process_status::SourceFact> FileSource::facts() const {
  return {{"file", "", problem_.empty(), loaded_ / kNanosecondsPerSecond, problem_}};
}

// Logs a failure once while retries fail in the same way.
void FileSource::log_failure(Status status, const std::string& error) {
  if (error == logged_failure_) return;
  if (is_file_error(status)) {
    log_error("", "%s%s", error.c_str(), status == kStatusInvalid ? " (nothing was changed)" : "");
    return;
  }
  log_error("", "%s%s", error.c_str(), kRetried);
  logged_failure_ = error;
}

std::string FileSource::loaded_text() const {
  std::string what = router_file::changes_text(application_->changes(), feeder_.changes());
  if (!commit_.empty()) {
    what = what == router_file::kNothingChanged ? std::string() : what + ", ";
    what += "configuration changed (commit " + commit_ + ")";
  }
  if (!feeder_.is_done()) what += "; routes are still coming in";
  return path_ + " loaded: " + what;
}

void FileSource::take_reading(router_file::Reading reading) {
  if (next_) reader_->drop(std::move(*next_));
  next_ = std::make_unique<router_file::Reading>(std::move(reading));
  if (stage_ == Stage::kIdle) begin_load();
}

// REQUIRES: a file has been read.
void FileSource::begin_load() {
  std::unique_ptr<router_file::Reading> reading = std::move(next_);
  if (!reader_->is_reading()) take_requests();
  std::string error;
  if (const Status status = check(*reading, &error)) return end_load(status, error);
  begin_commit(std::move(reading));
}

// A load that begins meanwhile at once makes this one end.
void FileSource::begin_commit(std::unique_ptr<router_file::Reading> reading) {
  stage_ = Stage::kCommitting;
  committing_ = std::make_shared<FileSource*>(this);
  auto nodes = std::make_shared<const std::vector<KvConfigNode>>(std::move(reading->file.configuration));
  const auto done = [weak = std::weak_ptr(committing_), shared = std::shared_ptr(std::move(reading))](
                        Status status, const std::string& id, const std::string& reason) {
    FileSource* const source = weak.expired() ? nullptr : *weak.lock();
    if (source == nullptr) return;
    source->commit_ = id;
    source->configuration_taken(shared.get(), status, reason);
  };
  kvtree_config_begin_replacement(manager_, kConfigOwnerFile, std::move(nodes), "router file " + path_, done);
}

void FileSource::configuration_taken(router_file::Reading* reading, Status status,
                                     const std::string& reason) {
  if (status) {
    reader_->drop(std::move(*reading));
    return end_load(status, commit_error(status, reason));
  }
  begin_applying(reading);
  stage_ = Stage::kApplying;
  apply_next();
}

void FileSource::apply_next() {
  applying_ = 0;
  std::string error;
  if (const Status status = apply_some(kItemsPerStep, &error)) return end_load(status, error);
  if (!application_->is_done()) {
    applying_ = event_timer_start(manager_, 0, [this] { apply_next(); });
    return;
  }
  stage_ = Stage::kFeeding;
  feeder_.begin(std::exchange(routes_, {}));
  feed_later();
}

void FileSource::end_load_if_fed(Status status, const std::string& error) {
  if (status != kStatusOk || feeder_.written_are_done()) end_load(status, error);
}

void FileSource::end_load(Status status, const std::string& error) {
  const std::string text = status == kStatusOk ? loaded_text() : error;
  if (status == kStatusOk) {
    log_notice("", "%s", text.c_str());
  } else {
    log_failure(status, error);
  }
  stop_applying();
  note_end(status, error);
  retry_if_useful(status);
  answer(status, status == kStatusOk || is_file_error(status) ? text : text + kRetried);
  if (next_) begin_load();
}
