/*
 * text.h - trimming, hexadecimal forms, hardware addresses, random texts, commented-out lines.
 *
 * Nothing is kept between calls but the state of the C library's rand(), which all threads share:
 * random results stay well-formed in several threads, but one's seed cuts into the other's
 * sequence. Any thread may call any function. A null pointer may be passed only where it is said.
 * White space is space, tab, newline, carriage return, vertical tab and form feed.
 */
#ifndef ZORV_TEXT_H
#define ZORV_TEXT_H

#include <stddef.h>
#include <stdio.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * Overwrites the white space at the end of a text with NULs.
 *
 *   length  bytes at text to look at, from text[length - 1] backwards; 0 or less does nothing
 */
void trim_trailing(char *text, int length);

/*
 * Copies a text without the white space in front of it.
 *
 *   destination  [out] the text, cut to size - 1 bytes, and a NUL; NULL does nothing
 *   size         bytes at destination; with 0 nothing is written
 *   source       NULL gives ""
 *
 * On purpose, white space at the end is copied as well: callers that want it gone call
 * trim_trailing().
 */
void strncpy_trim(char *destination, size_t size, const char *source);

/*
 * Converts pairs of hexadecimal digits, of either case, into bytes.
 *
 *   hex   NULL gives 0
 *   out   [out] the bytes, zeros behind them; NULL gives 0
 *   size  bytes at out
 *
 * Conversion ends when out is full, at the end of hex, or at a pair that is no number. A pair is
 * what scanf() takes for "%2x": a single digit at the end is a number as well, and so is one with a
 * sign or white space in front of it.
 *
 * Returns 0 for an empty hex; otherwise size, the room given and not the count of bytes converted,
 * on purpose: callers compare it with the size of the key or address that they want filled.
 */
size_t hex2uchar(const char *hex, unsigned char *out, size_t size);

/*
 * Write bytes as hexadecimal digits, upper case and lower case.
 *
 *   bytes, out  NULL gives 0
 *   out         [out] the digits, and zeros up to the end of the buffer
 *   size        bytes at out, more than 2 * count
 *
 * Returns count, or 0 with out untouched when an argument is not as it should be.
 */
size_t uchar2hex(const unsigned char *bytes, size_t count, char *out, size_t size);
size_t uchar2lowerhex(const unsigned char *bytes, size_t count, char *out, size_t size);

/*
 * Reads a hardware address such as "02:a0:F1:0:0:7"; what follows it is ignored.
 *
 *   mac  [out] left alone on failure
 *
 * Returns 0, or -1 with fewer than six fields.
 */
int strtomac(const char *text, unsigned char mac[6]);

/*
 * Random bytes, digits and texts. Every call seeds rand() with four bytes of /dev/urandom and takes
 * its values from rand(), so the results are as good as 32 bits of randomness: enough for tokens
 * that tell things apart, not for keys. A seed that cannot be read is logged in verbose debug as
 * "read returned error in urandom" by "urandom", and getrandom(2) gives it; where that has none
 * either, the time does, with the warning "no random numbers from the kernel, the time is taken".
 * Programs that seed rand() themselves lose their sequence.
 */

/* Fills out with count bytes. Returns count; 0 when out is NULL, rand() being seeded all the same.
 */
size_t gen_rand_bytes(unsigned char *out, size_t count);

/*
 * Writes (size - 1) / 2 random bytes as upper-case digits, and a NUL.
 *
 *   size  bytes at out, an odd number; an even one writes nothing and returns 0, as does a NULL out
 *
 * Returns the number of bytes that the digits stand for, (size - 1) / 2. Seeds in every case.
 */
size_t gen_rand_hex(char *out, size_t size);

/*
 * Writes a text of random digits and letters.
 *
 *   out     [out] length characters and a NUL, length + 1 bytes
 *
 * Returns out; NULL, without seeding, when out is NULL or length is 0.
 */
char *gen_rand_string(char *out, size_t length);

/*
 * Comments out the lines of an open file that contain one of some texts.
 *
 *   stream    open for reading and writing, not for appending; left at the end of the file
 *   patterns  [in,out] texts separated by "|", empty ones passed over; the list is cut into pieces
 *
 * The first character of each such line is overwritten by "#", on purpose: lines keep their length,
 * so the file is edited in place and keeps its size. A line of 255 characters or more, its newline
 * aside, is left as it is.
 *
 * Returns 0; -1 when there was a line that was too long, or the stream cannot be read, written or
 * positioned, which ends the search for that text.
 */
int comment_out_lines(FILE *stream, char *patterns);

ZORV_END

#endif
