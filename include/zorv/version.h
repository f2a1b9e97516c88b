/*
 * version.h - which source a library binary was built from.
 *
 * Both texts carry their own name, so that `strings libzorv.so.1 | grep zorv_git` answers on a
 * device without tools.
 */
#ifndef ZORV_VERSION_H
#define ZORV_VERSION_H

#include <zorv/api.h>

ZORV_BEGIN

/* "zorv_git_hash=<...>": the source revision, 40 hexadecimal digits; zeros when it is unknown. */
extern const char zorv_git_hash[];

/* "zorv_git_tag=<...>": the newest release tag at or before the revision; "unreleased" without. */
extern const char zorv_git_tag[];

ZORV_END

#endif
