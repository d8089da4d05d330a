#include "cli/config/config_warnings.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <map>
#include <set>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "cli/output/notices.h"
#include "cli/output/table.h"
#include "cli/show/interface_states.h"
#include "cli/show/tables.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr std::size_t kMostChecked = 100;  // VRFs, and interfaces, each a request
constexpr std::size_t kMostNeedless = 100;
constexpr char kDefaultVrf[] = "default";  // always exists, without a row

std::set<std::string> named_vrfs(const std::vector<ConfigEdit>& edits) {
  std::set<std::string> names;
  for (const ConfigEdit& edit : edits) {
    const bool names_vrf = edit.verb == EditVerb::kSet && edit.words.size() > 1 && edit.words[0] == "vrf";
    if (names_vrf && edit.words[1] != kDefaultVrf) names.insert(edit.words[1]);
  }
  return names;
}

// Words that are wrong are reported when the edits are applied.
void add_interfaces(const ConfigEdit& edit, std::set<std::string>* names) {
  const auto parsed = vrf_config::parse_words(edit.words);
  const auto* const nodes = std::get_if<std::vector<KvConfigNode>>(&parsed);
  if (edit.verb != EditVerb::kSet || nodes == nullptr) return;
  for (const KvConfigNode& node : *nodes) {
    if (const auto name = vrf_config::interface_of(node.path)) names->insert(*name);
  }
}

// The main table of the router, which has the routes outside of all VRFs, is not followed.
bool needs_routes_of_default(const ConfigEdit& edit) {
  const vrf_config::Words& words = edit.words;
  const bool is_set = edit.verb == EditVerb::kSet && words.size() > 2;
  return is_set && words[0] == "vrf" && words[1] == kDefaultVrf &&
         (words[2] == "low-water" || words[2] == "watch");
}

std::string counts_text(const std::map<std::string, std::size_t>& counts) {
  std::vector<std::string> texts;
  for (const auto& [owner, count] : counts) texts.push_back(fmt::format("{} of {}", count, printable(owner)));
  return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace

void warn_of_missing_vrfs(const Session& session, kvtree::Client& client,
                          const std::vector<ConfigEdit>& edits) {
  const std::set<std::string> named = named_vrfs(edits);
  std::size_t checked = 0;
  for (const std::string& name : named) {
    if (checked++ == kMostChecked) break;
    if (client.get(provider_path("vrf", name)).status != kStatusNoSuchRow) continue;
    const std::string text =
        fmt::format("VRF {} does not exist; its configuration waits until it is created", printable(name));
    // The names of many new VRFs are similar to each other.
    warn(session, text::continued(text, named.size() == 1 ? hint_of_vrf(client, name) : ""));
  }
  if (named.size() > kMostChecked)
    warn(session, fmt::format("whether {} more VRFs exist is not checked; \"show vrf\" lists all",
                              named.size() - kMostChecked));
}

void warn_of_missing_interfaces(const Session& session, kvtree::Client& client,
                                const std::vector<ConfigEdit>& edits) {
  std::set<std::string> names;
  for (const ConfigEdit& edit : edits) {
    add_interfaces(edit, &names);
  }
  std::size_t checked = 0;
  for (const std::string& name : names) {
    if (checked++ == kMostChecked) break;
    if (!is_missing_interface(client, name)) continue;
    warn(session, fmt::format("interface {} does not exist; its configuration waits until it is created",
                              printable(name)));
  }
  if (names.size() > kMostChecked)
    warn(session,
         fmt::format("whether {} more interfaces exist is not checked; \"show interfaces\" lists all",
                     names.size() - kMostChecked));
}

void warn_of_default_vrf(const Session& session, const std::vector<ConfigEdit>& edits) {
  if (std::ranges::none_of(edits, needs_routes_of_default)) return;
  warn(session,
       fmt::format("the routes outside of VRFs are not followed: \"low-water\" and \"watch\" of VRF {} "
                   "report all of them as missing",
                   kDefaultVrf));
}

void warn_of_needless_suppression(const Session& session, const WorkingCopy& copy) {
  const std::vector<std::string>& needless = copy.needless_suppressions();
  for (const std::string& words : std::span(needless).first(std::min(needless.size(), kMostNeedless))) {
    warn(session, fmt::format("no other owner sets {}; it is suppressed as soon as one does", words));
  }
  if (needless.size() > kMostNeedless)
    warn(session, fmt::format("no other owner sets {} more items that are suppressed",
                              needless.size() - kMostNeedless));
}

void warn_of_taking_over(const Session& session, const CommitChanges& foreseen) {
  std::map<std::string, std::size_t> counts;
  for (const KvConfigCommitChange& change : foreseen) {
    const bool is_taken = change.after && !change.after->is_suppressed &&
                          change.owner_after == kConfigOwnerCli && !change.owner_before.empty() &&
                          change.owner_before != kConfigOwnerCli;
    if (is_taken) ++counts[change.owner_before];
  }
  if (counts.empty()) return;
  warn(session,
       fmt::format("the command line takes over items of other owners ({}), whose later changes have no "
                   "effect; \"config rollback\" returns them; a backup without them is what \"config "
                   "show --owner {}\" prints",
                   counts_text(counts), kConfigOwnerCli));
}

}  // namespace cli
