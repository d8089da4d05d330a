// See index.h. An index is taken apart position by position: what is in front of a position decides which
// numbers may stand there. The same walk over the positions checks an instance and finds the successor of one
// that is not an index:
//
//   - as long as the instance's numbers are allowed, they are kept;
//   - a number below what is allowed, or the instance's end, is followed by the smallest index that begins
//   so;
//   - above what is allowed, or past a whole index, the last number that can grow grows by one, and the
//   smallest
//     index with that beginning follows.
#include "agent/tables/index.h"

#include <array>

#include "platform/kvtree/kvtree.h"

namespace tables {
namespace {

constexpr std::uint32_t kLowestOctet = 1;
constexpr std::uint32_t kHighestOctet = 255;

struct Range {
  std::uint32_t lowest;
  std::uint32_t highest;
};

// Where in the shape the next sub-identifier falls.
class Position {
 public:
  explicit Position(IndexShape shape) : shape_(shape) {}

  bool complete() const { return part_ == shape_.size(); }

  Range allowed() const {
    if (octets_left_ > 0) return {kLowestOctet, kHighestOctet};
    const IndexPart& part = shape_[part_];
    return part.kind == PartKind::kName ? Range{0, kMaxNameLength} : Range{part.lowest, part.highest};
  }

  // REQUIRES: number is within allowed().
  void step(std::uint32_t number) {
    if (octets_left_ > 0) {
      --octets_left_;
    } else if (shape_[part_].kind == PartKind::kName) {
      octets_left_ = number;
    }
    if (octets_left_ == 0) ++part_;
  }

 private:
  IndexShape shape_;
  std::size_t part_ = 0;
  std::uint32_t octets_left_ = 0;
};

bool fill_smallest(Position position, oid::Oid* index) {
  while (!position.complete()) {
    const std::uint32_t number = position.allowed().lowest;
    if (!index->append(number)) return false;
    position.step(number);
  }
  return true;
}

// The smallest index that is greater than every index beginning with the numbers in *index.
bool grow_last(IndexShape shape, oid::Oid* index) {
  std::array<std::uint32_t, oid::kMaxSubIdentifiers> highest;
  Position position(shape);
  for (std::size_t i = 0; i < index->size(); ++i) {
    highest[i] = position.allowed().highest;
    position.step((*index)[i]);
  }
  while (!index->empty() && (*index)[index->size() - 1] >= highest[index->size() - 1]) {
    index->truncate(index->size() - 1);
  }
  if (index->empty()) return false;
  ++(*index)[index->size() - 1];
  Position grown(shape);
  for (const std::uint32_t number : index->view()) grown.step(number);
  return fill_smallest(grown, index);
}

}  // namespace

bool first_index(IndexShape shape, oid::View instance, bool after, oid::Oid* index) {
  index->clear();
  Position position(shape);
  for (const std::uint32_t number : instance) {
    if (position.complete()) return grow_last(shape, index);  // longer than an index: behind it
    const Range allowed = position.allowed();
    if (number > allowed.highest) return grow_last(shape, index);
    if (number < allowed.lowest) return fill_smallest(position, index);
    if (!index->append(number)) return false;
    position.step(number);
  }
  if (position.complete()) return !after || grow_last(shape, index);
  return fill_smallest(position, index);
}

bool is_index(IndexShape shape, oid::View instance) {
  Position position(shape);
  for (const std::uint32_t number : instance) {
    if (position.complete()) return false;
    const Range allowed = position.allowed();
    if (number < allowed.lowest || number > allowed.highest) return false;
    position.step(number);
  }
  return position.complete();
}

std::string index_path(IndexShape shape, oid::View index) {
  std::string path;
  std::size_t at = 0;
  for (const IndexPart& part : shape) {
    path += '/';
    const std::uint32_t first = index[at++];
    if (part.kind == PartKind::kNumber) {
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
