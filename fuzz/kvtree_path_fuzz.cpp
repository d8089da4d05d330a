// Texts into the path matcher and the key decoder.
//
// The first octet chooses: bit 0 a structured request, bit 1 a pattern of the input's own (up to the first
// line break) instead of the built-in table. What matches must have arguments that can be read: present ones
// with a text or a number, absent ones with neither, none after the last. A text that decodes must encode
// to the same text.
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/support.h"
#include "platform/store/tree/matcher.h"

namespace {

using fuzz::require;

const KvPathRow kPaths[] = {
    {"scalars", {}},
    {"interface/<s>/<n>", {}},
    {"detail-filter/<s>/<n>/<n>/<s>", {}},
    {"vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_c/import-rt/<n>/<n>/<n>/<n>/<ip4>/<n>/<n>", {}},
    {"vrf/<s>/ord_z/afi_safi/<n>/<n>/<s>/ord_e/rib/table-prefix-limit", {}},
    {"<s>/<x>/<x>/<s>/<s>/nbr/<n>/prov/<s>/<n>/<ad>/<s>", {}},
    {"<s>/<s>/<s>/ord_v/area/<ip4>/<x>/ord_i/name_scope/<i>/ord_A/running", {}},
    {"<s>/max-thresh-exc", {}},
};

void check_argument(const RequestArgs& args, unsigned index, const kvtree::PathMatch& match) {
  const KvArgument& argument = args.arg[index];
  if (index >= args.count || kvtree_absent(&args, index)) {
    require(argument.text == nullptr && argument.number == nullptr);
    return;
  }
  require(argument.text != nullptr || argument.number != nullptr);
  if (argument.text == nullptr) return;
  const char* end = match.texts.data() + match.texts.size();
  require(argument.text >= match.texts.data() && argument.text + std::strlen(argument.text) < end);
}

void match_one(const kvtree::CompiledTable& table, std::size_t rows, std::string_view path, bool encoded) {
  kvtree::PathMatch match;
  const Status status = kvtree::match_path(table, path, encoded, &match);
  if (status != kStatusOk) {
    require(status == kStatusUnknownPath || status == kStatusBadKey);
    return;
  }
  require(match.row >= 0 && static_cast<std::size_t>(match.row) < rows);
  require(match.args.count <= kKvMaxArguments);
  require(~match.args.absent_mask >> match.args.count == 0);
  for (unsigned i = 0; i < kKvMaxArguments; ++i) check_argument(match.args, i, match);
}

void match_own_pattern(std::string_view text, bool encoded) {
  const std::size_t line_break = text.find('\n');
  if (line_break == std::string_view::npos) return;
  const std::string pattern(text.substr(0, line_break));
  const KvPathRow row{pattern.c_str(), {}};
  const kvtree::CompiledTable table = kvtree::compile_table({&row, 1});
  if (table.valid) match_one(table, 1, text.substr(line_break + 1).substr(0, kKvMaxPath), encoded);
}

void decode(std::string_view text) {
  const std::string encoded(text);
  char* decoded = nullptr;
  char* again = nullptr;
  if (kvtree_string_decode(encoded.c_str(), &decoded) == kStatusOk) {
    require(kvtree_string_decode(kvtree_encode_text(decoded).c_str(), &again) == kStatusOk);
    require(std::strcmp(decoded, again) == 0);
  }
  std::free(decoded);
  std::free(again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kvtree::CompiledTable table = kvtree::compile_table({kPaths, std::size(kPaths)});
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  const bool encoded = (data[0] & 1) != 0;
  if ((data[0] & 2) != 0) {
    match_own_pattern(text, encoded);
  } else {
    match_one(table, std::size(kPaths), std::string_view(text).substr(0, kKvMaxPath), encoded);
  }
  decode(text);
  return 0;
}
