/*
 * cfg.h - the device configuration: a text file of key=value lines as a list, and its queries.
 *
 * parse() turns a file such as system.cfg into a list of entries in the order of its lines; the
 * list is nothing more than a pointer to its first entry, and NULL is the empty one. Keys are
 * dotted words with indexes by habit only, "radio.1.mode", "vlan.2.devname"; the list keeps them
 * flat. Two kinds of list have the same records, so that every query works on both:
 *
 *   configuration   from parse(); owns its texts; released with free_cfg()
 *   iterator list   from get_cfg_it(), get_cfg_section(), get_cfg_diff_it(); its keys and values
 *                   are those of the configuration, borrowed until that one's free_cfg(); released
 *                   with free_cfg_it()
 *
 * Natural key order says which keys are equal and which comes first. Texts are compared byte for
 * byte, with two differences: letters (ASCII) without regard to case, and a run of digits by the
 * number that it spells, however long, so "radio.2" comes before "radio.10". Digits come after
 * everything else, and of two runs of the same value the one with more leading zeros is greater.
 * Equal keys thus differ in case at most.
 *
 * Formats and their arguments are printf-like and build the key to look for; they must not be NULL,
 * nor may key or value of a record. No query changes a list, except for the cache of escaped
 * values. Nothing is kept between calls. A failed allocation is logged under the module "cfg" as
 * "%d: malloc(%zu) failed" or "%d: calloc(%zu, %zu) failed"; a key that cannot be built, as "OOM".
 * Lists of their own may be used in threads of their own; one list in several threads only by
 * queries, and by none that escapes values.
 */
#ifndef ZORV_CFG_H
#define ZORV_CFG_H

#include <stdint.h>
#include <stdio.h>

#include <zorv/api.h>

ZORV_BEGIN

/* One line of the file, or one match. Read it freely; only the library writes it. */
typedef struct cfg_entry {
    char *key;
    char *value;
    char *escaped; /* what esc_value() made; NULL before, value itself where nothing is escaped */
    struct cfg_entry *next;
} cfg_entry;

/* A list in the making. Both NULL is the empty one to begin with. */
typedef struct cfg_collector {
    cfg_entry *head;
    cfg_entry *tail;
} cfg_collector;

/* ---- Reading and writing ---- */

/*
 * Reads a configuration to the end of a stream, which stays open. Lines may be of any length.
 *
 * A line that begins with "#", a newline or a carriage return is skipped, and so is one without
 * "=". The key is what stands before the first "=", without the blanks and tabs around it. The
 * value is the rest less its last character, untrimmed: "radio.1.mode = ap" gives " ap". That
 * character is the newline, and on purpose any other as well: a last line without a newline loses a
 * real character ("x=10" gives "1"), and a carriage return before the newline stays in the value.
 * The firmware's writers end every line with a bare newline and rely on values being left alone.
 *
 * Lines with equal keys are all kept, and a lookup takes the first. A comment that begins with
 * "# misc" changes that for the rest of the file: there, a line whose key has come before replaces
 * the value of the first entry of that key, which keeps its place and its spelling.
 *
 * A NUL byte ends its line's text early; the value then loses the character before it.
 *
 * Returns the configuration, owned, release it with free_cfg(); NULL when there are no entries or
 * stream is NULL. A read error or a lack of memory ends the list there, with an error line.
 */
cfg_entry *parse_stream(FILE *stream);

/* Reads a file as parse_stream() does; NULL also when it cannot be opened, without a message. */
cfg_entry *parse(const char *path);

/* Releases a configuration with its texts, the escaped ones too; NULL is empty. */
void free_cfg(cfg_entry *cfg);

/* Writes "key=value" lines to standard output. */
void print_cfg(const cfg_entry *cfg);

/*
 * Writes a list to a file: the line "# CFG Start", then "key=value" lines. Comments, empty lines
 * and the misc mark of the file it was read from are not kept. A key that begins with "#" or a
 * carriage return, as one with a blank before it may, is written and will not be read back.
 *
 * The file is truncated and written in place. Returns 0, or -1 when it cannot be opened; on purpose
 * the writing itself is not looked at, so a caller who must know about a full disk reads it back.
 */
int save_cfg(const cfg_entry *cfg, const char *path);

/* ---- Iterator lists ---- */

/*
 * Collects the entries of a key, in their order.
 *
 *   exact  non-zero: equal in natural key order; 0: keys that begin with the text, case-sensitive
 *
 * Returns an iterator list, owned, release it with free_cfg_it(); NULL when nothing matches or the
 * key cannot be built. A lack of memory later on ends the list there.
 */
cfg_entry *get_cfg_it(const cfg_entry *cfg, int exact, const char *format, ...) ZORV_PRINTF(3, 4);

/*
 * Moves the records of *other behind those of list and sets *other to NULL.
 *
 * Returns the head of the whole: list, or the former *other when list is NULL. An other that is
 * NULL or points to NULL changes nothing.
 */
cfg_entry *cfg_it_append(cfg_entry *list, cfg_entry **other);

/*
 * Releases the records of an iterator list, and what esc_value() made for them; never a key or a
 * value. NULL is empty.
 */
void free_cfg_it(cfg_entry *list);

/*
 * Appends a record with the key and the value of an entry to a list in the making.
 *
 * Returns 0; -1 without memory, or when the collector has a head but no tail, which is logged as
 * "invalid ctx state".
 */
int append_cfg_match_cb(const cfg_entry *matched, cfg_collector *ctx);

/* ---- Lookup ---- */

/*
 * Each looks for the first entry whose key is equal, in natural key order, to the one that format
 * builds; "wireless.%d.ssid" with 1 finds "Wireless.1.SSID". The fallback is returned when there is
 * none or the key cannot be built. A key of less than 128 bytes costs no allocation.
 */

/* Returns the value, borrowed until free_cfg(), or the fallback. */
const char *get_value(const cfg_entry *cfg, const char *fallback, const char *format, ...)
    ZORV_PRINTF(3, 4);

/* Returns the escaped value, see esc_value(), or the fallback, also for lack of memory. */
const char *get_esc_value(cfg_entry *cfg, const char *fallback, const char *format, ...)
    ZORV_PRINTF(3, 4);

/*
 * Escapes a value for use between double quotes in a shell command: a backslash before every back
 * quote, backslash, double quote and dollar sign. Done once; the record keeps the result.
 *
 * Returns the text, borrowed until the record's free_cfg() or free_cfg_it(); the very value where
 * nothing needs escaping; NULL without memory, and the next call tries again.
 */
const char *esc_value(cfg_entry *entry);

/*
 * Numbers as strtol() and its kin read them; what follows the number does not matter, "12ms" is 12.
 * Base 0 takes "0x1F" for 31 and "010" for 8; the _dec form takes base 10 only. A number outside 32
 * bits but inside 64 is cut to its low 32.
 *
 * The fallback is also returned for a value that does not begin with a number and for a range
 * error. On purpose errno is not cleared first: an ERANGE that an earlier call of the thread left
 * gives the fallback, too, as callers that look at errno themselves are used to.
 */
int32_t get_int32(const cfg_entry *cfg, int32_t fallback, const char *format, ...)
    ZORV_PRINTF(3, 4);
uint32_t get_uint32(const cfg_entry *cfg, uint32_t fallback, const char *format, ...)
    ZORV_PRINTF(3, 4);
int32_t get_int32_dec(const cfg_entry *cfg, int32_t fallback, const char *format, ...)
    ZORV_PRINTF(3, 4);
int64_t get_int64(const cfg_entry *cfg, int64_t fallback, const char *format, ...)
    ZORV_PRINTF(3, 4);

/*
 * Reads a switch, whatever the case and the blanks and tabs around it.
 *
 * Returns 1 for on, enabled, 1, enable, active, true; 0 for off, disabled, 0, disable, inactive,
 * false; the fallback for anything else.
 */
int get_bool(const cfg_entry *cfg, int fallback, const char *format, ...) ZORV_PRINTF(3, 4);

/* ---- Counts; 0 also on failure ---- */

/* Returns the number of records. */
uint32_t get_cfg_count(const cfg_entry *cfg);

/* Returns how many entries get_cfg_it() would collect. */
uint32_t get_cfg_key_count(const cfg_entry *cfg, int exact, const char *format, ...)
    ZORV_PRINTF(3, 4);

/* Returns how many entries get_cfg_section() would collect. */
uint32_t get_cfg_section_count(const cfg_entry *cfg, const char *postfix, const char *value,
                               const char *prefix_format, ...) ZORV_PRINTF(4, 5);

/*
 * Returns how many entries of a section have one of the true words of get_bool() as value, whatever
 * its case but without blanks: how many "wlan.N.status" are enabled, say.
 */
uint32_t get_cfg_section_enabled_count(const cfg_entry *cfg, const char *postfix,
                                       const char *prefix_format, ...) ZORV_PRINTF(3, 4);

/* ---- Sections: prefix, index, postfix ---- */

/*
 * Collects the entries whose key is a prefix, an index and a postfix, such as "vlan." 3 ".devname",
 * in ascending natural key order (2 before 10); entries of equal keys keep their order.
 *
 *   postfix  begins with ".", or NULL: the key ends with the index
 *   value    the value that an entry must have, case-sensitive; NULL takes any
 *
 * The prefix is compared with case; without a "." at its end it still works, and the warning
 * "deprecated prefix doesn't end with '.': '%s' => '%s'" is logged. The index is whatever strtol()
 * takes in base 0: "vlan.0x10" is in the section "vlan.", and so is "vlan.1abc", as only the first
 * character need be a number. What follows from the next "." on must be equal to the postfix in
 * natural key order; without a postfix there must be no such ".".
 *
 * Returns an iterator list, owned, release it with free_cfg_it(); NULL when nothing matches, when
 * the prefix cannot be built, or for a postfix without its ".", which is logged as "postfix must
 * start with '.': '%s'". A lack of memory later on cuts the list short.
 */
cfg_entry *get_cfg_section(const cfg_entry *cfg, const char *postfix, const char *value,
                           const char *prefix_format, ...) ZORV_PRINTF(4, 5);

/* ---- Keys ---- */

/*
 * Returns the n-th index of a key, from 1, or -1 when it has fewer: 5 for "radio.2.vap.5.ssid" and
 * n = 2. A component counts that strtol() reads, in base 0, as a number other than 0; the text
 * before the first "." never counts. On purpose an index 0 cannot be reported: the configuration
 * counts from 1. A number outside int is cut to its low bits.
 */
int get_cfg_key_idx(const char *key, int n);

/* Returns the text behind the n-th "." of a key, borrowed; key itself for 0; NULL with fewer dots.
 */
const char *get_key_element(const char *key, unsigned n);

/* ---- Difference ---- */

/*
 * Collects what is new, changed and gone between two configurations: first the entries of new_cfg,
 * in their order, that old_cfg lacks or has with another value (case-sensitive), then those of
 * old_cfg that new_cfg lacks, with their old values. A look at new_cfg tells gone from changed.
 *
 * Keys are looked up as get_value() does, so the first of equal keys counts; each of several equal
 * keys that are gone is listed. Keys that end in ".comment" are left out.
 *
 * Returns an iterator list, owned, release it with free_cfg_it(); its texts are borrowed from both
 * inputs. NULL when nothing differs. A record for which there is no memory is left out.
 */
cfg_entry *get_cfg_diff_it(const cfg_entry *old_cfg, const cfg_entry *new_cfg);

ZORV_END

#endif
