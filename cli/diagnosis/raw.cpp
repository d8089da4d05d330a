// "get", "list" and "datalist": any path as the data store answers it, one request each. Records are printed
// by the description in the registry file, so that types this program was not built with are shown, too.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include "cli/commands.h"
#include "cli/diagnosis/raw_paths.h"
#include "cli/output/columns.h"
#include "cli/output/json_list.h"
#include "cli/output/notices.h"
#include "cli/output/row_writer.h"
#include "cli/output/table.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/parcel/parcel.h"

namespace cli {

namespace {

std::string whole_path(const std::string& path) {
  return path.starts_with('/') ? path : kMplsVpnPath + path;
}

Json record_json(const Session& session, const std::string& path, const kvtree::Octets& record) {
  std::string text;
  if (const Status status = parcel_to_json(record.data(), record.size(), &text)) {
    const std::string type = parcel_type_name(record.data(), record.size());
    throw Failure(kExitFailed,
                  fmt::format("{}: a record of type \"{}\" that {}/parcel.registry does not describe ({})",
                              path, type, session.run_directory, err_text(status)));
  }
  return Json::parse(text);
}

std::string indented(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

void show_items(const Session& session, const PathRequest& request, const std::string& path,
                const kvtree::ListResult& result, bool has_records) {
  if (result.status) throw request_failure(session, path, result.status);
  JsonList list(session.out);
  for (const kvtree::ListItem& item : result.items) {
    Json shown = {{"key", item.key}, {"kind", item.kind}};
    if (has_records) shown["record"] = record_json(session, path, item.record);
    if (session.json) {
      list.add(shown);
    } else {
      fmt::print(session.out, "{}\n", printable(item.key));
      if (has_records) fmt::print(session.out, "{}\n", indented(shown["record"]));
    }
  }
  if (session.json) list.end();
  // A list has no end mark of its own: as many items as asked for are most likely not all.
  if (result.items.size() < request.most) return;
  note(session, fmt::format("stopped after {} item{} (--max); there may be more", request.most,
                            request.most == 1 ? "" : "s"));
}

constexpr Column<RawPath> kPathColumns[] = {
    {"path", member_json<&RawPath::path>, {"PATH"}},
    {"contents", member_json<&RawPath::contents>, {"CONTENTS"}},
};

// What the command can show.
template <bool RawPath::*kIsFor>
void show_paths(const Session& session) {
  RowWriter<RawPath> writer(session, kPathColumns);
  for (const RawPath& each : raw_paths()) {
    if (each.*kIsFor) writer.add(each);
  }
  writer.end();
}

}  // namespace

void get_record(const Session& session, const PathRequest& request) {
  if (request.path.empty()) return show_paths<&RawPath::is_read>(session);
  const std::string path = whole_path(request.path);
  const kvtree::GetResult result = connect_to_daemon(session)->get(path, request.structured);
  if (result.status) throw request_failure(session, path, result.status);
  const Json json = record_json(session, path, result.record);
  session.out << (session.json ? json_line(json) : indented(json)) << '\n';
}

void get_list(const Session& session, const PathRequest& request) {
  if (request.path.empty()) return show_paths<&RawPath::is_listed>(session);
  const std::string path = whole_path(request.path);
  const auto result = connect_to_daemon(session)->list(path, request.most, request.structured);
  show_items(session, request, path, result, false);
}

void get_datalist(const Session& session, const PathRequest& request) {
  if (request.path.empty()) return show_paths<&RawPath::has_records>(session);
  const std::string path = whole_path(request.path);
  const auto result = connect_to_daemon(session)->datalist(path, request.most, request.structured);
  show_items(session, request, path, result, true);
}

}  // namespace cli
