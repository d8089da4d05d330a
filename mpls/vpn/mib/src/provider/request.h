// What the get handlers share: the check of their arguments, and texts copied into rows.
#pragma once

#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// 0 when the arguments 0 to count - 1 are all there, else kStatusArgumentMissing; the first missing one is
// reported under the handler's name. An empty text is there: it is the key before all others, where a walk of
// a table begins.
[[nodiscard]] Status prov_check_arguments(const RequestArgs* args, unsigned count, const char* handler);

// *field becomes a heap copy of the text, null for null. False without memory, which is reported under the
// name of the function that fills the record. For texts without which a row is nothing to its reader: the
// names by which it goes on from the row. The request answers kStatusNoMemory.
[[nodiscard]] bool prov_copy_text(char** field, const char* text, const char* function);

// The same for a text that a record can go out without: the field stays empty.
void prov_copy_inner_text(char** field, const char* text, const char* function);
