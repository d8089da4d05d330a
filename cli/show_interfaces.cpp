// "show interfaces": the VRF interface table in batches, printed as they come, so that memory does not grow
// with the table.
//
// A batch begins at the last row of the one before and drops it when it is still there: next reads answer the
// first row at or after a key, so rows that come and go in between neither repeat nor hide others, and the
// order of the keys stays the daemon's business.
#include <functional>

#include "cli/commands.h"
#include "cli/json_list.h"
#include "cli/names.h"
#include "cli/record.h"
#include "cli/table.h"
#include "platform/kvtree/kvtree.h"

namespace cli {

namespace {

constexpr std::uint32_t kBatch = 512;

using InterfaceRecord = Record<mpls_vpn_mib_interface>;

struct Key {
  std::string vrf;
  std::int32_t index = 0;
  bool operator==(const Key&) const = default;
};

std::string text_or_empty(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

Key key_of(const mpls_vpn_mib_interface& row) {
  return {text_or_empty(row.vrfName), row.ifConfIndex};
}

std::string next_path(const Key& key) {
  return std::string(kProviderPath) + "interface-next/" + kvtree_encode_text(key.vrf) + "/" +
         std::to_string(key.index);
}

// Where rows go to, and what happens after each batch.
struct Sink {
  std::function<void(const mpls_vpn_mib_interface&)> row;
  std::function<void()> batch_end;
};

class Walk {
 public:
  Walk(const Session& session, const std::string& vrf, Sink sink)
      : session_(session), vrf_(vrf), sink_(std::move(sink)), from_{vrf, 0} {}

  void run() {
    const auto client = connect_to_daemon(session_);
    while (!is_over_) {
      take(fetch(*client));
      sink_.batch_end();
    }
  }

 private:
  kvtree::WalkResult fetch(kvtree::Client& client) const {
    const std::string path = next_path(from_);
    kvtree::WalkResult result = client.walk(path, kBatch);
    if (result.status == kStatusNoSuchRow) return {kStatusOk, {}, true};
    if (result.status) throw request_failure(session_, path, result.status);
    return result;
  }

  void take(const kvtree::WalkResult& batch) {
    const Key before = from_;
    for (const kvtree::Octets& octets : batch.rows) {
      if (!is_over_) take_row(octets);
    }
    if (batch.end) is_over_ = true;
    if (!is_over_ && before == from_)
      throw Failure(kExitFailed, "the interface table does not go on after a row");
  }

  void take_row(const kvtree::Octets& octets) {
    const InterfaceRecord row(session_, next_path(from_), kMibInterfaceParcel, octets);
    const Key key = key_of(*row);
    if (has_last_ && key == from_) return;
    if (!vrf_.empty() && key.vrf != vrf_) {
      is_over_ = true;
      return;
    }
    sink_.row(*row);
    from_ = key;
    has_last_ = true;
  }

  const Session& session_;
  const std::string vrf_;
  Sink sink_;
  Key from_;               // where the next batch begins
  bool has_last_ = false;  // from_ is a row that was shown
  bool is_over_ = false;
};

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ",") + name;
  return text.empty() ? "-" : text;
}

Json row_json(const mpls_vpn_mib_interface& row) {
  return {{"vrfName", text_or_empty(row.vrfName)},
          {"ifConfIndex", row.ifConfIndex},
          {"name", text_or_empty(row.name)},
          {"vpnClassification", row.vpnClassification},
          {"vpnClassificationName", classification_name(row.vpnClassification)},
          {"protocol", row.protocol},
          {"protocolNames", protocol_names(row.protocol)},
          {"storageType", row.storageType},
          {"storageTypeName", storage_type_name(row.storageType)},
          {"rowStatus", row.rowStatus},
          {"rowStatusName", row_status_name(row.rowStatus)}};
}

void show_as_json(const Session& session, const std::string& vrf) {
  JsonList list(session.out);
  const auto show = [&list](const mpls_vpn_mib_interface& row) { list.add(row_json(row)); };
  Walk(session, vrf, {show, [] {}}).run();
  list.end();
}

void show_as_table(const Session& session, const std::string& vrf) {
  Table table(session.out,
              {{"VRF"}, {"INDEX", true}, {"INTERFACE"}, {"PROTOCOLS"}, {"CLASS"}, {"STORAGE"}, {"STATUS"}});
  const auto show = [&table](const mpls_vpn_mib_interface& row) {
    table.add({text_or_empty(row.vrfName), std::to_string(row.ifConfIndex), text_or_empty(row.name),
               joined(protocol_names(row.protocol)), classification_name(row.vpnClassification),
               storage_type_name(row.storageType), row_status_name(row.rowStatus)});
  };
  Walk(session, vrf, {show, [&table] { table.flush(); }}).run();
}

}  // namespace

void show_interfaces(const Session& session, const std::string& vrf) {
  session.json ? show_as_json(session, vrf) : show_as_table(session, vrf);
}

}  // namespace cli
