// Answers to the requests that run an action.
#include <string>
#include <string_view>
#include <vector>

#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/server/steps.h"
#include "platform/store/tree/actions.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

void write_action_result(wire::Octets* answer, Status status, const std::string& text) {
  const bool fits = text.size() + 64 <= kMaxAnswer;
  Writer writer(answer);
  writer.u32(fits ? status : kStatusMessageTooLarge);
  writer.text(fits ? std::string_view(text) : std::string_view());
}

// The client is held before the action runs, because the action may end within its call.
Status run_action(wire::Connection& from, const std::vector<std::string>& words, std::string* text) {
  if (from.role() == wire::Role::kAgent) return kStatusAccess;
  auto unfinished = begin_step<AnswerInSteps>(&from);
  const LaterAnswer later = the_server()->answer_later(from);
  const KvActionEnd end = [later](Status status, const std::string& result) {
    wire::Octets payload;
    write_action_result(&payload, status, result);
    later.send(payload);
  };
  const KvActionContext context{from.may_change(), end, &unfinished->steps};
  const Status status = kvtree_run_action(context, words, text);
  if (status != kStatusInProgress) from.release();
  static_cast<void>(is_postponed(status, &from, &unfinished));
  return status;
}

}  // namespace

// Without an answer if the action is in progress or unfinished.
bool answer_action(wire::Connection* from, Reader* request, wire::Octets* answer) {
  const std::size_t count = request->u16();
  if (count > kMaxActionWords) return false;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < count && request->ok(); ++i) words.emplace_back(request->text());
  if (!request->finished()) return false;
  std::string text;
  const Status status =
      from == nullptr ? kvtree_run_action({false}, words, &text) : run_action(*from, words, &text);
  const bool has_ended = status != kStatusInProgress && status != kStatusUnfinished;
  if (has_ended) write_action_result(answer, status, text);
  return true;
}

}  // namespace kvtree
