// The texts of the status codes. Errno values take the system's own text; an unknown code is shown in
// hexadecimal, so that it can still be searched for.
#include "platform/core/base/status.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace {

struct StatusText {
  Status status;
  const char* text;
};

constexpr StatusText kTexts[] = {
    {kStatusOk, "Success"},
    {kStatusUnavailable, "Data store library is not available"},
    {kStatusArgumentMissing, "A path argument is missing"},
    {kStatusUnknownPath, "No such path"},
    {kStatusNoHandler, "The path does not serve this operation"},
    {kStatusBadKey, "A path component does not decode as its key"},
    {kStatusMessageTooLarge, "Message exceeds the size bound"},
    {kStatusBadMessage, "Malformed message"},
    {kStatusVersionMismatch, "Peer speaks another protocol version"},
    {kStatusEndOfList, "End of list"},
    {kStatusTooManyRequests, "Too many requests in flight"},
    {kStatusUntrustedServer, "The server runs as an untrusted user"},
    {kStatusUnfinished, "The answer is not finished"},
    {kStatusIncomplete, "The message is not complete"},
    {kStatusDefinitionChanged, "Record definition differs from the registry"},
    {kStatusBadEncoding, "Octets are no record of this description"},
    {kStatusBadDescription, "Record description is inconsistent"},
    {kStatusNoVrfRecord, "No VRF record of this name"},
    {kStatusStaleConnection, "Connection to the interface manager is stale"},
    {kStatusConnectionRetry, "Connection is not up yet and will be retried"},
    {kStatusNoCrossConnect, "No cross-connect forwards the route"},
    {kStatusNoRouteModule, "A route module cannot be loaded; the daemon's log says why"},
    {kStatusInvalidNode, "Database node is incomplete"},
    {kStatusChkptKeyNotFound, "No checkpoint record of this key"},
    {kStatusChkptMapping, "Checkpoint key cannot be looked up"},
};

constexpr bool are_distinct() {
  for (const StatusText& entry : kTexts) {
    for (const StatusText* other = kTexts; other != &entry; ++other) {
      if (other->status == entry.status) return false;
    }
  }
  return true;
}
static_assert(are_distinct());

constexpr Status kFirstFacilityCode = 4096;

}  // namespace

const char* err_text(Status status) {
  for (const StatusText& entry : kTexts) {
    if (entry.status == status) return entry.text;
  }
  thread_local std::array<char, 96> buffer;
  if (status < kFirstFacilityCode) {
    // The GNU variant returns the text, which need not be the buffer.
    return strerror_r(static_cast<int>(status), buffer.data(), buffer.size());
  }
  std::snprintf(buffer.data(), buffer.size(), "Unknown status 0x%08x", status);
  return buffer.data();
}
