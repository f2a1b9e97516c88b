// trace_envelope.h - the document that a batch of traces travels in.
#ifndef ZORV_TELEMETRY_TRACE_ENVELOPE_H
#define ZORV_TELEMETRY_TRACE_ENVELOPE_H

#include <cstdint>

#include <jansson.h>

namespace zorv {

// Milliseconds since 1970, by the clock that may be set.
uint64_t milliseconds_now();

// Fills a new envelope as send_traces() describes it. False when memory is short: logged where the
// outer meta is what cannot be made, or there is no envelope.
bool trace_envelope_object(json_t *envelope, json_t *traces, const json_t *meta);

} // namespace zorv

#endif
