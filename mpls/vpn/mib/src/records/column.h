// The columns of a record: one line each, from which every program derives what it shows of a row, the
// sub-agent its objects, the traps their variables and the command line its JSON.
//
//   inline constexpr Column<Vrf> kVrfColumns[] = {
//       hidden<&Vrf::name>("name", kDisplayString),
//       column<&Vrf::creationTime>("creationTime", kVrfEntry, 5, kTimeStamp),
//   };
//
// A list is in the order of the keys in JSON; the objects have the order of their numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

#include "mpls/vpn/mib/src/records/syntax.h"
#include "platform/core/parcel/parcel.h"

namespace mib {

using Octets = std::span<const std::uint8_t>;

// Octets of an octet string; any other value as its 32 bits.
struct Value {
  std::uint32_t number = 0;
  Octets octets;
};

template <typename Record>
struct Column {
  const char* key;                       // the member's name; null: only an object of the MIB
  std::span<const std::uint32_t> entry;  // of its table (or the scalar group), below mplsL3VpnObjects
  std::uint32_t number;                  // below the entry; 0: not an accessible object
  Syntax syntax;
  Value (*read)(const Record& record);
  bool is_counted = false;  // unknown while the daemon has no module of the routing table

  constexpr Column counted() const {
    Column column = *this;
    column.is_counted = true;
    return column;
  }
};

template <typename Member>
struct MemberOf;
template <typename RecordType, typename Type>
struct MemberOf<Type RecordType::*> {
  using Record = RecordType;
};
template <auto kMember>
using RecordOf = typename MemberOf<decltype(kMember)>::Record;

template <auto kMember>
Value member(const RecordOf<kMember>& record) {
  const auto& value = record.*kMember;
  using Member = std::remove_cvref_t<decltype(value)>;
  if constexpr (std::is_same_v<Member, char*>) {
    if (value == nullptr) return {};
    return {0, {reinterpret_cast<const std::uint8_t*>(value), std::strlen(value)}};
  } else if constexpr (std::is_same_v<Member, ParcelOctets>) {
    return {0, {value.octets, value.length}};
  } else if constexpr (std::is_same_v<Member, std::uint8_t>) {
    return {0, {&value, 1}};
  } else {
    return {static_cast<std::uint32_t>(value), {}};
  }
}

template <auto kMember>
constexpr Column<RecordOf<kMember>> column(const char* key, std::span<const std::uint32_t> entry,
                                           std::uint32_t number, const Syntax& syntax) {
  return {key, entry, number, syntax, member<kMember>};
}

// A part of the index, or a member that the MIB does not have.
template <auto kMember>
constexpr Column<RecordOf<kMember>> hidden(const char* key, const Syntax& syntax) {
  return column<kMember>(key, {}, 0, syntax);
}

// An object that the daemon does not track: 0 or the empty string.
template <typename Record>
constexpr Column<Record> untracked(std::span<const std::uint32_t> entry, std::uint32_t number,
                                   const Syntax& syntax) {
  return {nullptr, entry, number, syntax, [](const Record&) { return Value{}; }};
}

// The column with this key, which the list must have.
template <typename Record, std::size_t kColumns>
consteval const Column<Record>& find_column(const Column<Record> (&columns)[kColumns], std::string_view key) {
  for (const Column<Record>& column : columns) {
    if (column.key != nullptr && column.key == key) return column;
  }
  throw "the table lacks this column";
}

}  // namespace mib
