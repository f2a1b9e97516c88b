// What the crash service answers to the report of a dump: kept up to its limit, shown as a text,
// parsed, and asked for the place of the upload.
#include <zorv/log.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "telemetry/crash_report.h"

using namespace zorv;

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const Response response(curl_simple_response_init(kMostAnswered));
    buffer *const body = response->body;
    const size_t kept = std::min(size, kMostAnswered);
    body->append(body, data, kept);
    const char *const text = body_text(*response);
    const size_t length = strnlen(text, kept + 1);
    require(length <= kept && (length == 0 || memcmp(text, data, length) == 0));

    json_error_t error;
    const Json answer(json_loads(text, 0, &error));
    require(answer || strlen(error.text) > 0);
    const char *const url = upload_url_of(answer.get());
    require(!url || (json_is_object(answer.get()) && strlen(url) <= kept));
    return 0;
}
