// response.h - the owner of what an HTTP request brought.
#ifndef ZORV_NET_RESPONSE_H
#define ZORV_NET_RESPONSE_H

#include <memory>

#include <zorv/curl_simple.h>

#include "core/own.h"

namespace zorv {

using Response = std::unique_ptr<curl_simple_response, Closer<curl_simple_response_free>>;

} // namespace zorv

#endif
