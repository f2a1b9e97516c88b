#include "cloud/stream.h"

#include <algorithm>
#include <climits>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cloud {

Stream::Stream(int fd, SSL_CTX *context) : fd_(fd), ssl_(context ? SSL_new(context) : nullptr)
{
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (ssl_)
        SSL_set_fd(ssl_.get(), fd_);
}

Stream::~Stream()
{
    close(fd_);
}

bool Stream::shake_hands()
{
    return !ssl_ || SSL_accept(ssl_.get()) == 1;
}

std::string Stream::called_name() const
{
    const char *name = ssl_ ? SSL_get_servername(ssl_.get(), TLSEXT_NAMETYPE_host_name) : nullptr;
    return name ? name : "";
}

void Stream::receive()
{
    char block[16384];
    const ssize_t count =
        ssl_ ? SSL_read(ssl_.get(), block, sizeof block) : recv(fd_, block, sizeof block, 0);
    if (count <= 0)
        throw Gone();
    received_.append(block, static_cast<size_t>(count));
}

std::string Stream::read_until(std::string_view text)
{
    size_t end;
    while ((end = received_.find(text)) == std::string::npos)
        receive();
    return read(end + text.size());
}

std::string Stream::read(size_t size)
{
    while (received_.size() < size)
        receive();
    std::string bytes = received_.substr(0, size);
    received_.erase(0, size);
    return bytes;
}

void Stream::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto size = std::min<size_t>(bytes.size(), INT_MAX);
        const ssize_t count = ssl_ ? SSL_write(ssl_.get(), bytes.data(), static_cast<int>(size))
                                   : send(fd_, bytes.data(), size, MSG_NOSIGNAL);
        if (count <= 0)
            throw Gone();
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

void Stream::write_raw(std::string_view bytes)
{
    if (send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
        throw Gone();
}

void Stream::drain()
{
    char block[4096];
    while (recv(fd_, block, sizeof block, 0) > 0)
        ;
}

void Stream::finish()
{
    if (ssl_)
        SSL_shutdown(ssl_.get());
    cut();
}

void Stream::cut()
{
    shutdown(fd_, SHUT_WR);
}

void Stream::reset_at_end()
{
    const linger at_once = {1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

} // namespace cloud
