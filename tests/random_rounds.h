// For tests that do random things for a number of rounds.
//
//   MPLS_TEST_SEED   the seed that a failed run printed
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

// The number in this environment variable, or another one without it.
inline std::uint64_t number_of_environment(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 10);
}

class RandomRounds {
 protected:
  RandomRounds() : seed(number_of_environment("MPLS_TEST_SEED", std::random_device()())), random(seed) {}

  std::uint64_t Below(std::uint64_t end) { return random() % end; }
  bool OneOf(std::uint64_t many) { return Below(many) == 0; }
  void PrintSeed() const { std::cout << "MPLS_TEST_SEED=" << seed << std::endl; }

  std::uint64_t seed;
  std::mt19937_64 random;
};
