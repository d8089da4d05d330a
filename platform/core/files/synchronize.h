// Directories on the disk.
#pragma once

#include <string>

#include "platform/core/base/status.h"

// Names that were added to the directory or removed from it survive a power cut. kStatusOk, too, for a
// directory that this process may not read and for a file system without such an operation. Otherwise the
// system's error.
[[nodiscard]] Status synchronize_directory(const std::string& path);
