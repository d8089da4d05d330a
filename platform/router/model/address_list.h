// The addresses of an interface, immutable but as a whole, in the size of a number: one IPv4 address, as most
// interfaces have, needs no block of memory, and copies of other lists share one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/core/compact/shared_block.h"
#include "platform/router/model/address.h"

namespace router {

class AddressList {
 public:
  AddressList() = default;
  AddressList(const std::vector<Address>& list);  // NOLINT: lists are built in vectors
  AddressList(std::initializer_list<Address> list) : AddressList(std::vector<Address>(list)) {}
  AddressList(const AddressList& other);
  AddressList(AddressList&& other) noexcept : number_(std::exchange(other.number_, 0)) {}
  AddressList& operator=(AddressList other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~AddressList();

  // Reads one address after the other: the list has none in the form of Address. REQUIRES: the list exists.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::input_iterator_tag;
    using value_type = Address;
    using difference_type = std::ptrdiff_t;
    using pointer = const Address*;
    using reference = Address;

    Iterator() = default;
    Address operator*() const;
    Iterator& operator++();
    Iterator operator++(int) {
      const Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator&) const = default;

   private:
    friend class AddressList;
    Iterator(std::uint64_t number, const std::uint8_t* at) : number_(number), at_(at) {}

    std::uint64_t number_ = 0;          // odd: has the address
    const std::uint8_t* at_ = nullptr;  // else the address is here
  };

  Iterator begin() const;
  Iterator end() const;
  bool empty() const { return number_ == 0; }
  std::size_t size() const { return values().size(); }
  std::vector<Address> values() const;
  bool operator==(const AddressList& other) const;

  void push_back(const Address& address);  // makes another list: many addresses are collected in a vector

 private:
  using Block = SharedBlock<std::uint8_t>;

  // Odd: one IPv4 address, its octets in the upper half and its length in the second octet from below. Even:
  // the number of the block with the addresses, each a head, the length and the octets.
  std::uint64_t number_ = 0;
};

}  // namespace router
