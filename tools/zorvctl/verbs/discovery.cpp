// discovery.cpp - the family, what its verbs share, and those that take no loop.
#include "discovery.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <sys/random.h>
#include <unistd.h>
#include <zorv/file.h>
#include <zorv/text.h>

#include "core/device_files.h"
#include "core/own.h"
#include "telemetry/report_gate.h"

namespace ctl {
namespace {

constexpr size_t kLine = 64; // as the library reads a serial number and an address

struct SendArgs {
    uint16_t method = 0;
    uint16_t type = 0;
    bool plain = false;
    bool nul = false;
    std::vector<std::string> texts;
};

std::string_view without_nul(std::string_view message)
{
    if (!message.empty() && message.back() == '\0')
        message.remove_suffix(1);
    return message;
}

// ---- send ----

uint16_t next_sequence(uint16_t sequence)
{
    return static_cast<uint16_t>(sequence % kLastSequence + 1);
}

void send(const SendArgs &args, Reply &reply)
{
    std::vector<std::string> messages;
    for (const std::string &text : args.texts)
        messages.push_back(message_of(text, args.nul));
    const Transport transport(true);
    Value sent = Value::list();
    zorv_protocol_ctrl.own_sequence = random_sequence();
    for (const std::string &message : messages) {
        const int length = zorv_protocol_send(message.data(), static_cast<unsigned>(message.size()),
                                              args.method, args.type, args.plain ? 0 : 1);
        if (length < 0)
            throw Failure(Exit::failed, "network", "the message could not be sent");
        sent.add(
            Value::object().set("sequence", zorv_protocol_ctrl.own_sequence).set("bytes", length));
        zorv_protocol_ctrl.own_sequence = next_sequence(zorv_protocol_ctrl.own_sequence);
    }
    reply.table("sent", sent, {"sequence", "bytes"});
}

// ---- init-check ----

// Whether the kernel knows how to reach the group: leaving it, to join elsewhere, needs that.
bool has_route(uint32_t group)
{
    const zorv::Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd)
        throw io_failure("socket", errno);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = group;
    return connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

bool tells_address(const char *path)
{
    char line[kLine] = "";
    in_addr address;
    freadline(path, line, sizeof line, "");
    return inet_aton(line, &address) != 0 && address.s_addr != INADDR_ANY;
}

bool tells_serial(const char *path)
{
    char serial[kLine];
    uint8_t mac[6] = {};
    freadvalue(path, "serialno", serial, sizeof serial, "");
    hex2uchar(serial, mac, sizeof mac);
    return std::any_of(mac, std::end(mac), [](uint8_t byte) { return byte != 0; });
}

// Of a file that told the library nothing: it was not there, or has nothing to tell. What could not
// be read, which the library takes for the same, is no answer.
void expect_silence(const char *path, bool (*tells)(const char *path))
{
    if (access(path, R_OK) != 0) {
        if (errno != ENOENT)
            throw io_failure(path, errno);
    } else if (tells(path)) {
        throw Failure(Exit::failed, format("%s: could not be read", path));
    }
}

void check_init(const NoArgs & /*none*/, Reply &reply)
{
    const Transport transport(true);
    const zorv_protocol_ctrl_t &state = zorv_protocol_ctrl;
    const std::string device = mac_text(state.device);
    if (device == "00:00:00:00:00:00")
        expect_silence(zorv::kSystemInfo, tells_serial);
    const bool joined = state.own_address != 0;
    if (!joined)
        expect_silence(zorv::kBridgeHasAddress, tells_address);
    const bool group = IN_MULTICAST(ntohl(state.group_address));
    const bool route = has_route(state.group_address);
    reply.pairs(
        Value::object()
            .set("device", device)
            .set("group", address_text(state.group_address))
            .set("group_is_multicast", group)
            .set("bridge_address", joined ? Value(address_text(state.own_address)) : Value())
            .set("joined", joined)
            .set("route_to_group", route));
    if (!group || !joined || !route)
        reply.exit = Exit::no;
}

constexpr Option kSend[] = {
    option<&SendArgs::texts>("TEXT", "The messages").required(),
    option<&SendArgs::method>("--method", "The method's number").required(),
    option<&SendArgs::type>("--type", "The type's number, 0 by default"),
    option<&SendArgs::nul>("--nul", "End each message with a NUL byte"),
    option<&SendArgs::plain>("--plain", "Do not encrypt; receivers reject such messages"),
};

constexpr Verb kSending[] = {
    verb<send>("send", "Send messages to the group",
               "zorvctl discovery send --method 5 --type 1 hello", kSend),
};
constexpr Verb kChecking[] = {
    verb<check_init>("init-check", "Start discovery and say what it found, then stop it",
                     "zorvctl discovery init-check"),
};

} // namespace

Transport::Transport(bool with_socket)
{
    if (zorv_protocol_init(with_socket) != 0)
        throw Failure(Exit::unavailable, "discovery could not be started");
}

std::string mac_text(const uint8_t (&mac)[6])
{
    return format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

std::string address_text(uint32_t address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

Value message_value(const zorv_protocol_header &header, std::string_view message)
{
    return Value::object()
        .set("sender", mac_text(header.device))
        .set("method", header.method)
        .set("type", header.type)
        .set("sequence", header.sequence)
        .set("length", header.length)
        .set("text", without_nul(message));
}

std::string message_line(const zorv_protocol_header &header, std::string_view message)
{
    return format("%s method %u type %u sequence %u: ", mac_text(header.device).c_str(),
                  header.method, header.type, header.sequence) +
           printable(without_nul(message));
}

std::string message_of(const std::string &text, bool with_nul)
{
    std::string message = text;
    if (with_nul)
        message += '\0';
    if (message.size() > kMostMessage)
        throw Failure(Exit::refused, "too-long",
                      format("a message of %zu bytes would be cut by its receivers, who take %zu",
                             message.size(), kMostMessage));
    return message;
}

uint16_t random_sequence()
{
    uint16_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number)
        throw io_failure("getrandom", errno);
    return static_cast<uint16_t>(number % kLastSequence + 1);
}

extern const Family discovery_family = {"discovery",
                                        "Messages between the devices of the site",
                                        {kDiscoveryListen, kSending, kDiscoveryCodec, kChecking}};

} // namespace ctl
