// Quotes the user's texts in messages.
#pragma once

#include "platform/core/text/words.h"

namespace router_file {

using text::quoted;

}  // namespace router_file
