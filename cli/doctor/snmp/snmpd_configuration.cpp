// snmpd's directives for access: the short ones (rocommunity, rouser), those with types of access
// (authcommunity, authuser), and the tables of RFC 3415 (com2sec, group, access, view).
#include "cli/doctor/snmp/snmpd_configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/session.h"
#include "cli/system/program.h"
#include "platform/core/text/words.h"

namespace cli::doctor {

namespace {

using Words = std::vector<std::string>;

constexpr char kPersistentFolder[] = "/var/lib/snmp";
constexpr char kNoAuthentication[] = ".1.3.6.1.6.3.10.1.1.1";
constexpr char kNoEncryption[] = ".1.3.6.1.6.3.10.1.2.1";
constexpr char kUserModel[] = "usm";

std::string in_lower_case(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char octet) { return std::tolower(octet); });
  return text;
}

// Words may be in quotation marks; what follows '#' is a comment.
Words directive_words(const std::string& line) {
  Words words;
  for (std::string word : command_words(line)) {
    if (word.front() == '#') break;
    if (word.size() > 1 && word.front() == '"' && word.back() == '"') word = word.substr(1, word.size() - 2);
    words.push_back(std::move(word));
  }
  return words;
}

SecurityLevel level_of(const std::string& text) {
  const std::string word = in_lower_case(text);
  if (word.starts_with("noauth")) return SecurityLevel::kNone;
  return word == "priv" || word == "authpriv" ? SecurityLevel::kEncrypted : SecurityLevel::kAuthenticated;
}

bool is_level(const std::string& text) {
  const std::string word = in_lower_case(text);
  return word.starts_with("noauth") || word.starts_with("auth") || word == "priv";
}

// "FF:A0" or "0xFFA0".
std::vector<bool> mask_of(std::string text) {
  if (text.starts_with("0x")) {
    text = text.substr(2);
    for (std::size_t at = 2; at < text.size(); at += 3) text.insert(at, ":");
  }
  std::ranges::replace(text, '.', ':');
  std::vector<bool> mask;
  for (const std::string_view part : text::split(text, ':')) {
    unsigned octet = 0xff;
    std::from_chars(part.data(), part.data() + part.size(), octet, 16);
    for (unsigned bit = 0x80; bit != 0; bit >>= 1) mask.push_back((octet & bit) != 0);
  }
  return mask;
}

// A name of snmpd's persistent file: in quotation marks, which are removed already, or in hexadecimal.
std::string persistent_name(const std::string& word) {
  if (!word.starts_with("0x")) return word;
  std::string name;
  for (std::size_t at = 2; at + 1 < word.size(); at += 2) {
    unsigned octet = 0;
    std::from_chars(&word[at], &word[at] + 2, octet, 16);
    if (octet != 0) name += static_cast<char>(octet);
  }
  return name;
}

constexpr std::string_view kWellKnown[] = {"public", "private"};

bool is_well_known(const std::string& community) {
  return std::ranges::find(kWellKnown, community) != std::end(kWellKnown);
}

// Directives that grant access in forms that are not read here.
bool is_other_grant(const std::string& token) {
  return token == "authaccess" || token == "authgroup" || token == "setaccess";
}

// The words of the examples in snmpd.conf(5): snmpd refuses a line with one of them.
bool is_placeholder(const std::string& source, const std::string& community) {
  return source.starts_with("NETWORK") || community == "COMMUNITY";
}

class SnmpdReader {
 public:
  explicit SnmpdReader(SnmpdConfiguration* configuration) : configuration_(*configuration) {}

  // False if it cannot be read; errno has the reason.
  bool read(const std::string& path) {
    std::ifstream file(path);
    if (!file) return false;
    if (!seen_.insert(path).second) return true;
    std::size_t number = 0;
    for (std::string line; std::getline(file, line);) {
      const Words words = directive_words(line);
      if (words.size() > 1)
        take(in_lower_case(words[0]), words, path + ":" + std::to_string(++number));
      else
        ++number;
    }
    return true;
  }
  void finish() {
    for (const Access& access : accesses_) combine(access);
  }

 private:
  struct Name {
    std::string model;
    std::string name;
    std::string group;
  };
  struct Access {
    SnmpdGrant grant;
    std::string group;
    std::string model;
  };

  void take(const std::string& token, const Words& words, const std::string& place) {
    if (token == "includedir") return read_folder(words[1]);
    if (token == "includefile") static_cast<void>(read(words[1]));
    if (token == "agentxsocket") configuration_.agentx_socket = words[1];
    if (token == "agentxperms") return take_agentx_permissions(words, place);
    if (token == "view" && words.size() > 3) return take_view(words, place);
    if (token == "createuser") return take_new_user(words);
    if (token == "usmuser" && words.size() > 10) return take_user(words);
    if (token == "group" && words.size() > 3) names_.push_back({in_lower_case(words[2]), words[3], words[1]});
    if (token == "com2sec" || token == "com2sec6") return take_security_name(words);
    if (token == "access" && words.size() > 6) return take_access(words, place);
    take_grant(token, words, place);
  }
  // SOCKET [FOLDER [USER [GROUP]]]; a later line replaces what it has.
  void take_agentx_permissions(const Words& words, const std::string& place) {
    AgentxPermissions& taken = configuration_.agentx_permissions;
    taken.place = place;
    std::string* const parts[] = {&taken.socket, &taken.folder, &taken.user, &taken.group};
    for (std::size_t at = 1; at < std::min(words.size(), std::size(parts) + 1); ++at)
      *parts[at - 1] = words[at];
  }
  void take_grant(const std::string& token, const Words& words, const std::string& place) {
    if (is_other_grant(token)) {
      configuration_.grants.push_back({.place = place,
                                       .directive = words[0],
                                       .unknown = fmt::format("{}: {} is not judged", place, words[0])});
      return;
    }
    const bool is_short = token.starts_with("ro") || token.starts_with("rw");
    const bool has_types = token.starts_with("auth");
    if (!is_short && !has_types) return;
    const std::size_t first = has_types ? 2 : 1;
    if (words.size() <= first || (has_types && words[1].find("read") == std::string::npos)) return;
    const std::string kind = token.substr(is_short ? 2 : 4);
    if (kind == "community" || kind == "community6") return take_community(kind, words, first, place);
    if (kind == "user") take_user_grant(words, first, place);
  }
  // COMMUNITY [SOURCE [OID | -V VIEW [CONTEXT]]]. The first line for a community and all sources decides.
  void take_community(const std::string& kind, const Words& words, std::size_t first,
                      const std::string& place) {
    const std::string source = words.size() > first + 1 ? words[first + 1] : "default";
    if (is_placeholder(source, words[first])) return;
    if (is_shadowed(kind + " " + words[first], source)) return;
    SnmpdGrant grant{place, words[0]};
    grant.is_for_anyone = source == "default" && is_well_known(words[first]);
    add(limited(std::move(grant), words, first + 2), words, first + 2);
  }
  bool is_shadowed(const std::string& community, const std::string& source) {
    if (!communities_.insert(community + " " + source).second) return true;
    return source != "default" && communities_.contains(community + " default");
  }
  // [-s MODEL] USER [LEVEL [OID | -V VIEW [CONTEXT]]]
  void take_user_grant(const Words& words, std::size_t first, const std::string& place) {
    if (words[first] == "-s" && words.size() > first + 2) first += 2;
    SnmpdGrant grant{place, words[0], words[first], SecurityLevel::kAuthenticated};
    std::size_t next = first + 1;
    if (next < words.size() && is_level(words[next])) grant.level = level_of(words[next++]);
    add(limited(std::move(grant), words, next), words, next);
  }
  static SnmpdGrant limited(SnmpdGrant grant, const Words& words, std::size_t next) {
    if (next >= words.size()) return grant;
    if (words[next] != "-V") {
      grant.oid = parse_oid(words[next]);
      if (grant.oid.empty())
        grant.unknown = fmt::format("{}: {} limits it to {}: names depend on snmpd's MIB modules",
                                    grant.place, grant.directive, words[next]);
    } else if (next + 1 < words.size()) {
      grant.view = words[next + 1];
    }
    return grant;
  }
  // A line for another context does not show the default one.
  void add(SnmpdGrant grant, const Words& words, std::size_t next) {
    const std::size_t context = next + (grant.view.empty() ? 1 : 2);
    if (words.size() > context && !words[context].empty() && words[context] != "*") return;
    configuration_.grants.push_back(std::move(grant));
  }
  void take_view(const Words& words, const std::string& place) {
    const Oid oid = parse_oid(words[3]);
    if (oid.empty()) configuration_.unknown_views.insert(words[1]);
    configuration_.views[words[1]].push_back(
        {place, oid, words.size() > 4 ? mask_of(words[4]) : std::vector<bool>{}, words[2] == "included"});
  }
  // [-Cn CONTEXT] NAME SOURCE COMMUNITY
  void take_security_name(const Words& words) {
    if (words[1] != "-Cn" && words.size() > 3 && !is_placeholder(words[2], words[3]))
      security_names_.insert(words[1]);
  }
  // GROUP CONTEXT MODEL LEVEL PREFIX READ WRITE NOTIFY
  void take_access(const Words& words, const std::string& place) {
    if (!words[2].empty()) return;
    SnmpdGrant grant{place, words[0], "", level_of(words[4])};
    grant.view = words[6];
    accesses_.push_back({grant, words[1], in_lower_case(words[3])});
  }
  void combine(const Access& access) {
    for (const Name& name : names_) {
      if (name.group != access.group || (access.model != "any" && access.model != name.model)) continue;
      SnmpdGrant grant = access.grant;
      const bool is_user = name.model == kUserModel;
      if (is_user) grant.user = name.name;
      if (is_user || (grant.level == SecurityLevel::kNone && security_names_.contains(name.name)))
        configuration_.grants.push_back(grant);
    }
  }
  // [-e ENGINE] NAME [AUTHENTICATION PASSWORD [ENCRYPTION [PASSWORD]]]
  void take_new_user(const Words& words) {
    const std::size_t name = words[1] == "-e" ? 3 : 1;
    if (words.size() <= name) return;
    SecurityLevel level = words.size() > name + 1 ? SecurityLevel::kAuthenticated : SecurityLevel::kNone;
    const auto is_encryption = [](const std::string& word) {
      const std::string lower = in_lower_case(word);
      return lower.starts_with("aes") || lower.starts_with("des");
    };
    if (words.size() > name + 3 &&
        std::any_of(words.begin() + static_cast<std::ptrdiff_t>(name) + 3, words.end(), is_encryption))
      level = SecurityLevel::kEncrypted;
    configuration_.users[words[name]] = level;
  }
  // STATUS STORAGE ENGINE NAME SECURITYNAME CLONEFROM AUTHENTICATION KEY ENCRYPTION KEY PUBLIC
  void take_user(const Words& words) {
    SecurityLevel level = SecurityLevel::kEncrypted;
    if (words[9] == kNoEncryption) level = SecurityLevel::kAuthenticated;
    if (words[7] == kNoAuthentication) level = SecurityLevel::kNone;
    configuration_.users[persistent_name(words[5])] = level;
  }
  void read_folder(const std::string& folder) {
    configuration_.folders.insert(folder);
    std::error_code ignored;
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
      if (entry.path().extension() == ".conf") files.insert(entry.path());
    }
    for (const std::string& file : files) static_cast<void>(read(file));
  }

  SnmpdConfiguration& configuration_;
  std::set<std::string> seen_;
  std::set<std::string> communities_;
  std::set<std::string> security_names_;  // of communities
  std::vector<Name> names_;
  std::vector<Access> accesses_;
};

std::string persistent_file() {
  const char* const folder = std::getenv("SNMP_PERSISTENT_DIR");
  return std::string(folder == nullptr ? kPersistentFolder : folder) + "/snmpd.conf";
}

}  // namespace

SnmpdConfiguration read_snmpd_configuration(const std::string& path) {
  SnmpdConfiguration configuration;
  SnmpdReader reader(&configuration);
  if (!reader.read(path)) throw Failure(kExitFailed, path + ": " + std::strerror(errno));
  configuration.knows_users = reader.read(persistent_file()) || errno == ENOENT;
  reader.finish();
  return configuration;
}

}  // namespace cli::doctor
