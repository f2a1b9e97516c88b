// service.h - the cloud host: an HTTPS server of many names on one port that does as it is told.
//
// It answers by a script, well or badly, resolves names over HTTPS as resolvers do, and keeps what
// it received (record.h). It is made in one process and may be run in a child of it: clients can
// connect as soon as it is made. Tests of everything that talks to the cloud use it, and so does
// the demo.
#ifndef ZORV_SIM_CLOUD_SERVICE_H
#define ZORV_SIM_CLOUD_SERVICE_H

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cloud/certificates.h"
#include "cloud/record.h"
#include "cloud/script.h"
#include "cloud/stream.h"

namespace cloud {

struct Place {
    std::string address = "127.0.0.1";
    uint16_t port = 443;   // 0 takes a free one
    bool plain = false;    // HTTP without TLS
    std::string record{};  // a folder; nothing is kept when empty
    std::string outages{}; // a file, read for each request; see parse_outages()
};

class Service {
public:
    // Listens. Throws std::system_error or std::runtime_error.
    Service(Script script, Place place);
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;
    ~Service();

    // The authority for the device to trust, as PEM.
    std::string trusted_authority() const { return trusted_.pem(); }

    // The lines of /etc/hosts for its names.
    std::string hosts() const;

    uint16_t port() const { return place_.port; }

    // Serves until the process ends.
    [[noreturn]] void run();

    // Stops listening, in a process that does not run it.
    void leave();

private:
    struct ServedSite {
        Site site;
        Certificate certificate; // none for one that does not speak TLS
    };

    static int choose_certificate(SSL *ssl, void *service);
    const ServedSite &site_of(const std::string &name) const;
    void listen_at_place();
    void serve(int fd);
    bool serve_request(Stream &stream);
    bool resolve(Stream &stream, const Request &request);
    std::optional<Answer> outage_of(const std::string &site) const;
    std::optional<Answer> find_answer(const Request &request, bool by_body);
    int keep(const std::string &request);

    Script script_;
    Place place_;
    Authority trusted_, untrusted_;
    Key key_;
    std::unique_ptr<SSL_CTX, Freer<SSL_CTX_free>> context_;
    std::vector<ServedSite> sites_;
    int listener_ = -1;
    std::mutex mutex_; // of what follows, and of the script's counts
    int received_ = 0;
    std::vector<int> given_; // how often each answer was
};

} // namespace cloud

#endif
