// How long the server takes for the requests of its clients, by kind. Main thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/core/metrics/histogram.h"

namespace kvtree {

class RequestDurations {
 public:
  struct Kind {
    std::string_view name;
    metrics::Histogram durations{};
  };
  // REQUIRES: type < kTypes; once for each. The name is constant.
  void add_kind(std::uint16_t type, std::string_view name) {
    kinds_.push_back({name});
    number_of_[type] = static_cast<std::uint8_t>(kinds_.size());
  }
  // Ignores a type without a kind: an acknowledgement has no answer.
  void count(std::uint16_t type, std::uint64_t nanoseconds) {
    if (type < kTypes && number_of_[type] != 0) kinds_[number_of_[type] - 1U].durations.count(nanoseconds);
  }
  std::span<const Kind> kinds() const { return kinds_; }

 private:
  static constexpr std::uint16_t kTypes = 32;
  std::array<std::uint8_t, kTypes> number_of_{};  // from 1
  std::vector<Kind> kinds_;
};

// Of the store's clients; empty while it is not served.
std::span<const RequestDurations::Kind> request_durations();

}  // namespace kvtree
