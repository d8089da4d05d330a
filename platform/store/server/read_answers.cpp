// Answers to the requests that read from providers.
//
// An answer that takes longer than a step is made in several, and what it has is stored with the client
// between them. A client has one such answer at most, because its messages are handled in order; the answer's
// size is checked after each step, so that what is stored is bounded as what is sent.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/server/steps.h"
#include "platform/store/tree/lists.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

bool read_flags(Reader* request, bool* structured) {
  const std::uint8_t flags = request->u8();
  *structured = (flags & kFlagStructured) != 0;
  return (flags & ~kFlagStructured) == 0;
}

bool read_bounded_request(Reader* request, bool* structured, std::uint32_t* maximum, std::string_view* path) {
  if (!read_flags(request, structured)) return false;
  *maximum = std::min(request->u32(), kKvMaxListItems);
  *path = request->text();
  return request->finished();
}

// --- Lists

struct ListRead : AnswerInSteps {
  ~ListRead() override {
    kvtree_list_free(reply.list);
    kvtree_datalist_free(reply.datalist);
  }
  KvListReply reply{};
  std::uint32_t count = 0;
};

void write_item(Writer* writer, const KvListItem& item) {
  writer->u32(item.kind);
  writer->text(item.key);
}

void write_item(Writer* writer, const KvDatalistItem& item) {
  writer->u32(item.kind);
  writer->text(item.key);
  writer->octets(item.value);
}

// Moves the items of a step to the answer. False if they are too many or too large for one.
template <typename List>
bool take_items(ListRead* read, List* list) {
  if (list == nullptr) return true;
  Writer writer(&read->octets);
  for (const auto& item : list->items) {
    write_item(&writer, item);
    if (++read->count > kKvMaxListItems || read->octets.size() > kMaxAnswer) return false;
  }
  list->items.clear();
  return true;
}

template <typename List>
bool answer_either(wire::Connection* from, Reader* request, wire::Octets* answer,
                   Status (*ask)(std::string_view, bool, KvListReply*), List* KvListReply::*list) {
  bool structured = false;
  std::uint32_t maximum = 0;
  std::string_view path;
  if (!read_bounded_request(request, &structured, &maximum, &path)) return false;
  auto read = begin_step<ListRead>(from);
  read->reply.max_items = maximum;
  read->reply.steps = steps_for(from, read.get());
  Status status = ask(path, structured, &read->reply);
  const bool has_items = status == kStatusOk || status == kStatusUnfinished;
  if (has_items && !take_items(read.get(), read->reply.*list)) status = kStatusMessageTooLarge;
  if (is_postponed(status, from, &read)) return true;
  answer_status(answer, status);
  if (status != kStatusOk) return true;
  Writer(answer).u32(read->count);
  answer->insert(answer->end(), read->octets.begin(), read->octets.end());
  return true;
}

// --- Walks

struct WalkRead : AnswerInSteps {
  RowWalk walk;
};

// The client's next walk reads again a row for which there is no room.
bool add_row(void* argument, const KvReply& row) {
  wire::Octets* const rows = &static_cast<WalkRead*>(argument)->octets;
  if (rows->size() + 2 * sizeof(std::uint64_t) + row.length > kMaxAnswer) return false;
  Writer(rows).octets({row.data, row.length});
  return true;
}

// --- Columns

struct ColumnRead : AnswerInSteps {
  ColumnReading reading;
};

bool read_column_request(Reader* request, KvColumnBatch* batch, std::string_view* path) {
  batch->max_rows = std::min(request->u32(), kKvMaxListItems);
  *path = request->text();
  batch->columns = request->octets();
  return request->finished() && batch->columns.size() <= kMaxColumns;
}

}  // namespace

bool answer_get(wire::Connection* from, Reader* request, wire::Octets* answer) {
  bool structured = false;
  if (!read_flags(request, &structured)) return false;
  const std::string_view path = request->text();
  if (!request->finished()) return false;
  // Most answers are complete after one step: only others have something on the heap.
  std::unique_ptr<AnswerInSteps> stored = take_unfinished<AnswerInSteps>(from);
  KvSteps first;
  KvSteps* const steps = stored == nullptr ? &first : &stored->steps;
  steps->end = step_end(from);
  KvReply reply{};
  reply.steps = from == nullptr ? nullptr : steps;
  Status status = kvtree_get(path, structured, &reply);
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> owned(reply.data, &std::free);
  if (status == kStatusUnfinished && stored == nullptr) {
    stored = std::make_unique<AnswerInSteps>();
    stored->steps = std::move(first);
  }
  if (is_postponed(status, from, &stored)) return true;
  if (status == kStatusOk && reply.length + 64 > kMaxAnswer) status = kStatusMessageTooLarge;
  if (status != kStatusOk) {
    answer_status(answer, status);
    return true;
  }
  const auto head = wire::encode_words(status, reply.kind, reply.length);
  const wire::OctetSpan record(reply.data, reply.length);
  if (from != nullptr) {  // copied once, to the client's output
    from->send(kGet | kAnswer, the_server()->at_hand.request, head, record);
    return true;
  }
  answer->assign(head.begin(), head.end());
  answer->insert(answer->end(), record.begin(), record.end());
  return true;
}

bool answer_list(wire::Connection* from, Reader* request, wire::Octets* answer) {
  return answer_either(from, request, answer, kvtree_list, &KvListReply::list);
}

bool answer_datalist(wire::Connection* from, Reader* request, wire::Octets* answer) {
  return answer_either(from, request, answer, kvtree_datalist, &KvListReply::datalist);
}

bool answer_walk(wire::Connection* from, Reader* request, wire::Octets* answer) {
  bool structured = false;
  std::uint32_t maximum = 0;
  std::string_view path;
  if (!read_bounded_request(request, &structured, &maximum, &path)) return false;
  auto read = begin_step<WalkRead>(from);
  read->walk.steps = steps_for(from, read.get());
  bool end = false;
  const Status status = walk_rows(&read->walk, path, structured, maximum, add_row, read.get(), &end);
  if (is_postponed(status, from, &read)) return true;
  answer_status(answer, status);
  if (status != kStatusOk) return true;
  Writer writer(answer);
  writer.u8(end ? 1 : 0);
  writer.u32(read->walk.rows);
  answer->insert(answer->end(), read->octets.begin(), read->octets.end());
  return true;
}

bool answer_columns(wire::Connection* from, Reader* request, wire::Octets* answer) {
  auto read = begin_step<ColumnRead>(from);
  KvColumnBatch* const batch = &read->reading.batch;
  std::string_view path;
  if (!read_column_request(request, batch, &path)) return false;
  batch->steps = read->reading.walk.steps = steps_for(from, read.get());
  const Status status = read_columns(&read->reading, path);
  if (is_postponed(status, from, &read)) return true;
  answer_status(answer, status);
  if (status != kStatusOk) return true;
  Writer writer(answer);
  writer.u8(batch->end ? 1 : 0);
  writer.u32(batch->rows);
  writer.octets(batch->octets);
  return true;
}

}  // namespace kvtree
