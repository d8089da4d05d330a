#include "sources/kernel/links/vrf_ids.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

#include "platform/core/base/log.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/files/read_file.h"
#include "platform/core/files/replace_file.h"
#include "platform/core/sqlite/row_checksum.h"

namespace kernel {
namespace {

constexpr std::size_t kFileSizeMax = 64U << 20;  // octets
constexpr std::uint32_t kSecondVrfOfTable = 0x80000000;
constexpr std::string_view kHeading = "# mpls_vpn_mib VRF ids: id, table, name, checksum";
constexpr std::string_view kFormerHeading = "# mpls_vpn_mib VRF ids: id, table, name";

std::string line_of(std::uint32_t id, std::uint32_t table, const std::string& name) {
  const std::int64_t checksum = sqlite::RowChecksum().integer(id).integer(table).text(name).result();
  return std::to_string(id) + ' ' + std::to_string(table) + ' ' + name + ' ' + std::to_string(checksum);
}

}  // namespace

// Written by one thread at a time.
struct VrfIds::File {
  explicit File(std::string its_path) : path(std::move(its_path)) {}
  void write(const std::string& text);

  const std::string path;
  std::atomic<bool> failed{false};  // the last write, which has to be repeated
  bool failure_logged = false;
};

void VrfIds::File::write(const std::string& text) {
  const Status status = replace_file(path, text, 0600, Survives::kPowerCut);
  const bool is_failure = status != kStatusOk;
  if (is_failure && !failure_logged) {
    log_warning("kernel", "%s: %s; VRFs that share a table may exchange their times when the daemon restarts",
                path.c_str(), err_text(status));
  }
  failure_logged = failed = is_failure;
}

VrfIds::VrfIds(std::string path) {
  if (path.empty()) return;
  file_ = std::make_shared<File>(std::move(path));
  read();
}

VrfIds::~VrfIds() {
  if (waits_for_commit_) take_write()();
}

std::uint32_t VrfIds::choose(const router::Router& model, const std::string& name,
                             std::uint32_t table) const {
  const auto known = known_.find(name);
  const bool has_its_id =
      known != known_.end() && (starting_ ? known->second.table == table : is_reserved(model, name));
  if (has_its_id && model.find_vrf_by_id(known->second.id) == nullptr) return known->second.id;
  if (is_free(model, table)) return table;
  std::uint32_t id = table | kSecondVrfOfTable;
  while (!is_free(model, id)) ++id;
  return id;
}

bool VrfIds::is_free(const router::Router& model, std::uint32_t id) const {
  const auto has_id = [&](const auto& each) {
    return each.second.id == id && (starting_ || is_reserved(model, each.first));
  };
  return id != 0 && model.find_vrf_by_id(id) == nullptr && std::none_of(known_.begin(), known_.end(), has_id);
}

bool VrfIds::is_reserved(const router::Router& model, const std::string& name) const {
  return model.is_referenced(name) && model.find_vrf(name) == nullptr;
}

void VrfIds::save(const router::Router& model) {
  if (std::exchange(stale_, false)) {
    Names names = names_of(model);
    unwritten_ = unwritten_ || names != known_;
    known_ = std::move(names);
  }
  if (file_ == nullptr) return;
  if (file_->failed.exchange(false)) unwritten_ = true;
  if (unwritten_ && !write_before_commit()) take_write()();
}

// The ids of the last run are reserved until the start has ended.
void VrfIds::assign(const std::string& name, std::uint32_t table, std::uint32_t id) {
  if (starting_) return;
  known_[name] = Known{table, id};
  stale_ = unwritten_ = true;
  if (file_ != nullptr) static_cast<void>(write_before_commit());
}

// False without a checkpoint.
bool VrfIds::write_before_commit() {
  if (waits_for_commit_) return true;
  waits_for_commit_ = chkpt_before_commit([weak = std::weak_ptr(self_)] {
    return weak.expired() ? std::function<void()>() : (*weak.lock())->take_write();
  });
  return waits_for_commit_;
}

std::function<void()> VrfIds::take_write() {
  waits_for_commit_ = unwritten_ = false;
  return [file = file_, content = text()] { file->write(content); };
}

VrfIds::Names VrfIds::names_of(const router::Router& model) const {
  Names names;
  model.for_each_vrf([&](const router::Vrf& vrf) {
    if (vrf.name != router::kDefaultVrf) names[vrf.name] = Known{vrf.ipv4_table, vrf.id};
  });
  for (const auto& [name, known] : known_) {
    if (is_reserved(model, name)) names.emplace(name, known);
  }
  return names;
}

// The former release wrote no checksums.
bool VrfIds::read_line(const std::string& line, bool has_checksum) {
  std::istringstream words(line);
  std::string name;
  Known known;
  if (!(words >> known.id >> known.table >> name) || known.id == 0) return false;
  if (has_checksum && line != line_of(known.id, known.table, name)) return false;
  known_[name] = known;
  return true;
}

// A wrong id would give a VRF the times of another one.
void VrfIds::read() {
  std::string text;
  std::string error;
  const Status status = read_file(file_->path, kFileSizeMax, &text, &error);
  if (status != kStatusOk && status != kStatusNoSuchRow) {
    log_warning("kernel", "%s: %s; VRFs that share a table may exchange their times", file_->path.c_str(),
                error.c_str());
  }
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  const bool is_former = line == kFormerHeading;
  std::size_t damaged = text.empty() || is_former || line == kHeading ? 0 : 1;
  while (std::getline(lines, line)) {
    if (!read_line(line, !is_former)) ++damaged;
  }
  if (damaged == 0) return;
  log_warning("kernel", "%s: ignored damaged lines: %zu; VRFs that share a table may exchange their times",
              file_->path.c_str(), damaged);
}

std::string VrfIds::text() const {
  std::string text = std::string(kHeading) + '\n';
  for (const auto& [name, known] : known_) text += line_of(known.id, known.table, name) + '\n';
  return text;
}

}  // namespace kernel
