// Instance parts of OIDs through the codec of row indexes.
//
// The first octet chooses the shape of the index; then follow two instances, each a count and as many
// sub-identifiers: an octet, or 255 and four octets. For every instance the first index that follows is an
// index, and no index between two instances is skipped.
#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "agent/rows/index.h"
#include "agent/tables/route_key.h"
#include "fuzz/support.h"
#include "platform/store/tree/kvtree.h"

namespace {

using fuzz::require;
using oid::Oid;
using tables::IndexPart;
using tables::IndexShape;
using tables::PartKind;

constexpr std::array kScalar = {IndexPart{PartKind::kNumber, 0, 0}};
constexpr std::array kVrf = {IndexPart{PartKind::kName}};
constexpr std::array kInterface = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber, 1, 0x7fffffff}};
constexpr std::array kTarget = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber, 1},
                                IndexPart{PartKind::kNumber, 1, 3}};
constexpr std::array<IndexShape, 5> kShapes = {kScalar, kVrf, kInterface, kTarget, tables::kRouteIndex};
constexpr std::size_t kRouteShape = 4;

Oid take_instance(fuzz::Input* input) {
  Oid instance;
  for (std::size_t count = fuzz::take_octet(input) % (oid::kMaxSubIdentifiers + 1); count > 0; --count) {
    const std::uint32_t octet = fuzz::take_octet(input);
    require(instance.append(octet == 255 ? fuzz::take_number(input, 4) : octet));
  }
  return instance;
}

std::optional<Oid> first_index(IndexShape shape, const Oid& instance, bool after) {
  Oid index;
  if (!tables::first_index(shape, instance.view(), after, &index)) return std::nullopt;
  const auto order = oid::compare(index.view(), instance.view());
  require(after ? order > 0 : order >= 0);
  require(tables::is_index(shape, index.view()));
  return index;
}

bool same(const std::optional<Oid>& left, const std::optional<Oid>& right) {
  return left.has_value() == right.has_value() && (!left || std::ranges::equal(left->view(), right->view()));
}

void check_pair(IndexShape shape, Oid left, Oid right) {
  if (oid::compare(left.view(), right.view()) > 0) std::swap(left, right);
  const std::optional<Oid> from_left = first_index(shape, left, false);
  const std::optional<Oid> from_right = first_index(shape, right, false);
  if (from_left && oid::compare(from_left->view(), right.view()) < 0) {
    const std::optional<Oid> next = first_index(shape, *from_left, true);
    require(!from_right || (next && oid::compare(next->view(), from_right->view()) <= 0));
  } else {
    require(same(from_left, from_right));
  }
}

void check_name(oid::View index, std::string_view path) {
  require(path.starts_with('/') && path.size() < kKvMaxPath);
  const std::string key(path.substr(1, path.find('/', 1) - 1));
  char* name = nullptr;
  require(kvtree_string_decode(key.c_str(), &name) == kStatusOk);
  require(std::strlen(name) == index[0]);
  for (std::size_t i = 0; i < index[0]; ++i) require(static_cast<std::uint8_t>(name[i]) == index[i + 1]);
  std::free(name);
}

void check_one(std::size_t number, const Oid& instance) {
  const IndexShape shape = kShapes[number];
  const std::optional<Oid> index = first_index(shape, instance, false);
  require(tables::is_index(shape, instance.view()) == same(index, instance));
  if (!index) return;
  require(same(first_index(shape, *index, false), index));
  if (number == kRouteShape) {
    // The walk may begin with a name before the index's.
    require(tables::route_path(shape, index->view()).starts_with('/'));
  } else if (number != 0) {
    check_name(index->view(), tables::index_path(shape, index->view()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t number = fuzz::take_octet(&input) % kShapes.size();
  const Oid left = take_instance(&input);
  const Oid right = take_instance(&input);
  check_one(number, left);
  check_one(number, right);
  check_pair(kShapes[number], left, right);
  return 0;
}
