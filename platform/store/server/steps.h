// Answers that the server makes in steps (KvSteps in kvtree.h). Only for platform/store.
#pragma once

#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/store/server/server.h"

namespace kvtree {

// What is stored with the client between the steps.
struct AnswerInSteps : Unfinished {
  KvSteps steps;
  wire::Octets octets;  // of the answer, so far
};

// The client's unfinished answer; null without one.
template <typename Answer>
std::unique_ptr<Answer> take_unfinished(const wire::Connection* from) {
  if (from == nullptr || the_server()->unfinished.empty()) return nullptr;
  const auto stored = the_server()->unfinished.extract(from->id());
  // Of the same type: the same message is handled again.
  return std::unique_ptr<Answer>(stored.empty() ? nullptr : static_cast<Answer*>(stored.mapped().release()));
}

// When a step that begins now ends.
inline std::uint64_t step_end(const wire::Connection* from) {
  return (from == nullptr ? clock_monotonic() : the_server()->at_hand.time) + kKvStepTime;
}

// The client's unfinished answer, or a new one; its next step begins.
template <typename Answer>
std::unique_ptr<Answer> begin_step(const wire::Connection* from) {
  std::unique_ptr<Answer> answer = take_unfinished<Answer>(from);
  if (answer == nullptr) answer = std::make_unique<Answer>();
  answer->steps.end = step_end(from);
  return answer;
}

// Null without a client: the answer is then made at once.
inline KvSteps* steps_for(const wire::Connection* from, AnswerInSteps* answer) {
  return from == nullptr ? nullptr : &answer->steps;
}

// Whether the answer is continued when the client's message is handled again.
template <typename Answer>
bool is_postponed(Status status, wire::Connection* from, std::unique_ptr<Answer>* answer) {
  if (status != kStatusUnfinished || from == nullptr) return false;
  the_server()->unfinished.emplace(from->id(), std::move(*answer));
  from->repeat();
  return true;
}

}  // namespace kvtree
