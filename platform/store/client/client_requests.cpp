// A client's requests to providers and actions. A call sends one message and usually needs one read.
#include "platform/store/client/client.h"

#include "platform/core/files/directories.h"
#include "platform/store/client/client_connection.h"

namespace kvtree {

namespace {

using std::chrono::milliseconds;

constexpr char kMainManager[] = "/dev/mpls/vpn/main";

std::uint8_t flags(bool structured) {
  return structured ? kFlagStructured : std::uint8_t{0};
}

bool read_item(wire::Reader* reader, ListItem* item) {
  item->kind = reader->u32();
  item->key = reader->text();
  return reader->ok();
}

bool read_item_with_record(wire::Reader* reader, ListItem* item) {
  if (!read_item(reader, item)) return false;
  item->record = to_octets(reader->octets());
  return reader->ok();
}

ListResult list_items(Client::Connection* connection, std::uint16_t type, std::string_view path,
                      std::uint32_t max_items, bool structured) {
  ListResult result;
  wire::Writer writer = connection->begin(type);
  writer.u8(flags(structured));
  writer.u32(max_items);
  writer.text(path);
  result.status =
      connection->ask_list(type, &result.items, type == kDatalist ? read_item_with_record : read_item);
  return result;
}

}  // namespace

Client::Client(std::string socket_path, milliseconds timeout) : connection_(std::make_unique<Connection>()) {
  connection_->path = std::move(socket_path);
  connection_->timeout = timeout;
}

Client::~Client() = default;

std::string Client::socket_in(const std::string& run_directory) {
  return event_manager_socket(kMainManager, run_directory);
}

std::string Client::default_socket() {
  return socket_in(run_directory());
}

Status Client::connect() {
  connection_->pending.clear();
  connection_->plain.clear();
  return connection_->socket.connect(connection_->path, connection_->timeout);
}

void Client::close() {
  connection_->socket.close();
}
bool Client::connected() const {
  return connection_->socket.connected();
}
int Client::fd() const {
  return connection_->socket.fd();
}

GetResult Client::get(std::string_view path, bool structured) {
  GetResult result;
  wire::Writer writer = connection_->begin(kGet);
  writer.u8(flags(structured));
  writer.text(path);
  wire::Reader reader;
  result.status = connection_->ask(kGet, &reader);
  if (result.status != kStatusOk) return result;
  reader.u32();  // the kind: always an encoded record
  result.record = to_octets(reader.octets());
  if (!reader.finished()) {
    result.record.clear();
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

Status Client::begin_get(std::string_view path) {
  wire::Writer writer = connection_->begin(kGet);
  writer.u8(flags(false));
  writer.text(path);
  return connection_->send();
}

Status Client::end_get() {
  wire::Reader reader;
  if (const Status status = connection_->receive(kGet, milliseconds(0), &reader)) return status;
  const Status status = reader.u32();
  return reader.ok() ? status : connection_->fail(kStatusBadMessage);
}

ListResult Client::list(std::string_view path, std::uint32_t max_items, bool structured) {
  return list_items(connection_.get(), kList, path, max_items, structured);
}

ListResult Client::datalist(std::string_view path, std::uint32_t max_items, bool structured) {
  return list_items(connection_.get(), kDatalist, path, max_items, structured);
}

WalkResult Client::walk(std::string_view path, std::uint32_t max_rows, bool structured) {
  WalkResult result;
  wire::Writer writer = connection_->begin(kWalk);
  writer.u8(flags(structured));
  writer.u32(max_rows);
  writer.text(path);
  wire::Reader reader;
  result.status = connection_->ask(kWalk, &reader);
  if (result.status != kStatusOk) return result;
  result.end = reader.u8() != 0;
  const std::uint32_t count = reader.u32();
  for (std::uint32_t i = 0; i < count && reader.ok(); ++i) result.rows.push_back(to_octets(reader.octets()));
  if (!reader.finished()) {
    result.rows.clear();
    result.end = false;
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

ActionResult Client::action(const std::vector<std::string>& words) {
  ActionResult result;
  if (words.size() > kMaxActionWords) {
    result.status = kStatusMessageTooLarge;
    return result;
  }
  wire::Writer writer = connection_->begin(kAction);
  writer.u16(static_cast<std::uint16_t>(words.size()));
  for (const std::string& word : words) writer.text(word);
  wire::Reader reader;
  result.status = connection_->exchange(kAction, &reader);
  if (result.status != kStatusOk) return result;
  result.status = reader.u32();
  result.text = reader.text();
  if (!reader.finished()) {
    result.text.clear();
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

}  // namespace kvtree
