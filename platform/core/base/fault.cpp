// The armed fault points: a short list guarded by a mutex, read only while something is armed.
#include "platform/core/base/fault.h"
#include "platform/core/base/never_destroyed.h"
#include "platform/core/text/numbers.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace {

struct ArmedPoint {
  std::string name;
  Status status;
  std::uint32_t first;
  std::uint32_t count;
  std::uint32_t reached;
};

std::mutex points_mutex;
// A thread that outlives main may still check while the process ends.
NeverDestroyed<std::vector<ArmedPoint>> the_points;
std::vector<ArmedPoint>& points = *the_points;

ArmedPoint* find_point(std::string_view name) {
  for (ArmedPoint& point : points) {
    if (point.name == name) return &point;
  }
  return nullptr;
}

// With 0x in hexadecimal.
std::optional<std::uint32_t> parse_any_number(std::string_view digits) {
  const bool is_hexadecimal = digits.starts_with("0x");
  if (is_hexadecimal) digits.remove_prefix(2);
  return text::parse_number<std::uint32_t>(digits, UINT32_MAX, is_hexadecimal ? 16 : 10);
}

// "name=status[@first[+count]]"
std::optional<ArmedPoint> parse_point(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos || equals == 0) return std::nullopt;
  ArmedPoint point{std::string(text.substr(0, equals)), 0, 1, 1, 0};
  std::string_view rest = text.substr(equals + 1);
  if (const std::size_t at = rest.find('@'); at != std::string_view::npos) {
    std::string_view range = rest.substr(at + 1);
    rest = rest.substr(0, at);
    if (const std::size_t plus = range.find('+'); plus != std::string_view::npos) {
      const auto count = parse_any_number(range.substr(plus + 1));
      if (!count) return std::nullopt;
      point.count = *count;
      range = range.substr(0, plus);
    }
    const auto first = parse_any_number(range);
    if (!first || *first == 0) return std::nullopt;
    point.first = *first;
  }
  const auto status = parse_any_number(rest);
  if (!status || *status == kStatusOk) return std::nullopt;
  point.status = *status;
  return point;
}

}  // namespace

namespace fault_detail {

std::atomic<unsigned> armed_points{0};

Status check_armed(const char* name) {
  const std::lock_guard lock(points_mutex);
  ArmedPoint* point = find_point(name);
  if (point == nullptr) return kStatusOk;
  ++point->reached;
  if (point->reached < point->first) return kStatusOk;
  if (point->count != 0 && point->reached >= point->first + point->count) return kStatusOk;
  return point->status;
}

}  // namespace fault_detail

void fault_arm(std::string_view name, Status status, std::uint32_t first, std::uint32_t count) {
  const std::lock_guard lock(points_mutex);
  ArmedPoint armed{std::string(name), status, first, count, 0};
  if (ArmedPoint* point = find_point(name)) {
    *point = armed;
  } else {
    points.push_back(armed);
  }
  fault_detail::armed_points.store(static_cast<unsigned>(points.size()));
}

void fault_disarm_all() {
  const std::lock_guard lock(points_mutex);
  points.clear();
  fault_detail::armed_points.store(0);
}

std::uint32_t fault_reached(std::string_view name) {
  const std::lock_guard lock(points_mutex);
  const ArmedPoint* point = find_point(name);
  return point == nullptr ? 0 : point->reached;
}

Status fault_arm_from_text(std::string_view text) {
  std::vector<ArmedPoint> parsed;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    const auto point = parse_point(text.substr(0, comma));
    if (!point) return kStatusInvalid;
    parsed.push_back(*point);
    text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
  }
  for (const ArmedPoint& point : parsed) fault_arm(point.name, point.status, point.first, point.count);
  return kStatusOk;
}
