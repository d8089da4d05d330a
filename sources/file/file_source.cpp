// See file_source.h. A load reads, parses and checks the whole file before it touches the model, and no
// request is answered meanwhile: a blink for a router that a person writes, a quarter of a second for a
// generated one with 100,000 interfaces, about three seconds when as many are written out (10 MB), nearly all
// of it the YAML parser's. Who needs a router of that size to be reloaded while it serves lets it be
// generated.
#include "sources/file/file_source.h"

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

Status load_file(const std::string& path, router::Router* model, router_file::Changes* changes,
                 std::string* error) {
  if (const Status status = fault_check("file_source_load")) {
    *error = path + ": " + err_text(status);
    return status;
  }
  router_file::RouterFile file;
  if (const Status status = parse_file(path, &file, error)) return status;
  std::string refusal;
  const Status status = router_file::reconcile(file, model, changes, &refusal);
  if (status) *error = path + ": " + refusal;
  return status;
}

Status run_action(const KvActionContext& context, const std::vector<std::string>& words, std::string* text,
                  void* argument) {
  return static_cast<RouterAction*>(argument)->run(context.may_change, words, text);
}

}  // namespace

FileSource::FileSource(router::Router* model, std::string path)
    : model_(model),
      path_(std::move(path)),
      action_(model, [this](std::string* text) { return reload(text); }) {}

FileSource::~FileSource() {
  if (watch_) kvtree_unregister_action(kActionName);
}

Status FileSource::load(std::string* error) {
  router_file::Changes changes;
  return load_file(path_, model_, &changes, error);
}

Status FileSource::start(EventManager* manager) {
  if (const Status status = fault_check("file_source_start")) return status;
  if (watch_) return kStatusExists;
  auto watch = std::make_unique<FolderWatch>(path_, [this] { file_changed(); });
  if (const Status status = watch->start(manager)) return status;
  if (const Status status = kvtree_register_action(kActionName, run_action, &action_)) return status;
  watch_ = std::move(watch);
  return kStatusOk;
}

Status FileSource::reload(std::string* text) {
  router_file::Changes changes;
  const Status status = load_file(path_, model_, &changes, text);
  if (status == kStatusOk) *text = path_ + " loaded: " + router_file::changes_text(changes);
  return status;
}

void FileSource::file_changed() {
  std::string text;
  const Status status = reload(&text);
  log_line("%s%s", text.c_str(), status == kStatusInvalid ? " (nothing was changed)" : "");
}
