/*
 * base64.h - Base64 (RFC 4648) into buffers of the caller.
 *
 * Two encoders: the standard alphabet with "=" padding, and the URL-safe alphabet without. One
 * decoder under two names reads both alphabets, even mixed in one text. It is tolerant: padding, a
 * line break or any other byte outside the alphabets ends the input without an error.
 *
 * Size each buffer with the length function first. Nothing is kept between calls, nothing is
 * logged, and any thread may call any function. Source and destination must not overlap.
 */
#ifndef ZORV_BASE64_H
#define ZORV_BASE64_H

#include <zorv/api.h>

ZORV_BEGIN

/*
 * Returns the size of a buffer for len encoded bytes with padding and a NUL:
 * ((len + 2) / 3) x 4 + 1. A result that an int cannot hold, from 1,610,612,734 bytes on, is -1, a
 * size that no allocation grants; a negative len counts as 0.
 */
int base64_encode_len(int len);

/* The same, so up to two bytes more than the URL-safe form needs. */
int base64url_encode_len(int len);

/*
 * Encodes in the standard alphabet, padded with "=" to a multiple of four characters.
 *
 *   dst  [out] the text and a NUL
 *   len  bytes at src, at most what base64_encode_len() has an answer for; below 1 gives ""
 */
void base64rfc_encode(char *dst, const unsigned char *src, int len);

/* Encodes in the URL-safe alphabet ("-" and "_" for "+" and "/"), without padding. */
void base64url_encode(char *dst, const unsigned char *src, int len);

/*
 * Returns the size of a buffer for the decoded bytes and a NUL: ((n + 3) / 4) x 3 + 1, where n is
 * the number of characters of src before the first that is in neither alphabet. A result that an
 * int cannot hold is -1.
 */
int base64_decode_len(const char *src);

/* The same. */
int base64url_decode_len(const char *src);

/*
 * Decodes up to the first character that is in neither alphabet.
 *
 *   dst  [out] the bytes and a NUL behind them, base64_decode_len(src) at most
 *   src  ends with its first foreign byte, a NUL or another
 *
 * Four characters give three bytes; the last two or three give one or two, a single last one
 * gives none. How many bytes were written the caller reckons from the text: 3 x n / 4, rounded
 * down.
 */
void base64_decode(unsigned char *dst, const char *src);

/* The same. */
void base64url_decode(unsigned char *dst, const char *src);

ZORV_END

#endif
