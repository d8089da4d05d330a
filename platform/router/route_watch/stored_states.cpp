#include "platform/router/route_watch/stored_states.h"

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string_view>

#include "platform/core/base/log.h"
#include "platform/core/files/read_file.h"
#include "platform/core/sqlite/row_checksum.h"
#include "platform/store/tree/kvtree.h"

namespace route_watch {
namespace {

constexpr std::size_t kFileSizeMax = 16U << 20;  // octets
constexpr std::string_view kHeading =
    "# mpls_vpn_mib watched routes: table, VRF, AFI, low, below since, changed, checksum; "
    "prefix, VRF, prefix, present, reported, changed, checksum";
constexpr std::string_view kTable = "table";
constexpr std::string_view kPrefix = "prefix";

// The words of a line, in their order.
class LineWriter {
 public:
  explicit LineWriter(std::string_view kind) { add(std::string(kind)); }
  LineWriter& add(const std::string& word) {
    line_ += word + ' ';
    return *this;
  }
  LineWriter& add(std::uint64_t number) { return add(std::to_string(number)); }
  std::string finish() const {
    return line_ + std::to_string(sqlite::RowChecksum().text(line_).result()) + '\n';
  }

 private:
  std::string line_;
};

bool is_undamaged(const std::string& line) {
  const std::size_t end = line.rfind(' ');
  if (end == std::string::npos) return false;
  const std::string_view content = std::string_view(line).substr(0, end + 1);
  return line.substr(end + 1) == std::to_string(sqlite::RowChecksum().text(content).result());
}

bool decode_vrf(const std::string& word, std::string* vrf) {
  char* text = nullptr;
  const Status status = kvtree_string_decode(word.c_str(), &text);
  const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
  if (status == kStatusOk) *vrf = text;
  return status == kStatusOk;
}

bool read_table(std::istringstream* words, StoredVrf* vrf) {
  std::size_t family = 0;
  StoredTable table;
  if (!(*words >> family >> table.is_low >> table.below_since >> table.changed)) return false;
  if (family < 1 || family > kFamilies) return false;
  vrf->tables[family - 1] = table;
  return true;
}

bool read_prefix(std::istringstream* words, StoredVrf* vrf) {
  std::string prefix;
  StoredPrefix state;
  if (!(*words >> prefix >> state.is_present >> state.is_reported >> state.changed)) return false;
  vrf->prefixes[prefix] = state;
  return true;
}

bool read_line(const std::string& line, StoredStates* states) {
  std::istringstream words(line);
  std::string kind;
  std::string word;
  std::string vrf;
  if (!is_undamaged(line) || !(words >> kind >> word) || !decode_vrf(word, &vrf)) return false;
  if (kind == kTable) return read_table(&words, &(*states)[vrf]);
  return kind == kPrefix && read_prefix(&words, &(*states)[vrf]);
}

std::string lines_of(const std::string& name, const StoredVrf& vrf) {
  const std::string word = kvtree_encode_text(name);
  std::string lines;
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const StoredTable& table = vrf.tables[family];
    if (!table.is_low && table.below_since == 0 && table.changed == 0) continue;
    LineWriter line(kTable);
    line.add(word).add(family + 1).add(table.is_low ? 1 : 0).add(table.below_since).add(table.changed);
    lines += line.finish();
  }
  for (const auto& [prefix, state] : vrf.prefixes) {
    LineWriter line(kPrefix);
    line.add(word)
        .add(prefix)
        .add(state.is_present ? 1 : 0)
        .add(state.is_reported ? 1 : 0)
        .add(state.changed);
    lines += line.finish();
  }
  return lines;
}

}  // namespace

StoredStates read_states(const std::string& path) {
  std::string text;
  std::string error;
  const Status status = read_file(path, kFileSizeMax, &text, &error);
  if (status != kStatusOk && status != kStatusNoSuchRow)
    log_warning("route watch", "%s: %s; what was lost meanwhile is not logged", path.c_str(), error.c_str());
  StoredStates states;
  std::size_t damaged = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line != kHeading && !read_line(line, &states)) ++damaged;
  }
  if (damaged > 0) log_warning("route watch", "%s: %zu damaged lines are ignored", path.c_str(), damaged);
  return states;
}

std::string text_of(const StoredStates& states) {
  std::string text = std::string(kHeading) + '\n';
  for (const auto& [name, vrf] : states) text += lines_of(name, vrf);
  return text;
}

}  // namespace route_watch
