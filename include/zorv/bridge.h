/*
 * bridge.h - the kernel's bridges: learned addresses, ports; hardware addresses of interfaces.
 *
 * Every call reads /sys/class/net or asks the kernel anew; nothing is kept. Interface names are cut
 * to 15 characters where the kernel is asked; a null name is "". Nothing is logged: fdb_foreach()
 * and fdb_delneigh() print their failures to standard error. Any thread may call any function.
 */
#ifndef ZORV_BRIDGE_H
#define ZORV_BRIDGE_H

#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

/* The most ports of a bridge that fdb_foreach() tracks. */
#define MAX_ETH_PORTS 16

/* An entry of a bridge's forwarding table. The kernel fills 16 bytes, the reader takes up to 24. */
typedef struct fdb_record {
    uint8_t mac[6];
    uint8_t port_no;       /* low 8 bits */
    uint8_t is_local;      /* 1 for an address of the bridge itself */
    uint32_t ageing_timer; /* hundredths of a second since it was last seen */
    uint8_t port_hi;       /* high bits of the port number */
    uint8_t pad[11];
} fdb_record;

/* ---- Where an address was learned, and ports ---- */

/*
 * Looks up an address in a bridge's forwarding table, /sys/class/net/BRIDGE/brforward.
 *
 *   mac          "02:A0:F1:00:00:07", in any case; other forms are never found
 *   age_seconds  [out] whole seconds since it was last seen
 *   port         [out] the low 8 bits of the port number
 *
 * Both are left alone when nothing is found, and may be NULL. Returns 1 when found, else 0. On
 * purpose, a table that opens as descriptor 0 is taken for one that cannot be opened: keep standard
 * input open.
 */
int get_mac_brinfo(const char *bridge, const char *mac, unsigned *age_seconds, unsigned *port);

/*
 * Returns the state of a port: 0 disabled, 3 forwarding, others as the kernel numbers them; -1 when
 * it cannot be read.
 */
int get_br_port_state(const char *bridge, const char *ifname);

/* Return 1 or 0. A port whose state cannot be read counts as disabled. */
int is_brif_disabled(const char *bridge, const char *ifname);
int is_brif_forwarding(const char *bridge, const char *ifname);

/*
 * Finds the interface that is a port of a bridge by its number.
 *
 *   ifname  [out] 16 bytes; left alone when nothing is found
 *
 * Returns 1 when found, else 0.
 */
int get_ifname_from_br_portno(const char *bridge, unsigned port_no, char *ifname);

/* ---- The forwarding table ---- */

/* Is given the entry, borrowed for the call, and the name of a port. */
typedef void (*fdb_callback)(void *user, const fdb_record *record, const char *ifname);

/*
 * Calls back for the entries in the forwarding tables of bridges.
 *
 *   bridge_prefix  visits the bridges of this name and those that go on with a point ("br0" and
 *                  "br0.5", not "br01"); NULL visits all
 *   exclude        names, ended by NULL, of ports to leave out, with those that go on with a point;
 *                  NULL leaves out none
 *
 * Of each bridge the first 16 ports that the kernel lists are tracked; with 16 of them
 * "_fdb_foreach_on_bridge: WARN: MAX_ETH_PORTS hit!" is printed. The callback gets entries of
 * tracked ports by the low 8 bits of their numbers, and always the name of the port tracked last,
 * "" when there is none.
 *
 * On purpose, entries are read 24 bytes at a time, the form in which the switch driver of these
 * units publishes them. The kernel's own bridges answer such a read with 16 bytes, which ends the
 * walk over theirs at once: ask for those by get_mac_brinfo().
 *
 * Prints "PATH: REASON" when /sys/class/net, a bridge's ports, a port's number or a table cannot be
 * read, and goes on.
 */
void fdb_foreach(const char *bridge_prefix, const char **exclude, fdb_callback callback,
                 void *user);

/*
 * Has the kernel forget where it learned an address.
 *
 *   ifname  the port
 *
 * Returns 0 when the request was sent; the kernel's verdict is not waited for. Else a negated
 * errno, with "fdb_delneigh: CODE on line N" printed, where N is 140 without a datagram socket, 145
 * when there is no such interface, 149 without a netlink socket and 165 when sending fails. A null
 * mac gives -EINVAL and prints nothing.
 */
int fdb_delneigh(const uint8_t mac[6], const char *ifname);

/* ---- Hardware addresses ---- */

/*
 * Reads the hardware address of an interface; mac is left alone on failure. Returns 0, -1 without a
 * socket (or mac), -ECHILD when the kernel does not tell.
 */
int devhwaddr_get_iface(uint8_t mac[6], const char *ifname);

/* Reads the address of the first of eth0, eth0_real and br0 that has one. Returns 0, or 1. */
int devhwaddr_get(uint8_t mac[6]);

/*
 * Finds an interface by its hardware address. Only interfaces with an IPv4 address are searched,
 * the first ten of them; of several that match the last is taken.
 *
 *   ifindex  [out] left alone unless found
 *
 * Returns 0; -ECHILD when there is none, -EAGAIN when the interfaces cannot be listed, -1 without a
 * socket (or a pointer).
 */
int devifindex_get_hwaddr(int *ifindex, const uint8_t mac[6]);

/* Makes an address of the maker's prefix, 0xDE, 0xAD and the byte `last`. Returns 0 always. */
int devhwaddr_generate(uint8_t mac[6], uint8_t last);

ZORV_END

#endif
