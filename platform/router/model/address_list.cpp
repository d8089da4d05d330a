#include "platform/router/model/address_list.h"

#include <algorithm>

namespace router {
namespace {

using Block = SharedBlock<std::uint8_t>;

constexpr std::size_t kIpv4Octets = inet::octets_of(Family::kIpv4);
constexpr std::size_t kHeadSize = 2;
constexpr std::uint8_t kIsShort = 0x80;  // of a head: four octets follow, not sixteen

bool is_in_number(std::uint64_t number) {
  return (number & 1) != 0;
}

// Also an invalid address is stored as it is: the model refuses it later.
bool is_short(const Address& address) {
  const auto unused = address.octets.begin() + kIpv4Octets;
  return address.family == Family::kIpv4 &&
         std::all_of(unused, address.octets.end(), [](std::uint8_t octet) { return octet == 0; });
}

std::uint64_t number_of(const Address& address) {
  std::uint64_t number = 0;
  for (std::size_t n = 0; n < kIpv4Octets; ++n) number = number << 8 | address.octets[n];
  return number << 32 | std::uint64_t{address.prefix_length} << 8 | 1;
}

Address address_of(std::uint64_t number) {
  Address address;
  address.prefix_length = static_cast<std::uint8_t>(number >> 8);
  for (std::size_t n = 0; n < kIpv4Octets; ++n) {
    address.octets[n] = static_cast<std::uint8_t>(number >> (56 - 8 * n));
  }
  return address;
}

std::size_t octets_after(std::uint8_t head) {
  return (head & kIsShort) != 0 ? kIpv4Octets : sizeof(inet::Octets);
}

void append(std::vector<std::uint8_t>* octets, const Address& address) {
  const auto family = static_cast<std::uint8_t>(address.family);
  const std::uint8_t head = is_short(address) ? static_cast<std::uint8_t>(family | kIsShort) : family;
  octets->insert(octets->end(), {head, address.prefix_length});
  octets->insert(octets->end(), address.octets.begin(),
                 address.octets.begin() + static_cast<std::ptrdiff_t>(octets_after(head)));
}

std::uint64_t number_of(const std::vector<Address>& list) {
  if (list.size() == 1 && is_short(list[0])) return number_of(list[0]);
  std::vector<std::uint8_t> octets;
  for (const Address& address : list) append(&octets, address);
  return Block(octets).release();
}

// The result of `use`, which may copy the block.
template <typename Use>
auto use_block(std::uint64_t number, Use use) {
  Block block = Block::adopt(static_cast<std::uintptr_t>(number));
  const auto result = use(std::as_const(block));
  block.release();
  return result;
}

}  // namespace

AddressList::AddressList(const std::vector<Address>& list) : number_(number_of(list)) {}

AddressList::AddressList(const AddressList& other)
    : number_(is_in_number(other.number_) ? other.number_ : use_block(other.number_, [](const Block& block) {
        return Block(block).release();
      })) {}

AddressList::~AddressList() {
  if (!is_in_number(number_)) Block::adopt(static_cast<std::uintptr_t>(number_));
}

Address AddressList::Iterator::operator*() const {
  if (is_in_number(number_)) return address_of(number_);
  Address address;
  address.family = static_cast<Family>(*at_ & ~kIsShort);
  address.prefix_length = at_[1];
  std::copy_n(at_ + kHeadSize, octets_after(*at_), address.octets.begin());
  return address;
}

AddressList::Iterator& AddressList::Iterator::operator++() {
  if (!is_in_number(number_)) at_ += kHeadSize + octets_after(*at_);
  number_ = 0;
  return *this;
}

AddressList::Iterator AddressList::begin() const {
  if (is_in_number(number_)) return {number_, nullptr};
  return {0, use_block(number_, [](const Block& block) { return block.begin(); })};
}

AddressList::Iterator AddressList::end() const {
  if (is_in_number(number_)) return {0, nullptr};
  return {0, use_block(number_, [](const Block& block) { return block.end(); })};
}

std::vector<Address> AddressList::values() const {
  std::vector<Address> list;
  for (const Address& address : *this) list.push_back(address);
  return list;
}

bool AddressList::operator==(const AddressList& other) const {
  return number_ == other.number_ || std::equal(begin(), end(), other.begin(), other.end());
}

void AddressList::push_back(const Address& address) {
  std::vector<Address> list = values();
  list.push_back(address);
  *this = list;
}

}  // namespace router
