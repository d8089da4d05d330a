// AgentX protocol data units (RFC 2741 section 6): reading and writing them in place.
//
// Reader decodes either byte order and never reads beyond its input; Writer appends to a caller's buffer,
// always in network byte order. Neither allocates per variable: a Reader's octet strings are views into its
// input, names are read into the caller's Oid, and a Writer's buffer retains its capacity.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/oid/oid.h"

namespace agentx {

using Bytes = std::span<const std::uint8_t>;

enum class PduType : std::uint8_t {
  kOpen = 1,
  kClose = 2,
  kRegister = 3,
  kUnregister = 4,
  kGet = 5,
  kGetNext = 6,
  kGetBulk = 7,
  kTestSet = 8,
  kCommitSet = 9,
  kUndoSet = 10,
  kCleanupSet = 11,
  kNotify = 12,
  kPing = 13,
  kResponse = 18,
};

enum class ValueType : std::uint16_t {
  kInteger = 2,
  kOctetString = 4,
  kNull = 5,
  kObjectIdentifier = 6,
  kCounter32 = 65,
  kGauge32 = 66,
  kTimeTicks = 67,
  kNoSuchObject = 128,
  kNoSuchInstance = 129,
  kEndOfMibView = 130,
};

// Errors of a Response (section 6.2.16); those below 256 are SNMP's own.
enum class Error : std::uint16_t {
  kNone = 0,
  kGenErr = 5,
  kCommitFailed = 14,
  kNotWritable = 17,
  kOpenFailed = 256,
  kNotOpen = 257,
  kDuplicateRegistration = 263,
  kUnsupportedContext = 262,
  kParseError = 266,
  kRequestDenied = 267,
  kProcessingError = 268,
};
// "duplicateRegistration"; "error 999" for what the table does not know.
std::string error_text(std::uint16_t error);

inline constexpr std::uint8_t kReasonShutdown = 5;  // of a Close

inline constexpr std::uint8_t kVersion = 1;
inline constexpr std::uint8_t kFlagNonDefaultContext = 0x08;
inline constexpr std::uint8_t kFlagNetworkByteOrder = 0x10;
inline constexpr std::size_t kHeaderSize = 20;
// The longest request: 64 KiB of SNMP message, each octet of a name becoming four, twice (start and end).
inline constexpr std::uint32_t kMaxPayload = 1U << 20;

struct Header {
  PduType type = PduType::kResponse;
  std::uint8_t flags = kFlagNetworkByteOrder;
  std::uint32_t session = 0;
  std::uint32_t transaction = 0;
  std::uint32_t packet = 0;
  std::uint32_t payload = 0;  // octets after the header; writers leave it to Writer::end()
};

enum class HeaderState {
  kIncomplete,  // fewer than kHeaderSize octets
  kGood,
  kBroken,  // another version, or a length that is not a multiple of 4 or beyond kMaxPayload: framing is lost
};
HeaderState read_header(Bytes input, Header* header);

struct SearchRange {
  oid::Oid start;
  oid::Oid end;          // empty: no end
  bool include = false;  // the range includes its start
};

struct Response {
  std::uint32_t uptime = 0;  // the master's sysUpTime, hundredths of a second
  std::uint16_t error = 0;
  std::uint16_t index = 0;
};

// A decoded value of a type that the sub-agent writes; octets and name are set for their types only.
struct Value {
  ValueType type = ValueType::kNull;
  std::uint32_t number = 0;
  Bytes octets;
  oid::Oid name;
};

// Reads a payload from the front. After a failure every later read fails.
class Reader {
 public:
  Reader(Bytes payload, bool network_order) : rest_(payload), network_order_(network_order) {}

  bool at_end() const { return rest_.empty(); }
  std::size_t left() const { return rest_.size(); }

  [[nodiscard]] bool number16(std::uint16_t* value);
  [[nodiscard]] bool number32(std::uint32_t* value);
  // False for more than 128 sub-identifiers, including those of the prefix octet. `include` may be null.
  [[nodiscard]] bool name(oid::Oid* value, bool* include);
  [[nodiscard]] bool octets(Bytes* value);
  [[nodiscard]] bool search_range(SearchRange* range);
  [[nodiscard]] bool skip_search_range();
  // The start of a search range, which is skipped.
  [[nodiscard]] bool search_start(oid::Oid* start);
  [[nodiscard]] bool response(Response* value);
  [[nodiscard]] bool var_bind(oid::Oid* name, Value* value);

 private:
  bool take(std::size_t count, Bytes* taken);
  bool skip_name();

  Bytes rest_;
  bool network_order_;
};

// Appends PDUs to *output, which must live as long as the writer.
class Writer {
 public:
  explicit Writer(std::vector<std::uint8_t>* output) : output_(output) {}

  // One PDU is written between begin() and end(); end() fills in its length. It begins with the header and so
  // many zero octets.
  void begin(const Header& header, std::size_t zeros = 0);
  void end();

  void number8(std::uint8_t value);
  void number16(std::uint16_t value);
  void number32(std::uint32_t value);
  // One name from two parts, so that callers need not join an object and its instance.
  void name(oid::View first, oid::View second = {}, bool include = false);
  void octets(Bytes value);
  void octets(std::string_view value);

  // Variable bindings: begin with the type and the name, then the data (none for null and the exceptions).
  void var_bind(ValueType type, oid::View first, oid::View second = {});

  std::size_t position() const { return output_->size(); }
  void truncate(std::size_t position) { output_->resize(position); }
  // Octets that another writer encoded, unchanged.
  void raw(Bytes written) { output_->insert(output_->end(), written.begin(), written.end()); }
  // Overwrites two octets written before.
  void patch16(std::size_t position, std::uint16_t value);
  Bytes written(std::size_t from) const { return Bytes(*output_).subspan(from); }

 private:
  std::uint8_t* grow(std::size_t count);
  std::uint8_t* name_after(std::size_t octets, oid::View first, oid::View second, bool include);

  std::vector<std::uint8_t>* output_;
  std::size_t begin_ = 0;
};

// The PDUs that a sub-agent initiates. Timeout 0 leaves it to the master.
void write_open(Writer* writer, std::uint32_t packet, std::string_view description);
void write_close(Writer* writer, std::uint32_t session, std::uint32_t packet);
void write_register(Writer* writer, std::uint32_t session, std::uint32_t packet, oid::View subtree);
void write_unregister(Writer* writer, std::uint32_t session, std::uint32_t packet, oid::View subtree);
// A Notify; its variables follow before end(), snmpTrapOID.0 first (section 6.2.10).
void begin_notify(Writer* writer, std::uint32_t session, std::uint32_t packet);
void write_ping(Writer* writer, std::uint32_t session, std::uint32_t packet);
// The Response's header and its first eight octets; variables may follow before end().
void begin_response(Writer* writer, const Header& request, Error error, std::uint16_t index);

}  // namespace agentx
