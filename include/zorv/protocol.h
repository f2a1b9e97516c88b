/*
 * protocol.h - discovery: short encrypted messages between the devices of one site.
 *
 * A message travels in a UDP datagram to a multicast group, port 48000, IPv4 only. Two layers: the
 * codec, gen_payload() and dec_payload(), makes a datagram of a message and takes it apart again;
 * the transport owns the one socket of the process, sends, and calls the caller's handlers from the
 * caller's libevent loop. What methods, types and messages mean is the callers' business.
 *
 * Everything that outlives a call is zorv_protocol_ctrl, the handler table, two events and the
 * group membership; zorv_protocol_deinit() ends all of it. There is one transport per process, for
 * one thread: that of the event loop.
 *
 * The site key keeps messages from those who lack it. It does not prove who sent one: the check sum
 * is a CRC-32, and an old datagram is accepted again once another one has come in between.
 */
#ifndef ZORV_PROTOCOL_H
#define ZORV_PROTOCOL_H

#include <stddef.h>
#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

struct event_base; /* <event2/event.h> */

/* ---- Datagrams ---- */

/*
 * The first 40 bytes of a datagram; `length` bytes of payload follow. On the wire every number is
 * big-endian and the payload is the message, its padding included, as one AES-128-CBC stream.
 *
 * Padding: 1 to 16 bytes, each of them their count, that fill the last block of 16; a message of
 * whole blocks gets a block of its own. An empty message and a plain one are not padded.
 */
typedef struct zorv_protocol_header {
    uint32_t magic;    /* 0x22334455 */
    uint8_t version;   /* 2; a receiver takes any from 2 up */
    uint8_t flags;     /* 1 plain, 2 encrypted */
    uint16_t length;   /* bytes of payload; after dec_payload() those of the message */
    uint16_t method;   /* the message's, the handler's choice */
    uint16_t type;     /* the message's */
    uint8_t iv[16];    /* random for every datagram; zero in a plain one */
    uint8_t device[6]; /* MAC address of the sender */
    uint16_t sequence; /* the sender's, 12 bits: shifted left by 4 on the wire */
    uint32_t crc32;    /* zlib's, of message and padding before encryption; 0 in a plain one */
} zorv_protocol_header;

/* ---- State ---- */

typedef struct zorv_protocol_ctrl_t {
    uint32_t ready_a;       /* 1 from a successful zorv_protocol_init() to zorv_protocol_deinit() */
    uint32_t ready_b;       /* the same */
    uint32_t own_address;   /* IPv4 address of the bridge, network order; 0 while it has none */
    uint32_t group_address; /* IPv4 address of the multicast group, network order */
    uint32_t unused;        /* always 0 */
    int32_t fd;             /* the socket; -1 without one */
    uint8_t device[6];      /* our MAC address, for every datagram sent */
    uint8_t key[16];        /* the site key */
    uint16_t last_sequence; /* of the last datagram accepted; its repetition is a duplicate */
    uint16_t own_sequence;  /* the low 12 bits go into every datagram sent; callers advance it */
    uint8_t reserved[14];   /* always 0; fills the object to 64 bytes for fields to come */
} zorv_protocol_ctrl_t;

/*
 * The transport's state, for everyone to read; a sender sets own_sequence, and nothing else, before
 * each message. Receivers drop a datagram whose sequence is that of the last one they accepted, and
 * take 0 for it to begin with: who always sends the same number, or 0 first, is not heard.
 */
extern zorv_protocol_ctrl_t zorv_protocol_ctrl;

/* ---- Codec ---- */

/*
 * Makes a datagram of a message.
 *
 *   data     the message; may be NULL when len is 0
 *   len      bytes at data. The length field has 16 bits and a receiver of this library takes 512
 *            bytes of a datagram, that is a message of 463; neither limit is checked here
 *   encrypt  1: padded, checked and encrypted; 0: plain, which every receiver rejects. On purpose
 *            any other value gives what says that it is encrypted and is not, with neither padding
 *            nor check sum: test senders rely on it
 *   ctrl     gives device, key and own_sequence; not changed
 *
 * Returns the datagram, owned, release it with free(): 40 bytes and those that its length field
 * counts. NULL when there is no memory for it, or len is negative or too near INT_MAX; "hdr malloc
 * fail" is then logged. The initialisation vector comes from aes_cbc_generate_iv().
 */
void *gen_payload(const void *data, int len, uint16_t method, uint16_t type, int encrypt,
                  const zorv_protocol_ctrl_t *ctrl);

/*
 * Checks a datagram and decrypts it in place.
 *
 *   received_len  bytes received; may be anything, no more of them are touched
 *   datagram      [in,out] needs no alignment
 *   ctrl          gives key and last_sequence; not changed, see there who remembers the sequence
 *
 * The checks, the first that fails decides:
 *
 *   length        received_len is 40 and the length field; else 1, and "packet length check fail"
 *                 is logged. The datagram is then as it was; from here on its header is in host
 *                 order, the sequence as a plain 12-bit number
 *   duplicate     the sequence is not ctrl->last_sequence, or the method is 3; else 2. On purpose
 *                 method 3 may repeat itself, and a duplicate is never reported as anything worse
 *   magic, flags, version
 *                 0x22334455, the encrypted bit and a length that is not 0, 2 or more; else 1
 *   CRC           of the decrypted payload; else 1, and "hdr=%d, crc32=%d" is logged. A wrong key
 *                 ends here, and so does a length that is no multiple of 16, whatever the CRC: such
 *                 a payload was not encrypted, and is left as it came
 *   padding       its bytes are all the last one's value, which is at most the length; else 1. On
 *                 purpose a last byte of 0 is accepted and strips nothing, for peers that pad with
 *                 zeros
 *
 * Returns 0 for an accepted datagram: the message stands behind the header, whose length is that of
 * the message. 1 for a rejected one, 2 for a duplicate; a payload may then be decrypted already.
 */
uint32_t dec_payload(int received_len, void *datagram, const zorv_protocol_ctrl_t *ctrl);

/* ---- Transport ---- */

/*
 * One row of the caller's table: messages of this method go to this handler. A row whose handler is
 * NULL ends the table.
 *
 *   message  borrowed for the call. The zorv_protocol_header, in host order, stands immediately
 *            before it, and both are aligned: ((const zorv_protocol_header *)message)[-1]. The
 *            bytes are the sender's, a NUL at their end included or not; somewhere behind the
 *            message and its padding one always follows
 */
typedef struct zorv_protocol_handler {
    void (*handler)(const void *message);
    uint32_t method;
} zorv_protocol_handler;

/*
 * Loads the device's MAC address and the site key, and opens the socket.
 *
 *   with_socket  0: no socket and no group, for those who only encode and decode
 *
 * Reads "serialno" of /proc/zorvhal/system.info, whose first 12 hexadecimal digits are the MAC
 * address (zero where they are missing), and /var/run/zorv_protocol.info, a file in the format of
 * cfg.h:
 *
 *   pluvo.key    32 characters, the site key in hexadecimal. Digits are taken in pairs until a pair
 *                is none; the rest of the key is then zero, which is logged as the error "pluvo.key
 *                holds characters that are no hexadecimal digits"
 *   pluvo.mcip   the group's IPv4 address; needed with a socket
 *
 * The socket is bound to port 48000 of every address. The group is joined on the interface that has
 * the address in the first line of /var/run/ipready.br0. Without such a file, or with 0.0.0.0 or
 * anything but an address in it, the socket stays outside the group until SIGUSR1.
 *
 * Returns 0. -1 on failure: the reason is logged (module "zorv_protocol", function
 * "zorv_protocol_init"), then "could not start zorv-protocol", and everything is as after
 * zorv_protocol_deinit(). To begin again call zorv_protocol_deinit() first: an open socket is
 * forgotten here, not closed.
 */
int zorv_protocol_init(int with_socket);

/*
 * Registers handlers, a persistent read event on the socket and one for SIGUSR1, which the
 * transport takes for itself, on the caller's event base. Call it after a successful
 * zorv_protocol_init(1).
 *
 *   base   borrowed until zorv_protocol_deinit(), which must come before event_base_free()
 *   table  borrowed until then; NULL is an empty one
 *
 * For each datagram that dec_payload() accepts, every handler of its method is called, in the order
 * of the table; then its sequence becomes last_sequence. A rejected one is logged ("failed to
 * decrypt the message: %d"), a duplicate is not. A handler may call zorv_protocol_deinit(); those
 * behind it in the table are still called for this datagram.
 *
 * On SIGUSR1 the address is read again from /var/run/ipready.br0. If it is an address, not 0.0.0.0
 * and not the present one, the group is left and joined anew there. On purpose the group is left
 * through any interface, since the old address may be gone by then: the kernel wants a route to the
 * group for that. When joining fails the new address stays, and the same one is not tried again. So
 * network scripts first give the bridge its address, then write the file, then send the signal.
 *
 * A bridge that is made anew with the address of the old one has lost the membership, and SIGUSR1
 * does not bring it back: whoever runs the event loop calls zorv_protocol_deinit(),
 * zorv_protocol_init() and zorv_protocol_init_recv() then.
 *
 * Returns 0, always: that an event could not be made goes unnoticed.
 */
int zorv_protocol_init_recv(struct event_base *base, const zorv_protocol_handler *table);

/*
 * Sends one message to the group, as gen_payload() makes it. own_sequence is not advanced.
 *
 * Returns what sendto() does: bytes sent, negative on failure, which is logged. -1 when the
 * datagram could not be made.
 */
int zorv_protocol_send(const void *data, unsigned len, uint16_t method, uint16_t type, int encrypt);

/*
 * Leaves the group, closes the socket, frees both events, forgets the table and clears
 * zorv_protocol_ctrl; its fd becomes -1. Harmless when nothing is open. With a socket that has not
 * joined the group, "unable to drop membership, %s" is logged.
 */
void zorv_protocol_deinit(void);

ZORV_END

#endif
