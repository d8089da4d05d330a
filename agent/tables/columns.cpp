#include "agent/tables/columns.h"

#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace tables {
namespace {

constexpr std::uint8_t kFirstPrintable = 0x20;
constexpr std::uint8_t kDelete = 0x7f;

bool continues_character(std::uint8_t octet) {
  return (octet & 0xc0U) == 0x80U;
}

bool is_control(std::uint8_t octet) {
  return octet < kFirstPrintable || octet == kDelete;
}

// Most texts are, and need no copy.
bool is_one_line(mib::Octets text, std::size_t most) {
  return text.size() <= most && std::ranges::none_of(text, is_control);
}

}  // namespace

std::vector<std::uint8_t> one_line(mib::Octets text, std::size_t most) {
  if (text.size() > most) {
    while (most > 0 && continues_character(text[most])) --most;
    text = text.first(most);
  }
  std::vector<std::uint8_t> line(text.begin(), text.end());
  std::ranges::replace_if(line, is_control, ' ');
  return line;
}

void add_value(const mib::Syntax& syntax, const mib::Value& value, Window* window) {
  const bool is_text = syntax.type == mib::Type::kText;
  if (is_text && !is_one_line(value.octets, syntax.most)) {
    return window->add_octets(one_line(value.octets, syntax.most));
  }
  if (is_octet_string(syntax.type)) return window->add_octets(value.octets);
  const bool is_truth = syntax.type == mib::Type::kTruth;
  window->add_number(!is_truth ? value.number : value.number == 1 ? kTruthTrue : kTruthFalse);
}

}  // namespace tables
