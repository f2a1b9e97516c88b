// log_gate.h - log call sites: a silent one costs one comparison and evaluates no argument.
//
// A file that logs has one `constexpr char kModule[]`. __func__ is the function that stands in the
// line, so no logging inside lambdas; a helper whose lines bear the name of the function that
// callers know says so by log_error_as(name, ...).
#ifndef ZORV_CORE_LOG_GATE_H
#define ZORV_CORE_LOG_GATE_H

#include <sys/types.h>
#include <syslog.h>

#include <zorv/log.h>

#define LOG_GATED(gate, priority, module, function, ...)                                           \
    do {                                                                                           \
        if (libzorv_log_level >= (gate))                                                           \
            libzorv_log((priority), module, function, __VA_ARGS__);                                \
    } while (0)
#define log_error_as(function, ...) LOG_GATED(1, LOG_ERR, kModule, function, __VA_ARGS__)
#define log_info_as(function, ...) LOG_GATED(4, LOG_INFO, kModule, function, __VA_ARGS__)
#define log_debug_as(function, ...) LOG_GATED(8, LOG_DEBUG, kModule, function, __VA_ARGS__)
#define log_verbose_as(function, ...) LOG_GATED(16, LOG_DEBUG, kModule, function, __VA_ARGS__)
#define log_error(...) log_error_as(__func__, __VA_ARGS__)
#define log_warning(...) LOG_GATED(2, LOG_WARNING, kModule, __func__, __VA_ARGS__)
#define log_info(...) log_info_as(__func__, __VA_ARGS__)
#define log_debug(...) log_debug_as(__func__, __VA_ARGS__)
#define log_verbose(...) log_verbose_as(__func__, __VA_ARGS__)

namespace zorv {

// libzorv_log() for a process that cannot speak for itself: the line bears its pid.
void log_for(pid_t pid, int level, const char *module, const char *function, const char *format,
             ...) ZORV_PRINTF(5, 6);

} // namespace zorv

// After an allocation that failed; the line is that of the call.
#define log_malloc_failed(size) log_error("%d: malloc(%zu) failed", __LINE__, size)

#endif
