#include "cli/output/notices.h"

#include <fmt/ostream.h>

#include "cli/output/json_list.h"

namespace cli {

namespace {

void print(const Session& session, const char* kind, const char* start, const std::string& message) {
  if (session.json) {
    session.err << json_line({{kind, {{"message", message}}}}) << '\n';
  } else {
    fmt::print(session.err, "mplsvpn: {}{}\n", start, message);
  }
  session.err.flush();
}

}  // namespace

void warn(const Session& session, const std::string& message) {
  print(session, "warning", "warning: ", message);
}

void note(const Session& session, const std::string& message) {
  print(session, "note", "", message);
}

}  // namespace cli
