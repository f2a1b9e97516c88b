/*
 * version.h - which source a library binary was built from.
 *
 * Both texts carry their own name, so that `strings libzorv.so.1 | grep zorv_git` answers on a
 * device without tools. Neither changes.
 */
#ifndef ZORV_VERSION_H
#define ZORV_VERSION_H

#include <zorv/api.h>

/* Of these headers; by semantic versioning, in the C interface. */
#define ZORV_VERSION_MAJOR 1
#define ZORV_VERSION_MINOR 0
#define ZORV_VERSION_PATCH 0

/* The same as one number, 0x010000 for 1.0.0: #if ZORV_VERSION >= 0x010100. */
#define ZORV_VERSION (ZORV_VERSION_MAJOR << 16 | ZORV_VERSION_MINOR << 8 | ZORV_VERSION_PATCH)

ZORV_BEGIN

/* "zorv_git_hash=<...>": the source revision, 40 hexadecimal digits; zeros when it is unknown. */
extern const char zorv_git_hash[];

/* "zorv_git_tag=<...>": the newest release tag at or before the revision; "unreleased" without. */
extern const char zorv_git_tag[];

ZORV_END

#endif
