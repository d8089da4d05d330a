// The chosen columns of a record, as a row of a batch. A column's number in a batch is its place in the list
// of columns of the record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/parcel/parcel.h"
#include "platform/store/tree/kvtree.h"

namespace mib {

template <typename Record>
bool has_columns(std::span<const Column<Record>> list, std::span<const std::uint8_t> numbers) {
  for (const std::uint8_t number : numbers) {
    if (number >= list.size()) return false;
  }
  return true;
}

// True when the column of this key is among them. REQUIRES has_columns(list, numbers).
template <typename Record>
bool has_column(std::span<const Column<Record>> list, std::span<const std::uint8_t> numbers,
                std::string_view key) {
  for (const std::uint8_t number : numbers) {
    if (list[number].key != nullptr && list[number].key == key) return true;
  }
  return false;
}

// REQUIRES has_columns(list, batch->columns).
template <typename Record>
void pack_record(const Record& record, std::span<const Column<Record>> list, KvColumnBatch* batch) {
  batch->packer.begin_row(&batch->octets);
  for (const std::uint8_t number : batch->columns) {
    const Column<Record>& column = list[number];
    const Value value = column.read(record);
    if (is_octet_string(column.syntax.type)) {
      batch->packer.octets(value.octets);
    } else {
      batch->packer.number(value.number);
    }
  }
}

// The same for an encoded record: a KvColumnRule's function.
template <typename Record, const ParcelDescription& kDescription, const auto& kColumns>
Status pack_reply(const KvReply& row, KvColumnBatch* batch) {
  const std::span<const Column<Record>> list = kColumns;
  if (!has_columns(list, batch->columns)) return kStatusInvalid;
  Record record{};
  if (const Status rc = parcel_decode(&kDescription, row.data, row.length, &record)) return rc;
  pack_record(record, list, batch);
  return parcel_free_indirections(&kDescription, &record);
}

}  // namespace mib
