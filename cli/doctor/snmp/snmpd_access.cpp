#include "cli/doctor/snmp/snmpd_access.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>

namespace cli::doctor {

namespace {

constexpr std::string_view kEverything = "_all_";
constexpr char kNewName[] = "l3vpn";  // also in the packaged example
constexpr char kExample[] = "/usr/share/doc/mplsvpn-snmp/examples/snmpd.conf";
constexpr char kDropIn[] = "/etc/snmp/snmpd.conf.d/mpls_vpn_mib.conf";

// REQUIRES: the object has as many numbers.
bool matches_mask(const SnmpdSubtree& subtree, const Oid& object) {
  for (std::size_t at = 0; at < subtree.oid.size(); ++at) {
    const bool is_compared = at >= subtree.mask.size() || subtree.mask[at];
    if (is_compared && subtree.oid[at] != object[at]) return false;
  }
  return true;
}

bool matches(const SnmpdSubtree& subtree, const Oid& object) {
  return !subtree.oid.empty() && object.size() >= subtree.oid.size() && matches_mask(subtree, object);
}

// Of the subtrees that match it the longest decides.
bool is_in_view(const std::vector<SnmpdSubtree>& view, const Oid& object) {
  const SnmpdSubtree* longest = nullptr;
  for (const SnmpdSubtree& subtree : view) {
    if (!matches(subtree, object)) continue;
    const auto rank = [](const SnmpdSubtree& each) { return std::pair(each.oid.size(), each.oid); };
    if (longest == nullptr || rank(subtree) >= rank(*longest)) longest = &subtree;
  }
  return longest != nullptr && longest->is_included;
}

bool has_any_number(const SnmpdSubtree& subtree) {
  const auto end =
      subtree.mask.begin() + static_cast<std::ptrdiff_t>(std::min(subtree.mask.size(), subtree.oid.size()));
  return std::find(subtree.mask.begin(), end, false) != end;
}

std::string included(const std::string& view, const Oid& subtree) {
  return fmt::format("\"view {} included {}\"", view, oid_text(subtree));
}

class Judge {
 public:
  Judge(const SnmpdConfiguration& configuration, const Oid& subtree, const std::vector<Oid>& sample)
      : configuration_(configuration), subtree_(subtree), sample_(sample) {}

  SnmpdSight judge(const SnmpdGrant& grant) {
    SnmpdSight result{&grant, Sight::kNone};
    if (find_unknown(grant, &result)) return result;
    judge_subtree(grant, &result);
    judge_user(grant, &result);
    if (grant.is_for_anyone && result.sight != Sight::kAll)
      result.fix = advise_manager(configuration_, subtree_);
    return result;
  }

 private:
  template <typename Shows>
  Sight sight_of(const Shows& shows) const {
    const auto shown = static_cast<std::size_t>(std::ranges::count_if(sample_, shows));
    if (shown == 0) return Sight::kNone;
    return shown == sample_.size() ? Sight::kAll : Sight::kSome;
  }
  bool has_keys(const SnmpdGrant& grant) const {
    const auto known = configuration_.users.find(grant.user);
    return known != configuration_.users.end() && known->second >= grant.level;
  }
  bool find_unknown(const SnmpdGrant& grant, SnmpdSight* result) const {
    result->obstacle = grant.unknown;
    if (configuration_.unknown_views.contains(grant.view)) {
      result->obstacle = fmt::format("{}: the view {} has names instead of numbers", grant.place, grant.view);
    } else if (!grant.user.empty() && !configuration_.knows_users && !has_keys(grant)) {
      result->obstacle = "snmpd's users are not readable; run mplsvpn doctor as root";
    }
    if (!result->obstacle.empty()) result->sight = Sight::kUnknown;
    return !result->obstacle.empty();
  }
  void judge_subtree(const SnmpdGrant& grant, SnmpdSight* result) {
    if (grant.view == kEverything) {
      result->sight = Sight::kAll;
    } else if (grant.view.empty()) {
      judge_oid(grant, result);
    } else {
      judge_view(grant, result);
    }
  }
  // A user who does not exist, or not with such keys, sees nothing. A new one gets what the line lacks, too.
  void judge_user(const SnmpdGrant& grant, SnmpdSight* result) const {
    if (grant.user.empty() || has_keys(grant)) return;
    const bool exists = configuration_.users.contains(grant.user);
    const bool is_limited = !exists && result->sight != Sight::kAll;
    result->sight = Sight::kNone;
    result->obstacle =
        fmt::format("{}: the user {} {}{}", grant.place, grant.user,
                    exists ? "has no keys for this level" : "does not exist",
                    is_limited ? ", and " + result->obstacle.substr(grant.place.size() + 2) : "");
    const std::string line = fmt::format("; add {} and \"rouser {} priv -V {}\" to snmpd.conf",
                                         included(free_view_, subtree_), kNewName, free_view_);
    result->fix = fmt::format(
        "systemctl stop snmpd; add \"createUser {} SHA-256 PASSWORD AES PASSWORD\" to "
        "/var/lib/snmp/snmpd.conf{}; systemctl start snmpd",
        exists ? kNewName : grant.user,
        exists       ? line
        : is_limited ? "; " + result->fix
                     : "");
  }
  void judge_oid(const SnmpdGrant& grant, SnmpdSight* result) {
    result->sight = sight_of([&](const Oid& each) { return is_below(each, grant.oid); });
    if (result->sight == Sight::kAll) return;
    const std::string view = view_for(grant.oid);
    result->obstacle = fmt::format("{}: {} shows {} only", grant.place, grant.directive, oid_text(grant.oid));
    result->fix = fmt::format("add {} and {} to the file, and replace {} in the line by \"-V {}\"",
                              included(view, grant.oid), included(view, subtree_), oid_text(grant.oid), view);
  }
  void judge_view(const SnmpdGrant& grant, SnmpdSight* result) const {
    const auto found = configuration_.views.find(grant.view);
    static const std::vector<SnmpdSubtree> kEmpty;
    const std::vector<SnmpdSubtree>& view = found == configuration_.views.end() ? kEmpty : found->second;
    result->sight = sight_of([&](const Oid& each) { return is_in_view(view, each); });
    const auto hiding = std::ranges::find_if(
        view, [this](const SnmpdSubtree& each) { return !each.is_included && is_below(each.oid, subtree_); });
    if (hiding != view.end()) return blame(*hiding, grant, result);
    if (result->sight == Sight::kAll) return;
    result->obstacle =
        fmt::format("{}: {} shows the view {}, which lacks it", grant.place, grant.directive, grant.view);
    result->fix = fmt::format("add {} to the file", included(grant.view, subtree_));
  }
  // A subtree with a mask may hide more than this MIB, which must stay hidden.
  void blame(const SnmpdSubtree& hiding, const SnmpdGrant& grant, SnmpdSight* result) const {
    result->sight = std::min(result->sight, Sight::kSome);
    result->obstacle =
        fmt::format("{}: the view {} excludes {}", hiding.place, grant.view, oid_text(hiding.oid));
    result->fix = has_any_number(hiding)
                      ? fmt::format("replace the line {} by lines that exclude nothing below {}",
                                    hiding.place, oid_text(subtree_))
                      : fmt::format("remove the line {}", hiding.place);
  }
  // One that is free for a view with this subtree.
  std::string view_for(const Oid& oid) {
    const std::size_t number = views_.emplace(oid, views_.size()).first->second;
    return number == 0 ? free_view_ : fmt::format("{}_{}", free_view_, number + 1);
  }

  const SnmpdConfiguration& configuration_;
  const Oid& subtree_;
  const std::vector<Oid>& sample_;
  const std::string free_view_ = unused_view(configuration_);
  std::map<Oid, std::size_t> views_;  // that were advised
};

}  // namespace

std::vector<SnmpdSight> judge_access(const SnmpdConfiguration& configuration, const Oid& subtree,
                                     const std::vector<Oid>& sample) {
  std::vector<SnmpdSight> all;
  Judge judge(configuration, subtree, sample);
  for (const SnmpdGrant& grant : configuration.grants) all.push_back(judge.judge(grant));
  return all;
}

std::string advise_manager(const SnmpdConfiguration& configuration, const Oid& subtree) {
  const std::string view = unused_view(configuration);
  const bool is_new = view == kNewName && !std::filesystem::exists(kDropIn);
  if (is_new && configuration.folders.contains(std::filesystem::path(kDropIn).parent_path()))
    return fmt::format(
        "install -m 640 -g Debian-snmp {} {}; add \"rocommunity COMMUNITY MANAGER -V {}\" to it for each "
        "manager "
        "on another host",
        kExample, kDropIn, view);
  return fmt::format("add {} and \"rocommunity COMMUNITY MANAGER -V {}\" to snmpd.conf",
                     included(view, subtree), view);
}

std::string unused_view(const SnmpdConfiguration& configuration) {
  const auto is_used = [&configuration](const std::string& name) {
    return std::ranges::any_of(configuration.views,
                               [&](const auto& view) { return view.first.starts_with(name); }) ||
           std::ranges::any_of(configuration.grants,
                               [&](const auto& grant) { return grant.view.starts_with(name); });
  };
  std::string name = kNewName;
  while (is_used(name)) name += "_new";
  return name;
}

}  // namespace cli::doctor
