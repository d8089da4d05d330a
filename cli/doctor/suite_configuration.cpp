#include "cli/doctor/suite_configuration.h"

#include <algorithm>
#include <optional>

#include "platform/core/text/words.h"

namespace cli::doctor {

namespace {

using LineWords = std::vector<std::string_view>;

LineWords words_of(std::string_view line) {
  LineWords words = text::split(line, ' ');
  std::erase_if(words, [](std::string_view word) { return word.empty(); });
  return words;
}

std::string joined(const LineWords& words) {
  std::string line;
  for (const std::string_view word : words) line += (line.empty() ? "" : " ") + std::string(word);
  return line;
}

bool begins_with(const LineWords& words, std::initializer_list<std::string_view> beginning) {
  return words.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), words.begin());
}

// The VRF of "vrf red" and "router bgp 65000 vrf red"; none for other lines.
std::optional<std::string_view> vrf_of(const LineWords& words) {
  const auto found = std::ranges::find(words, "vrf");
  if (found == words.end() || found + 1 == words.end()) return std::nullopt;
  if (found != words.begin() && words.front() != "router") return std::nullopt;
  return *(found + 1);
}

void add_targets(const LineWords& words, SuiteFamily* family) {
  for (const char* direction : {"import", "export"}) {
    if (words[2] != direction && words[2] != "both") continue;
    for (std::size_t at = 3; at < words.size(); ++at)
      family->targets.insert(std::string(direction) + " " + std::string(words[at]));
  }
}

class SuiteReader {
 public:
  explicit SuiteReader(SuiteConfiguration* configuration) : configuration_(*configuration) {}

  void take(std::string_view line) {
    const LineWords words = words_of(line);
    if (words.empty()) return;
    if (line.front() != ' ') return open_stanza(words);
    if (!stanza_vrf_.empty()) configuration_.used_vrfs.insert(stanza_vrf_);
    if (instance_.empty()) return;
    if (begins_with(words, {"address-family"})) return open_family(words);
    if (begins_with(words, {"sid", "vpn", "per-vrf"})) has_common_segment_ = true;
    if (family_ != nullptr) take_item(words);
    if (begins_with(words, {"exit-address-family"})) family_ = nullptr;
  }
  void end_stanza() {
    for (SuiteFamily& family : configuration_.families) {
      if (has_common_segment_ && family.instance == instance_) family.has_segment = true;
    }
    instance_.clear();
    stanza_vrf_.clear();
    family_ = nullptr;
    has_common_segment_ = false;
  }

 private:
  void open_stanza(const LineWords& words) {
    end_stanza();
    if (begins_with(words, {"router", "bgp"})) configuration_.has_bgp = true;
    const std::optional<std::string_view> vrf = vrf_of(words);
    if (!vrf || *vrf == "default") return;
    configuration_.vrfs.emplace(*vrf);
    stanza_vrf_ = *vrf;
    if (begins_with(words, {"router"})) configuration_.used_vrfs.insert(stanza_vrf_);
    if (!begins_with(words, {"router", "bgp"})) return;
    instance_ = joined(words);
    vrf_ = *vrf;
  }
  void open_family(const LineWords& words) {
    configuration_.families.push_back({instance_, vrf_, joined({words.begin() + 1, words.end()})});
    family_ = &configuration_.families.back();
  }
  void take_item(const LineWords& words) {
    if (begins_with(words, {"rd", "vpn", "export"}) && words.size() > 3) family_->rd = words[3];
    if (begins_with(words, {"rt", "vpn"}) && words.size() > 3) add_targets(words, family_);
    if (begins_with(words, {"export", "vpn"})) family_->exports = true;
    if (begins_with(words, {"import", "vpn"}) || begins_with(words, {"import", "vrf"}))
      family_->imports = true;
    if (begins_with(words, {"import", "vrf"}) && words.size() == 3) family_->import_vrfs.emplace(words[2]);
    if (begins_with(words, {"label", "vpn", "export"}) && words.size() > 3 && words[3] != "allocation-mode")
      family_->has_label = true;
    if (begins_with(words, {"sid", "vpn", "export"})) family_->has_segment = true;
  }

  SuiteConfiguration& configuration_;
  std::string stanza_vrf_;
  std::string instance_;
  std::string vrf_;
  SuiteFamily* family_ = nullptr;
  bool has_common_segment_ = false;
};

}  // namespace

SuiteConfiguration parse_suite_configuration(std::string_view text) {
  SuiteConfiguration configuration;
  SuiteReader reader(&configuration);
  while (!text.empty()) reader.take(text::take_until(&text, '\n'));
  reader.end_stanza();
  return configuration;
}

}  // namespace cli::doctor
