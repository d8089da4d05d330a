// GETBULK: net-snmp has prepared as many variables as a request may be repeated. After each value its helper
// moves the request to the next variable, whose type ASN_PRIV_RETRY then asks for the next value. A request
// whose variable remains ASN_NULL is passed on to what follows this module's subtree.
#include "agent/snmpd/requests.h"

#include <algorithm>

#include "agent/snmpd/variable.h"
#include "platform/core/base/clock.h"

namespace snmpd {
namespace {

using tables::Answer;
using tables::Variable;

void set_value(netsnmp_variable_list* variable, const Variable& found) {
  const std::uint8_t type = value_type(found.type);
  if (type == ASN_OCTET_STR) {
    snmp_set_var_typed_value(variable, type, found.cell.octets.data(), found.cell.octets.size());
  } else {
    snmp_set_var_typed_integer(variable, type, number_value(type, found.cell.number));
  }
}

void set_name(netsnmp_variable_list* variable, const Variable& found) {
  const LongName name(found.object, found.instance);
  snmp_set_var_objid(variable, name.data(), name.size());
}

oid::Oid joined(const Variable& variable) {
  oid::Oid name(variable.object);
  name.append(variable.instance);
  return name;
}

oid::Oid name_of(const netsnmp_request_info* request) {
  return short_name(request->requestvb->name, request->requestvb->name_length);
}

// Moves the request to its next repetition. False if it has none.
bool repeat(netsnmp_request_info* request) {
  netsnmp_request_info* const following = request->next;
  request->next = nullptr;
  netsnmp_bulk_to_next_fix_requests(request);
  request->next = following;
  return request->requestvb->type == ASN_PRIV_RETRY;
}

// True when the manager may see the variable, which has its name. snmpd verifies this itself after the call,
// but of a repeated request not every repetition.
bool is_visible(const netsnmp_agent_request_info* info, netsnmp_variable_list* variable,
                const Variable& found) {
  return in_a_view(variable->name, &variable->name_length, info->asp->pdu, value_type(found.type)) ==
         VACM_SUCCESS;
}

// The part of the instance that is the VRF's name: its length, then its octets.
oid::View vrf_of(const Variable& found) {
  const std::size_t size = found.instance.empty() ? 0 : std::size_t{1} + found.instance.front();
  return found.instance.first(std::min(size, found.instance.size()));
}

// From where to continue after a variable that the manager may not see: the end of its column, or of its VRF
// in it, if all of that is hidden. A VRF may have a million rows.
oid::Oid end_of_hidden(const netsnmp_agent_request_info* info, const Variable& found) {
  for (const oid::View instance : {oid::View(), vrf_of(found)}) {
    LongName subtree(found.object, instance);
    if (netsnmp_acm_check_subtree(info->asp->pdu, subtree.data(), subtree.size()) != VACM_NOTINVIEW) continue;
    oid::Oid end(found.object);
    end.append(instance);
    end.append(UINT32_MAX);
    return end;
  }
  return joined(found);
}

// The answer to a GETNEXT that fails has the names of the request, not that of a variable that the manager
// may not see.
void fail(netsnmp_agent_request_info* info, netsnmp_request_info* request) {
  const netsnmp_pdu* const asked = info->asp->orig_pdu;
  const netsnmp_variable_list* variable = asked == nullptr ? nullptr : asked->variables;
  for (int place = 1; variable != nullptr && place < request->index; ++place)
    variable = variable->next_variable;
  if (info->mode == MODE_GETNEXT && variable != nullptr)
    snmp_set_var_objid(request->requestvb, variable->name, variable->name_length);
  netsnmp_set_request_error(info, request, SNMP_ERR_GENERR);
}

Peer peer_of(netsnmp_session* session) {
  Peer peer;
  void* const pointer = snmp_sess_pointer(session);
  const netsnmp_transport* const transport = pointer == nullptr ? nullptr : snmp_sess_transport(pointer);
  socklen_t size = sizeof peer.address;
  if (transport != nullptr) getpeername(transport->sock, reinterpret_cast<sockaddr*>(&peer.address), &size);
  return peer;
}

// snmpd keeps a PDU whose connection has ended, and would send its answer through the session, which is
// freed.
bool drop_without_session(netsnmp_agent_session* pdu, const Peer& peer) {
  if (snmp_sess_pointer(pdu->session) != nullptr && peer_of(pdu->session) == peer) return false;
  netsnmp_remove_from_delegated(pdu);
  netsnmp_remove_and_free_agent_snmp_session(pdu);
  return true;
}

}  // namespace

void Requests::want(netsnmp_request_info* requests) {
  for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
    if (request->processed == 0) mib_->want(name_of(request).view());
  }
}

void Requests::answer(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  if (spare_.empty()) spare_.emplace_back();  // before any is delegated, so that nothing fails afterwards
  const std::uint64_t number = mib_->begin_requests(clock_monotonic());
  want(requests);
  bool waits = false;
  for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
    if (request->processed != 0 || answer_one(info->mode, info, request)) continue;
    if (waiting_.size() >= kMaxWaiting) {
      fail(info, request);
      continue;
    }
    request->delegated = REQUEST_IS_DELEGATED;
    waits = true;
  }
  if (!waits) return;
  spare_.front() = {netsnmp_create_delegated_cache(handler, registration, info, requests, nullptr),
                    clock_monotonic() + kLongestWait, number, peer_of(info->asp->session)};
  waiting_.splice(waiting_.end(), spare_);
}

void Requests::fail_all(netsnmp_agent_request_info* info, netsnmp_request_info* requests) noexcept {
  for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
    request->delegated = REQUEST_IS_NOT_DELEGATED;
    if (request->processed == 0) fail(info, request);
  }
}

// False while the daemon's answer is under way.
bool Requests::answer_one(int mode, netsnmp_agent_request_info* info, netsnmp_request_info* request) {
  switch (mode) {
    case MODE_GET:
      return answer_get(info, request);
    case MODE_GETNEXT:
    case MODE_GETBULK:
      return answer_next(info, request, mode == MODE_GETBULK);
    default:
      netsnmp_set_request_error(info, request, SNMP_ERR_NOTWRITABLE);
      return true;
  }
}

bool Requests::answer_get(netsnmp_agent_request_info* info, netsnmp_request_info* request) {
  Variable found;
  switch (mib_->get(name_of(request).view(), &found)) {
    case Answer::kPending:
      return false;
    case Answer::kValue:
      set_value(request->requestvb, found);
      return true;
    case Answer::kNoSuchObject:
      netsnmp_set_request_error(info, request, SNMP_NOSUCHOBJECT);
      return true;
    case Answer::kNoSuchInstance:
      netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE);
      return true;
    case Answer::kEnd:
    case Answer::kFailed:
      break;
  }
  netsnmp_set_request_error(info, request, SNMP_ERR_GENERR);
  return true;
}

bool Requests::answer_next(netsnmp_agent_request_info* info, netsnmp_request_info* request, bool repeats) {
  const oid::Oid end = short_name(request->range_end, request->range_end_len);
  Variable found;
  std::size_t hidden = 0;
  Answer answer = mib_->next(name_of(request).view(), request->inclusive != 0, end.view(), &found);
  while (answer == Answer::kValue) {
    request->inclusive = 0;
    set_name(request->requestvb, found);
    const bool shows = is_visible(info, request->requestvb, found);
    if (shows) {
      set_value(request->requestvb, found);
      if (!repeats || !repeat(request)) return true;
    } else if (++hidden == kMostHidden) {
      has_paused_ = true;
      return false;
    }
    const oid::Oid last = shows ? joined(found) : end_of_hidden(info, found);
    answer = mib_->next(last.view(), false, end.view(), &found);
  }
  if (answer == Answer::kPending) return false;
  if (answer == Answer::kFailed) {
    fail(info, request);
  } else {
    request->requestvb->type = ASN_NULL;
  }
  return true;
}

// In portions, between which snmpd sends the answers and serves other requests: after an outage of the daemon
// all that waits can be answered at once. The next portion continues where this one ends, so that a PDU with
// many variables does not keep those after it from their answers.
void Requests::resume() {
  const std::uint64_t begun_at = clock_monotonic();
  has_paused_ = false;
  for (std::size_t rest = waiting_.size(); rest > 0; --rest) {
    const std::uint64_t now = clock_monotonic();
    if (now - begun_at > kLongestPortion) {
      has_paused_ = true;
      return;
    }
    if (continues_at_ == waiting_.end()) continues_at_ = waiting_.begin();
    const auto waiting = continues_at_++;
    if (!resume_one(*waiting, now, begun_at >= waiting->overdue_at)) continue;
    netsnmp_free_delegated_cache(waiting->cache);
    waiting_.erase(waiting);
  }
}

// True when nothing of it waits any more. snmpd may have forgotten the PDU: its variables are then freed.
bool Requests::resume_one(const Waiting& waiting, std::uint64_t now, bool is_overdue) {
  const netsnmp_delegated_cache* const cache = netsnmp_handler_check_cache(waiting.cache);
  if (cache == nullptr || drop_without_session(cache->reqinfo->asp, waiting.peer)) return true;
  mib_->resume_requests(now, waiting.number);
  want(cache->requests);
  bool waits = false;
  for (netsnmp_request_info* request = cache->requests; request != nullptr; request = request->next) {
    if (request->delegated == REQUEST_IS_NOT_DELEGATED) continue;
    if (is_overdue) {
      fail(cache->reqinfo, request);
    } else if (!answer_one(cache->reqinfo->mode, cache->reqinfo, request)) {
      waits = true;
      continue;
    }
    request->delegated = REQUEST_IS_NOT_DELEGATED;
  }
  return !waits;
}

// snmpd answers a PDU when nothing of it waits, and until then compares its variables with the end of their
// range, which is in the registration: what still waits for another sub-agent must not refer to it.
void Requests::detach(const Waiting& waiting) {
  const netsnmp_delegated_cache* const cache = netsnmp_handler_check_cache(waiting.cache);
  if (cache == nullptr) return;
  for (netsnmp_request_info* request = cache->requests; request != nullptr; request = request->next) {
    request->range_end = request->requestvb->name;
    request->range_end_len = request->requestvb->name_length;
  }
}

void Requests::abandon() {
  for (const Waiting& waiting : waiting_) {
    resume_one(waiting, clock_monotonic(), true);
    detach(waiting);
    netsnmp_free_delegated_cache(waiting.cache);
  }
  if (!waiting_.empty()) netsnmp_check_delegated_requests();  // sends the answers
  waiting_.clear();
  continues_at_ = waiting_.end();
}

std::uint64_t Requests::deadline() const {
  if (waiting_.empty()) return UINT64_MAX;
  return has_paused_ ? 0 : waiting_.front().overdue_at;
}

}  // namespace snmpd
