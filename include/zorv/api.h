/*
 * api.h - linkage and export of every public header.
 *
 * ZORV_BEGIN and ZORV_END enclose the declarations of a header: C linkage for C++ callers, and the
 * default visibility that puts a function into the shared object's symbol table.
 */
#ifndef ZORV_API_H
#define ZORV_API_H

#ifndef __LP64__
#error "libzorv needs a 64-bit processor: the layouts that its callers share have 64-bit longs"
#endif

/* clang-format off */
#ifdef __cplusplus
#define ZORV_BEGIN extern "C" { _Pragma("GCC visibility push(default)")
#define ZORV_END _Pragma("GCC visibility pop") }
#else
#define ZORV_BEGIN _Pragma("GCC visibility push(default)")
#define ZORV_END _Pragma("GCC visibility pop")
#endif
/* clang-format on */

/* The compiler checks the arguments against the format; positions count from 1. */
#define ZORV_PRINTF(format_position, first_argument)                                               \
    __attribute__((format(printf, format_position, first_argument)))

#endif
