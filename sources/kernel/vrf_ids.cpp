#include "sources/kernel/vrf_ids.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <utility>

#include "platform/base/log.h"
#include "platform/base/replace_file.h"

namespace kernel {
namespace {

constexpr std::uint32_t kSecondVrfOfTable = 0x80000000;
constexpr const char* kHeading = "# mpls_vpn_mib VRF ids: id, table, name";

}  // namespace

VrfIds::VrfIds(std::string path) : path_(std::move(path)) {
  if (!path_.empty()) read();
}

std::uint32_t VrfIds::choose(const router::Router& model, const std::string& name,
                             std::uint32_t table) const {
  const auto former = former_.find(name);
  if (former != former_.end() && former->second.table == table &&
      model.find_vrf_by_id(former->second.id) == nullptr) {
    return former->second.id;
  }
  if (is_free(model, table)) return table;
  std::uint32_t id = table | kSecondVrfOfTable;
  while (!is_free(model, id)) ++id;
  return id;
}

bool VrfIds::is_free(const router::Router& model, std::uint32_t id) const {
  const bool was_used =
      std::any_of(former_.begin(), former_.end(), [id](const auto& each) { return each.second.id == id; });
  return id != 0 && !was_used && model.find_vrf_by_id(id) == nullptr;
}

void VrfIds::keep(const router::Router& model) {
  if (path_.empty() || !stale_) return;
  const Names names = names_of(model);
  stale_ = names != kept_ && !write(names);
}

VrfIds::Names VrfIds::names_of(const router::Router& model) {
  Names names;
  model.for_each_vrf([&](const router::Vrf& vrf) {
    if (vrf.name != router::kDefaultVrf) names[vrf.name] = Known{vrf.ipv4_table, vrf.id};
  });
  return names;
}

// Lines that another release or a damage left are passed over.
void VrfIds::read() {
  std::ifstream file(path_);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string name;
    Known known;
    if (words >> known.id >> known.table >> name && known.id != 0) kept_[name] = known;
  }
  former_ = kept_;
}

bool VrfIds::write(const Names& names) {
  std::string text = std::string(kHeading) + '\n';
  for (const auto& [name, known] : names) {
    text += std::to_string(known.id) + ' ' + std::to_string(known.table) + ' ' + name + '\n';
  }
  if (const Status status = replace_file(path_, text)) {
    if (!std::exchange(failure_logged_, true)) {
      log_line("kernel: %s: %s; VRFs that share a table may exchange their times when the daemon restarts",
               path_.c_str(), err_text(status));
    }
    return false;
  }
  kept_ = names;
  failure_logged_ = false;
  return true;
}

}  // namespace kernel
