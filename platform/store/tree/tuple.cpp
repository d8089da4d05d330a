// Everything is checked before anything is written.
#include "platform/store/tree/tuple.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "platform/core/base/fault.h"

namespace {

// True for as many "%d" as that.
bool names_numbers(const char* format, std::size_t count) {
  std::string_view rest = format == nullptr ? "" : format;
  for (; rest.starts_with("%d"); rest.remove_prefix(2)) {
    if (count-- == 0) return false;
  }
  return rest.empty() && count == 0;
}

bool has_32_bits(std::int64_t number) {
  return number >= std::numeric_limits<std::int32_t>::min() &&
         number <= std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

Status tuple_unpack(const KvValue* value, const char* format, std::initializer_list<std::uint32_t*> places) {
  if (const Status status = fault_check("tuple_unpack")) return status;
  if (value == nullptr || value->type != KvValueType::kTuple) return kStatusInvalid;
  if (value->tuple.size() != places.size() || !names_numbers(format, places.size())) return kStatusInvalid;
  if (!std::all_of(value->tuple.begin(), value->tuple.end(), has_32_bits)) return kStatusInvalid;
  const std::int64_t* number = value->tuple.data();
  for (std::uint32_t* place : places) *place = static_cast<std::uint32_t>(*number++);
  return kStatusOk;
}
