// An immutable sequence of plain elements in one block that all copies share; an empty one has no block. It
// has the size of a pointer. The copies may be in several threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <new>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

template <typename Element>
class SharedBlock {
  static_assert(std::is_trivially_copyable_v<Element>);

 public:
  SharedBlock() = default;
  explicit SharedBlock(std::span<const Element> elements)
      : block_(elements.empty() ? nullptr : make(elements.size())) {
    std::copy(elements.begin(), elements.end(), place_in(block_));
  }
  SharedBlock(const std::vector<Element>& elements)  // NOLINT: lists are built in vectors
      : SharedBlock(std::span<const Element>(elements)) {}
  SharedBlock(const SharedBlock& other) : block_(other.block_) {
    if (block_ != nullptr) block_->holders.fetch_add(1, std::memory_order_relaxed);
  }
  SharedBlock(SharedBlock&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  SharedBlock& operator=(SharedBlock other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~SharedBlock() {
    const bool is_last = block_ != nullptr && block_->holders.fetch_sub(1, std::memory_order_acq_rel) == 1;
    if (is_last) ::operator delete(block_);
  }

  // The elements and a closing one, as a text has.
  static SharedBlock closed_by(std::span<const Element> elements, const Element& last) {
    SharedBlock result;
    result.block_ = make(elements.size() + 1);
    *std::copy(elements.begin(), elements.end(), place_in(result.block_)) = last;
    return result;
  }

  // For a record that has the block or something else in one number: the block's is even, and 0 for none.
  static SharedBlock adopt(std::uintptr_t number) {
    SharedBlock result;
    result.block_ = reinterpret_cast<Block*>(number);
    return result;
  }
  std::uintptr_t release() { return reinterpret_cast<std::uintptr_t>(std::exchange(block_, nullptr)); }

  const Element* data() const { return place_in(block_); }
  std::size_t size() const { return block_ == nullptr ? 0 : block_->size; }
  bool empty() const { return block_ == nullptr; }
  const Element* begin() const { return data(); }
  const Element* end() const { return data() + size(); }
  bool is_same(const SharedBlock& other) const { return block_ == other.block_; }
  friend bool operator==(const SharedBlock& left, const SharedBlock& right) {
    return left.is_same(right) || std::equal(left.begin(), left.end(), right.begin(), right.end());
  }

 private:
  struct Block {
    std::atomic<std::uint32_t> holders;
    std::uint32_t size;
  };
  static_assert(alignof(Element) <= alignof(Block) && alignof(Block) % 2 == 0);

  static Block* make(std::size_t size) {
    void* const place = ::operator new(sizeof(Block) + size * sizeof(Element));
    return new (place) Block{1, static_cast<std::uint32_t>(size)};
  }
  static Element* place_in(Block* block) {
    return block == nullptr ? nullptr : reinterpret_cast<Element*>(block + 1);
  }

  Block* block_ = nullptr;
};
