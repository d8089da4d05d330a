// The messages between the data store and its clients, as types and payloads of platform/wire frames.
//
//   type          request                               answer (type | kAnswer), after a 32-bit status
//   kGet          flags u8, path text                   kind u32, record octets
//   kList         flags u8, maximum u32, path text      count u32, count x {kind u32, key text}
//   kDatalist     flags u8, maximum u32, path text      count u32, count x {kind u32, key text, record
//   octets} kWalk         flags u8, maximum u32, path text      end u8, count u32, count x {record octets}
//   kAction       count u16, count x {word text}        text
//   kSubscribe    path text, name text (may be empty)   subscription u32, instance u64
//   kSet          path text, value                      nothing
//   kDelete       path text                             nothing
//   kNodes        maximum u32, path text, after text    count u32, count x {path text, value}
//   kAcknowledge  subscription u32, sequence u64        has no answer
//
// A value is a type u8 (1 text, 2 number), then a text or a number of 64 bits. An answer whose status is not
// 0 has nothing after it, but for kAction's, whose text is always there. kNotification comes unasked, with
// request 0: subscription u32, sequence u64, lost before it u64, path text, item name text, two values u32,
// record octets. At most kNotificationWindow of a subscription are sent before the first of them is
// acknowledged. Other flags than kFlagStructured, other types, acknowledgements of what was not subscribed to
// and octets left over make a message malformed.
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
inline constexpr std::uint16_t kSet = 7;
inline constexpr std::uint16_t kDelete = 8;
inline constexpr std::uint16_t kNodes = 9;
inline constexpr std::uint16_t kAcknowledge = 0xa;
inline constexpr std::uint16_t kNotification = 0x10;
inline constexpr std::uint16_t kAnswer = 0x8000;

inline constexpr std::uint8_t kFlagStructured = 0x1;

inline constexpr std::uint8_t kTextValue = 1;
inline constexpr std::uint8_t kNumberValue = 2;

inline constexpr std::size_t kMaxAnswer = 4U << 20;  // octets of an answer's payload
inline constexpr std::size_t kMaxActionWords = 256;
inline constexpr std::size_t kMaxSubscriptions = 16;  // of one client
inline constexpr std::size_t kNotificationWindow = 64;
inline constexpr std::size_t kPlainQueue = 1024;  // notifications that wait for a subscriber without a name

}  // namespace kvtree
