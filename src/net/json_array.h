// json_array.h - arrays of integers in JSON objects.
#ifndef ZORV_NET_JSON_ARRAY_H
#define ZORV_NET_JSON_ARRAY_H

#include <jansson.h>

namespace zorv {

// A new array of one integer, owned; NULL when memory is short.
json_t *make_array(long value);

} // namespace zorv

#endif
