// response.h - the owner of what an HTTP request brought.
#ifndef ZORV_NET_RESPONSE_H
#define ZORV_NET_RESPONSE_H

#include <memory>

#include <zorv/curl_simple.h>

#include "core/own.h"

namespace zorv {

using Response = std::unique_ptr<curl_simple_response, Closer<curl_simple_response_free>>;

// What is kept of the body, as a text that ends at its first NUL; borrowed from the response, of
// which it may keep fewer bytes than a buffer begins with: then the NUL has room behind them.
inline char *body_text(const curl_simple_response &response)
{
    buffer *const body = response.body;
    body->append(body, "", 1);
    return reinterpret_cast<char *>(body->data(body));
}

// Makes blanks of the control characters of a text from a service, which might use them to write
// log lines of its own.
inline const char *loggable(char *text)
{
    for (char *at = text; *at != '\0'; ++at) {
        if (static_cast<unsigned char>(*at) < ' ' || *at == '\x7f')
            *at = ' ';
    }
    return text;
}

// The body as a text for a log line, loggable from then on.
inline const char *loggable_body(const curl_simple_response &response)
{
    return loggable(body_text(response));
}

} // namespace zorv

#endif
