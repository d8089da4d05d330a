// The watch of one VRF: its thresholds, what was reported last, and the evaluation of a new number of routes.
// The rules are in rib_threshold.h.
//
// A VRF has a watch for each family. Subscribers store one flag for the maximum of the whole VRF, so the
// clearing is also the VRF's: it is reported when the last of its tables falls below the maximum.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace rib_threshold {

struct Thresholds {  // routes; 0: none
  std::uint32_t maximum = 0;
  std::uint32_t mid = 0;
};

// A table now: its number (0: the VRF has none, or it is watched for another VRF) and its routes.
struct TableNow {
  std::uint32_t table = 0;
  std::uint32_t routes = 0;
};

struct TableWatch {
  std::string name;  // "red.ipv4.unicast"
  Thresholds configured;
  std::uint32_t table = 0;        // at the last evaluation
  bool mid_exceeded = false;      // as reported last
  bool maximum_exceeded = false;  // likewise
};

inline constexpr char kEventPath[] = "/oper/rib_threshold/";

inline constexpr std::size_t kFamilies = 2;  // IPv4, IPv6

class VrfWatch {
 public:
  explicit VrfWatch(const std::string& vrf);

  void configure(std::size_t family, const Thresholds& thresholds) {
    tables_[family].configured = thresholds;
  }
  // Reports the crossings since the last call.
  void evaluate(const std::array<TableNow, kFamilies>& now);
  // Before the last table is removed: reports the maximum as cleared, with the number of a table that the VRF
  // still has.
  void clear_before_loss();
  // Withdraws the nodes; the thresholds remain.
  void forget_tables();
  bool has_thresholds() const;
  bool has_pending_clearing() const { return reported_exceeded_; }

 private:
  void settle(const std::array<TableNow, kFamilies>& now);
  void report_cleared(const std::array<TableNow, kFamilies>& now);

  std::array<TableWatch, kFamilies> tables_;
  bool reported_exceeded_ = false;  // a maximum was reported as exceeded and not cleared since
  std::size_t crossed_last_ = 0;    // the family whose table crossed its maximum last, either way
};

}  // namespace rib_threshold
