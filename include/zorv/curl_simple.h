/*
 * curl_simple.h - one HTTP request in one call, over libcurl.
 *
 * The first request loads libcurl.so.4, which then stays. A program that has libcurl's functions
 * itself has those called. Without any a request is an error line and the result 2.
 *
 * Every call makes a libcurl handle of its own, sends one request and releases the handle. The
 * server's certificate and name are verified, redirects are followed, and an attempt ends after 5
 * seconds, redirects included; there is one attempt, or one for each resolver that is tried. (A
 * libcurl before 7.87 also waits until the system's resolver gives up.) Only http and https are
 * spoken, and no redirect leads from https to http. Proxies that the environment names are not
 * used, except by what libcurl itself asks a DNS-over-HTTPS resolver. There are no signals:
 * time-outs raise none, and a peer that goes away raises no SIGPIPE.
 *
 * A request returns libcurl's result code (CURLcode of <curl/curl.h>; 0 is success, whatever the
 * HTTP status). Two of them also come from here: 2 (CURLE_FAILED_INIT) when there is no handle, and
 * 27 (CURLE_OUT_OF_MEMORY) when memory is short while the request is made up. A libcurl that lacks
 * what a request asks for, DNS over HTTPS say, sends nothing: 48 (CURLE_UNKNOWN_OPTION). Failures
 * of requests are debug messages: "%s '%s' failed: [%d] %s" with method, URL, result and libcurl's
 * own words.
 *
 * Calls may run in parallel threads. The first one calls curl_global_init(); a program that uses
 * libcurl in other threads calls it itself, before.
 */
#ifndef ZORV_CURL_SIMPLE_H
#define ZORV_CURL_SIMPLE_H

#include <stddef.h>

#include <zorv/api.h>
#include <zorv/buffer.h>

ZORV_BEGIN

struct curl_slist; /* <curl/curl.h> */
struct json_t;     /* <jansson.h> */

/* "GET", "POST", "PUT": the words that the requests are sent with. */
extern const char *const curl_simple_method_str[3];

/* The DNS-over-HTTPS resolvers in the order they are asked, and NULL. */
extern const char *const curl_simple_doh_providers[3];

/*
 * Flags of a request.
 *
 *   DOH           the host is looked up by the resolvers of curl_simple_doh_providers, not by the
 *                 system's; the first that knows it serves. The resolvers' own names are looked up
 *                 by the system.
 *   DOH_FALLBACK  with DOH: when none of them knows the host, the system's resolver is asked
 *
 * A resolver that refuses, or is not reached, does not know the host. One that does not answer at
 * all uses up the 5 seconds, and that is the result: 28 (CURLE_OPERATION_TIMEDOUT).
 */
#define CURL_SIMPLE_DOH 1U
#define CURL_SIMPLE_DOH_FALLBACK 2U

/*
 * What came back. A response that is used for several requests keeps adding to body and received;
 * empty them in between where that is not wanted.
 */
typedef struct curl_simple_response {
    long status;     /* HTTP status of the last request; 0 when none was received */
    buffer *body;    /* what was kept of the body */
    size_t max_size; /* bytes that body holds at most; what is beyond is received and dropped */
    size_t received; /* bytes of body that arrived, those dropped included */
} curl_simple_response;

/*
 * Makes a response that keeps up to max_size bytes; 0 keeps none.
 *
 * Returns an owned response (the caller releases it with curl_simple_response_free()), or NULL when
 * memory is short, which is logged as an error.
 */
curl_simple_response *curl_simple_response_init(size_t max_size);

/* Releases a response and its body. NULL is ignored. */
void curl_simple_response_free(curl_simple_response *resp);

/*
 * Sends a request.
 *
 *   url      absolute, such as "https://host/path?query"; a URL without a scheme is taken as http
 *   headers  borrowed for the call; lines to add or replace, as CURLOPT_HTTPHEADER has them; may be
 *            NULL
 *   data     borrowed for the call; len bytes to send as the body, of type
 *            application/x-www-form-urlencoded unless headers say otherwise; may be NULL
 *   len      bytes at data; with 0 or less the request has no body, nor a type or length of one
 *   resp     [in,out] takes the status and the body, the status also when the transfer fails after
 *            it was received; NULL has libcurl write the body to the standard output, on purpose:
 *            small tools print what they fetch
 *
 * On purpose, the method is a fixed word, also when a redirect is followed: the words 301, 302 and
 * 303 of a server turn a POST into another POST, with the same body.
 *
 * Returns libcurl's result code.
 */
int curl_simple_get(const char *url, unsigned flags, struct curl_slist *headers,
                    curl_simple_response *resp);
int curl_simple_post(const char *url, unsigned flags, struct curl_slist *headers, const char *data,
                     long len, curl_simple_response *resp);
int curl_simple_put(const char *url, unsigned flags, struct curl_slist *headers, const char *data,
                    long len, curl_simple_response *resp);

/*
 * Sends a JSON document, in its compact form and as application/json.
 *
 *   body  borrowed for the call, an object or array; NULL sends the type and no body
 *
 * Returns libcurl's result code; 27 with the error "Failed to dump json payload object" when the
 * value has no text, and with "Failed to add HTTP header" when memory is short. Nothing is sent
 * then.
 */
int curl_simple_post_json(const char *url, unsigned flags, struct json_t *body,
                          curl_simple_response *resp);
int curl_simple_put_json(const char *url, unsigned flags, struct json_t *body,
                         curl_simple_response *resp);

ZORV_END

#endif
