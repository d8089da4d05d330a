// Command lines of mplsvpn, while no daemon is running, and files of configuration edits.
//
// The first octet chooses: words, each but the last ended by a zero octet, or the text of a file. A command
// that fails says why and has one of the documented statuses; edits that are read are the same when they are
// written and read again.
#include <sstream>

#include "cli/command_line.h"
#include "cli/config/config_edits.h"
#include "fuzz/support.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/text/words.h"

namespace {

using fuzz::require;

// Files that the user names are not part of the input.
bool names_a_file(const std::string& word) {
  return word == "load" || word.find('/') != std::string::npos || word.starts_with("--run");
}

void run(const std::string& input) {
  static const TestRunDirectory directory;
  setenv("XDG_STATE_HOME", directory.path().c_str(), 1);
  std::vector<std::string> words;
  for (const std::string_view word : text::split(input, '\0')) words.emplace_back(word);
  if (std::any_of(words.begin(), words.end(), names_a_file)) return;
  std::ostringstream out;
  std::ostringstream err;
  const int status = cli::run(words, out, err);
  require(status >= cli::kExitOk && status <= cli::kExitNoDaemon);
  require(status == cli::kExitOk || !err.str().empty());
}

void read_edits(const std::string& text) {
  std::vector<cli::ConfigEdit> edits;
  try {
    edits = cli::parse_edits(text, "file");
  } catch (const cli::Failure& failure) {
    return require(*failure.what() != '\0');
  }
  std::string written;
  for (const cli::ConfigEdit& edit : edits) written += cli::edit_line(edit) + "\n";
  const std::vector<cli::ConfigEdit> again = cli::parse_edits(written, "again");
  require(again.size() == edits.size());
  for (std::size_t i = 0; i < edits.size(); ++i) {
    require(again[i].verb == edits[i].verb && again[i].words == edits[i].words);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  if ((fuzz::take_octet(&input) & 1U) != 0) {
    read_edits(fuzz::text_of(input));
  } else {
    run(fuzz::text_of(input));
  }
  return 0;
}
