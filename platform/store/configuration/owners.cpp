// The registered owners and counted scopes. They describe the program, so they outlive kvtree_reset.
#include <algorithm>

#include "platform/store/configuration/config_tree.h"
#include "platform/store/server/store.h"

namespace kvtree {

namespace {

std::vector<KvConfigOwner>& owners() {
  static std::vector<KvConfigOwner> all;
  return all;
}

std::vector<std::string>& counted_scopes() {
  static std::vector<std::string> all;
  return all;
}

template <typename Value>
std::size_t find_owner_by(Value KvConfigOwner::*member, Value value) {
  const auto found = std::ranges::find(owners(), value, member);
  return found == owners().end() ? kNoOwner : static_cast<std::size_t>(found - owners().begin());
}

bool is_valid(std::span<const KvConfigOwner> all) {
  if (all.size() > kMaxConfigOwners) return false;
  for (auto owner = all.begin(); owner != all.end(); ++owner) {
    if (owner->name.empty() || owner->number == kNoOwnerNumber) return false;
    const auto same = [owner](const KvConfigOwner& other) {
      return other.name == owner->name || other.number == owner->number;
    };
    if (std::any_of(all.begin(), owner, same)) return false;
  }
  return true;
}

}  // namespace

std::size_t find_owner(std::string_view owner) {
  return find_owner_by(&KvConfigOwner::name, owner);
}

std::string_view owner_name(std::size_t owner) {
  return owner < owners().size() ? owners()[owner].name : std::string_view();
}

std::string_view client_owner() {
  return owner_name(0);
}

std::uint8_t owner_number(std::size_t owner) {
  return owner < owners().size() ? owners()[owner].number : kNoOwnerNumber;
}

std::size_t find_owner_number(std::uint8_t number) {
  return find_owner_by(&KvConfigOwner::number, number);
}

bool is_counted(std::string_view path) {
  return std::ranges::any_of(counted_scopes(), [path](const auto& scope) { return path.starts_with(scope); });
}

}  // namespace kvtree

Status kvtree_config_register_owners(std::span<const KvConfigOwner> owners) {
  if (!kvtree::is_valid(owners)) return kStatusInvalid;
  if (std::ranges::equal(owners, kvtree::owners())) return kStatusOk;
  if (!kvtree::store().configuration.empty()) return kStatusExists;
  kvtree::owners().assign(owners.begin(), owners.end());
  return kStatusOk;
}

void kvtree_config_register_counted_scopes(std::span<const std::string_view> scopes) {
  kvtree::counted_scopes().assign(scopes.begin(), scopes.end());
}
