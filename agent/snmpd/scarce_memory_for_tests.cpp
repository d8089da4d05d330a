// A part of the module in tests only: of its allocations one in MPLS_TEST_FAILING_ALLOCATION fails, the first
// 150 excepted, with which it is loaded.
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr std::uint64_t kFirst = 150;

bool must_fail() {
  static const char* const text = std::getenv("MPLS_TEST_FAILING_ALLOCATION");
  static const std::uint64_t every = text == nullptr ? 0 : std::strtoull(text, nullptr, 10);
  static std::uint64_t count = 0;
  return every != 0 && ++count > kFirst && count % every == 0;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = must_fail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
