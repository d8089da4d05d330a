// What a start would read, without a start.
#pragma once

namespace daemon_host {

// Reads the settings and the source's file and prints what is valid, or an error with its place. Changes
// nothing, also while a daemon runs. Returns the exit status: that with which a start would end, or 1 if it
// would not follow the routing suite.
[[nodiscard]] int check_settings();

}  // namespace daemon_host
