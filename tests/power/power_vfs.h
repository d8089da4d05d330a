// SQLite's file access with a simulated disk: while the object exists, every database, journal and log that
// this process opens is written to real files, as before, and its operations to the disk as well. Once power
// has failed, every operation fails.
//
// The files of the disk are those of one directory, whichever that is at the moment. When SQLite synchronizes
// a directory is observed, not assumed, and so is when the program itself does, renames or removes a file, or
// writes one whose name begins with kWrittenByTheProgram (mpls_wrap). One object at a time; the program may
// use one thread after the other.
#pragma once

#include <sqlite3.h>

#include "tests/power/simulated_disk.h"

namespace power {

inline constexpr const char* kWrittenByTheProgram = "traps";

class PowerVfs {
 public:
  explicit PowerVfs(SimulatedDisk* disk);
  ~PowerVfs();
  PowerVfs(const PowerVfs&) = delete;
  PowerVfs& operator=(const PowerVfs&) = delete;
};

}  // namespace power
