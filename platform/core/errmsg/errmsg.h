// Error-message facility: messages for the system log, each from a record that names facility, category,
// severity and mnemonic. Used before trace buffers and debug flags exist, and where they are not enough.
#pragma once

#include <cstdint>
#include <string>

#include "platform/core/base/status.h"

struct ErrmsgRecord {
  const char* facility;  // "MPLS_VPN_MIB"
  const char* category;  // "OS"
  unsigned severity;     // syslog numbering, 3 is error
  const char* mnemonic;  // "ERR_INIT"
  const char* format;    // printf format of the message
  unsigned number;
};

inline constexpr std::uint64_t kErrmsgQuietTime = 600ULL * 1'000'000'000;  // nanoseconds

// Writes "%FACILITY-CATEGORY-SEVERITY-MNEMONIC : text" to the system log and, unless standard error is the
// journal, to standard error. A line that was written less than kErrmsgQuietTime ago is counted instead; when
// it is written again, "last message repeated N times" follows it. Any thread.
void errmsg_post(const ErrmsgRecord* record, ...);
// Opens the system log: identity (must remain valid), options and facility as for openlog(3). Earlier lines
// no longer count as repeated.
void errmsg_open(const char* identity, int options, int facility);
// While set, every post also appends a line to *lines. For tests; null ends it.
void errmsg_capture(std::string* lines);
