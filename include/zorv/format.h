/*
 * format.h - formatted texts, hexadecimal dumps, path reduction and directory creation.
 *
 * Nothing is kept between calls, and any thread may call any function. A null pointer may be passed
 * only where a function says so. Paths are limited to 4096 bytes, their NUL included.
 */
#ifndef ZORV_FORMAT_H
#define ZORV_FORMAT_H

#include <stdarg.h>
#include <stddef.h>
#include <sys/types.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * Formats into a text of exactly the needed size.
 *
 * Returns an owned text (the caller releases it with free()), or NULL without a message when the
 * formatter fails or memory is short. malloc_vprintf() leaves `arguments` used up, as vprintf does.
 */
char *malloc_vprintf(const char *format, va_list arguments) ZORV_PRINTF(1, 0);
char *malloc_printf(const char *format, ...) ZORV_PRINTF(1, 2);

/*
 * Formats into a buffer and reports a text that does not fit.
 *
 *   module              the caller's module in the log lines
 *   truncation_message  logged as an error, followed by a newline, when the text is cut; NULL
 *                       changes the result, see below
 *   buffer              [out] the text, cut to size - 1 bytes, and a NUL
 *   size                bytes at buffer; with 0 nothing is formatted: the message is logged
 *
 * Returns the number of characters stored: the text's length, or size - 1 when it was cut. Without
 * a truncation_message a cut is silent and the whole text's length is returned, as by snprintf().
 * Returns 0 when size is 0, and when formatting fails, which is logged as
 * "zorv_snprintf failure: " and the formatter's result.
 */
int zorv_snprintf(const char *module, const char *truncation_message, char *buffer, size_t size,
                  const char *format, ...) ZORV_PRINTF(5, 6);

/*
 * Writes bytes as lower-case hexadecimal digits, except the last one.
 *
 *   count  bytes at `bytes`; count - 1 of them are written on purpose: callers size their calls
 *          for it. With a count of 1 or less nothing is written.
 *   out    [out] the digits and a NUL; left alone when no byte is written
 *   size   bytes at out; a byte is written only while more than 2 are free, so with 2 or fewer
 *          (or a negative size) nothing is
 *
 * Returns the number of digits written.
 */
int bin2hex(const unsigned char *bytes, int count, char *out, int size);

/*
 * Reduces a path by its text alone: "/a//b/./c/../d/" becomes "/a/b/d". Symbolic links are not
 * looked at.
 *
 *   output  [out] at least 4096 bytes apart from path; NULL has the result allocated
 *
 * Repeated and trailing slashes and "." components go; ".." takes the component before it away,
 * and at the root goes itself. An absolute path that reduces to nothing is "/", a relative one ".".
 * A relative path stays relative ("a/../b" becomes "b") until ".." climbs above its start: from
 * there on it is resolved against the working directory and becomes absolute.
 *
 * Returns output, or without one an owned text (the caller releases it with free()). NULL with
 * errno: ENAMETOOLONG when the result, at any point of its making, reaches 4096 characters; ENOMEM,
 * logged as "%d: malloc(%zu) failed"; or why the working directory cannot be had, logged as
 * "Couldn't getcwd for path %s, %s". The bytes at output are then undefined.
 */
char *vq_reduce_path(const char *path, char *output);

/*
 * Creates a directory and the parents that it lacks, each with the given mode and the umask.
 *
 * Returns 0 with errno 0 when the directory is there already or has been made. Returns -1 with
 * errno: ENOTDIR when path, or the longest part of it that exists, is no directory; otherwise what
 * vq_reduce_path(), stat() or mkdir() gave. EEXIST is a failure too: it shows that somebody else
 * makes the same directories at the same time. Directories made before a failure stay.
 */
int vq_mkdir_p(const char *path, mode_t mode);

ZORV_END

#endif
