// Encoding of a filled record into a reply; the last step of every get handler.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/parcel/parcel.h"
#include "platform/store/tree/kvtree.h"

// Encodes `record` by `description` into the reply (kind kKvKindRecord, a buffer that the data store frees)
// and releases the record's indirections, whether or not the encoding succeeded. 0, or the encoding's status
// with the reply as it was.
[[nodiscard]] Status prov_encode_parcel(KvReply* reply, void* record, const ParcelDescription* description);
// Releases the record's indirections; a failure is reported under the function's name.
void prov_release_parcel(void* record, const ParcelDescription* description, const char* function);
