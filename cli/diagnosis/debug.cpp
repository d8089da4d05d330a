// "debug": the daemon's debug flags, over the socket of its debug event manager.
#include "platform/core/debug/debug_client.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <chrono>

#include "cli/commands.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/words/known_words.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kAllAreas[] = "all";
constexpr char kUsage[] = "mplsvpn debug [list | watch | AREA on | AREA off | all on | all off]";

void check(const Session& session, const std::string& what, Status status) {
  if (status) throw request_failure(session, what, status);
}

constexpr Column<DebugFlagState> kFlagColumns[] = {
    {"area", member_json<&DebugFlagState::name>, {"AREA"}},
    {"on",
     member_json<&DebugFlagState::on>,
     {"STATE"},
     [](const DebugFlagState& flag) -> std::string { return flag.on ? "on" : "off"; }},
    {"nameSpace", member_json<&DebugFlagState::name_space>, {"NAME SPACE"}},
};

void list_flags(const Session& session, DebugClient& client) {
  std::vector<DebugFlagState> flags;
  check(session, "debug list", client.list(&flags));
  RowWriter<DebugFlagState> writer(session, kFlagColumns);
  for (const DebugFlagState& flag : flags) writer.add(flag);
  writer.end();
}

// Also of an abbreviation. "all" means each of them.
std::string whole_area(const Session& session, DebugClient& client, const std::string& area) {
  std::vector<DebugFlagState> flags;
  check(session, "debug list", client.list(&flags));
  std::vector<std::string> areas = {kAllAreas};
  for (const DebugFlagState& flag : flags) areas.push_back(flag.name);
  const KnownWord known = find_known("debug area", area, areas);
  if (!known.error.empty()) throw Failure(kExitFailed, known.error);
  return known.word;
}

void switch_flag(const Session& session, DebugClient& client, const std::string& named, bool on) {
  const std::string area = whole_area(session, client, named);
  const Status status = client.set(area, on);
  if (status == kStatusAccess) throw no_right("switch debug areas");
  check(session, "debug " + area, status);
  if (session.json) {
    session.out << json_line({{"area", area}, {"on", on}}) << '\n';
  } else {
    fmt::print(session.out, "{} is {}\n", printable(area), on ? "on" : "off");
  }
}

void print_line(const Session& session, const DebugLine& line) {
  if (session.json) {
    session.out << json_line({{"area", line.flag}, {"text", line.text}, {"dropped", line.dropped}}) << '\n';
  } else {
    if (line.dropped != 0) fmt::print(session.out, "... {} prints missed\n", line.dropped);
    fmt::print(session.out, "{}: {}\n", printable(line.flag), printable(line.text));
  }
  session.out.flush();
}

void watch_prints(const Session& session, const DebugRequest& request, DebugClient& client) {
  session.out.flush();
  const Clock::time_point started = Clock::now();
  std::uint64_t prints = 0;
  while (request.most_prints == 0 || prints < request.most_prints) {
    const auto wait = next_wait(request.seconds, started);
    if (wait.count() == 0) return;
    DebugLine line;
    const Status status = client.next_line(wait, &line);
    if (status == kStatusTimedOut) continue;
    check(session, "debug watch", status);
    print_line(session, line);
    ++prints;
  }
}

enum class Verb { kList, kWatch, kOn, kOff };

Verb verb_of(const std::vector<std::string>& words) {
  if (words.empty()) return Verb::kList;
  if (words.size() == 1) {
    const KnownWord known = find_known("word", words[0], {"list", "watch"});
    if (known.error.empty()) return known.word == "list" ? Verb::kList : Verb::kWatch;
    throw Failure(kExitUsage, text::continued(known.error, fmt::format("usage: {}", kUsage)));
  }
  const KnownWord known = find_known("word", words[1], {"on", "off"});
  if (known.error.empty()) return known.word == "on" ? Verb::kOn : Verb::kOff;
  throw Failure(kExitUsage, text::continued(known.error, fmt::format("usage: {}", kUsage)));
}

}  // namespace

void debug(const Session& session, const DebugRequest& request) {
  const Verb verb = verb_of(request.words);
  const bool watches = verb == Verb::kWatch || request.watch;
  DebugClient client(session.debug_socket, session.timeout);
  if (const Status status = client.connect()) throw no_daemon(session.debug_socket, status);
  if (watches) check(session, "debug watch", client.watch());  // before switching, so that no print is missed
  if (verb == Verb::kList && !watches) list_flags(session, client);
  if (verb == Verb::kOn || verb == Verb::kOff)
    switch_flag(session, client, request.words[0], verb == Verb::kOn);
  if (watches) watch_prints(session, request, client);
}

}  // namespace cli
