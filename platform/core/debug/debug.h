// Debug facility: a block of flags, registered under a name space, switched and watched from outside while
// the process runs.
//
// The block is served on the socket of the event manager it was registered with; there the command line lists
// the flags, switches them and watches prints. Prints go to standard error and
// to every watcher.
//
// Thread: flags are switched on the thread of that event manager and read without a lock from every thread
// (the enabled word is atomic). Any thread may call debug_printf, which never blocks on a slow watcher
// (prints that exceed a watcher's bounded queue are counted, and the count is sent to it) nor on a slow
// reader of standard error (standard_error.h).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

struct DebugFlag {
  std::atomic<std::uint32_t> enabled;  // non-zero while the operator has the flag on
  std::uint32_t index;
  std::uint32_t kind;
  std::uint32_t value;
  const char* command_name;
};

// Prepares flag `index` of the array that begins at `flags`. kStatusInvalid when `flag` is not flags + index
// or the command name is missing. Fault point "debug_init_event".
[[nodiscard]] Status debug_init_event(DebugFlag* flag, DebugFlag* flags, std::uint32_t index,
                                      std::uint32_t kind, const char* command_name, std::uint32_t value);
// Serves the array under the name space on the manager's socket. Flags that MPLS_VPN_MIB_DEBUG names (comma
// separated command names, or "all") are switched on. kStatusExists if a block is registered
// already. Any thread; debug_cleanup, too, before the manager is destroyed. Fault point "debug_register".
[[nodiscard]] Status debug_register(const char* name_space, DebugFlag* flags, std::uint32_t count,
                                    EventManager* manager);
// Ends the service of the name space and switches its flags off. kStatusNoSuchRow for an unknown name space.
[[nodiscard]] Status debug_cleanup(const char* name_space);

inline bool debug_enabled(const DebugFlag& flag) {
  return flag.enabled.load(std::memory_order_relaxed) != 0;
}
// Prints for the flag, whether or not it is on: callers check first. A line break is added if the text has
// none. Prints beyond kMostPrints (protocol.h) in a period are dropped; the first one after them is preceded
// by their number.
[[gnu::format(printf, 2, 3)]] void debug_printf(const DebugFlag& flag, const char* format, ...);
// Whether the prints of this period are used up: work that is done for its prints alone can be left out.
bool debug_prints_are_dropped();
// While set, no print is dropped, and each also appends a line to *lines. For tests; null ends it.
void debug_capture(std::string* lines);
