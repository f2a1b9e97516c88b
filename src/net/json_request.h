// json_request.h - a JSON document whose text may be at hand.
#ifndef ZORV_NET_JSON_REQUEST_H
#define ZORV_NET_JSON_REQUEST_H

#include <zorv/curl_simple.h>

namespace zorv {

// As curl_simple_post_json(). The text is the body's compact form, borrowed; NULL has it made.
int post_json(const char *url, unsigned flags, const json_t *body, const char *text,
              curl_simple_response *resp);

} // namespace zorv

#endif
