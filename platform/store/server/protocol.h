// The messages between the data store and its clients, as types and payloads of platform/core/wire frames.
//
//   type            request                               answer (type | kAnswer), after a 32-bit status
//   kGet            flags u8, path text                   kind u32, record octets
//   kList           flags u8, maximum u32, path text      count u32, count x {kind u32, key text}
//   kDatalist       flags u8, maximum u32, path text      count u32, count x {kind u32, key text, record
//                                                         octets}
//   kWalk           flags u8, maximum u32, path text      end u8, count u32, count x {record octets}
//   kColumns        maximum u32, path text, columns       end u8, count u32, rows octets (columns.h)
//                   octets
//   kAction         count u16, count x {word text}        text
//   kSubscribe      path text, name text (may be empty),  subscription u32, instance u64
//                   version text (may be missing)
//   kNodes          maximum u32, path text, after text,   count u32, count x {path text, owner text, value}
//                   owner text (may be empty)
//   kStage          flags u8, count u32, count x {path    nothing
//                   text, value or none}
//   kCommit         confirmation u32, comment text        id text, user text, error text
//   kHistory        maximum u32, before text              count u32, count x {id text, time u64, owner text,
//                                                         comment text, changes u32, user text}
//   kCommitChanges  id text, first u32, maximum u32       count u32, count x {path text, owner before text,
//                                                         value before or none, owner after text, value
//                                                         after or none}
//   kConfirmation   nothing                               id text, user text, deadline u64
//   kConfirm        commit text                           the same
//   kAcknowledge    subscription u32, sequence u64        has no answer
//
// A value is a type u8 (0 present without a value, 1 text, 2 number, 3 tuple), then nothing, a text, a number
// of 64 bits, or a count u16 and as many such numbers; kSuppressedFlag in the type marks a suppressing value,
// and the type kNoValue represents none. kStage collects the
// changes of the client's next commit, a deletion being a change without a value; with kFlagFirst it first
// discards what was collected. kCommit consumes what was collected, whatever its result. Both fail with
// EBUSY, and the client may try the whole commit again, while other clients have collected too much (kStage),
// or while the changes of earlier commits are still being processed (kCommit).
//
// The confirmation of kCommit is how many seconds the commit waits for one before it is undone, 0 if it needs
// none. kConfirmation answers which commit waits, with an empty id for none; kConfirm confirms it;
// with the id of a commit, only that one.
//
// An answer whose status is not 0 has nothing after it, except those of kAction and kCommit, which always
// have their texts. kNotification is sent unasked, with request 0: subscription u32, sequence u64, lost
// before it u64, path text, item name text, two values u32, record octets. At most kNotificationWindow of a
// subscription are sent before the first of them is acknowledged. Other flags than those named, other types,
// acknowledgements without a subscription and extra octets make a message malformed. The version of
// kSubscribe is that of the subscriber's program, of at most kMaxVersion octets.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvtree {

inline constexpr std::uint16_t kGet = 1;
inline constexpr std::uint16_t kList = 2;
inline constexpr std::uint16_t kDatalist = 3;
inline constexpr std::uint16_t kWalk = 4;
inline constexpr std::uint16_t kAction = 5;
inline constexpr std::uint16_t kSubscribe = 6;
inline constexpr std::uint16_t kColumns = 7;
inline constexpr std::uint16_t kNodes = 9;
inline constexpr std::uint16_t kAcknowledge = 0xa;
inline constexpr std::uint16_t kStage = 0xb;
inline constexpr std::uint16_t kCommit = 0xc;
inline constexpr std::uint16_t kHistory = 0xd;
inline constexpr std::uint16_t kCommitChanges = 0xe;
inline constexpr std::uint16_t kConfirmation = 0xf;
inline constexpr std::uint16_t kNotification = 0x10;
inline constexpr std::uint16_t kConfirm = 0x11;
inline constexpr std::uint16_t kAnswer = 0x8000;

inline constexpr std::uint8_t kFlagStructured = 0x1;  // kGet, kList, kDatalist, kWalk
inline constexpr std::uint8_t kFlagFirst = 0x1;       // kStage

inline constexpr std::uint8_t kNothingValue = 0;
inline constexpr std::uint8_t kTextValue = 1;
inline constexpr std::uint8_t kNumberValue = 2;
inline constexpr std::uint8_t kTupleValue = 3;
inline constexpr std::uint8_t kSuppressedFlag = 0x40;
inline constexpr std::uint8_t kNoValue = 0xff;

inline constexpr std::size_t kMaxAnswer = 4U << 20;  // octets of an answer's payload
inline constexpr std::size_t kMaxActionWords = 256;
inline constexpr std::size_t kMaxStagedChanges = 50000;          // of one client's commit
inline constexpr std::size_t kMaxStagedOctets = 16U << 20;       // of its messages
inline constexpr std::size_t kMaxStagedChangesOfAll = 200000;    // of all clients' commits
inline constexpr std::size_t kMaxStagedOctetsOfAll = 64U << 20;  // of their messages
inline constexpr std::size_t kMaxSubscriptions = 16;             // of one client
inline constexpr std::size_t kMaxVersion = 64;                   // octets
inline constexpr std::size_t kNotificationWindow = 64;
inline constexpr std::size_t kPlainQueue = 1024;  // notifications that wait for a subscriber without a name

}  // namespace kvtree
