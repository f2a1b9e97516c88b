/*
 * crash.h - crash reports: whether they may be sent, the kernel's oops, the store of crash logs,
 * binary dumps.
 *
 * A report is a JSON object that is posted to the crash-report service: the build names its three
 * origins (production, staging, development), and get_kelo_env_limit_prod() of the unit selects
 * one. "/v1/" and the kind of the report, "kernel-crash" or "crash", follow the origin.
 *
 * Reports leave the unit only while the gate is open: /var/run/ntp.ready (the clock is set) and
 * /var/run/ipready.br0 (the bridge has an address) are readable, and /var/run/system.analytics.mode
 * holds no 0; without that file it is open, and while that file is there and cannot be read it is
 * shut, with a warning. send_kernel_crash() and the dump functions look at it;
 * check_vwire_disconnect_logs() leaves that to its caller, on purpose: the daemon that calls it
 * does so on the events that open the gate.
 *
 * Every report begins with the members below, in this order, and adds its own. In all texts a byte
 * that is no UTF-8 becomes U+FFFD; a debug line says how many there were.
 *
 *   product_line              "network"
 *   anonymous_controller_id   "pluvo.anonymous_controller_id" of /tmp/system.cfg, up to 63
 *                             characters, as are all values that are read; left out when empty
 *   anonymous_site_id         "pluvo.anonymous_site_id", likewise
 *   anonymous_device_id       "device.anonid" of /proc/zorvhal/system.info, likewise
 *   kernel_version            uname's release
 *   architecture              uname's machine
 *   bomrev                    get_boardrevision("/proc/zorvhal/system.info"), as a text; "0" for a
 *                             file without that line, "-1" without the file
 *   manufacturer_id           get_manufid(), as a text in decimal
 *   model                     the platform of board_identify(), not its name for display
 *   version                   get_version(), "unknown.0" when there is none, which is logged as
 *                             "Couldn't obtain firmware version! error code = %d"
 *   is_default                whether /proc/zorvhal/status/IsDefault holds "true"
 *   uptime                    seconds
 *   boot_time                 the time less the uptime, in seconds since 1970; on purpose a signed
 *                             number of 32 bits, as the service's own records have it
 *   controller_version        "pluvo.version" of /tmp/system.cfg, else "unknown"
 *   system_time               local time as "2026-11-21T09:05:00"
 *   crash_log                 what the report's command printed, where it has one
 *   system_cfg                what "cat /tmp/system.cfg | syswrapper.sh
 *                             systemcfg-sensitive-data-filter" printed, in some reports
 *
 * One thing is kept for the process: whether the kernel holds an oops, once it has been told. One
 * thread at a time may call these functions; processes take turns at the locks of the store.
 * Commands run through the shell with the caller's PATH and standard error; everything opened here
 * is close-on-exec, so that no command inherits a lock. Each request takes at most the 5 seconds of
 * curl_simple.h: check_vwire_disconnect_logs() makes one for each log that the service does not
 * have, a dump with an upload makes two.
 *
 * Messages have the module "crash". Those of the steps inside have the step's name:
 * generate_common_payload, post_crash, upload_file, iterate_crash_logs, prepare_crash_log_meta,
 * finish_crash_meta, send_vwire_disconnect_log, mark_crash_log_sent_to_net,
 * gather_first_vwire_disconnect_log. A service that cannot be reached, or answers with another
 * status than 200, is the warning "POST '%s' failed: [%d] %s" or "PUT '%s' failed: [%d] %s" with
 * the URL, libcurl's result or the HTTP status, and libcurl's words or what is kept of the answer
 * (2048 bytes, with blanks for control characters).
 */
#ifndef ZORV_CRASH_H
#define ZORV_CRASH_H

#include <zorv/api.h>
#include <zorv/cfg.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

/* ---- Analytics ---- */

/*
 * Reads from the configuration whether crashes may be reported: 0 off, 1 on with identities,
 * 2 on and anonymous.
 *
 *   cfg  NULL is an empty configuration
 *
 *   system.analytics.anonymous   system.analytics.status   result
 *   absent, or no switch         on                        1
 *   absent, or no switch         off or absent             2, on purpose: who never chose reports
 *                                                          anonymously
 *   off                          on or absent              1
 *   on                           on or absent              2
 *   on or off                    off                       0
 */
int get_analytics_mode(const cfg_entry *cfg);

/* Returns 1 when the configuration has system.analytics.coredump on, else 0. */
int get_analytics_coredump_mode(const cfg_entry *cfg);

/* ---- Pieces of reports ---- */

/*
 * Tells whether a path is in the part of the file system that survives a reboot: 1 when it begins
 * with "/etc/persistent", else 0; NULL does not. On purpose no slash is asked for behind it:
 * "/etc/persistentX" counts, as it does for the scripts that save the configuration.
 */
int is_dir_in_persistent(const char *path);

/*
 * Keeps a copy of a report in /var/run/report_payload.txt: the JSON text with an indent of 2, and a
 * newline. Every post does this, whatever the service's answer, once there is one.
 *
 *   payload  borrowed; NULL is logged as the error "Invalid payload"
 *
 * A text of more than 102400 bytes is not kept, and an older copy then stays as it is. What was
 * done is logged: "Saved crash report payload of %d bytes" (without the newline) or "Skipped saving
 * crash report payload because it was > 100KB (%d)"; "Failed opening file for saving crash report
 * payload" is an error.
 */
void save_crash_payload(struct json_t *payload);

/*
 * Keeps a command line and a newline in /var/run/report_payload_cmd.txt. The error "Failed opening
 * file for saving crash report payload command" is logged when the file cannot be opened. NULL does
 * nothing.
 */
void save_crash_payload_cmd(const char *cmd);

/*
 * Runs a shell command line and sets a member of an object to what it prints.
 *
 *   cmd  NULL does nothing and returns 0
 *
 * Of the output 1 MiB less a byte is taken, up to its first NUL. The status of the command does not
 * matter: one that fails leaves what it had printed.
 *
 * Returns 0. Returns -1 when the command cannot be started; the member is then "" and "Failed to
 * capture the output of command %s" is logged as a warning. Returns -1, without a change to obj,
 * when the member cannot be set: when obj is no object, or memory is short. Bytes that are no UTF-8
 * become U+FFFD.
 */
int json_object_capture_popen(struct json_t *obj, const char *key, const char *cmd);

/* ---- The kernel's oops ---- */

/*
 * Tells whether the kernel holds the record of an oops: 1 when "oopsdump -e" succeeds, else 0. Once
 * the command has ended by itself the answer stays: an oops recorded after that is not seen. When
 * it could not be run or waited for, as with SIGCHLD ignored, the answer is 0 for this call only.
 */
int has_oops(void);

/*
 * Keeps the record in /var/run/last-crashlog.txt, by "oopsdump > /var/run/last-crashlog.txt", and
 * clears it with "oopsdump -c". has_oops() answers 0 from then on. What send_kernel_crash()
 * remembers stays.
 */
void oops_clear(void);

/*
 * Reports the kernel's oops, once until the next reboot: a report of kind "kernel-crash" with the
 * output of "oopsdump | syswrapper.sh sensitive-data-filter", the configuration, "source":
 * "oopsdump" and "sender": "firmware". The record is not cleared; the empty file
 * /var/run/last-crashlog.sent (mode 0644) tells that it has been reported.
 *
 *    0  reported, now or before; the latter is a debug message
 *   -1  the kernel holds no oops; logged as an error
 *   -2  the gate is shut; not logged
 *   -3  the service's URL is longer than 127 characters: "URL truncated", an error
 *   -4  the report could not be built: "Failed to generate kernel crash payload", an error
 *   -5  the service could not be reached or refused: "Failed to process kernel crash: %d", a
 *       warning. A later call tries again
 */
int send_kernel_crash(void);

/* ---- The store of crash logs ---- */

/*
 * Components drop their log archives, compressed tar files, into /etc/persistent/isolation_logs/.
 * The functions below see to two things for each: that the crash-report service gets it, and that
 * the local management does. Any number of processes may call them at once.
 *
 *   /etc/persistent/isolation_logs/meta/NAME    what is known of the log NAME, see below
 *   /etc/persistent/isolation_logs_sent/NAME    empty: the local management has NAME, and no call
 *                                               looks at it again
 *
 * A meta is a JSON object in one line: "filename"; "sent_to_analytics", true when the service has
 * the log or delivery was given up; "payload", the report without the log's text, made when the log
 * was first seen, with "type": "vwire_disconnect" and "uplink_model"; "send_attempts", the failed
 * deliveries, stored from the first on; "sent_to_net", true when the local management has the log.
 * A meta that is empty or not JSON, as a killed process leaves it, is made anew, and the log counts
 * as new. One without a payload is left alone and its log passed over, and so is one that cannot be
 * read, or is no regular file ("Couldn't open %s%s %s"); a link is none. On a full file system a
 * meta keeps what it held.
 *
 * A call walks the archives in the directory's own order. It makes the two directories if they are
 * missing (mode 0755), opens the meta of a log under a lock on the directory, keeps a lock on the
 * meta until it is done with that log, and waits up to 10 seconds for another process that has
 * either. What fails with one log ("Couldn't process %s: %s", with the family's name) does not keep
 * it from the others. At the end "syswrapper.sh save-config" runs if something changed that is
 * worth a write to flash: a new meta, a log delivered, given up or marked. A failed delivery alone
 * is not. When that command fails, "Couldn't save the configuration" is an error.
 *
 * Nothing is ever removed. Names of archives are to be of A-Z a-z 0-9 . _ - only. Only regular
 * files are logs; links are not followed. No such directory, no logs: nothing is made then.
 */

/*
 * Makes the metas of new logs and, if asked, delivers to the crash-report service what it does not
 * have. Look at the gate before.
 *
 *   uplink_model  for the metas that are made now; NULL gives "unknown"
 *   send          non-zero delivers
 *
 * A delivery is a report of kind "crash": the meta's payload and, as "crash_log", the output of
 * "tar -xOzf ARCHIVE | syswrapper.sh sensitive-data-filter". If that cannot be had the text is
 * "Error generating crash_log payload", and the command is kept by save_crash_payload_cmd(). After
 * the fifth delivery that fails the log is given up: "Failed to record %s log %s after %d
 * attempts\n".
 *
 * A log is not delivered while its meta could not take the outcome: "Couldn't process %s: %s" with
 * the reason, such as a full file system; a later call tries again. Nor is one whose name has other
 * characters than those above: "A %s log is passed over: its name may hold A-Z a-z 0-9 . _ - only",
 * a warning.
 *
 * Returns 0, whatever became of the logs; -1 when a directory of the store cannot be made, logged
 * as the error "couldn't make dir %s: %s".
 */
int check_vwire_disconnect_logs(const char *uplink_model, int send);

/*
 * Tells whether there is a log for the local management: 1 for one that is not marked yet, whether
 * the service has it or not, else 0. Makes metas up to that log.
 */
int has_crash_logs(void);

/*
 * Gives the first log for the local management.
 *
 * Returns an owned object (the caller releases it with json_decref()): the log's meta with the
 * archive in Base64 as "file_data". NULL when there is none, or on failure; on purpose a first
 * archive that cannot be read, "Unable to open %s%s", hides later ones, so that logs are handed
 * out in order.
 */
struct json_t *get_next_crash_log(void);

/*
 * Marks a log as known to the local management.
 *
 *   filename  as "filename" of the meta has it; NULL is the error "Missing finish_filename", logged
 *             when there is a log
 *
 * Returns 1 when the meta and the marker are there; 0 when there is no such log, or it is marked
 * already, or its meta cannot be had, or one of the two cannot be stored. A later call tries again.
 */
int mark_crash_log_finished(const char *filename);

/* ---- Binary dumps ---- */

/*
 * Reports a binary dump, and uploads its bytes to where the service's answer says.
 *
 *   name               of the process, or of a RAM dump; NULL is ""
 *   pid, signal        of the process
 *   number_of_crashes  of that program so far
 *   process_uptime     seconds
 *   data               borrowed; NULL when there is nothing to upload
 *   length             bytes at data; 0 or less likewise
 *   dump_type          0 core-dump, 1 app-crash, 2 oom-kill, 3 ram-dump, else unknown
 *
 * The report is of kind "crash", with "type" and "upload": whether bytes may be sent, which needs
 * some, and a 1 in /var/run/system.analytics.coredump. A RAM dump has "dump_type", its name; the
 * lines of logread up to the last "collecting ramdump", 200 before each; and the configuration.
 * Others have "cmd", "signal", "number_of_crashes", "process_uptime", the last 100 lines of
 * /var/log/messages, and those of them that are of the process as "process_stdout", which a process
 * goes without whose name is not of A-Z a-z 0-9 . _ - only (logged as a warning). All lines pass
 * "syswrapper.sh sensitive-data-filter".
 *
 * With bytes given, the answer has to be JSON; its "upload_url" takes them by PUT: an "https:" or
 * "http:" URL, any other one fails like a protocol that libcurl lacks. No such text in the answer
 * ("No upload_url in response", a warning), or uploads that are not allowed ("Binary dump upload
 * disabled by system settings"), is success.
 *
 * Returns 0; -1 when the gate is shut, which is not logged, or when the report could not be built
 * or one of the two requests failed.
 */
int send_crash_binary_data(const char *name, int pid, int signal, int number_of_crashes,
                           int process_uptime, const char *data, int length, int dump_type);

/* Reports and uploads a RAM dump: send_crash_binary_data(name, 0, 0, 0, 0, data, length, 3). */
int send_ram_dump(const char *name, const char *data, int length);

ZORV_END

#endif
