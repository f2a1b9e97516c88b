/*
 * json.h - settings, counters and sampled series in JSON objects; files and build facts.
 *
 * Objects are jansson's, borrowed for the call; include <jansson.h> to build and read values. A
 * null object or key, and an object that is none, have no members: getters give the default,
 * updaters fail with -1. Integers wrap around. Pointers to results must not be NULL unless it is
 * said. Getters never log.
 *
 * One thing is kept between calls: the time in vq_now, which paces the series. What sets or reads
 * it is for one thread; any other function may be called by any, each object in one at a time.
 */
#ifndef ZORV_JSON_H
#define ZORV_JSON_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include <zorv/api.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

/*
 * The time of zorv_grab_ts() or zorv_set_ts(); zeros before. Its seconds are "now" for the series.
 */
extern struct timespec vq_now;

/*
 * Read a member, or give the default back when it is missing or of another type.
 *
 * The text of zorv_json_get_str() is borrowed until the member changes. zorv_json_get_bool() takes
 * an integer as well, 0 as false, and returns 1 or 0.
 */
const char *zorv_json_get_str(struct json_t *obj, const char *key, const char *fallback);
int zorv_json_get_bool(struct json_t *obj, const char *key, int fallback);
long zorv_json_read_long(struct json_t *obj, const char *key, long fallback);
int64_t zorv_json_read_i64(struct json_t *obj, const char *key, int64_t fallback);

/*
 * Reads the integers of an array in their order; other elements are passed over.
 *
 *   out    [out] an owned array (the caller releases it with free()); left alone on failure
 *   count  [out] how many integers; 0 when there are only other elements, else left alone on
 *          failure
 *
 * Returns 0; -1 when the member is missing, no array or empty, when it has no integer, or when
 * memory runs short, logged as "Failed to allocate memory".
 */
int zorv_json_read_array(struct json_t *obj, const char *key, long **out, size_t *count);

/*
 * Reads a member that is a number in a text, or an integer.
 *
 *   obj_name       what the messages call the object
 *   allow_integer  0 refuses an integer
 *   value          [out] left alone on failure; NULL is an error
 *
 * A text is read as by sscanf() with "%i": "0x1f" is 31 and "010" is 8, and what follows the
 * number is ignored. Of an integer that is too large the lower 32 bits are taken.
 *
 * Returns 1 for a text, 2 for an integer, 0 on failure, which is logged in debug with its reason.
 */
int zorv_json_integer_value_from_obj(struct json_t *obj, const char *obj_name, const char *key,
                                     int allow_integer, int *value);

/*
 * Set a member to its integer value, 0 when it is missing or no integer, plus delta. They return 0,
 * or -1 when it cannot be set.
 */
int zorv_json_add_long(struct json_t *obj, const char *key, long delta);
int zorv_json_add_i64(struct json_t *obj, const char *key, int64_t delta);

/*
 * Appends an integer to an array, which is made if the member is missing.
 *
 * Returns 0, on purpose also when the member is there but is no array and stays as it is: kept for
 * callers built against it. -1 when a new array cannot be made, logged as "Failed to allocate json
 * array", or cannot be set.
 */
int zorv_json_append_array(struct json_t *obj, const char *key, long value);

/*
 * Appends an integer to a series that keeps a distance in time and never grows far past 360.
 *
 *   key  the base name K of the members KArray (the integers), KTime (when the last one was
 *        appended) and KInterval (the least number of seconds between two, 10 when missing); at
 *        most 31 characters
 *
 * Now is vq_now as it stands. A missing KArray begins a new series, whatever KTime says; KInterval
 * is then not written. Before the integer is appended to more than 359, every second element of
 * the series is taken out, the first one staying, and KInterval is doubled.
 *
 * Returns 0; -2 without a change while less than KInterval seconds have gone by since a KTime that
 * is not 0; -1 when the key is too long, logged as "key too long: %s\n", when the array cannot be
 * made, logged as "Failed to allocate json array", or when KArray is no array.
 */
int zorv_json_maybe_append_array(struct json_t *obj, const char *key, long value);

/* Reads the monotonic clock into vq_now. Returns its seconds. */
long zorv_grab_ts(void);

/* Sets the seconds of vq_now, for callers with a clock of their own. */
void zorv_set_ts(long seconds);

/*
 * Encodes a whole file in Base64, from its beginning wherever the stream stands; the stream is left
 * behind what was read.
 *
 *   stream  one that can be rewound; NULL gives NULL
 *
 * Returns an owned text (the caller releases it with free()), "" for an empty file; or NULL: in
 * debug "Couldn't find file size: %s" for a pipe, as errors "626: malloc(%zu) failed" with the size
 * of the text, also when that is more than 2 GiB, and "Couldn't read all bytes from file".
 */
char *load_file_base64(FILE *stream);

/*
 * Sets a member to a file's content in Base64, or to "" when the file cannot be loaded.
 *
 * Returns 0, or -1 when the file cannot be loaded or the member cannot be set.
 */
int json_object_load_file_base64(struct json_t *obj, const char *key, FILE *stream);

/*
 * Makes the vendor part of a hardware address, "001a2b" of "00:1A:2b:...".
 *
 * Returns an owned string (the caller releases it with json_decref()), or NULL when there are fewer
 * than three bytes; NULL has none.
 */
struct json_t *mac_str_to_oui_json_string(const char *mac);

/*
 * Writes when the firmware was built, "date time" as /usr/lib/build.properties gives them in
 * build_date and build_time, each cut to 11 characters and empty when missing.
 *
 *   buf  [out] the text, cut to len - 1 bytes, and a NUL; left alone on failure
 *   len  0 or less writes nothing
 *
 * Returns 0, or -1 when the file does not exist.
 */
int get_build_time(char *buf, int len);

/*
 * Tells what the firmware was built from, by scm_reftype in /usr/lib/build.properties: 1 for
 * "atag", 2 for "branch", 0 for any other word and none.
 */
int get_zorv_scm_reftype(void);

ZORV_END

#endif
