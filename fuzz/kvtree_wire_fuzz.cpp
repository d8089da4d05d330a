// Octets of a client into the data store's message handling, without a socket.
//
// The first octet chooses: 0 means that the rest is a stream, taken apart into frames as the server does; any
// other value is a message type and the rest its payload, so that the payload readers are reached without a
// guessed header. Every answer must be well-formed: a status and, for success, what the protocol says and
// nothing more.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "fuzz/support.h"
#include "platform/store/codec/value_codec.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/store.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/columns.h"

namespace {

using fuzz::require;

// A provider whose rows are "1" to "50", after "rows/<n>", and whose other answers are short.
void put(KvReply* reply, const std::string& text) {
  reply->kind = kKvKindRecord;
  reply->length = text.size();
  reply->data = static_cast<std::uint8_t*>(std::malloc(text.size() + 1));
  std::memcpy(reply->data, text.c_str(), text.size() + 1);
}

Status get_row(KvReply* reply, const RequestArgs* args) {
  const std::uint32_t row = kvtree_absent(args, 0) ? 1 : *args->arg[0].number;
  if (row == 0 || row > 50) return kStatusNoSuchRow;
  put(reply, std::to_string(row));
  return kStatusOk;
}

Status get_text(KvReply* reply, const RequestArgs* args) {
  if (kvtree_absent(args, 0)) return kStatusArgumentMissing;
  put(reply, args->arg[0].text);
  return kStatusOk;
}

Status list_items(KvListReply* reply, const RequestArgs*) {
  if (const Status status = kvtree_list_create(&reply->list)) return status;
  for (std::uint32_t i = 0; i < std::min(reply->max_items, 3U); ++i) {
    if (const Status status = kvtree_list_add(reply->list, "key", 3, 0)) return status;
  }
  return kStatusOk;
}

Status datalist_items(KvListReply* reply, const RequestArgs*) {
  if (const Status status = kvtree_datalist_create(&reply->datalist)) return status;
  return kvtree_datalist_add(reply->datalist, "key", 7, 0, "value", 5);
}

Status following(const KvReply* row, std::string* path) {
  const std::string text(reinterpret_cast<const char*>(row->data), row->length);
  *path = "rows/" + std::to_string(std::stoul(text) + 1);
  return kStatusOk;
}

const KvPathRow kPaths[] = {
    {"rows/<n>", {kKvModeNext, nullptr, get_row, nullptr, nullptr}},
    {"text/<s>/<n>/<ip4>/<ad>/<x>/<i>", {0, nullptr, get_text, list_items, datalist_items}},
};
const KvPathTable kTable{kPaths, 2};
const KvWalkRule kRules[] = {{"rows", following}};

// Columns with even numbers are numbers, the others octets.
constexpr std::uint8_t kKnownColumns = 8;

Status pack(const KvReply& row, KvColumnBatch* batch) {
  if (std::ranges::any_of(batch->columns, [](std::uint8_t each) { return each >= kKnownColumns; }))
    return kStatusInvalid;
  batch->packer.begin_row(&batch->octets);
  for (const std::uint8_t column : batch->columns) {
    if (column % 2 == 0) {
      batch->packer.number(row.data[0] * column);
    } else {
      batch->packer.octets({row.data, row.length});
    }
  }
  return kStatusOk;
}
constexpr KvColumnRule kColumnRules[] = {{"rows", pack}, {"text", pack}};

Status get(const KvRequest* request, KvReply* reply) {
  return kvtree_match_get(request, &kTable, reply);
}
Status list(const KvRequest* request, KvListReply* reply) {
  return kvtree_match_list(request, &kTable, reply);
}
Status datalist(const KvRequest* request, KvListReply* reply) {
  return kvtree_match_datalist(request, &kTable, reply);
}

Status echo(const KvActionContext& context, const std::vector<std::string>& words, std::string* text, void*) {
  if (context.may_change) std::abort();  // there is no peer with this permission
  for (const std::string& word : words) *text += word;
  return kStatusOk;
}

bool set_up() {
  KvConnection* connection = nullptr;
  require(kvtree_bind(&connection, "/oper/", kKvBindProvider) == kStatusOk);
  const KvProviderFunctions functions{get, list, datalist, kRules, 1, kColumnRules, 2};
  // The manager is only stored: nothing is posted here.
  auto* manager = reinterpret_cast<EventManager*>(&connection);
  require(kvtree_register_prov2(connection, "", manager, &functions, 0, 1) == kStatusOk);
  KvValue tuple;
  tuple.type = KvValueType::kTuple;
  tuple.tuple = {1, 2};
  require(kvtree_set("/cfg/tuple", tuple) == kStatusOk);
  require(kvtree_set("/cfg/none", {}) == kStatusOk);
  require(kvtree_register_action("echo", echo, nullptr) == kStatusOk);
  return true;
}

void check_items(wire::Reader* answer, bool with_values) {
  const std::uint32_t count = answer->u32();
  require(count <= kKvMaxListItems);
  for (std::uint32_t i = 0; i < count; ++i) {
    answer->u32();
    answer->text();
    if (with_values) answer->octets();
  }
}

void check_nodes(wire::Reader* answer) {
  const std::uint32_t count = answer->u32();
  require(count <= kKvMaxListItems);
  for (std::uint32_t i = 0; i < count; ++i) {
    answer->text();
    answer->text();
    KvValue value;
    require(kvtree::read_value(answer, &value));
  }
}

// As many rows as the answer says, of the columns of the request.
void check_columns(wire::Reader request, wire::Reader* answer) {
  request.u32();
  request.text();
  bool is_octets[kvtree::kMaxColumns] = {};
  const wire::OctetSpan columns = request.octets();
  for (std::size_t i = 0; i < columns.size(); ++i) is_octets[i] = columns[i] % 2 != 0;
  require(answer->u8() <= 1);
  const std::uint32_t rows = answer->u32();
  require(rows <= kKvMaxListItems);
  kvtree::ColumnUnpacker unpacker(answer->octets(), std::span(is_octets).first(columns.size()));
  for (std::uint32_t row = 0; row < rows && !columns.empty(); ++row) require(unpacker.next_row());
  require(unpacker.finished());
}

void check_success(const wire::Message& message, wire::Reader* answer) {
  switch (message.type) {
    case kvtree::kGet:
      answer->u32();
      answer->octets();
      break;
    case kvtree::kList:
    case kvtree::kDatalist:
      check_items(answer, message.type == kvtree::kDatalist);
      break;
    case kvtree::kWalk: {
      require(answer->u8() <= 1);
      const std::uint32_t rows = answer->u32();
      for (std::uint32_t i = 0; i < rows; ++i) answer->octets();
      break;
    }
    case kvtree::kColumns:
      check_columns(wire::Reader(message.payload), answer);
      break;
    case kvtree::kNodes:
      check_nodes(answer);
      break;
    case kvtree::kHistory:
      require(answer->u32() == 0);  // without permission there is no commit
      break;
    case kvtree::kConfirmation:
      require(answer->text().empty() && answer->text().empty());  // nor one that waits
      require(answer->u64() == 0);
      break;
    default:
      std::abort();  // changing and watching need a connection, and there are no other types
  }
}

void handle(const wire::Message& message) {
  wire::Octets payload;
  if (!kvtree::answer_message(nullptr, message, &payload)) return;
  require(payload.size() <= kvtree::kMaxAnswer + 64);
  wire::Reader answer(payload);
  const Status status = answer.u32();
  if (message.type == kvtree::kAction) {
    answer.text();
  } else if (message.type == kvtree::kCommit) {
    require(status == kStatusAccess);
    answer.text();  // id
    answer.text();  // user
    answer.text();  // error
  } else if (status == kStatusOk) {
    check_success(message, &answer);
  }
  require(answer.finished());
}

void handle_stream(wire::OctetSpan stream) {
  for (;;) {
    wire::Message message;
    std::size_t used = 0;
    if (wire::parse_frame(stream, wire::Limits{}.max_payload, &message, &used) != kStatusOk) return;
    require(used <= stream.size());
    handle(message);
    stream = stream.subspan(used);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = set_up();
  if (!ready || size == 0) return 0;
  // A copy of exactly its size, so that a sanitizer finds reads beyond its end.
  const wire::Octets input(data + 1, data + size);
  if (data[0] == 0) {
    handle_stream(input);
  } else {
    handle({data[0], 1, input});
  }
  return 0;
}
