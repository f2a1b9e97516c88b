/*
 * trace.h - small structured events, and sending them to the trace service.
 *
 * A trace is a JSON object of any of the members below; daemons make one, set what they have to
 * say and send it, alone or as a batch. The setters check what they are given, sending does not.
 *
 *   payload    {"contentType":"application/json","data":TEXT}, a document in its compact form
 *   timestamp  integer, by convention milliseconds since 1970
 *   type       text
 *   namespace  text
 *   source     object of texts
 *   meta       object of texts
 *
 * A batch travels as one document, {"meta":OUTER,"traces":[...]}, with PUT to "/traces" of the
 * service that get_kelo_env_limit_prod() selects: 1 staging, 2 development, any other production.
 * send_traces() tells what OUTER is.
 *
 * Values are jansson's. A setter that ends in "_new" takes the reference of its value, on success
 * and on failure alike; the trace or array itself is borrowed. NULL as either fails with -1.
 * Setters return 0 or -1; why a value was refused is a message of verbose debug, as most of this
 * family's are: "Trace type must be a string". Log lines have the module "trace".
 *
 * Kept for the life of the process, without a lock, so that one thread should send: the back-off of
 * send_traces(), whether its failure has been logged, and the anonymous id of the device.
 */
#ifndef ZORV_TRACE_H
#define ZORV_TRACE_H

#include <zorv/api.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

/* Make an empty trace, and an empty batch. They return an owned value (trace_decref()), NULL when
 * memory is short. */
struct json_t *trace_object(void);
struct json_t *trace_array(void);

/* Appends to a batch. Takes the trace's reference. Returns 0, or -1 when `array` is no array. */
int trace_array_append_new(struct json_t *array, struct json_t *trace);

/*
 * Sets what the trace is about.
 *
 *   data  taken; an object, of which the text is kept: later changes do not show
 *
 * Returns 0; -1 when data is no object, without a message, or when it has no text (it contains
 * itself, or memory is short), logged as "Failed to create payload object".
 */
int trace_object_set_payload_new(struct json_t *trace, struct json_t *data);

/* Sets when it happened: an integer. Without it the service knows when the batch was sent. */
int trace_object_set_timestamp_new(struct json_t *trace, struct json_t *value);

/* Set what kind of event it is, and whose: texts. */
int trace_object_set_type_new(struct json_t *trace, struct json_t *value);
int trace_object_set_namespace_new(struct json_t *trace, struct json_t *value);

/*
 * Set where it comes from, and more about it: objects of which every member is a text; empty ones
 * will do. The object itself becomes part of the trace and is not looked at again.
 */
int trace_object_set_source_new(struct json_t *trace, struct json_t *value);
int trace_object_set_meta_new(struct json_t *trace, struct json_t *value);

/* What send_traces() came to; -1 is a bad argument, or no memory. */
#define TRACE_ACCEPTED 0 /* the service answered 202 */
#define TRACE_FAILED 1   /* it was not reached, or answered anything else */
#define TRACE_BACK_OFF 2 /* nothing was sent: too early for another attempt */
#define TRACE_STOPPED 3  /* nothing was sent: the attempts of this process are used up */
#define TRACE_OFF 4      /* nothing was sent: the unit does not report */

/*
 * Sends a batch of traces in one request, which may take 5 seconds.
 *
 *   traces  borrowed; an array. The traces in it are sent as they are
 *   meta    borrowed; shapes OUTER by its members, may be NULL:
 *             timestamp  any value; the time of sending, in milliseconds, without it
 *             type       any value; "event" without it
 *             meta       an object, which gets the device fields as well; anything else is replaced
 *                        by a new one
 *             source     an object; anything else is replaced by an empty one
 *
 * On purpose the device fields are written into the caller's own object: daemons keep one and see
 * there what was sent. A field replaces a member of that name. They are texts:
 *
 *   model                    platform of board_identify()
 *   version                  get_version(); a failure is the warning "Couldn't obtain firmware
 *                            version! error code = %d", and the text is sent all the same
 *   board_rev                get_boardrevision() of /proc/zorvhal/system.info
 *   manufacturer_id          get_manufid(), decimal
 *   controller.version       "pluvo.version" of /tmp/system.cfg, else "unknown"
 *   is_default               "true" or "false", by /proc/zorvhal/status/IsDefault. On purpose no
 *                            boolean: the service takes texts alone here, unlike in crash reports
 *   mfg_week                 "mfgweek" of /proc/zorvhal/system.info, else "2005"
 *   anonymous_controller_id  "pluvo.anonymous_controller_id" of /tmp/system.cfg; left out when
 *                            empty
 *   anonymous_site_id        "pluvo.anonymous_site_id", likewise
 *   anonymous_device_id      "device.anonid" of /proc/zorvhal/system.info, else
 *                            "0000000000000000"; the first answer, that one included, is kept for
 *                            the process
 *
 * Bytes of a field that are no UTF-8 become U+FFFD, and a debug line says how many.
 *
 * Returns a TRACE_ code, or -1; looked at in this order:
 *
 *   TRACE_OFF       /var/run/system.analytics.mode begins with 0, or is there and cannot be read.
 *                   Any other number, no number and no file let traces through
 *   TRACE_STOPPED   the back-off is longer than a day. On purpose for the rest of the process: a
 *                   unit that is not reached for so long gets its next chance at a restart
 *   TRACE_BACK_OFF  the clock has not reached the end of the last attempt and the back-off. A clock
 *                   that was set back counts as too early until it is there again
 *   -1              traces is no array, or memory is short: verbose debug "Traces must be an
 *                   array", "Failed to init envelope", "Failed to create outer meta" and "Failed to
 *                   create envelope", the error "Failed to allocate curl response"
 *   TRACE_ACCEPTED  HTTP status 202, no other
 *   TRACE_FAILED    any other status, a 200 included, which is verbose debug "PUT '%s' failed:
 *                   [%ld] %s" with URL, status and up to 1024 bytes of the answer, blanks for
 *                   control characters, up to its first NUL; or a request
 *                   that failed. Of those the first in the life of the process is the warning
 *                   "PUT '%s' failed: [%d] %s" with URL, libcurl's code and its meaning; it counts
 *                   as logged also when it was silent for its level, and later ones are silent
 *
 * The back-off begins with the fifth failed request in a row: one second, doubled by each further
 * one, more than a day after the 22nd. Any answer of the service, of whatever status, ends it.
 */
int send_traces(struct json_t *traces, struct json_t *meta);

/*
 * Sends one trace as a batch of its own.
 *
 *   trace  borrowed
 *   meta   as for send_traces()
 *
 * Returns what send_traces() does; -1 as well, behind its gates, when there is no trace or no
 * memory for a batch.
 */
int send_trace_with_meta(struct json_t *trace, struct json_t *meta);

/*
 * Makes a trace and sends it without a meta.
 *
 *   name_space, type, data  what the setters of these names take; data is taken
 *
 * Returns what send_traces() does. On purpose a part that its setter refuses, a NULL for instance,
 * is missing in what is sent and changes nothing else: an event that lost its details still counts
 * at the service. -1 as well when the trace cannot be made.
 */
int send_trace_simple(const char *name_space, const char *type, struct json_t *data);

/* Releases one reference; NULL is ignored. */
void trace_decref(struct json_t *value);

/*
 * Logs the reference counts of a value and of everything in it, as verbose debug, to find out who
 * forgot one.
 *
 *   value  borrowed; NULL logs nothing
 *   label  logged first, as a line of its own; may be NULL
 *
 * Each value is a line "refcount=%zu"; behind that of an array are a line "[", its values and a
 * line "]", behind that of an object "{", its members with their keys as labels, and "}". Values
 * deeper than 16 levels, as those of something that contains itself, are left out.
 */
void dump_refcount(struct json_t *value, const char *label);

ZORV_END

#endif
