// Shared by the get handlers: the check of their arguments, texts copied into rows, and the encoding of a
// filled record into the reply. A handler fills a record with heap copies of texts and must not use it after
// the encoding. Main thread.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/parcel/parcel.h"
#include "platform/store/tree/kvtree.h"

// 0 when the arguments 0 to count - 1 are present, else kStatusArgumentMissing; the first missing one is
// reported under the handler's name. An empty text is present: it is the smallest key, with which a walk of a
// table begins.
[[nodiscard]] Status prov_check_arguments(const RequestArgs* args, unsigned count, const char* handler);

// Stores a heap copy of the text in *field, null for null. False without memory, which is reported under the
// name of the function that fills the record. For texts that the reader needs to continue from the row:
// without them the request answers kStatusNoMemory.
[[nodiscard]] bool prov_copy_text(char** field, const char* text, const char* function);

// The same for a text that the record can do without: on failure the field stays empty.
void prov_copy_inner_text(char** field, const char* text, const char* function);

// The last step of every get handler: encodes `record` by `description` into the reply (kind kKvKindRecord, a
// buffer that the data store frees) and releases the record's indirections, whether or not the encoding
// succeeded. 0, or the encoding's status with the reply as it was.
[[nodiscard]] Status prov_encode_parcel(KvReply* reply, void* record, const ParcelDescription* description);
// Releases the record's indirections; a failure is reported under the function's name.
void prov_release_parcel(void* record, const ParcelDescription* description, const char* function);
