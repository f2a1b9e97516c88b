/*
 * file.h - one line, one value or one number of a file, read or written in one call.
 *
 * Made for state files and for the tables of /proc and /sys. A value reader takes a default and
 * gives it back in place of an error. The functions in ...at() take a directory descriptor, or
 * AT_FDCWD, and a path relative to it, as openat() does; files they create have permissions 0600.
 *
 * Any thread may call any function, but for those that say otherwise. Nothing is kept between calls
 * and no file is locked: the functions that add to a number read and write in two steps, and
 * another writer may come between. What a call opens for itself is close-on-exec. A null pointer
 * may be passed only where it is said. Buffers of size 0, or a negative size, are left alone. A
 * read that a signal cuts off goes on.
 */
#ifndef ZORV_FILE_H
#define ZORV_FILE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * Opens the file whose path the format makes.
 *
 *   mode  as for fopen(); add "e" for a stream that is close-on-exec
 *
 * Returns an owned stream (the caller releases it with fclose()), or NULL with errno; a path of
 * more than 4096 bytes, its NUL included, is ENAMETOOLONG, as the kernel would say.
 */
FILE *fopen_format(const char *mode, const char *format, ...) ZORV_PRINTF(2, 3);

/*
 * Reads the first line of a file, without its newline.
 *
 *   path    NULL is an error, -EINVAL
 *   buffer  [out] at most size - 1 bytes of the line and a NUL; left alone when nothing is read
 *
 * Returns 0, or a negated errno when the file cannot be opened or read. On purpose: an empty file
 * sets no error, so the result is whatever errno was before, negated. That is 0, success with the
 * buffer untouched, where nothing failed before; callers tell an empty state file from a missing
 * one by it, and clear the buffer (and errno) first.
 */
int fsreadline(const char *path, char *buffer, int size);

/*
 * Reads the first line of a file as fsreadline() does, or else copies the default.
 *
 *   fallback  cut to size - 1 bytes; NULL gives "" and logs the error
 *             "NULL pointer for default value"
 *
 * Returns buffer. A failure is logged as "fsreadline returned error code %d" in verbose debug.
 * Where fsreadline() succeeds on an empty file, the buffer is untouched.
 */
char *freadline(const char *path, char *buffer, int size, const char *fallback);

/*
 * Finds the first line that contains a text.
 *
 *   path, needle, buffer  NULL gives -1
 *   buffer                [out] the whole line with its newline, cut to size - 1 bytes, and a NUL.
 *                         Its last byte becomes NUL even when nothing is found.
 *   size                  0 gives -1
 *
 * Lines are read in pieces of 254 bytes, and each piece counts as a line: a needle across two
 * pieces is not found. Returns 0, or -1 when no line contains it or the file cannot be opened.
 */
int fsreadlinebykey(const char *path, const char *needle, char *buffer, size_t size);

/*
 * Replaces the content of a file, which is created if it is missing, by a formatted text. The
 * format carries the newline.
 *
 * Returns the number of bytes formatted, or -1 when the file cannot be opened or vfprintf() fails.
 * What the disk refuses only when the file is closed, as it is with short texts, does not show.
 */
int fwriteline(const char *path, const char *format, ...) ZORV_PRINTF(2, 3);

/*
 * Finds the value of a key in lines "key value" or "key=value".
 *
 *   path, key  NULL gives the default
 *   key        compared whole, with its case: "MemTotal:" for a line "MemTotal:  1024 kB"
 *   buffer     [out] the second word of the line, cut to size - 1 bytes, and a NUL
 *   fallback   as for freadline()
 *
 * Words are separated by any number of blanks, tabs, carriage returns, newlines and "=". Lines are
 * read in pieces of 254 bytes, each of which counts as a line. A line with the key alone is passed
 * over. Returns buffer; its last byte is NUL in every case.
 */
char *freadvalue(const char *path, const char *key, char *buffer, size_t size,
                 const char *fallback);

/*
 * Read the number at the start of a file in base 10, white space before it skipped; what follows
 * it is ignored. Only the first 15 characters of the line are seen, 32 for freaddouble(); the
 * number is then what strtoul(), strtol() and strtod() make of them. They return the default when
 * there is no file, no line or no number.
 */
unsigned long freadulong(const char *path, unsigned long fallback);
long freadlong(const char *path, long fallback);
double freaddouble(const char *path, double fallback);

/*
 * Adds to the number in a file, read as by freadlong() with the default 0, and replaces the file's
 * content by "%ld\n" of the sum, which wraps around. Returns 0, or -1 when the file cannot be
 * written.
 */
int faddlong(const char *path, long delta);

/*
 * Reads the first line of a file without its newline, or else copies the default.
 *
 *   buffer    [out] at most size - 1 bytes of the line and a NUL
 *   fallback  as for freadline(); taken for an empty file as well
 *
 * Returns buffer.
 */
char *freadlineat(int dirfd, const char *path, char *buffer, int size, const char *fallback);

/*
 * Read the number at the start of a file. Only the first 15 characters of the line are seen.
 *
 * On purpose: unlike freadlong() they tell the base by the prefix, so that "0x1f" is 31 and "010"
 * is 8. They return the default when there is no file, no line or no number.
 */
long freadlongat(int dirfd, const char *path, long fallback);
int64_t freadi64at(int dirfd, const char *path, int64_t fallback);

/*
 * Replaces the content of a file, which is created if it is missing, by a formatted text; the
 * format carries the newline.
 *
 * Returns what fwriteline() does.
 *
 * On purpose, here and in the three functions below: when the stream is closed its descriptor is
 * closed once more. That fails without harm (errno becomes EBADF) in a program of one thread;
 * where other threads open files at the same time, do not call these.
 */
int fwritelineat(int dirfd, const char *path, const char *format, ...) ZORV_PRINTF(3, 4);

/* Writes "%ld\n" as fwritelineat() does. Returns 0, or -1 when the file cannot be opened. */
int fwritelongat(int dirfd, const char *path, long value);

/*
 * Add to the number in a file, read as by freadlongat() with the default 0, and replace the file's
 * content by "%ld\n" of the sum, which wraps around; a missing file is created. They return 0, or
 * -1 when the file cannot be opened or emptied. Whether the sum could be written is not told.
 */
int faddlongat(int dirfd, const char *path, long delta);
int faddi64at(int dirfd, const char *path, int64_t delta);

ZORV_END

#endif
