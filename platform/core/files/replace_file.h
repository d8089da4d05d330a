// A small file that is written as a whole.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/files/private_files.h"

// What the new content survives once it is written.
enum class Survives : std::uint8_t { kProcess, kPowerCut };

// Replaces the file's content completely or not at all: the text is written to PATH.new, which is then
// renamed. The file has that mode, whatever the umask is. A power cut may undo it, or leave an empty file,
// unless it is to survive one. Returns the system's error; PATH.new is removed then.
[[nodiscard]] Status replace_file(const std::string& path, std::string_view text,
                                  mode_t mode = kPrivateFileMode, Survives survives = Survives::kProcess);

// The first half of it, for a caller that renames the file itself: writes PATH.new.
[[nodiscard]] Status write_beside(const std::string& path, std::string_view text, mode_t mode,
                                  Survives survives);
inline std::string path_beside(const std::string& path) {
  return path + ".new";
}
