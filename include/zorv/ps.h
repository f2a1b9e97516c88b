/*
 * ps.h - which processes run, what they have open, and which sockets those are.
 *
 * A list is a picture of /proc at the time of the call; nothing is kept between calls, and several
 * lists may exist side by side. Building one never fails because of a single process or descriptor:
 * what cannot be read is logged and left out, and a process that ends meanwhile is not in the list.
 * Only /proc itself, or the memory for the list, makes the whole call fail. A table of sockets that
 * cannot be read to its end leaves the list without a socket cache ("Failed to cache sockets"). Any
 * thread may call any function, each list in one at a time.
 *
 * Texts are the kernel's bytes as they are: a process may call itself anything, so they need not be
 * UTF-8. Messages have the module "libzorv_proc".
 */
#ifndef ZORV_PS_H
#define ZORV_PS_H

#include <stdint.h>

#include <uthash.h>

#include <zorv/api.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

/* What a socket is, by the file of /proc/net that names it. */
enum {
    ZORV_SOCKET_UNKNOWN,
    ZORV_SOCKET_UNIX,
    ZORV_SOCKET_TCP,
    ZORV_SOCKET_TCP6,
    ZORV_SOCKET_UDP,
    ZORV_SOCKET_UDP6
};

/* A TCP or UDP socket. */
typedef struct zorv_inet_socket {
    uint32_t local_port;  /* 0 for none */
    uint32_t remote_port; /* 0 for none */
    /* The kernel's TCP state, 1 (established) to 12 (new SYN received), or 0 for one it does not
     * know. UDP sockets are 1 when connected, 7 (close) when not, else 0. */
    uint32_t state;
} zorv_inet_socket;

typedef struct zorv_unix_socket {
    uint32_t references;
    uint32_t type;  /* 1 stream, 2 datagram, 3 raw, 4 rdm, 5 seqpacket, else 0 */
    uint32_t state; /* 2 unconnected, 3 listening, 4 connecting, 5 connected, 6 disconnecting, or 0;
                       on purpose a free socket is 0, too, and no socket is 1 (free) */
    char *path;     /* up to its first white space, "@" for the NULs of an abstract name; or NULL */
} zorv_unix_socket;

typedef struct zorv_socket_record {
    uint32_t inode;
    uint32_t kind; /* ZORV_SOCKET_... */
    union {
        zorv_inet_socket *inet;  /* all kinds but ZORV_SOCKET_UNIX */
        zorv_unix_socket *local; /* ZORV_SOCKET_UNIX */
    } data;
    UT_hash_handle hh; /* in the cache, by inode */
} zorv_socket_record;

/* The sockets of the caller's network namespace, in the order of the kernel's tables. */
typedef struct zorv_socket_cache {
    zorv_socket_record *sockets; /* the first, NULL for none; more at hh.next */
} zorv_socket_cache;

/* What a descriptor is. */
enum { ZORV_FD_UNKNOWN, ZORV_FD_FILE, ZORV_FD_ANON, ZORV_FD_PIPE, ZORV_FD_SOCKET };

/* One open descriptor. */
typedef struct zorv_fd_record {
    struct zorv_fd_record *prev; /* NULL at the first */
    struct zorv_fd_record *next; /* NULL at the last */
    uint32_t kind;               /* ZORV_FD_... */
    union {
        char *link;                       /* what /proc/PID/fd says of a file, anon or pipe */
        const zorv_socket_record *socket; /* ZORV_FD_SOCKET; NULL when no table has it */
    } target;
} zorv_fd_record;

typedef struct zorv_fd_list {
    zorv_fd_record *first; /* NULL when there is none */
    zorv_fd_record *last;
} zorv_fd_list;

/* One process. The texts and the descriptors belong to the record. */
typedef struct zorv_ps_record {
    struct zorv_ps_record *prev; /* the list itself at the first; see zorv_ps_each */
    struct zorv_ps_record *next; /* the list itself at the last */
    int32_t pid;
    char *comm;       /* the name, as the kernel shows it in /proc/PID/stat */
    char state;       /* "R" running, "S" sleeping, "Z" zombie and so on */
    int32_t ppid;     /* the parent */
    uint64_t vsz;     /* virtual size, KiB */
    int64_t rss;      /* resident size, KiB */
    char *cmdline;    /* the first 1024 bytes, blanks between the arguments; NULL for none */
    int32_t fd_count; /* open descriptors; -1 when they may not be read, -2 when reading failed */
    zorv_fd_list fds; /* those that zorv_ps_filter() resolved */
} zorv_ps_record;

/* The processes in the order of /proc: a ring, which the list itself closes. */
typedef struct zorv_ps_list {
    zorv_ps_record *first; /* the list itself when it is empty */
    zorv_ps_record *last;
    int32_t count;
    zorv_socket_cache *sockets; /* what the descriptors point at; NULL for none */
} zorv_ps_list;

/* for (each record of the list); the list must not change meanwhile. */
#define zorv_ps_each(record, list)                                                                 \
    (record) = (list)->first;                                                                      \
    (const void *)(record) != (const void *)(list);                                                \
    (record) = (record)->next

/*
 * Lists the processes that a filter keeps.
 *
 *   with_fds  non-zero: every descriptor is resolved, too; zero: they are only counted
 *   filter    called for each record when it is complete but in no list; 1 leaves the record out,
 *             any other value keeps it. The record is borrowed for the call. NULL keeps all.
 *   arg       handed to filter
 *
 * Returns an owned list (zorv_ps_list_free, or zorv_ps_list_to_array), or NULL when /proc cannot be
 * opened or read or memory for the list is short.
 *
 * Reads /proc/PID/stat, cmdline and fd/ of every process, and for descriptors first the tables
 * unix, tcp, tcp6, udp and udp6 of /proc/net. Of stat the first line is read: a process whose name
 * has a newline is not listed. The last byte of a command line is dropped on
 * purpose: the kernel ends it with a NUL, and a process that has overwritten its own loses a
 * character. A descriptor is a file unless its link has ":", "[" and "]" in this order; then its
 * first letter tells: "pipe:[7]", "anon_inode:[eventpoll]", "socket:[7]". Others of that form (name
 * spaces, and files whose path has it) are logged as the warning "Unknown FD type '%s'" and left
 * out of the list of descriptors, as is a link of 386 bytes or more.
 */
zorv_ps_list *zorv_ps_filter(int with_fds, int (*filter)(zorv_ps_record *record, void *arg),
                             void *arg);

/* Lists all processes without their descriptors: zorv_ps_filter(0, NULL, NULL). */
zorv_ps_list *zorv_ps(void);

/* Releases a list with all that its records and its socket cache hold; NULL is ignored. */
void zorv_ps_list_free(zorv_ps_list *list);

/*
 * Makes a JSON array of a record's descriptors, one object each:
 *
 *   "fd_type"      "file", "anon", "pipe", "socket" or "unknown"
 *   "link"         of files, anon and pipes
 *   "socket_type"  of sockets that are in the cache: "unix", "tcp", "tcp6", "udp" or "udp6"
 *   "socket"       of the same: "local_port", "remote_port" ("*" for none) and "state", such as
 *                  "ESTABLISHED"; for unix sockets "refcnt", "type", "path" when there is one, and
 *                  "state"
 *
 * Returns an owned value (json_decref), NULL when memory is short; an empty array for NULL and for
 * a record without resolved descriptors. Bytes of a text that are no UTF-8 become U+FFFD. A
 * descriptor for which memory is short is left out, which is logged.
 */
struct json_t *zorv_fds_to_array(zorv_ps_record *record);

/*
 * Makes a JSON array of a list: for each process an object with "pid", "ppid", "vsz", "rss",
 * "stat", "fd_count", "comm" and "fds" (zorv_fds_to_array). Sizes are in KiB. The command line is
 * not in it. Bytes of a name that are no UTF-8 become U+FFFD. A process for which memory is short
 * is left out, which is logged.
 *
 *   list  taken: each record is released as soon as it is converted, so that both need not fit
 *         into memory; NULL gives an empty array
 *
 * Returns an owned value (json_decref), NULL when memory is short.
 */
struct json_t *zorv_ps_list_to_array(zorv_ps_list *list);

ZORV_END

#endif
