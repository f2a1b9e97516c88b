/*
 * buffer.h - a growable queue of bytes.
 *
 * Bytes are appended at the write end and consumed from the read end. A buffer carries its
 * operations with it; they are called through the object, which is always the first argument:
 *
 *   buffer *b = buffer_create();
 *   b->printf(b, "GET %s\r\n", path);
 *   while (b->length(b) > 0 && b->send(b, socket, MSG_NOSIGNAL) > 0)
 *       ;
 *   buffer_destroy(b);
 *
 * The storage grows in whole steps of 4096 bytes; the allocation behind it may be up to twice as
 * large. When all is consumed it is used from its start again; until then consumed space at the
 * front is not reclaimed. Failures show in the results, and a failed growth changes nothing. A
 * buffer belongs to one thread at a time.
 */
#ifndef ZORV_BUFFER_H
#define ZORV_BUFFER_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <zorv/api.h>

ZORV_BEGIN

/* What the operations work on. Callers leave it alone. */
typedef struct buffer_storage {
    uint8_t *data;             /* the allocation */
    uint64_t read_offset;      /* where the unread bytes begin */
    uint64_t write_offset;     /* where the next byte is written */
    uint64_t length;           /* unread bytes */
    uint64_t capacity;         /* bytes of storage at data */
    uint64_t initial_capacity; /* bytes given at creation; reset() shrinks back to them */
} buffer_storage;

typedef struct buffer buffer;

struct buffer {
    buffer_storage *storage;

    /*
     * Gives the buffer empty storage of `count` zeroed bytes in place of what it has.
     * buffer_create2() has called it already. Returns 0, or -1 with the buffer unchanged.
     */
    int (*init)(buffer *b, size_t count);

    /* Returns the number of unread bytes. */
    size_t (*length)(buffer *b);

    /* Returns the bytes of storage. */
    size_t (*capacity)(buffer *b);

    /*
     * Appends n bytes, which do not lie in the buffer itself. Returns n, or 0 when bytes is NULL or
     * memory is short.
     */
    size_t (*append)(buffer *b, const void *bytes, size_t n);

    /*
     * Appends a formatted text, whose arguments do not lie in the buffer itself. A NUL stands
     * behind it in the storage but is not counted, and the next append overwrites it: consecutive
     * texts join into one. Returns the length of the text, or 0 on failure.
     */
    int (*printf)(buffer *b, const char *format, ...) ZORV_PRINTF(2, 3);

    /*
     * Consumes up to n bytes, which are copied to destination; NULL discards them. Returns how many
     * they were.
     */
    size_t (*read)(buffer *b, void *destination, size_t n);

    /* Returns the first unread byte, borrowed until the buffer is next appended to or reset. */
    uint8_t *(*data)(buffer *b);

    /*
     * Copies a freshly written buffer, one of which nothing has been read. Read the copy before
     * writing to it.
     *
     * On purpose, the copy takes as many bytes as are unread, but from the start of the storage;
     * and what is appended to it is written over the copied bytes from the start while its length
     * grows. An empty buffer gives a new one of 4096 bytes.
     *
     * Returns an owned buffer (the caller releases it with buffer_destroy()), or NULL when memory
     * is short or the storage has grown beyond 4 MiB.
     */
    buffer *(*clone)(buffer *b);

    /*
     * Empties the buffer, gives grown storage back down to its size at creation and fills it with
     * zeros. Where it cannot be given back it stays, with the warning "Failed to reallocate
     * buffer".
     */
    void (*reset)(buffer *b);

    /* Makes everything written since the storage was last empty unread again. */
    void (*rewind)(buffer *b);

    /* Releases the buffer; buffer_destroy() is the same for callers who may have NULL. */
    void (*destroy)(buffer *b);

    /*
     * Hands all unread bytes to one send() with these flags and consumes as many as it took.
     * Returns the result of send(), and -1 for a negative socket; nothing is consumed then.
     */
    ssize_t (*send)(buffer *b, int socket, int flags);

    /*
     * Appends n zeros for the caller to fill in. Returns the first of them, borrowed until the next
     * append, or NULL when memory is short.
     */
    void *(*append_zero)(buffer *b, size_t n);
};

/*
 * Creates an empty buffer with `size` bytes of storage, 0 to 4194304 (4 MiB); buffer_create() takes
 * 4096. Returns an owned buffer (the caller releases it with buffer_destroy()), or NULL when size
 * is above that or memory is short.
 */
buffer *buffer_create2(size_t size);
buffer *buffer_create(void);

/* Releases a buffer. NULL is ignored. */
void buffer_destroy(buffer *b);

/*
 * Takes the last n bytes written back. The write end and the length go back by n, each down to 0 at
 * most on its own. A negative n does nothing.
 */
void buffer_pop(buffer *b, int n);

/*
 * Appends test data, 110 bytes (or a few more, from i = 99 on) for each i from 0 to count - 1: the
 * text "%04d-%04d " of i * 100 + 1 and i * 100 + 100; 50 digits "1234567890..."; and 50 bytes that
 * are 39 digits, a newline and ten NULs.
 */
void buffer_fill(buffer *b, int count);

ZORV_END

#endif
