// Texts as platform.yaml. An error names the file and has a reason; settings that are read have a source with
// the options that it requires.
#include <algorithm>

#include "daemon/settings.h"
#include "fuzz/support.h"
#include "platform/core/files/temporary_directory.h"

namespace {

using fuzz::require;

void check(const daemon_host::Settings& settings) {
  require(settings.source != nullptr);
  for (const daemon_host::SourceOption& option : settings.source->options) {
    require(!option.is_required || settings.options.contains(option.key));
  }
  for (const auto& [key, value] : settings.options) require(daemon_host::find_source_option(key) != nullptr);
  require(std::ranges::none_of(settings.frr_shell, &std::string::empty));
  require(!settings.frr_wanted || !settings.frr_shell.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory directory;
  const std::string file = directory.path() + "/platform.yaml";
  fuzz::write_file(file, fuzz::text_of({data, size}));
  daemon_host::Settings settings;
  std::string error;
  if (daemon_host::read_settings(directory.path(), &settings, &error)) {
    check(settings);
  } else {
    require(error.starts_with(file + ":") && !error.ends_with(": "));
    const char position = error[file.size() + 1];  // a line, or a blank and why the file cannot be read
    require(position != '0' && position != '-');
  }
  return 0;
}
