// See file_source.h. A load reads, parses and checks the whole file before it touches the model, and no
// request is answered meanwhile: a blink for a router that a person writes, a quarter of a second for a
// generated one with 100,000 interfaces, about three seconds when as many are written out (10 MB), nearly all
// of it the YAML parser's. Who needs a router of that size to be reloaded while it serves lets it be
// generated.
//
// Routes come after everything else, in the feeder's steps: the first step of a load takes all that are
// written out, the following ones run on the loop, a few milliseconds each, with whatever else there is to do
// in between.
#include "sources/file/file_source.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/base/fault.h"
#include "platform/base/log.h"
#include "platform/kvtree/kvtree.h"
#include "sources/file/reconcile.h"
#include "sources/file/router_file.h"

namespace {

constexpr char kActionName[] = "router";
constexpr std::size_t kRowsPerStep = 1000;  // about a millisecond

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Status read_file(const std::string& path, std::string* text) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "re"));
  if (!file) return static_cast<Status>(errno);
  char buffer[64 * 1024];
  while (const std::size_t length = std::fread(buffer, 1, sizeof buffer, file.get())) {
    text->append(buffer, length);
    if (text->size() > router_file::kFileSizeMax) return kStatusMessageTooLarge;
  }
  return std::ferror(file.get()) != 0 ? kStatusIo : kStatusOk;
}

Status parse_file(const std::string& path, router_file::RouterFile* file, std::string* error) {
  std::string text;
  if (const Status status = read_file(path, &text)) {
    *error = path + ": " + err_text(status);
    return status;
  }
  router_file::Mistake mistake;
  if (router_file::parse(text, file, &mistake)) return kStatusOk;
  *error =
      path + ":" + std::to_string(mistake.line) + ":" + std::to_string(mistake.column) + ": " + mistake.what;
  return kStatusInvalid;
}

Status load_file(const std::string& path, router::Router* model, router_file::RouterFile* file,
                 router_file::Changes* changes, std::string* error) {
  if (const Status status = fault_check("file_source_load")) {
    *error = path + ": " + err_text(status);
    return status;
  }
  if (const Status status = parse_file(path, file, error)) return status;
  std::string refusal;
  const Status status = router_file::reconcile(*file, model, changes, &refusal);
  if (status) *error = path + ": " + refusal;
  return status;
}

// How many rows the first step of a load takes: what is written out, and a step's share.
std::size_t rows_at_once(const std::vector<router_file::RouteGroup>& groups) {
  const auto is_written = [](const router_file::RouteGroup& group) { return group.count == 1; };
  return static_cast<std::size_t>(std::count_if(groups.begin(), groups.end(), is_written)) + kRowsPerStep;
}

Status run_action(const KvActionContext& context, const std::vector<std::string>& words, std::string* text,
                  void* argument) {
  return static_cast<RouterAction*>(argument)->run(context.may_change, words, text);
}

}  // namespace

FileSource::FileSource(router::Router* model, std::string path)
    : model_(model),
      path_(std::move(path)),
      feeder_(model),
      action_(model, [this](std::string* text) { return reload(text); }) {}

FileSource::~FileSource() {
  if (feeding_ != 0) event_timer_cancel(manager_, feeding_);
  if (watch_) kvtree_unregister_action(kActionName);
}

Status FileSource::load(std::string* error) {
  router_file::Changes changes;
  return load_into_model(&changes, error);
}

Status FileSource::load_into_model(router_file::Changes* changes, std::string* error) {
  router_file::RouterFile file;
  if (const Status status = load_file(path_, model_, &file, changes, error)) return status;
  const std::size_t rows = rows_at_once(file.routes);
  feeder_.begin(std::move(file.routes));
  if (const Status status = feeder_.step(rows)) {
    *error = path_ + ": cannot add a route: " + err_text(status);
    return status;
  }
  feed_later();
  return kStatusOk;
}

// Sets the timer of the next step, if there is one to do and a loop to do it on.
void FileSource::feed_later() {
  if (manager_ == nullptr || feeding_ != 0 || feeder_.is_done()) return;
  feeding_ = event_timer_start(manager_, 0, [this] { feed(); });
}

void FileSource::feed() {
  feeding_ = 0;
  if (const Status status = feeder_.step(kRowsPerStep)) {
    log_line("%s: cannot add a route: %s", path_.c_str(), err_text(status));
  } else if (feeder_.is_done()) {
    log_line("%s: %s", path_.c_str(), router_file::changes_text({}, feeder_.changes()).c_str());
  }
  feed_later();
}

Status FileSource::start(EventManager* manager) {
  if (const Status status = fault_check("file_source_start")) return status;
  if (watch_) return kStatusExists;
  auto watch = std::make_unique<FolderWatch>(path_, [this] { file_changed(); });
  if (const Status status = watch->start(manager)) return status;
  if (const Status status = kvtree_register_action(kActionName, run_action, &action_)) return status;
  watch_ = std::move(watch);
  manager_ = manager;
  feed_later();
  return kStatusOk;
}

Status FileSource::reload(std::string* text) {
  router_file::Changes changes;
  if (const Status status = load_into_model(&changes, text)) return status;
  *text = path_ + " loaded: " + router_file::changes_text(changes, feeder_.changes());
  if (!feeder_.is_done()) *text += "; generated routes are still coming in";
  return kStatusOk;
}

void FileSource::file_changed() {
  std::string text;
  const Status status = reload(&text);
  log_line("%s%s", text.c_str(), status == kStatusInvalid ? " (nothing was changed)" : "");
}
