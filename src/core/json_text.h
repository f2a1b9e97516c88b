// json_text.h - the text of a JSON value, whole or not at all.
#ifndef ZORV_CORE_JSON_TEXT_H
#define ZORV_CORE_JSON_TEXT_H

#include <cstddef>

#include <jansson.h>

#include "core/own.h"

namespace zorv {

// As json_dumps() with these flags; empty when memory is short or the value has no text.
Text dump_json(const json_t *value, size_t flags);

} // namespace zorv

#endif
