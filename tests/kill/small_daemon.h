// A process with the daemon's databases, queue of traps and order of writing and answering, and nothing else:
// it starts in a millisecond, so that thousands can be killed.
//
// Every item of the configuration below kSettings has a record in the checkpoint, as a VRF has its times: its
// key is the item's name, its data the item's value. No answer leaves before the checkpoint is on disk.
//
// Actions: "loaded" (the records that the start found: "KEY=VALUE ..."), "read KEY" (the record's value, 0
// without one), "save KEY VALUE" (of a record without a setting), "raise NUMBER COUNT" (traps with numbers
// from this one on).
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "platform/store/configuration/configuration.h"

namespace kill9 {

inline constexpr std::array<KvConfigOwner, 1> kOwners = {{{"user", 0}}};
inline const std::string kSettings = "/cfg/gl/setting/";
inline const std::string kTraps = "/oper/traps/";
inline constexpr const char* kTrapSubscriber = "snmp";
inline constexpr std::size_t kTrapQueue = 256;

// Serves until the process is killed. Directories are those of the environment.
[[noreturn]] void run_small_daemon();

}  // namespace kill9
