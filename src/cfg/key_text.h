// key_text.h - a key built from a format: on the stack while it is short, as keys are.
#ifndef ZORV_CFG_KEY_TEXT_H
#define ZORV_CFG_KEY_TEXT_H

#include <cstdarg>
#include <cstdio>

#include <zorv/format.h>

#include "core/own.h"

namespace zorv {

class KeyText {
public:
    ZORV_PRINTF(2, 0) KeyText(const char *format, va_list arguments)
    {
        va_list copy;
        va_copy(copy, arguments);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): copied just above
        const int length = vsnprintf(short_, sizeof short_, format, copy);
        va_end(copy);
        fits_ = length >= 0 && static_cast<size_t>(length) < sizeof short_;
        if (!fits_)
            long_.reset(malloc_vprintf(format, arguments));
    }
    KeyText(const KeyText &) = delete;
    KeyText &operator=(const KeyText &) = delete;

    // Null when it could not be built.
    const char *get() const { return fits_ ? short_ : long_.get(); }

private:
    char short_[128]; // the longest keys of the firmware have some 60 characters
    bool fits_;
    Text long_;
};

} // namespace zorv

#endif
