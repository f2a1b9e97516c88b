#include "cloud/service.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "cloud/dns.h"

namespace cloud {
namespace {

void check(int rc, const std::string &what)
{
    if (rc < 0)
        throw std::system_error(errno, std::generic_category(), what);
}

void pause_for(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool speaks_tls(Identity identity)
{
    return identity <= Identity::misnamed;
}

size_t body_size(const Request &request)
{
    const std::string length = request.header("Content-Length");
    return length.empty() ? 0 : std::stoul(length);
}

bool fits_path(const std::string &pattern, const std::string &path)
{
    return pattern.ends_with('*') ? path.starts_with(pattern.substr(0, pattern.size() - 1))
                                  : path == pattern;
}

std::string without_blanks(std::string text)
{
    std::erase_if(text, [](unsigned char byte) { return isspace(byte); });
    return text;
}

void fill_in(std::string &text, const std::string &word, const std::string &value)
{
    for (size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += value.size())
        text.replace(at, word.size(), value);
}

int64_t now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string head(const Answer &answer, const std::string &framing)
{
    return "HTTP/1.1 " + std::to_string(answer.status) + " Status\r\n" + answer.headers + framing +
           "\r\n";
}

std::string head_of_whole(const Answer &answer)
{
    return head(answer, "Content-Length: " + std::to_string(answer.body.size()) + "\r\n");
}

void give_drip(Stream &stream, const Answer &answer)
{
    stream.write(head_of_whole(answer));
    for (const char &byte : answer.body) {
        stream.write({&byte, 1});
        pause_for(1000);
    }
}

[[noreturn]] void give_endlessly(Stream &stream, const Answer &answer)
{
    stream.write(head(answer, "Transfer-Encoding: chunked\r\n"));
    char size[32];
    snprintf(size, sizeof size, "%zx\r\n", answer.body.size());
    for (;;) {
        stream.write(size + answer.body + "\r\n");
        pause_for(1); // leaves the processor to others
    }
}

// Returns whether the connection goes on.
bool give(Stream &stream, const Answer &answer)
{
    const auto half = answer.body.substr(0, answer.body.size() / 2);
    pause_for(answer.delay_ms);
    switch (answer.conduct) {
    case Conduct::whole:
        stream.write(head_of_whole(answer) + answer.body);
        return true;
    case Conduct::raw:
        stream.write(answer.body);
        stream.finish();
        stream.drain(); // closing with bytes unread would reset
        return false;
    case Conduct::reset:
        stream.write(head_of_whole(answer) + half);
        pause_for(100); // a reset overtakes what the peer has not read yet
        stream.reset_at_end();
        return false;
    case Conduct::half_close:
        stream.write(head_of_whole(answer) + half);
        stream.cut();
        stream.drain();
        return false;
    case Conduct::drip:
        give_drip(stream, answer);
        return true;
    case Conduct::endless:
        give_endlessly(stream, answer);
    case Conduct::hang_up:
        stream.reset_at_end();
        return false;
    case Conduct::silent:
        stream.drain();
        return false;
    }
    return false;
}

void misbehave(Stream &stream, Identity identity)
{
    if (identity == Identity::garbage) {
        stream.write_raw("220 this is no TLS\r\n");
        stream.cut();
    }
    if (identity == Identity::reset)
        stream.reset_at_end();
    else
        stream.drain();
}

} // namespace

Service::Service(Script script, Place place)
    : script_(std::move(script)), place_(std::move(place)), trusted_("Trusted Authority"),
      untrusted_("Foreign Authority"), key_(make_key()), context_(SSL_CTX_new(TLS_server_method())),
      given_(script_.answers.size())
{
    for (const char *resolver : kResolvers)
        script_.sites.push_back({resolver});
    for (const Site &site : script_.sites) {
        const Authority &authority = site.identity == Identity::untrusted ? untrusted_ : trusted_;
        const std::string name =
            site.identity == Identity::misnamed ? "another.example" : site.name;
        Certificate certificate;
        if (speaks_tls(site.identity))
            certificate = authority.issue(name, key_.get(), site.identity == Identity::expired);
        sites_.push_back({site, std::move(certificate)});
    }
    SSL_CTX_set_cert_cb(context_.get(), choose_certificate, this);
    if (!place_.record.empty())
        std::filesystem::create_directories(place_.record);
    listen_at_place();
}

Service::~Service()
{
    leave();
}

void Service::leave()
{
    if (listener_ >= 0)
        close(listener_);
    listener_ = -1;
}

std::string Service::hosts() const
{
    std::string lines;
    for (const auto &[site, certificate] : sites_)
        if (site.listed)
            lines += place_.address + " " + site.name + "\n";
    return lines;
}

void Service::listen_at_place()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(place_.port);
    if (inet_pton(AF_INET, place_.address.c_str(), &address.sin_addr) != 1)
        throw std::runtime_error("not an address: " + place_.address);
    const int on = 1;
    socklen_t size = sizeof address;
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(listener_, "socket");
    check(setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
    check(bind(listener_, generic, size), place_.address + ":" + std::to_string(place_.port));
    check(listen(listener_, 128), "listen");
    check(getsockname(listener_, generic, &size), "getsockname");
    place_.port = ntohs(address.sin_port);
}

const Service::ServedSite &Service::site_of(const std::string &name) const
{
    for (const ServedSite &site : sites_)
        if (site.site.name == name)
            return site;
    return sites_.front();
}

// OpenSSL's: 1 goes on; -1 leaves the handshake where it is, with nothing sent yet.
int Service::choose_certificate(SSL *ssl, void *service)
{
    const char *name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
    const auto &self = *static_cast<Service *>(service);
    const ServedSite &site = self.site_of(name ? name : "");
    if (!site.certificate)
        return -1;
    return SSL_use_certificate(ssl, site.certificate.get()) &&
           SSL_use_PrivateKey(ssl, self.key_.get());
}

// A thread for each connection: what is told of one in this file reads in the order it happens.
void Service::run()
{
    signal(SIGPIPE, SIG_IGN);
    for (;;) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0)
            std::thread(&Service::serve, this, fd).detach();
        else if (errno != ECONNABORTED && errno != EINTR)
            pause_for(10); // no descriptor is left for now
    }
}

void Service::serve(int fd)
{
    try {
        Stream stream(fd, place_.plain ? nullptr : context_.get());
        if (!stream.shake_hands()) {
            misbehave(stream, site_of(stream.called_name()).site.identity);
            return;
        }
        while (serve_request(stream))
            ;
    } catch (const Gone &) {
        return;
    } catch (const std::exception &error) {
        fprintf(stderr, "cloud: %s\n", error.what());
    }
}

// Returns whether the connection goes on.
bool Service::serve_request(Stream &stream)
{
    const std::string text = stream.read_until("\r\n\r\n");
    Request request = parse_head(text);
    const auto outage = outage_of(request.host);
    Answer answer = outage ? *outage : find_answer(request, false).value_or(Answer{.status = 404});
    if (answer.conduct != Conduct::hang_up) {
        if (!request.header("Expect").empty())
            stream.write("HTTP/1.1 100 Continue\r\n\r\n");
        request.body = stream.read(body_size(request));
    }
    const int number = keep(text + request.body);
    if (outage)
        return give(stream, answer);
    if (request.path == "/dns-query")
        return resolve(stream, request);
    if (auto better = find_answer(request, true))
        answer = std::move(*better);
    fill_in(answer.body, "$HOST", request.host);
    fill_in(answer.body, "$NUMBER", std::to_string(number));
    return give(stream, answer);
}

bool Service::resolve(Stream &stream, const Request &request)
{
    const auto question = read_question(request.body);
    Answer answer = {.headers = "Content-Type: application/dns-message\r\n"};
    if (!question || request.header("Content-Type") != "application/dns-message") {
        answer.status = 400;
        return give(stream, answer);
    }
    answer.body = make_answer(request.body, Rcode::no_such_name, "");
    for (const Name &entry : script_.names) {
        if (entry.name != question->name ||
            (!entry.resolver.empty() && entry.resolver != request.host))
            continue;
        if (entry.lookup == Lookup::silent)
            answer.conduct = Conduct::silent;
        const Rcode rcode = entry.lookup == Lookup::refused ? Rcode::refused : Rcode::good;
        answer.body = make_answer(request.body, rcode, entry.address);
        if (entry.lookup == Lookup::nonsense)
            answer.body = "no DNS message";
        break;
    }
    return give(stream, answer);
}

std::optional<Answer> Service::outage_of(const std::string &site) const
{
    if (place_.outages.empty())
        return std::nullopt;
    std::ifstream file(place_.outages);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    for (const Outage &outage : parse_outages(text))
        if (outage.site == site && outage.until_ms > now_ms())
            return outage.answer;
    return std::nullopt;
}

// Among the answers that look into the body, or among those that do not.
std::optional<Answer> Service::find_answer(const Request &request, bool by_body)
{
    const std::string body = by_body ? without_blanks(request.body) : "";
    const std::lock_guard<std::mutex> lock(mutex_);
    for (size_t i = 0; i < script_.answers.size(); ++i) {
        const Answer &answer = script_.answers[i];
        if (answer.holds.empty() != by_body && fits_path(answer.path, request.path) &&
            body.find(without_blanks(answer.holds)) != std::string::npos &&
            (answer.method.empty() || answer.method == request.method) &&
            (answer.site.empty() || answer.site == request.host) &&
            (answer.times == 0 || given_[i] < answer.times)) {
            ++given_[i];
            return answer;
        }
    }
    return std::nullopt;
}

int Service::keep(const std::string &request)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ++received_;
    if (!place_.record.empty())
        write_record(place_.record, received_, request);
    return received_;
}

} // namespace cloud
