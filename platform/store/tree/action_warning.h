// A contract with every process that shows the answers of actions.
#pragma once

#include <string_view>

// Before the last line of an answer: the change was made and may not be what the user wants, for the reason
// that follows.
inline constexpr std::string_view kKvActionWarning = "\nwarning: ";
