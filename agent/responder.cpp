// No state per variable: a range is read, answered and written before the next one is read. GETBULK finds the
// names from which a repetition continues in the response it has just written, so that its memory does not
// grow with the number of ranges. An error response contains no variables: those already written are removed.
//
// Everything is read-only. A TestSet is refused (notWritable), so no CommitSet should follow; if one arrives
// it fails, and an UndoSet has nothing to undo.
#include "agent/responder.h"

#include "agent/value_type.h"
#include "platform/core/base/clock.h"

namespace agent {
namespace {

using agentx::Bytes;
using agentx::Error;
using agentx::Header;
using agentx::PduType;
using agentx::Reader;
using agentx::SearchRange;
using agentx::ValueType;
using agentx::Writer;
using tables::Answer;
using tables::Variable;

// GETBULK stops repeating when its response has grown to this; a master's answer to a manager holds 64 KiB.
constexpr std::size_t kBulkEnough = 128U << 10U;

constexpr std::size_t kResponseErrorAt = agentx::kHeaderSize + 4;
constexpr std::size_t kResponseHead = agentx::kHeaderSize + 8;

void write_variable(const Variable& variable, Writer* writer) {
  writer->var_bind(value_type(variable.type), variable.object, variable.instance);
  if (mib::is_octet_string(variable.type)) {
    writer->octets(variable.cell.octets);
  } else {
    writer->number32(variable.cell.number);
  }
}

bool read_context(const Header& request, Reader* reader, bool* default_context) {
  *default_context = (request.flags & agentx::kFlagNonDefaultContext) == 0;
  Bytes context;
  return *default_context || reader->octets(&context);
}

std::uint16_t variable_number(std::size_t count) {
  return static_cast<std::uint16_t>(count & 0xffffU);
}

}  // namespace

void Responder::answer(const Header& request, Bytes payload, Writer* writer) {
  if (request.type == PduType::kCleanupSet) return;
  const std::size_t begin = writer->position();
  agentx::begin_response(writer, request, Error::kNone, 0);
  Reader reader(payload, (request.flags & agentx::kFlagNetworkByteOrder) != 0);
  const Outcome outcome = answer_body(request, &reader, writer);
  if (outcome.error != Error::kNone) {
    writer->truncate(begin + kResponseHead);
    writer->patch16(begin + kResponseErrorAt, static_cast<std::uint16_t>(outcome.error));
    writer->patch16(begin + kResponseErrorAt + 2, outcome.index);
  }
  writer->end();
}

Responder::Outcome Responder::answer_body(const Header& request, Reader* reader, Writer* writer) {
  bool default_context = true;
  if (!read_context(request, reader, &default_context)) return {Error::kParseError, 0};
  if (!default_context) return {Error::kUnsupportedContext, 0};
  switch (request.type) {
    case PduType::kGet:
      return answer_get(reader, writer);
    case PduType::kGetNext:
      want(*reader);
      return answer_next(SIZE_MAX, reader, writer);
    case PduType::kGetBulk:
      return answer_bulk(reader, writer);
    case PduType::kTestSet:
      return {Error::kNotWritable, 1};
    case PduType::kCommitSet:
      return {Error::kCommitFailed, 1};
    case PduType::kUndoSet:
      return {};
    default:
      return {Error::kParseError, 0};
  }
}

// Rows of other tables than the one that was waited for are older now, too.
bool Responder::waits() {
  if (!wait_ || !wait_()) return false;
  mib_->set_time(clock_monotonic());
  return true;
}

// What all ranges need is read together.
void Responder::want(Reader ranges) {
  Reader after_first = ranges;
  if (!after_first.skip_search_range() || after_first.at_end()) return;
  oid::Oid start;
  while (!ranges.at_end() && ranges.search_start(&start)) mib_->want(start.view());
}

Responder::Outcome Responder::answer_get(Reader* reader, Writer* writer) {
  want(*reader);
  for (std::size_t count = 1; !reader->at_end(); ++count) {
    SearchRange range;
    if (!reader->search_range(&range)) return {Error::kParseError, 0};
    Variable variable;
    Answer answer = Answer::kPending;
    do {
      answer = mib_->get(range.start.view(), &variable);
    } while (answer == Answer::kPending && waits());
    switch (answer) {
      case Answer::kValue:
        write_variable(variable, writer);
        break;
      case Answer::kNoSuchObject:
        writer->var_bind(ValueType::kNoSuchObject, range.start.view());
        break;
      case Answer::kNoSuchInstance:
        writer->var_bind(ValueType::kNoSuchInstance, range.start.view());
        break;
      case Answer::kEnd:
      case Answer::kFailed:
      case Answer::kPending:
        return {Error::kGenErr, variable_number(count)};
    }
  }
  return {};
}

// Writes the variable that follows, or endOfMibView with the name that the range begins with.
Error Responder::write_next(const SearchRange& range, Writer* writer, bool* end) {
  Variable variable;
  Answer answer = Answer::kPending;
  do {
    answer = mib_->next(range.start.view(), range.include, range.end.view(), &variable);
  } while (answer == Answer::kPending && waits());
  if (answer == Answer::kFailed || answer == Answer::kPending) return Error::kGenErr;
  *end = answer != Answer::kValue;
  if (*end) {
    writer->var_bind(ValueType::kEndOfMibView, range.start.view());
  } else {
    write_variable(variable, writer);
  }
  return Error::kNone;
}

// The variables that follow the first `most` ranges.
Responder::Outcome Responder::answer_next(std::size_t most, Reader* reader, Writer* writer) {
  for (std::size_t count = 1; count <= most && !reader->at_end(); ++count) {
    SearchRange range;
    if (!reader->search_range(&range)) return {Error::kParseError, 0};
    bool end = false;
    const Error error = write_next(range, writer, &end);
    if (error != Error::kNone) return {error, variable_number(count)};
  }
  return {};
}

// RFC 2741 section 7.2.3.3: the first non_repeaters ranges once, the others up to max_repetitions times.
Responder::Outcome Responder::answer_bulk(Reader* reader, Writer* writer) {
  std::uint16_t non_repeaters = 0;
  std::uint16_t max_repetitions = 0;
  if (!reader->number16(&non_repeaters) || !reader->number16(&max_repetitions))
    return {Error::kParseError, 0};
  want(*reader);
  const std::size_t begin = writer->position();
  const Outcome once = answer_next(non_repeaters, reader, writer);
  if (once.error != Error::kNone) return once;
  std::size_t previous = 0;  // where the repetition before this one begins; 0: none
  for (unsigned round = 0; round < max_repetitions && !reader->at_end(); ++round) {
    Outcome outcome;
    const bool more = repeat(*reader, &previous, writer, &outcome);
    if (outcome.error == Error::kGenErr) outcome.index = variable_number(non_repeaters + outcome.index);
    if (outcome.error != Error::kNone) return outcome;
    if (!more || writer->position() - begin > kBulkEnough) break;
  }
  return {};
}

// One repetition. False when every range has ended.
bool Responder::repeat(Reader ranges, std::size_t* previous, Writer* writer, Outcome* outcome) {
  const std::size_t begin = writer->position();
  std::size_t read_from = *previous;
  bool more = false;
  for (std::size_t count = 1; !ranges.at_end(); ++count) {
    SearchRange range;
    if (!ranges.search_range(&range)) {
      *outcome = {Error::kParseError, 0};
      return false;
    }
    bool end = false;
    if (read_from != 0) {
      agentx::Value last;
      Reader written(writer->written(read_from), true);
      if (!written.var_bind(&range.start, &last)) {
        *outcome = {Error::kProcessingError, 0};
        return false;
      }
      read_from = writer->position() - written.left();
      range.include = false;
      end = last.type == ValueType::kEndOfMibView;
    }
    Error error = Error::kNone;
    if (end) {
      writer->var_bind(ValueType::kEndOfMibView, range.start.view());
    } else {
      error = write_next(range, writer, &end);
    }
    if (error != Error::kNone) {
      *outcome = {error, variable_number(count)};
      return false;
    }
    more = more || !end;
  }
  *previous = begin;
  return more;
}

}  // namespace agent
