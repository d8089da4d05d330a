// The nodes that the programs report: which of the earlier ones stay, and the commits.
#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/store/configuration/configuration.h"
#include "sources/frr/derived.h"
#include "sources/frr/follower.h"
#include "sources/frr/frr_source.h"

using frr::by_path;
using frr::Nodes;

namespace {

// The nodes of `known` whose paths are not in `reported`.
Nodes left_out(const Nodes& known, const Nodes& reported) {
  Nodes missing;
  std::set_difference(known.begin(), known.end(), reported.begin(), reported.end(),
                      std::back_inserter(missing), by_path);
  return missing;
}

// The nodes of both; of two nodes with the same path, that of `right`.
Nodes merged(const Nodes& left, const Nodes& right) {
  Nodes all;
  std::set_union(right.begin(), right.end(), left.begin(), left.end(), std::back_inserter(all), by_path);
  return all;
}

}  // namespace

// Takes the nodes of the answer, computed now if they do not depend on the router, and decides whether
// missing ones are removed.
void FrrSource::settle(Follower& follower, std::optional<Nodes> now) {
  if (!now) now = follower.program.nodes(*follower.config, *router_);
  derive(follower, &*now);
  const Nodes before = std::exchange(follower.nodes, std::move(*now));
  const Nodes removed = follower.settling ? Nodes{} : left_out(before, follower.nodes);
  const bool derives = follower.program.name == frr::kDerivingProgram;
  const Nodes underived = derives ? left_out(*derived_.nodes, follower.derived) : Nodes{};
  if ((is_complete(follower) && underived.empty()) || is_stable(follower)) follower.settling = false;
  if (derives) {
    commit(&derived_, follower.settling ? merged(follower.derived, underived) : follower.derived,
           "derived by the routing suite", "what the routing suite derives");
  }
  for (const auto& each : followers_) {  // a lost program cannot retain what another one has removed
    if (!each->answering) each->nodes = left_out(each->nodes, removed);
  }
  update_tree(follower, removed);
}

// Whether the programs that answer report everything that was known of this one.
bool FrrSource::is_complete(const Follower& follower) const {
  const Nodes missing = left_out(*configured_.nodes, reported(false));
  return std::none_of(missing.begin(), missing.end(), [&follower](const KvConfigNode& node) {
    return frr::owns(follower.program, node.path);
  });
}

// Whether the program has reported the same for long enough.
bool FrrSource::is_stable(const Follower& follower) const {
  const bool nothing = follower.nodes.empty() && follower.derived.empty();
  return clock_monotonic() - follower.text_since >= (nothing ? options_.settling_empty : options_.settling);
}

// The nodes of the programs that answer, or the last nodes of those that do not.
Nodes FrrSource::reported(bool by_lost_programs) const {
  Nodes all;
  for (const auto& follower : followers_) {
    if (follower->answering != by_lost_programs) all = merged(all, follower->nodes);
  }
  return all;
}

// Whether a program that is lost or settling may still report the node.
bool FrrSource::may_be_reported(std::string_view path) const {
  const auto programs = frr::programs_of(path);
  const bool is_managed = !management_->unknown && programs[management_->place];
  return std::any_of(followers_.begin(), followers_.end(), [&](const auto& follower) {
    if (follower->unknown || !programs[follower->place]) return false;
    if (follower->answering) return follower->settling;
    return !is_managed || follower.get() == management_;
  });
}

// Commits what is reported now, and retains what was not `removed` and may still be reported.
void FrrSource::update_tree(const Follower& follower, const Nodes& removed) {
  const Nodes nodes = merged(reported(true), reported(false));
  Nodes retained = left_out(left_out(*configured_.nodes, nodes), removed);
  std::erase_if(retained, [this](const KvConfigNode& node) { return !may_be_reported(node.path); });
  const std::string program(follower.program.name);
  commit(&configured_, merged(nodes, retained), program + ": running configuration",
         "the configuration of " + program);
}

void FrrSource::commit(Owned* owned, Nodes nodes, const std::string& comment, const std::string& what) {
  if (owned->written && nodes == *owned->nodes) return;
  owned->nodes = std::make_shared<const Nodes>(std::move(nodes));
  writes_.push_back({owned, comment, what});
}

// Makes the commits, one after the other.
void FrrSource::write_next() {
  if (writes_.empty()) return end_processing();
  const Write write = std::move(writes_.front());
  writes_.pop_front();
  kvtree_config_begin_replacement(
      manager_, write.owned->owner, write.owned->nodes, write.comment,
      [weak = std::weak_ptr(self_), write](Status status, const std::string&, const std::string& error) {
        FrrSource* const source = weak.expired() ? nullptr : *weak.lock();
        if (source != nullptr) source->written(write, status, error);
      });
}

void FrrSource::written(const Write& write, Status status, const std::string& error) {
  if (status && write.owned->written) {
    log_error("frr", "cannot write %s: %s", write.what.c_str(),
              error.empty() ? err_text(status) : error.c_str());
  }
  write.owned->written = !status;
  write.owned->problem =
      status ? "cannot write " + write.what + ": " + (error.empty() ? err_text(status) : error) : "";
  write_next();
}
