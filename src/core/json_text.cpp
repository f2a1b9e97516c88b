#include "core/json_text.h"

using namespace zorv;

// json_dumps() lets its text grow and drops the key of a member, without an error, where it cannot.
// A text of known size does not grow.
Text zorv::dump_json(const json_t *value, size_t flags)
{
    const size_t length = json_dumpb(value, nullptr, 0, flags);
    if (length == 0)
        return nullptr;
    Text text(static_cast<char *>(malloc(length + 1)));
    if (!text || json_dumpb(value, text.get(), length, flags) != length)
        return nullptr;
    text.get()[length] = '\0';
    return text;
}
