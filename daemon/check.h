// What a start would read, without a start.
#pragma once

namespace daemon_host {

// Reads the settings and the source's file and prints what is valid, or an error with its place. Changes
// nothing, also while a daemon runs. Returns the exit status: 0, or 1 for an error.
[[nodiscard]] int check_settings();

}  // namespace daemon_host
