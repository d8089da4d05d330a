#include "cli/show/router_states.h"

#include "cli/output/record.h"
#include "cli/show/interface_states.h"

namespace cli {

RouterStates::RouterStates(const Session& session, kvtree::Client& client, bool all)
    : session_(session), client_(client), is_complete_(all) {
  if (all) walk_interface_states(session, client, [this](const auto& state) { add(state); });
}

const RouterState* RouterStates::find(std::int32_t index) {
  const auto key = static_cast<std::uint32_t>(index);
  if (!states_.contains(key) && !is_complete_)
    read_interface_state(session_, client_, key, [this](const auto& state) { add(state); });
  const auto found = states_.find(key);
  return found == states_.end() ? nullptr : &found->second;
}

const RouterState* RouterStates::find(const std::string& name) {
  if (!indexes_.contains(name) && !is_complete_)
    read_interface_state(session_, client_, name, [this](const auto& state) { add(state); });
  const auto found = indexes_.find(name);
  return found == indexes_.end() ? nullptr : &states_.at(found->second);
}

void RouterStates::add(const interface_states::InterfaceState& state) {
  states_[state.index] = {state.up != 0, text_or_empty(state.addresses), text_or_empty(state.description)};
  indexes_[text_or_empty(state.name)] = state.index;
}

}  // namespace cli
