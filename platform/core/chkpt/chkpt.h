// Checkpoint store: small keyed records of an application that survive the process. SQLite (WAL) in the state
// directory, STATE_DIRECTORY/checkpoint.db.
//
// An application registers tables; a record has a key (its own octets), an object id (never 0, never reused
// in a database) and data. All records are also in memory, so that lookups and iterations read no file.
// Changes are committed on a thread, one commit after the other: the store itself begins one in the iteration
// of the event loop after the first change, and what changes meanwhile shares the next transaction. No output
// that could reveal a change leaves before its commit has ended (chkpt_gate_output()), and the loop never
// waits for the disk. A commit is synchronized with the disk: after it the records survive the death of the
// process and a power cut at any moment.
//
// A database that cannot be used (corrupt, truncated, foreign) is never overwritten: it is renamed with its
// log to checkpoint.db.unusable.N next to a new one, and the log states the reason and the new name. The new
// one has the records that can be read in a damaged one, otherwise it is empty. An invalid record, or one
// whose checksum differs, is moved to a table of its own and logged; the others are read. A database of a
// newer version or one that another process has open, and a directory that is read-only or full, are errors
// of chkpt_init.
//
// If a commit fails (for example, the disk is full), its changes stay in memory and the commit is tried again
// every second. Until it succeeds every create, save and delete returns the failure: a create has no effect,
// a save and a delete take effect in memory and are written when the disk recovers.
//
// One application a process, main thread only. Fault points have the names of the operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/core/sqlite/quarantine.h"

struct ChkptTable;
struct ChkptIterator;

inline constexpr std::size_t kChkptNameMax = 24;
inline constexpr std::size_t kChkptKeyMax = 256;         // octets
inline constexpr std::size_t kChkptDataMax = 64U << 10;  // octets

struct ChkptApplication {
  std::uint32_t number;
  char name[kChkptNameMax + 1];
};

// key_kind 1: every key of the table has the size of the first; versioned: 0 or 1, without effect;
// record_size: octets of a saved record (0: any); persistent 1: survives the process; reserved: 0. Other
// kinds of keys, and tables in memory only, are not supported.
struct ChkptTableDescriptor {
  std::uint32_t key_kind;
  std::uint32_t versioned;
  std::uint32_t record_size;
  std::uint32_t persistent;
  std::uint32_t reserved;
  bool operator==(const ChkptTableDescriptor&) const = default;
};

// A name longer than kChkptNameMax becomes the empty name, which chkpt_init refuses.
void chkpt_application_init(ChkptApplication* application, std::uint32_t number, const char* name);
void chkpt_table_init(ChkptTableDescriptor* descriptor, std::uint32_t key_kind, std::uint32_t versioned,
                      std::uint32_t record_size, std::uint32_t persistent, std::uint32_t reserved);

// Opens the database and reads it. The number identifies the application; another name in the database is
// corrected and logged. kStatusInvalid for a missing argument or name; kStatusExists if it is open already;
// EBUSY if another process has it open; otherwise the system's error. The manager must live until
// chkpt_end().
[[nodiscard]] Status chkpt_init(const ChkptApplication* application, EventManager* manager);
// *had_contents: an earlier process left records in the table. Descriptors are not stored: records of
// another size remain until they are deleted. The handle lives until chkpt_end(). kStatusInvalid
// for missing arguments, values not listed above, or before chkpt_init; kStatusExists for a table that is
// registered already.
[[nodiscard]] Status chkpt_register(const ChkptTableDescriptor* descriptor, std::uint32_t table_id,
                                    ChkptTable** table, bool* had_contents);
// kStatusChkptKeyNotFound (*object_id is 0); kStatusChkptMapping for octets that cannot be a key of the
// table.
[[nodiscard]] Status chkpt_mapkey(ChkptTable* table, const void* key, std::size_t key_size,
                                  std::uint64_t* object_id);
// Creates a record without data. kStatusExists for a key that has one, kStatusInvalid for octets that cannot
// be a key of the table.
[[nodiscard]] Status chkpt_create(ChkptTable* table, const void* key, std::size_t key_size,
                                  std::uint64_t* object_id);
// kStatusNoSuchRow for an object id that the table does not have, kStatusInvalid for a size that it does not
// accept.
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

// Commits have increasing numbers. Returns that of the commit that will have all changes so far: it begins
// now, or when the one that is being written has ended. 0 if there is none to wait for: nothing is pending,
// the store is not open, or the last commit failed.
[[nodiscard]] std::uint64_t chkpt_begin_flush();
// The number of the last commit that has ended. A failed commit ends, too: what waits for it continues, as
// the failure is logged and may last.
std::uint64_t chkpt_committed();
// Why the last commit failed, or the last chkpt_init() could not open the database: kStatusNewerVersion if a
// later release has written it.
Status chkpt_failure();
// The records that could not be used, as they were when the database was opened; none before.
sqlite::Quarantine chkpt_quarantine();
// Sets what is called on the main thread with that number whenever it has increased. Null removes it. It must
// not end the store.
void chkpt_on_commit(std::function<void(std::uint64_t number)> function);
// Sets what is called on the main thread when a commit succeeds after a failure: what could not be created
// can be created now. Null removes it. It must not end the store.
void chkpt_on_recovery(std::function<void()> function);
// No message leaves for a client of this thread's servers (wire.h) before the changes that precede it are
// committed. For the whole process, once.
void chkpt_gate_output();
// `prepare` is called once when the next commit begins, and what it returns (it may be null) runs on the
// thread, before the transaction: for files that have to be on the disk before the records. False if the
// store is not open: then nothing is called.
using ChkptPrepare = std::function<std::function<void()>()>;
[[nodiscard]] bool chkpt_before_commit(ChkptPrepare prepare);

// Waits until all changes are committed; 0 if there are none or the store is not open. A failure is logged.
// For tests and processes that end.
[[nodiscard]] Status chkpt_flush();
// Commits and closes, for processes that end in order and for tests that restart the daemon. Changes that
// cannot be committed are lost, and the log says so.
void chkpt_end();
