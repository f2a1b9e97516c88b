// stream.h - one connection of the cloud host, over TLS or plain; every call blocks.
#ifndef ZORV_SIM_CLOUD_STREAM_H
#define ZORV_SIM_CLOUD_STREAM_H

#include <memory>
#include <string>
#include <string_view>

#include <openssl/ssl.h>

#include "cloud/certificates.h"

namespace cloud {

// The peer has gone. Not a std::exception, since it is no failure.
struct Gone {};

class Stream {
public:
    // Takes the descriptor; without a context the connection is plain.
    Stream(int fd, SSL_CTX *context);
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    ~Stream();

    // The TLS handshake; false when it did not end well. With a plain connection, true.
    bool shake_hands();

    // The name that the client called in the handshake, "" for none.
    std::string called_name() const;

    // Reads up to and with the text; what came beyond it stays for the next read. Throws Gone.
    std::string read_until(std::string_view text);
    std::string read(size_t size);

    // Writes all of it. Throws Gone.
    void write(std::string_view bytes);

    // Writes past TLS.
    void write_raw(std::string_view bytes);

    // Reads and drops until the peer has gone.
    void drain();

    // Says goodbye, and sends no more.
    void finish();

    // Sends no more, as the kernel of a dead process does: TLS is not ended.
    void cut();

    // From now the end of this object resets the connection.
    void reset_at_end();

private:
    void receive();

    int fd_;
    std::unique_ptr<SSL, Freer<SSL_free>> ssl_;
    std::string received_;
};

} // namespace cloud

#endif
