// For the tests of this folder: records of every field kind with their descriptions.
#pragma once

#include <cstddef>
#include <iterator>

#include "platform/core/parcel/parcel.h"

namespace test_records {

struct Leaf {
  std::uint32_t kind;
  char* value;
};

struct Branch {
  std::uint32_t family;
  ParcelArray leaves;  // of Leaf
  char* policy;
};

struct Everything {
  char* text;
  std::int32_t number;
  std::uint32_t count;
  std::uint8_t octet;
  std::uint32_t flag;
  std::uint32_t enumeration;
  ParcelOctets octets;
  ParcelArray branches;  // of Branch
  ParcelArray pointer;   // at most 4 octets
  char* last;
};

inline constexpr std::uint32_t kLeafOffsets[] = {0, 8};
inline constexpr std::uint32_t kBranchOffsets[] = {0, 8, 16, 24};
inline constexpr std::uint32_t kEverythingOffsets[] = {0, 8, 12, 16, 20, 24, 32, 40, 48, 56, 64, 72, 80};
inline constexpr ParcelStructLayout kEverythingStructures[] = {
    {7, sizeof(Everything), kEverythingOffsets, std::size(kEverythingOffsets)},
    {2, sizeof(Branch), kBranchOffsets, std::size(kBranchOffsets)},
    {1, sizeof(Leaf), kLeafOffsets, std::size(kLeafOffsets)}};
inline constexpr ParcelLayout kEverythingLayout = {kEverythingStructures, 3};
inline constexpr ParcelDescription kEverything = {
    1,
    "test_everything",
    3,
    2,
    "none",
    &kEverythingLayout,
    "$7={text}s{number}d{count}D{octet}C{flag}b{enumeration}[kind]e{octets}y{branches}a($2){pointer}4a(C){"
    "last}s;"
    "$1={kind}[kind]e{value}s;$2={family}D{leaves}a($1){policy}s;",
    "$7=sdDCbeya($2)4a(C)s;$1=es;$2=Da($1)s;"};
static_assert(offsetof(Everything, last) == 80 && sizeof(Everything) == 88);

// A row of the common shape: seven fields, two texts.
struct Row {
  char* name;
  std::int32_t index;
  std::int32_t classification;
  std::uint8_t protocol;
  std::int32_t storage;
  std::int32_t status;
  char* vrf;
};
inline constexpr std::uint32_t kRowOffsets[] = {0, 8, 12, 16, 20, 24, 32};
inline constexpr ParcelStructLayout kRowStructures[] = {
    {1, sizeof(Row), kRowOffsets, std::size(kRowOffsets)}};
inline constexpr ParcelLayout kRowLayout = {kRowStructures, 1};
inline constexpr ParcelDescription kRow = {
    1,
    "test_row",
    1,
    0,
    "none",
    &kRowLayout,
    "$1={name}s{index}d{classification}d{protocol}C{storage}d{status}d{vrf}s;",
    "$1=sddCdds;"};

}  // namespace test_records
