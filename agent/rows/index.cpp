// An index is parsed position by position: the numbers before a position decide which numbers it allows. One
// walk over the positions both checks an instance and finds the successor of an instance that is not an
// index:
//
//   - numbers that are allowed remain;
//   - a number below the allowed range, or the instance's end, is followed by the smallest index that begins
//     like this;
//   - a number between two allowed ones becomes the greater of them;
//   - above the allowed range, or past a complete index, the last number that can increase becomes the next
//     allowed one, and the smallest index with that beginning follows.
#include "agent/rows/index.h"

#include <array>

#include "platform/store/tree/kvtree.h"

namespace tables {
namespace {

constexpr std::uint32_t kLowestNameOctet = 1;
constexpr std::uint32_t kHighestOctet = 255;

// The numbers that a position allows: from lowest to highest in steps of `step` (0 or 1: every one).
struct Range {
  std::uint32_t lowest;
  std::uint32_t highest;
  std::uint32_t step = 1;

  bool has(std::uint32_t number) const {
    return number >= lowest && number <= highest && (step <= 1 || (number - lowest) % step == 0);
  }
};

// The position in the shape of the next sub-identifier.
class Position {
 public:
  explicit Position(IndexShape shape) : shape_(shape) {}

  bool complete() const { return part_ == shape_.size(); }

  Range allowed() const {
    if (octets_left_ > 0) return {lowest_octet_, kHighestOctet};
    const IndexPart& part = shape_[part_];
    switch (part.kind) {
      case PartKind::kName:
        return {0, kMaxNameLength};
      case PartKind::kAddressType:
        return {kInetAddressIpv4, kInetAddressIpv6};
      case PartKind::kNextHopType:
        return {kInetAddressUnknown, family_, family_};
      case PartKind::kAddress:
        return {address_size(address_type_), address_size(address_type_)};
      case PartKind::kPrefixLength:
        return {0, 8 * address_size(family_)};
      case PartKind::kNumber:
        break;
    }
    return {part.lowest, part.highest};
  }

  // How many octets follow before the next part.
  std::size_t octets_left() const { return octets_left_; }
  // Steps over all of these if they are allowed. REQUIRES: octets.size() == octets_left() > 0.
  bool step_octets(oid::View octets) {
    const std::uint32_t lowest = lowest_octet_;
    octets_left_ = 0;
    ++part_;
    for (const std::uint32_t octet : octets) {
      if (octet < lowest || octet > kHighestOctet) return false;
    }
    return true;
  }

  // REQUIRES: allowed().has(number).
  void step(std::uint32_t number) {
    if (octets_left_ > 0) {
      --octets_left_;
    } else {
      begin_part(shape_[part_].kind, number);
    }
    if (octets_left_ == 0) ++part_;
  }

 private:
  void begin_part(PartKind kind, std::uint32_t number) {
    if (kind == PartKind::kName || kind == PartKind::kAddress) {
      octets_left_ = number;
      lowest_octet_ = kind == PartKind::kName ? kLowestNameOctet : 0;
    } else if (kind == PartKind::kAddressType) {
      family_ = address_type_ = number;
    } else if (kind == PartKind::kNextHopType) {
      address_type_ = number;
    }
  }

  IndexShape shape_;
  std::size_t part_ = 0;
  std::uint32_t octets_left_ = 0;
  std::uint32_t lowest_octet_ = 0;
  std::uint32_t family_ = kInetAddressIpv4;
  std::uint32_t address_type_ = kInetAddressUnknown;  // of the next address
};

bool fill_smallest(Position position, oid::Oid* index) {
  while (!position.complete()) {
    const std::uint32_t number = position.allowed().lowest;
    if (!index->append(number)) return false;
    position.step(number);
  }
  return true;
}

// The smallest index whose number at this position is above `number`, which is between two allowed ones.
bool fill_from(Position position, std::uint32_t number, oid::Oid* index) {
  const Range allowed = position.allowed();
  const std::uint32_t above = number - (number - allowed.lowest) % allowed.step + allowed.step;
  if (!index->append(above)) return false;
  position.step(above);
  return fill_smallest(position, index);
}

// The smallest index that is greater than every index beginning with the numbers in *index.
bool grow_last(IndexShape shape, oid::Oid* index) {
  std::array<Range, oid::kMaxSubIdentifiers> allowed;
  Position position(shape);
  for (std::size_t i = 0; i < index->size(); ++i) {
    allowed[i] = position.allowed();
    position.step((*index)[i]);
  }
  while (!index->empty() && (*index)[index->size() - 1] >= allowed[index->size() - 1].highest) {
    index->truncate(index->size() - 1);
  }
  if (index->empty()) return false;
  (*index)[index->size() - 1] += allowed[index->size() - 1].step;
  Position grown(shape);
  for (const std::uint32_t number : index->view()) grown.step(number);
  return fill_smallest(grown, index);
}

}  // namespace

bool first_index(IndexShape shape, oid::View instance, bool after, oid::Oid* index) {
  index->clear();
  Position position(shape);
  for (const std::uint32_t number : instance) {
    if (position.complete()) return grow_last(shape, index);  // longer than an index: after it
    const Range allowed = position.allowed();
    if (number > allowed.highest) return grow_last(shape, index);
    if (number < allowed.lowest) return fill_smallest(position, index);
    if (!allowed.has(number)) return fill_from(position, number, index);
    if (!index->append(number)) return false;
    position.step(number);
  }
  if (position.complete()) return !after || grow_last(shape, index);
  return fill_smallest(position, index);
}

bool is_index(IndexShape shape, oid::View instance) {
  Position position(shape);
  for (std::size_t at = 0; at < instance.size();) {
    const std::size_t octets = position.octets_left();
    if (octets > instance.size() - at || position.complete()) return false;
    if (octets > 0) {
      if (!position.step_octets(instance.subspan(at, octets))) return false;
      at += octets;
    } else {
      if (!position.allowed().has(instance[at])) return false;
      position.step(instance[at++]);
    }
  }
  return position.complete();
}

std::string index_path(IndexShape shape, oid::View index) {
  std::string path;
  std::size_t at = 0;
  for (const IndexPart& part : shape) {
    path += '/';
    const std::uint32_t first = index[at++];
    if (part.kind != PartKind::kName) {
      path += std::to_string(first);
      continue;
    }
    std::string name;
    for (const std::uint32_t octet : index.subspan(at, first)) name += static_cast<char>(octet);
    at += first;
    path += kvtree_encode_text(name);
  }
  return path;
}

}  // namespace tables
