#include <zorv/protocol.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <event2/event.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <zorv/cfg.h>
#include <zorv/file.h>
#include <zorv/text.h>

#include "core/device_files.h"
#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "zorv_protocol";
constexpr char kSiteFile[] = "/var/run/zorv_protocol.info";
constexpr char kAddressFile[] = "/var/run/ipready.br0";
constexpr char kKeyName[] = "pluvo.key";
constexpr char kGroupName[] = "pluvo.mcip";
constexpr uint16_t kPort = 48000;
constexpr uint8_t kHops = 64;
constexpr size_t kKeyDigits = 32;
constexpr size_t kLine = 64;     // of a state file; a serial number and an address are far shorter
constexpr size_t kReceive = 512; // taken of a datagram; longer ones fail their length check

// What zorv_protocol_ctrl is while nothing is open.
constexpr zorv_protocol_ctrl_t kReset = [] {
    zorv_protocol_ctrl_t state{};
    state.fd = -1;
    return state;
}();

// From zorv_protocol_init_recv(), or joining the group, to zorv_protocol_deinit().
struct Session {
    const zorv_protocol_handler *table;
    event *receive;
    event *signal;
    ip_mreq membership; // kept for leaving the group
};
constinit Session g_session{};

using Cfg = std::unique_ptr<cfg_entry, Closer<free_cfg>>;

// The steps of zorv_protocol_init() log under its name.
constexpr char kInit[] = "zorv_protocol_init";

template <class T>
bool set_option(int level, int name, const T &value)
{
    return setsockopt(zorv_protocol_ctrl.fd, level, name, &value, sizeof value) == 0;
}

// The bridge's address. False when there is none yet.
bool read_address(char (&text)[kLine], in_addr &address)
{
    text[0] = '\0'; // an empty file leaves it alone
    freadline(kAddressFile, text, sizeof text, "0.0.0.0");
    return inet_aton(text, &address) != 0 && address.s_addr != INADDR_ANY;
}

// Joins the group on the interface of our address; negative on failure, with the reason in errno.
int zorv_multicast_socket_init()
{
    const in_addr address{zorv_protocol_ctrl.own_address};
    if (!set_option(IPPROTO_IP, IP_MULTICAST_IF, address)) {
        log_error("unable to set mcast local ip, %s", strerror(errno));
        return -1;
    }
    if (!set_option(IPPROTO_IP, IP_MULTICAST_TTL, kHops)) {
        log_error("unable to set mcast ttl, %s", strerror(errno));
        return -2;
    }
    if (!set_option(IPPROTO_IP, IP_MULTICAST_LOOP, uint8_t{0})) {
        log_error("unable to set mcast loop, %s", strerror(errno));
        return -3;
    }
    g_session.membership = {{zorv_protocol_ctrl.group_address}, address};
    if (!set_option(IPPROTO_IP, IP_ADD_MEMBERSHIP, g_session.membership)) {
        log_error("unable to add membership, %s", strerror(errno));
        return -4;
    }
    return 0;
}

// Leaves the group, if there is a socket.
void zorv_multicast_socket_deinit()
{
    if (zorv_protocol_ctrl.fd < 0)
        return;
    // On purpose through any interface: when an address has changed, none has the old one.
    g_session.membership.imr_interface.s_addr = INADDR_ANY;
    if (!set_option(IPPROTO_IP, IP_DROP_MEMBERSHIP, g_session.membership))
        log_error("unable to drop membership, %s", strerror(errno));
}

void set_ready()
{
    zorv_protocol_ctrl.ready_a = 1;
    zorv_protocol_ctrl.ready_b = 1;
}

void load_device()
{
    char serial[kLine];
    freadvalue(kSystemInfo, "serialno", serial, sizeof serial, "000000000000");
    uint8_t(&mac)[6] = zorv_protocol_ctrl.device;
    hex2uchar(serial, mac, sizeof mac);
    log_info_as(kInit, "ZORV_DEVICE[%02x:%02x:%02x:%02x:%02x:%02x]", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
}

Cfg load_site()
{
    if (access(kSiteFile, R_OK) != 0) {
        log_error_as(kInit, "Unable to access %s: %s", kSiteFile, strerror(errno));
        return nullptr;
    }
    Cfg site(parse(kSiteFile));
    if (!site)
        log_error_as(kInit, "Unable to parse %s", kSiteFile);
    return site;
}

bool load_key(const char *digits)
{
    const size_t length = strlen(digits);
    if (length != kKeyDigits) {
        log_error_as(kInit, "%s invalid len %zd", kKeyName, static_cast<ssize_t>(length));
        return false;
    }
    if (strspn(digits, "0123456789abcdefABCDEF") != length)
        log_error_as(kInit, "%s holds characters that are no hexadecimal digits", kKeyName);
    hex2uchar(digits, zorv_protocol_ctrl.key, sizeof zorv_protocol_ctrl.key);
    return true;
}

bool load_group(const char *text)
{
    in_addr group;
    if (inet_aton(text, &group) == 0) {
        log_error_as(kInit, "%s=%s is not valid", kGroupName, text);
        return false;
    }
    zorv_protocol_ctrl.group_address = group.s_addr;
    log_info_as(kInit, "mcast_ip is %s", text);
    return true;
}

bool open_socket()
{
    zorv_protocol_ctrl.fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (zorv_protocol_ctrl.fd < 0) {
        log_error_as(kInit, "unable to create udp socket, %s", strerror(errno));
        return false;
    }
    if (!set_option(SOL_SOCKET, SO_REUSEADDR, 1)) {
        log_error_as(kInit, "unable to set sockopt reuseaddr socket, %s", strerror(errno));
        return false;
    }
    if (!set_option(SOL_SOCKET, SO_BROADCAST, 1)) {
        log_error_as(kInit, "can't set socket broadcast");
        return false;
    }
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(kPort);
    if (bind(zorv_protocol_ctrl.fd, reinterpret_cast<const sockaddr *>(&any), sizeof any) != 0) {
        log_error_as(kInit, "unable to bind zorv socket, %s", strerror(errno));
        return false;
    }
    return true;
}

// Joins the group, or leaves that to SIGUSR1 while there is no address.
bool join_at_start()
{
    char text[kLine];
    in_addr address;
    if (!read_address(text, address))
        return true;
    zorv_protocol_ctrl.own_address = address.s_addr;
    log_info_as(kInit, "my_ip is %s", text);
    if (zorv_multicast_socket_init() < 0) {
        log_error_as(kInit, "set multicast socket fail, %s", strerror(errno));
        return false;
    }
    return true;
}

bool start(bool with_socket)
{
    load_device();
    const Cfg site = load_site();
    if (!site)
        return false;
    const char *const key = get_value(site.get(), nullptr, kKeyName);
    const char *const group = get_value(site.get(), nullptr, kGroupName);
    if (!key) {
        log_error_as(kInit, "no %s", kKeyName);
        return false;
    }
    if (!group && with_socket) {
        log_error_as(kInit, "no %s", kGroupName);
        return false;
    }
    if (!group)
        log_info_as(kInit, "no %s", kGroupName);
    return load_key(key) &&
           (!with_socket || (load_group(group) && open_socket() && join_at_start()));
}

// Gives a datagram to the handlers of its method. It stands in the caller's buffer, decrypted.
void deliver(const zorv_protocol_header &header, const char *message)
{
    for (auto *row = g_session.table; row && row->handler; ++row) {
        if (row->method == header.method)
            row->handler(message);
    }
    if (zorv_protocol_ctrl.fd >= 0) // else a handler has ended the session
        zorv_protocol_ctrl.last_sequence = header.sequence;
}

void zorv_protocol_recv(evutil_socket_t fd, short /*what*/, void * /*unused*/)
{
    // One byte more than is received, so that a text always ends, for the handlers too.
    alignas(zorv_protocol_header) char buffer[kReceive + 1];
    // Without waiting: a datagram that is dropped for its check sum has woken the loop for nothing.
    const ssize_t received = recvfrom(fd, buffer, kReceive, MSG_DONTWAIT, nullptr, nullptr);
    if (received < 0) {
        if (errno != EINTR && errno != EAGAIN)
            log_error("recvfrom failed: %s", strerror(errno));
        return;
    }
    buffer[received] = '\0';

    const uint32_t status = dec_payload(static_cast<int>(received), buffer, &zorv_protocol_ctrl);
    if (status == 1)
        log_error("failed to decrypt the message: %d", static_cast<int>(status));
    if (status != 0)
        return;
    zorv_protocol_header header;
    memcpy(&header, buffer, sizeof header);
    const char *const message = buffer + sizeof header;
    log_debug("[%.*s]", header.length, message);
    deliver(header, message);
}

void zorv_usr1_handler(evutil_socket_t /*signal*/, short /*what*/, void * /*unused*/)
{
    log_info("%s", "Get DHCP IP");
    char text[kLine];
    in_addr address;
    if (!read_address(text, address) || address.s_addr == zorv_protocol_ctrl.own_address)
        return;
    zorv_protocol_ctrl.own_address = address.s_addr;
    log_info("my_ip is %s", text);
    zorv_multicast_socket_deinit();
    if (zorv_multicast_socket_init() < 0)
        log_error("set multicast socket fail, %s", strerror(errno));
}

void free_event(event *&slot)
{
    if (slot)
        event_free(slot);
    slot = nullptr;
}

void register_event(event *&slot, event *made)
{
    free_event(slot);
    slot = made;
    if (made)
        event_add(made, nullptr);
}

} // namespace

constinit zorv_protocol_ctrl_t zorv_protocol_ctrl = kReset;

int zorv_protocol_init(int with_socket)
{
    zorv_protocol_ctrl = kReset;
    if (!start(with_socket != 0)) {
        zorv_protocol_deinit();
        log_error("could not start zorv-protocol");
        return -1;
    }
    set_ready();
    log_info("zorv_protocol init done");
    return 0;
}

int zorv_protocol_init_recv(struct event_base *base, const zorv_protocol_handler *table)
{
    g_session.table = table;
    register_event(g_session.receive, event_new(base, zorv_protocol_ctrl.fd, EV_READ | EV_PERSIST,
                                                zorv_protocol_recv, nullptr));
    register_event(g_session.signal,
                   event_new(base, SIGUSR1, EV_SIGNAL | EV_PERSIST, zorv_usr1_handler, nullptr));
    return 0;
}

int zorv_protocol_send(const void *data, unsigned len, uint16_t method, uint16_t type, int encrypt)
{
    const std::unique_ptr<void, Closer<free>> datagram(
        gen_payload(data, static_cast<int>(len), method, type, encrypt, &zorv_protocol_ctrl));
    if (!datagram) {
        log_error("fill_zorv_payload fail");
        return -1;
    }
    zorv_protocol_header header;
    memcpy(&header, datagram.get(), sizeof header);
    const size_t length = sizeof header + ntohs(header.length);

    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(kPort);
    group.sin_addr.s_addr = zorv_protocol_ctrl.group_address;
    const ssize_t sent = sendto(zorv_protocol_ctrl.fd, datagram.get(), length, 0,
                                reinterpret_cast<const sockaddr *>(&group), sizeof group);
    if (sent < 0)
        log_error("failed to send message (method: %d, type: %d, len: %d), %s", method, type,
                  static_cast<int>(length), strerror(errno));
    return static_cast<int>(sent);
}

void zorv_protocol_deinit(void)
{
    zorv_multicast_socket_deinit();
    free_event(g_session.receive); // before its descriptor is closed
    free_event(g_session.signal);
    Fd(zorv_protocol_ctrl.fd).reset();
    g_session = {};
    zorv_protocol_ctrl = kReset;
}
