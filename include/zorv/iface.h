/*
 * iface.h - addresses and state of network interfaces, network masks, the uplink.
 *
 * Nothing is kept between calls, and any thread may call any function. The functions that name an
 * interface ask the kernel through a socket of their own, closed again before they return. Names
 * are cut to 15 characters, and NULL is the name of no interface. Other null pointers may be passed
 * only where it is said. "unable to open sock" is logged as an error by all of them.
 */
#ifndef ZORV_IFACE_H
#define ZORV_IFACE_H

#include <stddef.h>
#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

/*
 * Sets an interface's IPv4 address; the kernel picks the mask by the address's class.
 *
 *   ip  dotted text. On purpose a text that is no address, such as "", sets 0.0.0.0, which takes
 *       the address away. NULL is a failure, "inet_pton failed".
 *
 * Returns 0, or -1, logged as the error "ioctl SIOCSIFADDR failed".
 */
int set_iface_ip(const char *ifname, const char *ip);

/*
 * Reads an interface's first IPv4 address.
 *
 *   addr  [out] in network order; left alone on failure
 *
 * Returns 0, or -1, logged as "ioctl SIOCGIFADDR failed" in debug only: to have no address is
 * routine.
 */
int get_iface_ip(const char *ifname, uint32_t *addr);

/*
 * Looks up an interface's index.
 *
 *   ifname  NULL and "" give -1 in silence
 *   index   [out] left alone on failure
 *
 * Returns 0, or -1, logged as the error "ioctl SIOCGIFINDEX failed".
 */
int get_iface_index(const char *ifname, int *index);

/*
 * Returns 1 when an interface is set up (IFF_UP), with or without a link, else 0. A name that the
 * kernel does not know is logged as the error "ioctl SIOCGIFFLAGS failed on %s".
 */
int iface_is_up(const char *ifname);

/*
 * Makes an IPv4 mask, in host order: 24 gives 0xFFFFFF00.
 *
 * On purpose 0 gives 0xFFFFFFFF as 32 does: configurations leave a host's prefix out as 0. Above 32
 * the result is 0, and "invalid subnet mask size of %u" is logged as an error.
 */
uint32_t ipv4_netmask_from_prefix_len(unsigned prefix);

/* Makes an IPv6 mask of so many bits, at most 128. */
void ipv6_netmask_from_prefix_len(uint8_t mask[16], unsigned prefix);

/*
 * Tells whether two IPv6 addresses agree in their first bits.
 *
 *   a, b    NULL gives 0 and logs the error "NULL pointer passed"
 *   prefix  how many bits; 0xFFFFFFFF and all above 128 mean 128
 *
 * Returns 1 or 0.
 */
int net_equals_v6(const uint8_t a[16], const uint8_t b[16], unsigned prefix);

/*
 * Reads the state of a wireless uplink from the first line of /var/run/system.uplink: 1 for "init",
 * 2 for "wds", 3 for "eth", 4 for "down", 0 for any other word, an empty file and none.
 */
int get_wireless_uplink_state(void);

/*
 * Finds the interface or port that leads out, as the network scripts tell it.
 *
 *   buf  [out] its name, cut to len - 1 bytes, and a NUL; NULL, or a len of 0, only asks for the
 *        result
 *
 * The first line of /var/run/system.uplink decides. "init" returns 1, "down" 2 and "unknown" 3,
 * and buf is left alone. Any other word returns 0 with the first line of
 * /var/run/system.uplink_ifname in buf, or else of /var/run/system.uplink_port, or else "". Without
 * a word, on a device that has one way out, the result is 0 with the first of "eth0", "bond0" and
 * "eth1" that is up; when none is, buf is left alone.
 */
int get_uplink_device(char *buf, size_t len);

ZORV_END

#endif
