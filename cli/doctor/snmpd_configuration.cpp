#include "cli/doctor/snmpd_configuration.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "cli/session.h"
#include "cli/system/program.h"

namespace cli::doctor {

namespace {

using LineOfWords = std::vector<std::string>;

// "1.3.6.1.2.1" of ".1.3.6.1.2.1."; names are not numbers and match nothing.
std::string plain_oid(const std::string& oid) {
  const std::size_t start = oid.find_first_not_of('.');
  if (start == std::string::npos) return "";
  return oid.substr(start, oid.find_last_not_of('.') - start + 1);
}

bool is_below(const std::string& oid, const std::string& subtree) {
  return subtree.empty() || oid == subtree || oid.starts_with(subtree + ".");
}

class SnmpdReader {
 public:
  explicit SnmpdReader(SnmpdConfiguration* configuration) : configuration_(*configuration) {}

  // False if it cannot be read; errno has the reason.
  bool read(const std::string& path) {
    std::ifstream file(path);
    if (!file) return false;
    if (!seen_.insert(path).second) return true;
    for (std::string line; std::getline(file, line);) take(line, path);
    return true;
  }

 private:
  void take(const std::string& line, const std::string& path) {
    const LineOfWords words = command_words(line.substr(0, line.find('#')));
    if (words.size() < 2) return;
    const std::string& token = words[0];
    if (token == "includeDir") return read_folder(words[1]);
    if (token == "includeFile") static_cast<void>(read(words[1]));
    if (token == "agentXSocket" || token == "agentxsocket") configuration_.agentx_socket = words[1];
    if (token == "view" && words.size() >= 4)
      configuration_.views[words[1]].push_back({plain_oid(words[3]), words[2] == "included"});
    if (token == "access" && words.size() >= 7) return grant(line, path, {"-V", words[6]});
    if (token.starts_with("rocommunity") || token.starts_with("rwcommunity"))
      return grant(line, path, rest(words, 3));
    if (token == "rouser" || token == "rwuser") return grant(line, path, rest(words, 3));
  }
  // What follows community and source, or user and level.
  static LineOfWords rest(const LineOfWords& words, std::size_t first) {
    return words.size() <= first
               ? LineOfWords{}
               : LineOfWords(words.begin() + static_cast<std::ptrdiff_t>(first), words.end());
  }
  void grant(const std::string& line, const std::string& path, const LineOfWords& limits) {
    SnmpdConfiguration::Grant grant{line, path};
    const auto option = std::ranges::find(limits, "-V");
    if (option != limits.end() && option + 1 != limits.end()) {
      grant.view = *(option + 1);
    } else if (!limits.empty()) {
      grant.oid = plain_oid(limits[0]);
    }
    configuration_.grants.push_back(grant);
  }
  void read_folder(const std::string& folder) {
    std::error_code ignored;
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
      if (entry.path().extension() == ".conf") files.insert(entry.path());
    }
    for (const std::string& file : files) static_cast<void>(read(file));
  }

  SnmpdConfiguration& configuration_;
  std::set<std::string> seen_;
};

}  // namespace

SnmpdConfiguration read_snmpd_configuration(const std::string& path) {
  SnmpdConfiguration configuration;
  if (SnmpdReader(&configuration).read(path)) return configuration;
  throw Failure(kExitFailed, path + ": " + std::strerror(errno));
}

// Of the subtrees that contain it, the longest decides.
bool shows(const SnmpdConfiguration& configuration, const SnmpdConfiguration::Grant& grant,
           const std::string& oid) {
  if (grant.view.empty()) return is_below(oid, grant.oid);
  const auto view = configuration.views.find(grant.view);
  if (view == configuration.views.end()) return grant.view == "all" || grant.view == "_all_";
  const SnmpdConfiguration::Subtree* longest = nullptr;
  for (const SnmpdConfiguration::Subtree& subtree : view->second) {
    const bool is_longer = longest == nullptr || subtree.oid.size() >= longest->oid.size();
    if (is_below(oid, subtree.oid) && is_longer) longest = &subtree;
  }
  return longest != nullptr && longest->is_included;
}

}  // namespace cli::doctor
