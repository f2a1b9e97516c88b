/*
 * log.h - one line of diagnostics to syslog, the kernel log or standard error.
 *
 * Every diagnostic of the library goes through libzorv_log(). Three plain variables let the
 * hosting program choose verbosity and destination at any time, without a call; they are read
 * without synchronisation and are meant to be set once at start-up.
 *
 * libzorv_log() itself never filters. A call site tests libzorv_log_level first:
 *
 *   kind of message                 priority passed    logged when libzorv_log_level is at least
 *   error                           LOG_ERR (3)        1
 *   warning                         LOG_WARNING (4)    2
 *   informational                   LOG_INFO (6)       4
 *   debug                           LOG_DEBUG (7)      8
 *   verbose debug, per item         LOG_DEBUG (7)      16
 *
 * Nothing here reports a failure: a destination that is not there is replaced by the next one. Any
 * thread may call any function; lines of concurrent threads or processes may interleave.
 *
 * Syslog and a standard error that is a pipe, a socket or a terminal wait for their reader, without
 * limit: a syslog daemon that hangs, or a pager that is not scrolled, holds up every thread that
 * logs. /dev/kmsg and files do not. A standard error whose reader is gone loses the line; SIGPIPE
 * is held back.
 */
#ifndef ZORV_LOG_H
#define ZORV_LOG_H

#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

/* Verbosity on the doubling scale above; 0 silences the library, 4 is the initial value. */
extern int32_t libzorv_log_level;

/*
 * Non-zero, the initial value 1: lines go to syslog while /var/log/messages exists, else to
 * /dev/kmsg. Zero: always to standard error.
 */
extern int32_t libzorv_log_use_syslog;

/*
 * The label of each syslog priority, 0 to 7, on lines that do not go through syslog. Each has five
 * characters, so that columns line up: short words are padded, and notice is cut to "notic" on
 * purpose.
 */
extern const char *libzorv_log_level_names[8];

/*
 * Writes one line.
 *
 *   level     syslog priority, 0 to 7; a value outside is taken as the nearest one
 *   module    the family that speaks, such as "cfg"
 *   function  the name of the calling function
 *   format    printf-like, without a newline at its end
 *
 * With libzorv_log_use_syslog set and /var/log/messages present, the line goes to syslog(3) as
 * "program[pid]: module.function(): message", the message cut to 1023 bytes; no facility is added,
 * so the host's openlog() decides. Otherwise it is
 * "program[pid]: [label] module.function(): message" without a length limit, on /dev/kmsg (opened
 * and closed for every line, so that a syslog daemon may come and go) or, where that cannot be
 * opened or is not wanted, on standard error. The kernel log shows a longer line as several
 * records of up to 976 bytes.
 *
 * Allocates nothing, but for a line of 1024 bytes or more to /dev/kmsg. Leaves errno alone.
 */
void libzorv_log(int level, const char *module, const char *function, const char *format, ...)
    ZORV_PRINTF(4, 5);

/*
 * Logs a JSON document, pretty-printed with an indent of 4, one libzorv_log() call a line.
 *
 *   json   borrowed for the call; NULL logs "null data" in its place
 *   title  logged first as a line of its own; NULL leaves that line out
 *
 * Each line is "JSON - %4d: text" with its number from 1. A line that would take a syslog line past
 * 960 bytes goes on in further lines with four blanks for the number. The width is reckoned with
 * the program's name counted twice on purpose: log collectors cut at a column that allows for it.
 * Filters nothing: the caller tests libzorv_log_level.
 */
void libzorv_log_json(int level, const char *module, const char *function,
                      const struct json_t *json, const char *title);

/*
 * Logs bytes in hexadecimal, 16 a line, after a header line "title - HEX(address) len length".
 *
 *   length  bytes at data; 0 or less logs the header only
 *   title   NULL is an empty title
 *
 * A data line is the offset in eight lower-case digits, a colon, and " %02x" for each byte.
 * Filters nothing: the caller tests libzorv_log_level.
 */
void libzorv_log_hex(int level, const char *module, const char *function, const unsigned char *data,
                     int length, const char *title);

ZORV_END

#endif
