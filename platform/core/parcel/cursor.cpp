// The two reads that take more than a few instructions.
#include "platform/core/parcel/cursor.h"

#include <cstring>

#include "platform/core/parcel/parcel.h"

namespace parcel_detail {

bool Cursor::text(bool* present, std::string_view* text) {
  std::uint32_t size = 0;
  if (!u32(&size)) return false;
  *present = size != 0;
  *text = {};
  if (size <= 1) return true;
  const std::uint8_t* octets_at = nullptr;
  if (!octets(size - 1, &octets_at) || std::memchr(octets_at, 0, size - 1) != nullptr) return false;
  // Octets are read as characters: the one cast that the standard allows for it.
  *text = {reinterpret_cast<const char*>(octets_at), size - 1};
  return true;
}

bool read_prefix(Cursor* cursor, Prefix* prefix) {
  std::uint8_t format = 0;
  bool present = false;
  return cursor->octet(&format) && format == 1 && cursor->text(&present, &prefix->type_name) &&
         !prefix->type_name.empty() && cursor->u32(&prefix->version) &&
         cursor->u32(&prefix->reader_version) && cursor->u32(&prefix->hash);
}

}  // namespace parcel_detail

std::string parcel_type_name(const std::uint8_t* data, std::size_t length) {
  parcel_detail::Cursor cursor(data, data == nullptr ? 0 : length);
  parcel_detail::Prefix prefix;
  return read_prefix(&cursor, &prefix) ? std::string(prefix.type_name) : std::string();
}
