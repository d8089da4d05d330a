#include "platform/store/configuration/change_set.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/core/base/fault.h"

namespace {

std::string encoded_path(std::string_view item, std::string_view below) {
  std::string path = "/cfg";
  for (std::size_t start = 0; start <= item.size();) {
    const std::size_t end = std::min(item.find('/', start), item.size());
    path.append("/").append(kvtree_encode_text(item.substr(start, end - start)));
    start = end + 1;
  }
  if (!below.empty()) path.append("/").append(below);
  return path;
}

bool is_at_or_below(std::string_view path, std::string_view item) {
  return path.starts_with(item) && (path.size() == item.size() || path[item.size()] == '/');
}

}  // namespace

Status kvtree_event_find(const KvChangeSet* changes, const char* item, const char* below,
                         std::uint32_t* found, KvValue* value, std::uint32_t max_text, std::uint32_t flags) {
  if (const Status status = fault_check("kvtree_event_find")) return status;
  if (changes == nullptr || item == nullptr || below == nullptr || found == nullptr || value == nullptr)
    return kStatusInvalid;
  if (flags != 0) return kStatusInvalid;
  const std::string path = encoded_path(item, below);
  const auto change =
      std::find_if(changes->changes.begin(), changes->changes.end(),
                   [&](const KvConfigCommitChange& each) { return is_at_or_below(each.path, path); });
  *found = change == changes->changes.end() ? 0 : 1;
  *value = {};
  if (*found == 0) return kStatusOk;
  if (change->after) *value = *change->after;
  if (value->text.size() > max_text) value->text.resize(max_text);
  return kStatusOk;
}
