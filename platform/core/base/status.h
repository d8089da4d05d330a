// Status codes: the one vocabulary in which every platform service and every handler of the daemon reports.
//
// A status is an unsigned 32-bit number, 0 for success. Numbers below 4096 are the errno values of the
// system; larger ones name a facility in the upper bits and are the codes that clients compare with. The
// table in status.cpp is the complete list; err_text() returns a text for any status.
#pragma once

#include <cstdint>

using Status = std::uint32_t;

inline constexpr Status kStatusOk = 0;
inline constexpr Status kStatusNoSuchRow = 2;       // ENOENT: the row, node or record does not exist
inline constexpr Status kStatusIo = 5;              // EIO
inline constexpr Status kStatusNoMemory = 12;       // ENOMEM
inline constexpr Status kStatusAccess = 13;         // EACCES: the peer may read but not change
inline constexpr Status kStatusExists = 17;         // EEXIST
inline constexpr Status kStatusInvalid = 22;        // EINVAL
inline constexpr Status kStatusDeadlock = 35;       // EDEADLK: the thread has locked this mutex already
inline constexpr Status kStatusNewerVersion = 95;   // EOPNOTSUPP: the database of a later release
inline constexpr Status kStatusTimedOut = 110;      // ETIMEDOUT
inline constexpr Status kStatusInProgress = 115;    // EINPROGRESS: the result follows
inline constexpr Status kStatusNotConnected = 107;  // ENOTCONN

// Data store.
inline constexpr Status kStatusUnavailable = 0x40810200;  // the data store's library cannot be read
inline constexpr Status kStatusArgumentMissing =
    0x40818800;                                           // a path argument that the handler needs is absent
inline constexpr Status kStatusUnknownPath = 0x40818a00;  // no pattern matches the path
inline constexpr Status kStatusNoHandler = 0x40818c00;    // the path is known, the operation is not served
inline constexpr Status kStatusBadKey = 0x40818e00;       // a path component does not decode as its key kind
inline constexpr Status kStatusMessageTooLarge = 0x40819000;  // a request or an answer exceeds the size bound
inline constexpr Status kStatusBadMessage = 0x40819200;       // a malformed message
inline constexpr Status kStatusVersionMismatch = 0x40819400;  // the peer speaks another protocol version
inline constexpr Status kStatusEndOfList = 0x40819600;        // a list, datalist or walk has no further item
inline constexpr Status kStatusTooManyRequests =
    0x40819800;  // more requests in flight than one client may have
inline constexpr Status kStatusUntrustedServer =
    0x40819a00;  // the server's user is neither root, nor this one, nor the owner of the socket's directory
inline constexpr Status kStatusUnfinished =
    0x40819c00;  // a step of an answer in steps is over, not the answer
inline constexpr Status kStatusIncomplete = 0x40819e00;  // more octets of the message are needed
// Record encoding.
inline constexpr Status kStatusDefinitionChanged =
    0x4081a000;                                           // the registry has another version of a description
inline constexpr Status kStatusBadEncoding = 0x4081a200;  // the octets are not a record of this description
inline constexpr Status kStatusBadDescription = 0x4081a400;  // the schema text is not one
// Record service, interface manager, event manager, databases.
inline constexpr Status kStatusNoVrfRecord = 0x40828600;      // the record service has no record of this name
inline constexpr Status kStatusStaleConnection = 0x409a0c00;  // the interface manager lost this connection
inline constexpr Status kStatusConnectionRetry =
    0x21200e00;  // the connection is not up yet; it will be retried
inline constexpr Status kStatusNoCrossConnect = 0xa2d38002;  // no label cross-connect forwards the route
inline constexpr Status kStatusNoRouteModule = 0xa2d38204;   // a module of the routing table cannot be loaded
inline constexpr Status kStatusInvalidNode = 0x42698600;     // a database node without its name (or record)

// Checkpoint store.
inline constexpr Status kStatusChkptKeyNotFound = 0x40a08200;  // the table has no record of this key
inline constexpr Status kStatusChkptMapping = 0x40a08400;      // the key could not be looked up

// A text for people; never null. The pointer stays valid for the life of the process for codes of the table
// and until the calling thread's next call for all others. Any thread.
const char* err_text(Status status);
