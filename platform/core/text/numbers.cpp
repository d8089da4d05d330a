#include "platform/core/text/numbers.h"

namespace text {

namespace {

struct Unit {
  std::string_view name;
  double seconds;
};
constexpr Unit kUnits[] = {{"ms", 0.001}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}};

}  // namespace

std::optional<double> parse_duration(std::string_view duration, double unit) {
  for (const Unit& known : kUnits) {
    if (!duration.ends_with(known.name)) continue;
    duration.remove_suffix(known.name.size());
    unit = known.seconds;
    break;
  }
  if (duration.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
  const std::optional<double> number = parse_real(duration);
  return number ? std::optional(*number * unit) : std::nullopt;
}

}  // namespace text
