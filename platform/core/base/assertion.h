// Broken invariants: the message is written to standard error and the process aborts.
#pragma once

// Prints "FILE: LINE CONDITION -- assertion failed" and aborts.
[[noreturn]] void assertion_failed(const char* file, int line, const char* condition);
