// Names of files on the disk.
#pragma once

#include <string>

#include "platform/core/base/status.h"

// Names that were added to the directory or removed from it survive a power cut. kStatusOk, too, for a
// directory that this process may not read and for a file system without such an operation. Otherwise the
// system's error.
[[nodiscard]] Status synchronize_directory(const std::string& path);

// Renames the file and synchronizes the directory of the new name: whatever is written afterwards is not
// found without it after a power cut. The system's error.
[[nodiscard]] Status rename_durably(const std::string& from, const std::string& to);
