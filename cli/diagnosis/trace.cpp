// "trace": the daemon's trace buffers, read from their files, whether or not it runs.
#include "platform/core/trace/trace.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>

#include "cli/commands.h"
#include "cli/output/notices.h"
#include "cli/output/row_writer.h"
#include "cli/words/known_words.h"
#include "platform/core/base/clock.h"

namespace cli {

namespace {

constexpr char kUsualPrefix[] = "mpls_vpn/";

// UTC with microseconds: "2026-01-02T03:04:05.000006Z".
std::string time_text(std::uint64_t stamp) {
  const auto seconds = static_cast<std::time_t>(stamp / kNanosecondsPerSecond);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(seconds),
                     stamp % kNanosecondsPerSecond / 1000);
}

void check_readable(const std::string& path, int mode) {
  if (access(path.c_str(), mode) == 0 || errno != EACCES) return;
  throw not_permitted(path);
}

// A directory can be readable while its files are not.
void check_buffers_readable(const std::string& directory) {
  std::error_code none;
  for (const auto& file : std::filesystem::directory_iterator(directory, none))
    check_readable(file.path().string(), R_OK);
}

std::vector<TraceEntry> read_buffer(const Session& session, const std::string& name) {
  std::vector<TraceEntry> entries;
  if (const Status status = trace_read(session.run_directory, name, &entries)) {
    throw Failure(status == kStatusAccess ? kExitNoRight : kExitFailed,
                  fmt::format("trace buffer {}: {}", name, err_text(status)));
  }
  return entries;
}

struct BufferRow {
  std::string name;
  std::size_t entries;
  std::uint64_t last;  // the stamp; 0 without entries
};
Json last_json(const BufferRow& row) {
  return row.last == 0 ? Json(nullptr) : Json(row.last / kNanosecondsPerSecond);
}
Json last_text_json(const BufferRow& row) {
  return row.last == 0 ? Json(nullptr) : Json(time_text(row.last));
}
std::string last_text(const BufferRow& row) {
  return row.last == 0 ? "" : time_text(row.last);
}
constexpr Column<BufferRow> kBufferColumns[] = {
    {"buffer", member_json<&BufferRow::name>, {"BUFFER"}},
    {"entries", member_json<&BufferRow::entries>, number("ENTRIES")},
    {"last", last_json, {"LAST"}, last_text},
    {"lastText", last_text_json},
};

void list_buffers(const Session& session, const std::vector<std::string>& names) {
  RowWriter<BufferRow> writer(session, kBufferColumns);
  for (const std::string& name : names) {
    const std::vector<TraceEntry> entries = read_buffer(session, name);
    writer.add({name, entries.size(), entries.empty() ? 0 : entries.back().stamp});
  }
  writer.end();
}

// "prov" is short for "mpls_vpn/prov", and "pr" for "prov".
std::string whole_name(const std::vector<std::string>& names, const std::string& buffer) {
  if (std::find(names.begin(), names.end(), buffer) != names.end()) return buffer;
  std::vector<std::string> known = names;
  if (!buffer.starts_with(kUsualPrefix)) {
    for (std::string& name : known)
      if (name.starts_with(kUsualPrefix)) name.erase(0, std::string_view(kUsualPrefix).size());
  }
  const KnownWord meant = find_known("trace buffer", buffer, known);
  if (!meant.error.empty()) throw Failure(kExitFailed, meant.error);
  const auto at = std::find(known.begin(), known.end(), meant.word) - known.begin();
  return names.at(static_cast<std::size_t>(at));
}

Json entry_json(const TraceEntry& entry) {
  return {{"sequence", entry.sequence},
          {"stamp", entry.stamp},
          {"time", entry.stamp / kNanosecondsPerSecond},
          {"timeText", time_text(entry.stamp)},
          {"thread", entry.thread},
          {"record", entry.record},
          {"code", entry.code},
          {"codeText", err_text(entry.code)},
          {"text", entry.text}};
}

void print_entry(std::ostream& out, const TraceEntry& entry) {
  const std::string code = entry.code == kStatusOk ? "" : fmt::format(" [{}]", err_text(entry.code));
  fmt::print(out, "{} {} {} {}{}\n", time_text(entry.stamp), entry.thread, entry.record,
             printable(entry.text), code);
}

void show_entries(const Session& session, const std::vector<TraceEntry>& entries, std::size_t first) {
  JsonList list(session.out);
  for (std::size_t at = first; at < entries.size(); ++at) {
    session.json ? list.add(entry_json(entries[at])) : print_entry(session.out, entries[at]);
  }
  if (session.json) list.end();
}

}  // namespace

void trace(const Session& session, const TraceRequest& request) {
  const std::string directory = session.run_directory + "/trace";
  check_readable(directory, R_OK | X_OK);
  check_buffers_readable(directory);
  const std::vector<std::string> names = trace_names(session.run_directory);
  if (names.empty())
    throw Failure(kExitFailed, "there are no trace buffers in " + session.run_directory +
                                   "; --run-dir sets the daemon's run directory");
  if (request.buffer.empty()) {
    list_buffers(session, names);
    return;
  }
  const std::string name = whole_name(names, request.buffer);
  const std::vector<TraceEntry> entries = read_buffer(session, name);
  if (entries.empty() && !session.json) note(session, fmt::format("trace buffer {} is empty", name));
  const bool is_cut = request.last != 0 && request.last < entries.size();
  show_entries(session, entries, is_cut ? entries.size() - request.last : 0);
}

}  // namespace cli
