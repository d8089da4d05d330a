// What is said of the tables of one VRF: the thresholds, what was said last, and the judgement of a new
// number of routes. The rules are in rib_threshold.h.
//
// A VRF has a watch for each family. What subscribers keep of the maximum is one flag for the whole VRF, so
// the clearing is the VRF's, too: it is said when the last of its tables falls below.
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
  std::uint32_t table = 0;        // the one that was judged last
  bool mid_exceeded = false;      // as said last
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
  // Says what crossed since the last judgement.
  void judge(const std::array<TableNow, kFamilies>& now);
  // Before the last table is taken away: says that the maximum is cleared, under the number of a table that
  // is still there.
  void clear_before_loss();
  // Takes the nodes away and keeps the thresholds.
  void forget_tables();
  bool has_thresholds() const;
  bool owes_clearing() const { return told_exceeded_; }

 private:
  void settle(const std::array<TableNow, kFamilies>& now);
  void tell_cleared(const std::array<TableNow, kFamilies>& now);

  std::array<TableWatch, kFamilies> tables_;
  bool told_exceeded_ = false;    // a maximum was said to be exceeded, and no clearing since
  std::size_t crossed_last_ = 0;  // the family whose table crossed its maximum last, either way
};

}  // namespace rib_threshold
