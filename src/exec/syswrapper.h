// syswrapper.h - which system script a command goes to, and with which argument vector.
#ifndef ZORV_EXEC_SYSWRAPPER_H
#define ZORV_EXEC_SYSWRAPPER_H

#include <cstddef>

#include <fcntl.h>

#include "core/own.h"

namespace zorv {

// The first that can be opened is taken.
constexpr const char *kSystemScripts[] = {"/etc/syswrapper.sh", "/usr/etc/syswrapper.sh"};

// NULL when there is none.
inline const char *find_system_script()
{
    for (const char *path : kSystemScripts) {
        if (Fd(open(path, O_RDONLY | O_CLOEXEC)))
            return path;
    }
    return nullptr;
}

// The argument vector of a run: script, command, up to 48 further words, NULL.
class SystemVector {
public:
    static constexpr size_t kWords = 50;

    SystemVector(const char *script, const char *command) : words_{script, command} {}

    bool is_full() const { return count_ == kWords; }
    void add(const char *word) { words_[count_++] = word; } // not when full
    const char *const *words() const { return words_; }

private:
    const char *words_[kWords + 1];
    size_t count_ = 2;
};

} // namespace zorv

#endif
