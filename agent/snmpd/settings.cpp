#include "agent/snmpd/settings.h"

#include <sys/un.h>

#include <array>
#include <optional>
#include <string_view>

#include "agent/snmpd/guard.h"
#include "agent/snmpd/netsnmp.h"
#include "platform/core/text/numbers.h"
#include "platform/store/client/client.h"

namespace snmpd {
namespace {

constexpr char kRunDirectory[] = "mplsVpnRunDirectory";
constexpr char kRowAge[] = "mplsVpnRowAge";

// No destructor: snmpd may release directives after the module's.
constinit std::array<char, sizeof(sockaddr_un::sun_path)> the_run_directory{};  // empty: not set
constinit std::optional<std::uint32_t> the_row_age;                             // milliseconds

// The one word of the line. Empty without one, or with more.
std::string_view only_word(const char* line, std::span<char> word) {
  const char* const rest = copy_nword_const(line, word.data(), static_cast<int>(word.size()));
  return rest == nullptr ? std::string_view(word.data()) : std::string_view();
}

void set_run_directory(const char*, const char* line) {
  guarded(kRunDirectory, "the line is ignored", [line] {
    std::array<char, 512> word{};
    const std::string_view path = only_word(line, word);
    if (!path.starts_with('/'))
      return config_perror("mplsVpnRunDirectory needs one absolute path; it is ignored");
    if (kvtree::Client::socket_in(std::string(path)).size() >= the_run_directory.size())
      return config_perror("mplsVpnRunDirectory: the path is too long for a socket in it; it is ignored");
    path.copy(the_run_directory.data(), path.size());
    the_run_directory[path.size()] = 0;
  });
}

void set_row_age(const char*, const char* line) {
  guarded(kRowAge, "the line is ignored", [line] {
    std::array<char, 32> word{};
    const auto age = text::parse_number(only_word(line, word), tables::kMostRowAgeMs);
    if (!age) return config_perror("mplsVpnRowAge needs a number of milliseconds, 0 to 60000; it is ignored");
    the_row_age = age;
  });
}

}  // namespace

void register_directives() {
  snmpd_register_const_config_handler(
      kRunDirectory, set_run_directory, [] { the_run_directory.front() = 0; }, "PATH");
  snmpd_register_const_config_handler(
      kRowAge, set_row_age, [] { the_row_age.reset(); }, "MILLISECONDS");
}

void unregister_directives() {
  snmpd_unregister_config_handler(kRunDirectory);
  snmpd_unregister_config_handler(kRowAge);
}

Settings current_settings() {
  const std::string_view run_directory = the_run_directory.data();
  Settings settings;
  settings.daemon_socket = run_directory.empty() ? kvtree::Client::default_socket()
                                                 : kvtree::Client::socket_in(std::string(run_directory));
  if (the_row_age) settings.row_age_ns = *the_row_age * kNanosecondsPerMillisecond;
  return settings;
}

}  // namespace snmpd
