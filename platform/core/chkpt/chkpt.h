// Checkpoint store: small keyed records of an application that survive the process. SQLite (WAL) in the state
// directory, STATE_DIRECTORY/checkpoint.db.
//
// An application registers tables; a record has a key (its own octets), an object id (never 0, never used
// twice in a database) and data. Everything is also in memory, so that looking up and iterating cost no
// input. What one turn of the event loop writes shares a transaction, which is committed before the process
// lets anything out that could show it: the process calls chkpt_flush() before every output
// (wire::set_output_barrier), and the store itself calls it in the turn after the first write. After a commit
// the records survive the death of the process at any moment; a power cut may lose the last commits, but
// never leaves a later one without an earlier.
//
// A database that cannot be used (corrupt, truncated, foreign, of another version) is never overwritten: it
// is set aside with its log as checkpoint.db.unusable.N beside the new, empty one, and the log says why and
// where. A directory that is read-only or full, or a database that another process has open, is an error of
// chkpt_init.
//
// When a commit fails (the disk is full, say), what it should have written stays in memory and is tried again
// every second. Until that succeeds every create, save and delete answers the failure: a create does nothing,
// while a save and a delete take effect in memory and are written when the disk recovers.
//
// One application a process, main thread only. Fault points have the names of the operations.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

struct ChkptTable;
struct ChkptIterator;

inline constexpr std::size_t kChkptNameMax = 24;
inline constexpr std::size_t kChkptKeyMax = 256;         // octets
inline constexpr std::size_t kChkptDataMax = 64U << 10;  // octets

struct ChkptApplication {
  std::uint32_t number;
  char name[kChkptNameMax + 1];
};

// key_kind 1: every key of the table has the size of the first, 0: any size; versioned 1: the table has a
// version of its own (kept for tools); record_size: octets of a record that is saved (0: any); persistent 1:
// survives the process, 0: in memory only; reserved: 0.
struct ChkptTableDescriptor {
  std::uint32_t key_kind;
  std::uint32_t versioned;
  std::uint32_t record_size;
  std::uint32_t persistent;
  std::uint32_t reserved;
};

// A name longer than kChkptNameMax is not taken: the name is empty, which chkpt_init refuses.
void chkpt_application_init(ChkptApplication* application, std::uint32_t number, const char* name);
void chkpt_table_init(ChkptTableDescriptor* descriptor, std::uint32_t key_kind, std::uint32_t versioned,
                      std::uint32_t record_size, std::uint32_t persistent, std::uint32_t reserved);

// Opens the database and reads it. kStatusInvalid for a missing argument or name, or when the number belongs
// to an application of another name; kStatusExists when it is open already; EBUSY when another process has
// it; else the system's. The manager must live until chkpt_end().
[[nodiscard]] Status chkpt_init(const ChkptApplication* application, EventManager* manager);
// *had_contents: an earlier process left records in the table. A changed descriptor is taken over; records of
// another size stay until they are deleted. The handle lives until chkpt_end(). kStatusInvalid for arguments
// missing, values not listed above, or before chkpt_init; kStatusExists for a table that is registered
// already.
[[nodiscard]] Status chkpt_register(const ChkptTableDescriptor* descriptor, std::uint32_t table_id,
                                    ChkptTable** table, bool* had_contents);
// kStatusChkptKeyNotFound (*object_id is 0); kStatusChkptMapping for what cannot be a key of the table.
[[nodiscard]] Status chkpt_mapkey(ChkptTable* table, const void* key, std::size_t key_size,
                                  std::uint64_t* object_id);
// A record without data. kStatusExists for a key that has one, kStatusInvalid for what cannot be a key of the
// table.
[[nodiscard]] Status chkpt_create(ChkptTable* table, const void* key, std::size_t key_size,
                                  std::uint64_t* object_id);
// kStatusNoSuchRow for an object id that the table does not have, kStatusInvalid for a size that it does not
// take.
[[nodiscard]] Status chkpt_save(ChkptTable* table, std::uint64_t object_id, const void* data,
                                std::size_t size);
[[nodiscard]] Status chkpt_delete(ChkptTable* table, std::uint64_t object_id);  // kStatusNoSuchRow

// Records in object-id order. A record that was never saved has size 0. Records may be created and deleted
// during an iteration. An iterator must end before chkpt_end().
[[nodiscard]] Status chkpt_iterate_start(ChkptTable* table, ChkptIterator** iterator);
// Copies the key and the data as far as *key_size and *size allow, and sets both to the true sizes. At the
// end *object_id is 0 and the status 0.
[[nodiscard]] Status chkpt_iterate_next(ChkptIterator* iterator, void* key, std::size_t* key_size, void* data,
                                        std::size_t* size, std::uint64_t* object_id);
[[nodiscard]] Status chkpt_iterate_end(ChkptIterator* iterator);  // releases it, whatever it answers

// Commits what is not committed yet; 0 when there is nothing or the store is not open. A failure is logged.
[[nodiscard]] Status chkpt_flush();
// Commits and closes, for processes that end in order and for tests that start the daemon again. What cannot
// be committed is lost, and the log says so.
void chkpt_end();
