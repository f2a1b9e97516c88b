// url_address.h - the step of resolving that needs no resolver.
#ifndef ZORV_NET_URL_ADDRESS_H
#define ZORV_NET_URL_ADDRESS_H

#include <zorv/url.h>

namespace zorv {

// The result of an answer without an IPv4 or IPv6 address, and of one whose last is too long.
constexpr int kNoAddress = -6;
constexpr int kOversize = -2;

// Takes an answer of the resolver into the record: of all its IPv4 and IPv6 addresses, the last.
// Returns 0, kNoAddress or kOversize. The record then holds no pointer into the answer.
int take_answer(url &record, const addrinfo *answer);

} // namespace zorv

#endif
