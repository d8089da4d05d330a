// Self-describing record encoding: plain in-memory records to octets and back, driven by a description that
// gives the schema text and the record's layout in memory. description.h generates descriptions from field
// tables.
//
// A schema is a list of numbered structures "$1={name}D{other}s;$2=...;" (annotated) or "$1=Ds;" (compact).
// Type codes: s text (one pointer to a terminated string, null allowed), d signed 32, D unsigned 32, C
// unsigned 8, b boolean (4 octets), e enumeration (4 octets, "[type]e" in the annotated form), y octet string
// (two 8-octet slots: length, reference), a($n) counted array of structure n (two 8-octet slots: count,
// reference to the elements), <max>a(C) counted array of at most <max> octets. The structure whose number
// is first in the schema text is the top structure.
//
// The encoded form begins with a format octet, the type name, both version numbers and the annotated schema's
// 32-bit hash; integers are little-endian; a text is its length plus one (0 for null) and its octets.
// Decoding trusts nothing: every count is bounded by the octets that are left before anything is allocated.
//
// Memory: decode fills a caller's record with malloc'ed indirections; parcel_free_indirections releases them
// (and those of a record that the caller filled with malloc'ed texts and arrays) and nulls the pointers.
// Stateless but for the registry, which only the main thread uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/parcel/field_kind.h"

// What encoding and decoding need of a field.
struct ParcelFieldLayout {
  parcel_detail::FieldKind kind;
  std::uint32_t offset;  // of the first slot
  std::uint32_t nested;  // kStructures: the elements' place in ParcelLayout::structures
  std::uint32_t max;     // kOctetArray: most octets
};

// Layout of one structure: its number, its size in octets and the offset of every field slot in schema order
// (a field of two slots, y or an array, has two offsets).
struct ParcelStructLayout {
  std::uint32_t number;
  std::uint32_t size;
  const std::uint32_t* offsets;
  std::uint32_t offset_count;
  std::span<const ParcelFieldLayout> fields;
  std::uint32_t encoded_size;  // least octets of one encoded structure
};

// The top structure first, then the nested ones.
struct ParcelLayout {
  const ParcelStructLayout* structures;
  std::uint32_t structure_count;
};

struct ParcelDescription {
  std::uint32_t format;  // always 1
  const char* type_name;
  std::uint32_t version;
  std::uint32_t reader_version;
  const char* library;  // the description library that defines the same type for readers
  const ParcelLayout* layout;
  const char* annotated_schema;
  const char* compact_schema;
  std::uint32_t schema_hash;  // of the annotated schema
};

struct ParcelOctets {  // the `y` field: two slots
  std::uint64_t length;
  std::uint8_t* octets;
};

struct ParcelArray {  // the array fields: two slots
  std::uint64_t count;
  void* elements;
};

inline constexpr std::size_t kParcelMaxSize = 1U << 20;  // octets of one encoded record

// Registration of descriptions, in batches. The registry file (RUN_DIRECTORY/parcel.registry) remembers the
// type name, versions and schema of everything ever registered. Registering another definition of a known
// type replaces it there and makes parcel_batch_close answer kStatusDefinitionChanged once; the process's own
// definition is what is used in every case. kStatusBadDescription for a text that is not a schema.
// Fault points "parcel_batch_open", "parcel_register", "parcel_batch_close".
struct ParcelBatch;
[[nodiscard]] Status parcel_batch_open(const char* set_name, ParcelBatch** batch);
[[nodiscard]] Status parcel_register(ParcelBatch* batch, const ParcelDescription* description);
[[nodiscard]] Status parcel_batch_close(ParcelBatch* batch);  // releases the batch, also on failure
void parcel_batch_abort(ParcelBatch* batch);  // releases the batch; nothing of it is registered
// The registered description of a type, or null.
const ParcelDescription* parcel_find(const char* type_name);
// Removes the registrations of this process (not of the file). For tests.
void parcel_registry_reset();

// Encodes a record into a malloc'ed buffer that the caller frees. kStatusMessageTooLarge (the record, or an
// array beyond its bound), kStatusNoMemory, kStatusInvalid (a count without elements), kStatusBadDescription
// (null).
// Fault points "parcel_encode", "calloc_tagged:parcel buffer".
[[nodiscard]] Status parcel_encode(const ParcelDescription* description, const void* record,
                                   std::uint8_t** data, std::size_t* length);
// Decodes into *record (cleared first; left cleared, with nothing allocated, on failure). kStatusBadEncoding
// when the octets are malformed, have octets left over, or are another type or schema. Fault points
// "parcel_decode", "calloc_tagged:parcel text", "calloc_tagged:parcel octets", "calloc_tagged:parcel array".
[[nodiscard]] Status parcel_decode(const ParcelDescription* description, const std::uint8_t* data,
                                   std::size_t length, void* record);
// Fault point "parcel_free_indirections" (nothing is released then).
[[nodiscard]] Status parcel_free_indirections(const ParcelDescription* description, void* record);

// The type name that an encoded record carries; empty when the octets are not a record.
std::string parcel_type_name(const std::uint8_t* data, std::size_t length);
// Prints an encoded record of any type as JSON text, from the annotated schema in the registry file or of a
// registered description. kStatusBadEncoding, kStatusNoSuchRow (type unknown).
[[nodiscard]] Status parcel_to_json(const std::uint8_t* data, std::size_t length, std::string* json);
