// ps_sockets.h - the sockets that the tables of /proc/net name, by inode.
#ifndef ZORV_TELEMETRY_PS_SOCKETS_H
#define ZORV_TELEMETRY_PS_SOCKETS_H

#include <cstdint>
#include <memory>

#include <zorv/ps.h>

#include "core/own.h"

namespace zorv {

constexpr size_t kSocketLine = 256; // what is read of a line at a time

struct InetLine {
    uint32_t inode;
    zorv_inet_socket socket;
};

struct UnixLine {
    uint32_t inode;
    zorv_unix_socket socket;
    char path[kSocketLine]; // "" when the line has none; socket.path is left to the caller
};

// One line of a table of TCP or of UDP sockets; false for another one, such as its first.
bool parse_inet_line(const char *line, uint32_t kind, InetLine &parsed);

// The same for /proc/net/unix.
bool parse_unix_line(const char *line, UnixLine &parsed);

void free_sockets(zorv_socket_cache *cache);
using Sockets = std::unique_ptr<zorv_socket_cache, Closer<free_sockets>>;

// Reads all tables; empty when there is no memory for the cache itself, or one cannot be read.
Sockets cache_sockets();

// NULL when the tables did not have it, or without a cache.
const zorv_socket_record *find_socket(const zorv_socket_cache *cache, uint32_t inode);

} // namespace zorv

#endif
