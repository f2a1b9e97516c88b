/*
 * stats.h - how memory is used, and which hosts have the most tracked connections.
 *
 * Every call reads /proc anew; nothing is kept. Any thread may call any function. Messages have the
 * module "libzorv_proc".
 */
#ifndef ZORV_STATS_H
#define ZORV_STATS_H

#include <stdint.h>

#include <uthash.h>

#include <zorv/api.h>

ZORV_BEGIN

struct json_t;  /* <jansson.h> */
struct sysinfo; /* <sys/sysinfo.h> */

/* Lines of /proc/meminfo by their names there, in kB; 0 where the kernel has no such line. */
typedef struct meminfo_t {
    uint64_t MemTotal;
    uint64_t MemFree;
    uint64_t MemAvailable;
    uint64_t Buffers;
    uint64_t Cached;
    uint64_t Active;
    uint64_t Inactive;
    uint64_t Active_anon;   /* "Active(anon)" */
    uint64_t Inactive_anon; /* "Inactive(anon)" */
    uint64_t Active_file;   /* "Active(file)" */
    uint64_t Inactive_file; /* "Inactive(file)" */
    uint64_t Unevictable;
    uint64_t Mlocked;
    uint64_t Dirty;
    uint64_t Writeback;
    uint64_t AnonPages;
    uint64_t Mapped;
    uint64_t Shmem;
    uint64_t Slab;
    uint64_t SReclaimable;
    uint64_t SUnreclaim;
    uint64_t KernelStack;
    uint64_t PageTables;
    uint64_t CommitLimit;
    uint64_t Committed_AS;
    float used_percent; /* of MemTotal, what is not in MemAvailable; 0 when MemTotal is 0 */
} meminfo_t;

/*
 * Reads /proc/meminfo.
 *
 *   out  [out] left alone on failure
 *
 * Returns 0, or -1 when the file cannot be opened or read. On purpose a kernel without MemAvailable
 * is 100 percent used; status pages rely on it to tell such kernels. Lines are read in pieces of 31
 * bytes, each of which stands for a line: a piece without a colon is logged as the error "No colon
 * found". Reading ends with the 25th line that is in the record, so what a kernel adds at the end
 * of the file costs nothing.
 */
int meminfo(meminfo_t *out);

/*
 * Makes a JSON object of the 25 numbers, under the names that /proc/meminfo has for them and in the
 * record's order, without the percentage.
 *
 * Returns an owned value (json_decref), NULL when memory is short.
 */
struct json_t *zorv_meminfo_to_obj(const meminfo_t *m);

/*
 * Tells how much of the memory is in use, in percent, as meminfo() does.
 *
 *   si  read only when meminfo() fails: the answer is then what is not in freeram
 */
float get_memused_percent(const struct sysinfo *si);

/*
 * A host of the connection-tracking table. A caller that takes one out (HASH_DEL) owns it: free()
 * the text, then the record.
 */
typedef struct conntrack_host {
    char *host;        /* as the kernel prints it: "192.0.2.7", or IPv6 with all its zeros */
    int32_t count;     /* how often it is the source or the destination of a connection */
    UT_hash_handle hh; /* in the table, by host */
} conntrack_host;

typedef struct conntrack_hosts_t {
    conntrack_host *hosts; /* the one with the largest count, NULL for none; more at hh.next */
} conntrack_hosts_t;

/*
 * Counts how often each address is the source or the destination of a tracked connection.
 *
 * Returns an owned table (free_conntrack_hosts) of all hosts, the largest count first, those of
 * equal count in the order of their first appearance; NULL when /proc/net/nf_conntrack cannot be
 * opened or read or memory is short. A host for which memory is short is left out, which is logged.
 *
 * Only the direction in which a connection was opened counts. A connection of a host with itself
 * counts twice. An address that ends its line, without a blank behind it, is not counted on
 * purpose: it may be the cut half of one, since lines are read in pieces of 319 bytes.
 */
conntrack_hosts_t *get_top_conntrack_hosts(void);

/* Releases the table with its hosts; NULL is ignored. */
void free_conntrack_hosts(conntrack_hosts_t *hosts);

ZORV_END

#endif
