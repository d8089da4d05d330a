// Between the protocol and the tables: each request PDU of a master agent becomes questions to the MIB, and
// the answers become one response PDU, written straight into the session's output (RFC 2741 section 7.2).
#pragma once

#include <functional>

#include "agent/agentx/pdu.h"
#include "agent/tables/mib.h"

namespace agent {

class Responder {
 public:
  // Waits for an answer of the daemon that is under way; false when there will be none in time.
  using Wait = std::function<bool()>;

  // The MIB must outlive it.
  explicit Responder(tables::Mib& mib, Wait wait = nullptr) : mib_(&mib), wait_(std::move(wait)) {}

  // Appends the response; the MIB's requests have begun. The payload is untrusted: it answers parseError for
  // one that cannot be decoded, and genErr for a variable for which the daemon has no answer. A CleanupSet
  // has no response.
  void answer(const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer);

 private:
  struct Outcome {
    agentx::Error error = agentx::Error::kNone;
    std::uint16_t index = 0;  // of the variable, from 1
  };

  Outcome answer_body(const agentx::Header& request, agentx::Reader* reader, agentx::Writer* writer);
  Outcome answer_get(agentx::Reader* reader, agentx::Writer* writer);
  Outcome answer_next(std::size_t most, agentx::Reader* reader, agentx::Writer* writer);
  Outcome answer_bulk(agentx::Reader* reader, agentx::Writer* writer);
  bool repeat(agentx::Reader ranges, std::size_t* previous, agentx::Writer* writer, Outcome* outcome);
  agentx::Error write_next(const agentx::SearchRange& range, agentx::Writer* writer, bool* end);

  void want(agentx::Reader ranges);
  bool waits();

  tables::Mib* mib_;
  Wait wait_;
};

}  // namespace agent
