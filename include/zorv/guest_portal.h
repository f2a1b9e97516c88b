/*
 * guest_portal.h - who may pass the guest portals, and which portal serves whom.
 *
 * The guest-portal service keeps a folder /var/run/guest/portal/NAME for each portal, with up to
 * three text files: "authorized" (identifiers of clients that may pass), "devnames" (network
 * devices served) and "vlans" (VLAN ids in decimal). Each is a list of items separated by newlines
 * or commas. Portals are read into a set at one moment, and questions are answered from there:
 *
 *   guest_portal_set set;
 *   guest_portal_set_init(&set);
 *   guest_portal_set_read(&set);
 *   const guest_portal *portal = guest_portal_from_device(&set, "wlan0.10");
 *   int may_pass = guest_portal_is_auth(portal, "02:a0:f1:00:00:07");
 *   guest_portal_set_clear(&set);
 *
 * An item is found only whole, in its case; blanks belong to it. Null pointers are answered with 0,
 * NULL or nothing done. A set is for one thread at a time.
 */
#ifndef ZORV_GUEST_PORTAL_H
#define ZORV_GUEST_PORTAL_H

#include <zorv/api.h>
#include <zorv/buffer.h>

ZORV_BEGIN

typedef struct guest_portal {
    struct guest_portal *prev, *next; /* its neighbours in a set, whose ends are the set itself */
    char name[32];                    /* the folder's, cut to 31 characters */
    buffer *authorized;               /* the text of a file, NULL when it could not be read */
    buffer *devnames;
    buffer *vlans;
} guest_portal;

/* A ring of portals: the set stands in it as a portal of which only the links are there. */
typedef struct guest_portal_set {
    guest_portal *prev, *next; /* the last and the first; the set itself when it is empty */
} guest_portal_set;

/* ---- One portal ---- */

/* Zeroes a portal. */
void guest_portal_init(guest_portal *p);

/*
 * Sets the name of a portal that holds no text yet, and reads its files, owned (the caller releases
 * them with guest_portal_clear()). The files are those of the full name, however long.
 *
 * A file that cannot be opened leaves its text NULL, with "Couldn't open %s" in debug. The errors
 * "Not enough memory for buffer: %s" and "Couldn't read all of %s. Only have %d bytes" tell of
 * short memory; these three name the operation "fill_portal_buffer_file". Lines are read in pieces
 * of 127 bytes, each up to its first NUL.
 */
void guest_portal_read(guest_portal *p, const char *name);

/* Releases the texts, which become NULL. */
void guest_portal_clear(guest_portal *p);

/* Return 1 when the client may pass, or the portal serves the device, else 0. */
int guest_portal_is_auth(const guest_portal *p, const char *client);
int guest_portal_has_device(const guest_portal *p, const char *dev);

/* ---- The set ---- */

/* Makes a set empty, without a look at what it held. */
void guest_portal_set_init(guest_portal_set *s);

/*
 * Adds a portal that was made with malloc() or calloc(), taken until guest_portal_set_clear() frees
 * it. It becomes the first that the searches below meet.
 */
void guest_portal_set_add(guest_portal_set *s, guest_portal *p);

/*
 * Adds a portal for each entry of /var/run/guest/portal, in the order of the folder, so that the
 * last is met first. A plain file there makes a portal without texts. What the set holds already
 * stays. Errors logged: "Couldn't open guest dir %s", "Couldn't allocate portal for %s".
 */
void guest_portal_set_read(guest_portal_set *s);

/* Releases all portals; the set is empty then. */
void guest_portal_set_clear(guest_portal_set *s);

unsigned guest_portal_set_count(const guest_portal_set *s);

/*
 * Return the first portal that serves the device, has the name or serves the VLAN, borrowed until
 * the set is cleared; NULL when there is none, as for a negative VLAN.
 */
guest_portal *guest_portal_from_device(const guest_portal_set *s, const char *dev);
guest_portal *guest_portal_from_name(const guest_portal_set *s, const char *name);
guest_portal *guest_portal_from_vlan(const guest_portal_set *s, int vlan);

ZORV_END

#endif
