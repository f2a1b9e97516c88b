#include <zorv/buffer.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

// The layout is part of the interface: callers are built against it.
static_assert(sizeof(buffer_storage) == 48);
static_assert(offsetof(buffer_storage, write_offset) == 16);
static_assert(offsetof(buffer_storage, initial_capacity) == 40);
static_assert(sizeof(buffer) == 14 * sizeof(void *));
static_assert(offsetof(buffer, append) == 4 * sizeof(void *));
static_assert(offsetof(buffer, clone) == 8 * sizeof(void *));
static_assert(offsetof(buffer, append_zero) == 13 * sizeof(void *));

namespace {

constexpr char kModule[] = "buffer";
constexpr size_t kStep = 4096;       // the storage grows by whole steps
constexpr size_t kLargest = 4194304; // at creation; growth goes beyond it

// The capacity grows by what is asked for, the allocation behind it doubles: a long queue
// of small pieces is moved seldom.
struct Allocation : buffer_storage {
    size_t allocated; // bytes at data, at least the capacity
};

void free_storage(buffer_storage *storage)
{
    free(storage->data);
    free(static_cast<Allocation *>(storage));
}

using Storage = std::unique_ptr<buffer_storage, Closer<free_storage>>;
using Buffer = std::unique_ptr<buffer, Closer<buffer_destroy>>;

// An allocation of 0 bytes may be NULL, which would look like a failure.
size_t allocated(size_t capacity)
{
    return std::max<size_t>(capacity, 1);
}

// Has at least so many bytes allocated; false when memory is short.
bool reallocate(Allocation &storage, size_t size)
{
    size_t generous = std::max(size, 2 * storage.allocated);
    void *data = realloc(storage.data, generous);
    if (!data)
        data = realloc(storage.data, generous = size);
    if (!data)
        return false;
    storage.data = static_cast<uint8_t *>(data);
    storage.allocated = generous;
    return true;
}

// Makes the storage bytes_needed or more longer; false when that cannot be had.
bool grow(Allocation &storage, size_t bytes_needed)
{
    const size_t steps = bytes_needed / kStep + (bytes_needed % kStep != 0);
    size_t grown;
    if (__builtin_mul_overflow(steps, kStep, &grown) ||
        __builtin_add_overflow(grown, storage.capacity, &grown))
        return false;
    if (grown > storage.allocated && !reallocate(storage, grown))
        return false;
    storage.capacity = grown;
    return true;
}

// Reserves n bytes at the write end; they are at the returned pointer. NULL changes nothing.
//
// In a clone the unread bytes end behind the write end, and appending moves that end on. Growth
// looks at both ends, so that all unread bytes are inside the storage, and clears what it adds to
// such a buffer, since it can be read before it is written.
uint8_t *reserve(buffer *b, size_t n)
{
    auto &storage = *static_cast<Allocation *>(b->storage);
    const bool is_drained = storage.length == 0;
    const uint64_t begin = is_drained ? 0 : storage.write_offset;
    const uint64_t unread_end = is_drained ? 0 : storage.read_offset + storage.length;
    const uint64_t capacity = storage.capacity;
    if (n > capacity - std::max(begin, unread_end)) {
        if (!grow(storage, n))
            return nullptr;
        if (unread_end > begin)
            memset(storage.data + capacity, 0, storage.capacity - capacity);
    }
    if (is_drained)
        storage.read_offset = 0;
    storage.write_offset = begin + n;
    storage.length += n;
    return storage.data + begin;
}

// Takes n bytes back off the write end.
void take_back(buffer_storage &storage, uint64_t n)
{
    storage.write_offset -= std::min(n, storage.write_offset);
    storage.length -= std::min(n, storage.length);
}

int buffer_init(buffer *b, size_t count)
{
    const auto allocation = static_cast<Allocation *>(calloc(1, sizeof(Allocation)));
    if (!allocation)
        return -1;
    Storage storage(allocation);
    allocation->data = static_cast<uint8_t *>(calloc(allocated(count), 1));
    if (!allocation->data)
        return -1;
    allocation->capacity = allocation->initial_capacity = allocation->allocated = count;
    const Storage old(std::exchange(b->storage, storage.release()));
    return 0;
}

size_t buffer_length(buffer *b)
{
    return b->storage->length;
}

size_t buffer_capacity(buffer *b)
{
    return b->storage->capacity;
}

size_t buffer_append(buffer *b, const void *bytes, size_t n)
{
    uint8_t *const reserved = bytes && n > 0 ? reserve(b, n) : nullptr;
    if (!reserved)
        return 0;
    memcpy(reserved, bytes, n);
    return n;
}

// Writes to the free bytes behind the write end, and again to larger storage if it has to: no text
// between the two. What is free holds nothing that a failure must leave alone, but for its first
// byte.
ZORV_PRINTF(2, 3) int buffer_printf(buffer *b, const char *format, ...)
{
    const buffer_storage &storage = *b->storage;
    uint8_t *const end = storage.data + storage.write_offset;
    const bool is_clone = storage.read_offset + storage.length > storage.write_offset;
    const size_t room = is_clone ? 0 : storage.capacity - storage.write_offset;
    const uint8_t last = room > 0 ? *end : 0; // the NUL of a text before
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(reinterpret_cast<char *>(end), room, format, arguments);
    va_end(arguments);
    const size_t size = static_cast<size_t>(length) + 1;
    uint8_t *const reserved = length < 0 ? nullptr : reserve(b, size);
    if (!reserved) {
        if (room > 0)
            *end = last;
        return 0;
    }
    if (size <= room) {
        memmove(reserved, end, size); // a drained buffer begins anew
    } else {
        va_start(arguments, format);
        vsnprintf(reinterpret_cast<char *>(reserved), size, format, arguments);
        va_end(arguments);
    }
    take_back(*b->storage, 1); // the NUL, so that the next text goes on here
    return length;
}

size_t buffer_read(buffer *b, void *destination, size_t n)
{
    buffer_storage &storage = *b->storage;
    const size_t count = std::min<size_t>(n, storage.length);
    if (destination && count > 0)
        memcpy(destination, storage.data + storage.read_offset, count);
    storage.read_offset += count;
    storage.length -= count;
    return count;
}

uint8_t *buffer_data(buffer *b)
{
    return b->storage->data + b->storage->read_offset;
}

// On purpose: copies from the start of the storage and leaves the write end there; kept for callers
// built against it.
buffer *buffer_clone(buffer *b)
{
    const buffer_storage &source = *b->storage;
    if (source.length == 0)
        return buffer_create();
    buffer *const copy = buffer_create2(source.capacity);
    if (!copy)
        return nullptr;
    copy->storage->length = source.length;
    memcpy(copy->storage->data, source.data, source.length);
    return copy;
}

void buffer_reset(buffer *b)
{
    if (!b->storage)
        return;
    auto &storage = *static_cast<Allocation *>(b->storage);
    storage.read_offset = storage.write_offset = storage.length = 0;
    if (storage.capacity > storage.initial_capacity) {
        const size_t size = allocated(storage.initial_capacity);
        if (const auto data = static_cast<uint8_t *>(realloc(storage.data, size))) {
            storage.data = data;
            storage.capacity = storage.allocated = storage.initial_capacity;
        } else {
            log_warning("Failed to reallocate buffer");
        }
    }
    memset(storage.data, 0, storage.capacity);
}

void buffer_rewind(buffer *b)
{
    b->storage->read_offset = 0;
    b->storage->length = b->storage->write_offset;
}

void destroy_buffer(buffer *b)
{
    const Storage storage(b->storage);
    free(b);
}

ssize_t buffer_send(buffer *b, int socket, int flags)
{
    if (socket < 0)
        return -1;
    const ssize_t sent = send(socket, buffer_data(b), b->storage->length, flags);
    if (sent > 0)
        buffer_read(b, nullptr, static_cast<size_t>(sent));
    return sent;
}

void *buffer_append_zero(buffer *b, size_t n)
{
    uint8_t *const reserved = reserve(b, n);
    if (reserved)
        memset(reserved, 0, n);
    return reserved;
}

// One by one: a constant of all of them would be relocated.
void set_operations(buffer &b)
{
    b.init = buffer_init;
    b.length = buffer_length;
    b.capacity = buffer_capacity;
    b.append = buffer_append;
    b.printf = buffer_printf;
    b.read = buffer_read;
    b.data = buffer_data;
    b.clone = buffer_clone;
    b.reset = buffer_reset;
    b.rewind = buffer_rewind;
    b.destroy = destroy_buffer;
    b.send = buffer_send;
    b.append_zero = buffer_append_zero;
}

} // namespace

buffer *buffer_create2(size_t size)
{
    if (size > kLargest)
        return nullptr;
    Buffer created(static_cast<buffer *>(malloc(sizeof(buffer))));
    if (!created)
        return nullptr;
    created->storage = nullptr;
    set_operations(*created);
    return created->init(created.get(), size) == 0 ? created.release() : nullptr;
}

buffer *buffer_create(void)
{
    return buffer_create2(kStep);
}

void buffer_destroy(buffer *b)
{
    if (b)
        b->destroy(b);
}

void buffer_pop(buffer *b, int n)
{
    if (n > 0)
        take_back(*b->storage, static_cast<uint64_t>(n));
}

void buffer_fill(buffer *b, int count)
{
    static constexpr char kDigits[] = "12345678901234567890123456789012345678901234567890";
    static constexpr char kText[50] = "123456789012345678901234567890123456789\n";
    for (int i = 0; i < count; ++i) {
        const int64_t hundred = int64_t{i} * 100;
        b->printf(b, "%04" PRId64 "-%04" PRId64 " ", hundred + 1, hundred + 100);
        b->append(b, kDigits, sizeof kDigits - 1);
        b->append(b, kText, sizeof kText);
    }
}
