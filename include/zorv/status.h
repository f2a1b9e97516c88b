/*
 * status.h - what the running unit says about itself: interfaces, services, versions, uptime,
 * cloud.
 *
 * Every call reads the files or asks the kernel anew; only the version text and the main MAC
 * address are kept, in buffers of the library. Those two are for one thread, all else is reentrant.
 * An input that cannot be read gives the neutral value stated: nothing else reports it, save for
 * the two messages of get_mac_by_ip() and touch_file(). A null pointer counts as a file that is not
 * there, an interface without a name, or an answer that is not wanted and so not found.
 */
#ifndef ZORV_STATUS_H
#define ZORV_STATUS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <zorv/api.h>

ZORV_BEGIN

/* ---- An interface, and the services ---- */

typedef struct dev_status {
    char ifname[16];
    uint8_t hwaddr[6];
    uint32_t ipaddr; /* network order, 0 when unknown */
    uint32_t netmask;
    char ipaddr_str[18]; /* the same, dotted */
    char netmask_str[18];
    int32_t present; /* 1 when /proc/net/dev has the interface */
    int32_t flags;   /* IFF_UP and others of <net/if.h> */
    uint64_t rx_bytes, rx_packets, rx_errors, rx_dropped, rx_multicast;
    uint64_t tx_bytes, tx_packets, tx_errors, tx_dropped;
    uint32_t speed;  /* Mbit/s */
    uint32_t duplex; /* 0 half, 1 full, 0xFF unknown */
    uint32_t speed_2, duplex_2;
    uint64_t reserved[32]; /* for other parts of the firmware; left alone here */
    int32_t dhcpc, dhcpd, ppp, iptables, ebtables; /* 1 enabled, 0 not */
} dev_status;

/*
 * Fills in what the kernel knows of an interface: all fields before `reserved`.
 *
 *   ifname  cut to 15 characters where the kernel is asked, and in s->ifname; NULL is ""
 *   s       [in,out] `present` and the counters are left alone unless /proc/net/dev tells them, as
 *           are `hwaddr` and `flags` unless the kernel does
 *
 * The link settings are asked for twice, for two pairs; a request that fails gives speed 0 and
 * duplex 0xFF. On purpose: when the first speed is 10 and the second is not, the speeds trade
 * places, and when the first duplex is 0 and the second is not, the second moves into the first and
 * leaves 0. Status pages show the first pair as the better of the two.
 *
 * Returns 0; -1 when /proc/net/dev cannot be opened (or s is NULL), -ENOENT when that has fewer
 * than two header lines, -ESRCH when no socket can be made.
 */
int fill_dev_status(const char *ifname, dev_status *s);

/*
 * Fills in the five services flags from /tmp/system.cfg. A service counts when both of its keys are
 * "enabled": "dhcpc.status" and "dhcpc.1.status", and so for dhcpd and ppp; "iptables.status" and
 * "iptables.50.status", and so for ebtables. Blanks and unprintable characters around key and value
 * do not count; a line that begins with "#" or a carriage return does not either. Lines are read in
 * pieces of 1023 bytes.
 *
 * On purpose: a file with permissions of exactly 0777 counts as none. Set-up scripts leave a
 * half-written file so.
 *
 * Returns 0 always; without a file all flags are 0.
 */
int fill_services(dev_status *s);

/* Returns the link state that the driver reports, 1 up or 0 down; -1 when it cannot be asked. */
int get_ethtool_link_status(const char *ifname);

/* ---- Version, board files, flag files ---- */

/*
 * Gives the firmware version: the first line of /usr/etc/.version, a point, and the first line of
 * /usr/etc/.build, cut to 63 characters; "unknown.0" until both could be read.
 *
 *   out  [out] always the text, static; calls write it anew until one succeeds
 *
 * Returns 0, and does so at once after the first success. Else the error of the version file, or of
 * the build file (a negated errno), or -EINVAL when one of them is empty; the next call tries anew.
 */
int get_version(const char **out);

/*
 * Tells a flag. A file below "/proc" holds it as "true" or "false"; any other path is the flag by
 * being readable, whatever it holds.
 *
 * Returns 1 or 0; `fallback` as it is when path is not readable, and by its truth when a /proc file
 * cannot be read after all, or is empty.
 */
int system_is_xxx(const char *path, int fallback);

/*
 * Sets a flag. Outside "/proc" a zero value unlinks the file; else "true\n" or "false\n" is
 * written. Returns 0; negative when the file cannot be unlinked, opened or written.
 */
int system_set_xxx(const char *path, int value);

/* Replaces a file's content by a line. Returns 0; negative when it cannot be opened or written. */
int system_set_value(const char *path, const char *value);

/*
 * Reads a value of the board file: from the last line that begins with "boardrevision", or
 * "serialno", the last piece between "=" signs, empty pieces aside. Lines end at a carriage return
 * as well, and are read in pieces of 254 bytes.
 *
 * get_boardrevision() returns the number, 0 without such a line, or -1 when path cannot be opened.
 *
 * get_boardsn() copies the value and a newline, without a NUL, to buf and returns 0; a file without
 * such a line has an empty value. It returns -1 when path cannot be opened, and when the text with
 * its newline is longer than `size` bytes. On purpose the file stays open then: manufacturing tools
 * go on with its descriptor.
 */
int get_boardrevision(const char *path);
int get_boardsn(const char *path, char *buf, int size);

/*
 * Reads the unit's MAC address: "eth0.macaddr" of /proc/zorvhal/system.info, else "wifi0.macaddr",
 * else "00:11:22:33:44:55". Returns the text, static, until the next call.
 */
const char *get_main_mac_str(void);

/* Returns "manufid" of /proc/zorvhal/system.info, up to four hexadecimal digits; 0 without it. */
long get_manufid(void);

/* ---- Neighbours and routes ---- */

/*
 * Looks up the hardware address that the kernel's neighbour table holds for an IPv4 address.
 *
 *   ip    dotted text; NULL takes the first complete entry
 *   mac   [out] "02:a0:f1:00:00:07" and a NUL; left alone when nothing is found
 *   size  bytes at mac: 18 hold the whole text, fewer cut it, which is logged as the error
 *         "mac truncated"
 *
 * Returns 1 when found, 0 when the table has no complete entry for ip or cannot be read.
 * Reads /proc/net/arp; a row that is not in the kernel's form ends the search.
 */
int get_mac_by_ip(const char *ip, char *mac, size_t size);

/*
 * Finds the gateway of the default route through br0, in the main routing table.
 *
 *   buf   [out] the address, dotted, cut to len bytes with its NUL; 16 hold any
 *   addr  [out] the same in network order
 *
 * On purpose, default routes through other interfaces do not count: the uplink of these units is
 * the bridge. Returns 1 when found, 0 when there is none, -1 when the kernel cannot be asked or its
 * answer is broken.
 */
int get_gateway(char *buf, uint32_t *addr, uint32_t len);

/* The two in one: the hardware address of the gateway. Returns 1 when found, 0 when not. */
int get_gateway_mac(char *mac, size_t size);

/*
 * Enters an incomplete neighbour, for the kernel to resolve.
 *
 *   ifname  one that does not exist is sent as index 0, which the kernel refuses
 *
 * Returns 0 when the request was sent, -1 when it was not or ip is not a dotted IPv4 address. The
 * kernel's verdict is not waited for.
 */
int add_ip_neigh_entry(const char *ifname, const char *ip);

/* ---- What other processes publish ---- */

/* Returns the first digit of /var/run/system.internet, 0 for none, -1 when it is not readable. */
int system_internet_status(void);

/*
 * Returns the state in /var/run/dhcpc.last_state: 1 "deconfig", 2 "leasefail", 3 "bound", 4
 * "renew", 0 for any other word and when it is not readable.
 */
int system_dhcp_status(void);

/*
 * Creates a file if it is missing, and sets its permission bits. Returns 0, or -1 with the error
 * "%s - %i/%s" (path, errno, its text) logged.
 */
int touch_file(const char *path, mode_t mode);

/*
 * Returns 1 when a server listens on port 22 of all IPv4 addresses or of one, else 0. That is what
 * /proc/net/tcp shows: on purpose a server whose IPv6 socket takes IPv4 as well, in /proc/net/tcp6,
 * does not count; kept for callers built against it.
 */
int system_is_ssh(void);

/* ---- Time ---- */

/*
 * Returns the whole seconds since the kernel started: of sysinfo(2), of the number at the start of
 * a file's first line, of /proc/uptime. The latter two return -1 without such a number.
 */
long get_uptime_from_sysinfo(void);
long get_uptime_from_file(const char *path);
long get_uptime_from_proc(void);

/*
 * Writes a duration as "1d2h3m4s". Parts that are zero are left out, so 0 seconds are "". Days are
 * counted in 32 bits.
 *
 *   size  bytes at buf; the text is cut to them, its NUL included
 */
void uptime2str(unsigned long seconds, char *buf, size_t size);

/*
 * Gives the local time in words: "Sat", "Nov", "21", "09", "05", "00", "2026\n". On purpose the
 * year keeps the newline of ctime(3): report writers end their line with it.
 */
void get_system_time(char cells[7][8]);

/* ---- Cloud environment ---- */

/*
 * Tells the cloud services that the unit talks to, from "mgmt.kelo.env" of /tmp/system.cfg, or else
 * of /etc/persistent/cfg/mgmt. Returns 0 production, 1 "stage", 2 "dev".
 */
int get_kelo_env(void);

/*
 * The same, but 2 in place of 0 for a build that is no release: one whose "scm_reftype" in
 * /usr/lib/build.properties is not "atag". "mgmt.kelo.env.force", from the same two files, waives
 * that when it is "1" or begins with "enable".
 */
int get_kelo_env_limit_prod(void);

ZORV_END

#endif
