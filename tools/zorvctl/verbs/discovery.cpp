#include "base/cli.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <event2/event.h>
#include <sys/random.h>

#include <zorv/log.h>
#include <zorv/protocol.h>

#include "base/text_file.h"
#include "core/own.h"
#include "datagram_check.h"
#include "datagram_files.h"

namespace ctl {
namespace {

constexpr uint16_t kPort = 48000;
constexpr size_t kMostMessage = 463; // with header and padding it fills what a receiver takes, 512

struct ListenArgs {
    std::vector<uint16_t> methods;
    uint64_t count = 0;
    std::optional<double> timeout;
};

struct SendArgs {
    uint16_t method = 0;
    uint16_t type = 0;
    bool plain = false;
    bool nul = false;
    std::vector<std::string> texts;
};

struct DecodeArgs {
    std::string path;
    std::string hex;
    std::string key;
    uint16_t last_sequence = 0;
};

// Releases what libevent hands out.
struct FreeEvent {
    void operator()(event_base *base) const { event_base_free(base); }
    void operator()(event *object) const { event_free(object); }
};
using Base = std::unique_ptr<event_base, FreeEvent>;
using Event = std::unique_ptr<event, FreeEvent>;

// The transport between zorv_protocol_init() and zorv_protocol_deinit().
class Transport {
public:
    explicit Transport(bool with_socket)
    {
        if (zorv_protocol_init(with_socket) != 0)
            throw Failure(Exit::unavailable, "discovery could not be started");
    }
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;
    ~Transport() { zorv_protocol_deinit(); }
};

std::string mac_text(const uint8_t (&mac)[6])
{
    return format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

std::string address_text(uint32_t address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

// A message as JSON; one NUL at its end, as many senders have it, is no part of the text.
Value message_value(const zorv_protocol_header &header, std::string_view message)
{
    if (!message.empty() && message.back() == '\0')
        message.remove_suffix(1);
    return Value::object()
        .set("sender", mac_text(header.device))
        .set("method", header.method)
        .set("type", header.type)
        .set("sequence", header.sequence)
        .set("length", header.length)
        .set("text", message);
}

std::string message_line(const zorv_protocol_header &header, std::string_view message)
{
    if (!message.empty() && message.back() == '\0')
        message.remove_suffix(1);
    return format("%s method %u type %u sequence %u: ", mac_text(header.device).c_str(),
                  header.method, header.type, header.sequence) +
           printable(message);
}

// ---- listen ----

struct Listener {
    Reply &reply;
    uint64_t wanted; // 0 is no limit
    event_base *base;
    Value messages;
    uint64_t count;
    std::exception_ptr failure; // kept here, for the event loop knows no exceptions
};
Listener *g_listener = nullptr; // handlers have no argument of their own; set while listening

void take_message(Listener &listener, const zorv_protocol_header &header, std::string_view message)
{
    if (listener.reply.json()) {
        listener.messages.add(message_value(header, message));
    } else {
        listener.reply.line(message_line(header, message));
        listener.reply.flush();
    }
    ++listener.count;
}

void handle_message(const void *message)
{
    Listener &listener = *g_listener;
    if (listener.wanted != 0 && listener.count == listener.wanted)
        return; // the loop ends behind the datagrams that have come already
    zorv_protocol_header header;
    memcpy(&header, static_cast<const char *>(message) - sizeof header, sizeof header);
    try {
        take_message(listener, header, {static_cast<const char *>(message), header.length});
    } catch (...) {
        listener.failure = std::current_exception();
    }
    if (listener.failure || listener.count == listener.wanted)
        event_base_loopbreak(listener.base);
}

void stop_listening(evutil_socket_t /*signal*/, short /*what*/, void *base)
{
    event_base_loopbreak(static_cast<event_base *>(base));
}

// A table for the methods, or for every method that there is.
std::vector<zorv_protocol_handler> make_table(const std::vector<uint16_t> &methods)
{
    std::vector<zorv_protocol_handler> table;
    table.reserve(methods.empty() ? UINT16_MAX + 2 : methods.size() + 1);
    for (const uint16_t method : methods)
        table.push_back({handle_message, method});
    for (uint32_t method = 0; methods.empty() && method <= UINT16_MAX; ++method)
        table.push_back({handle_message, method});
    table.push_back({nullptr, 0});
    return table;
}

std::vector<Event> end_on_signals(event_base *base)
{
    std::vector<Event> events;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        events.emplace_back(event_new(base, number, EV_SIGNAL, stop_listening, base));
        event_add(events.back().get(), nullptr);
    }
    return events;
}

void end_after(event_base *base, double time)
{
    const auto seconds = static_cast<time_t>(time);
    const auto rest = static_cast<suseconds_t>((time - static_cast<double>(seconds)) * 1e6);
    const timeval limit{seconds, rest};
    event_base_loopexit(base, &limit);
}

void listen(const ListenArgs &args, Reply &reply)
{
    const Base base(event_base_new());
    const Transport transport(true);
    const auto table = make_table(args.methods);
    Listener listener{reply, args.count, base.get(), Value::list(), 0, nullptr};
    g_listener = &listener;
    const auto signals = end_on_signals(base.get());
    if (args.timeout)
        end_after(base.get(), *args.timeout);
    zorv_protocol_init_recv(base.get(), table.data());
    event_base_dispatch(base.get());
    if (listener.failure)
        std::rethrow_exception(listener.failure);
    reply.document.set("messages", listener.messages);
    if (args.count > listener.count)
        reply.exit = Exit::no;
}

// ---- send ----

// Fresh receivers take 0 for the last sequence that they accepted; so 0 is never sent.
uint16_t random_sequence()
{
    uint16_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number)
        throw io_failure("getrandom", errno);
    return static_cast<uint16_t>(number % 0xfff + 1);
}

uint16_t next_sequence(uint16_t sequence)
{
    return static_cast<uint16_t>(sequence % 0xfff + 1);
}

void send(const SendArgs &args, Reply &reply)
{
    std::vector<std::string> messages = args.texts;
    for (std::string &message : messages) {
        if (args.nul)
            message += '\0';
        if (message.size() > kMostMessage)
            throw Failure(
                Exit::refused, "too-long",
                format("a message of %zu bytes would be cut by its receivers, who take %zu",
                       message.size(), kMostMessage));
    }
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

// ---- decode ----

// The key from the command line, or the device's own.
zorv_protocol_ctrl_t decoding_state(const DecodeArgs &args)
{
    zorv_protocol_ctrl_t state{};
    if (args.key.empty()) {
        const Transport transport(false);
        state = zorv_protocol_ctrl;
    } else {
        const auto key = read_hex(args.key);
        if (!key || key->size() != sizeof state.key)
            throw Failure(Exit::usage, "a key is 32 hexadecimal digits");
        memcpy(state.key, key->data(), sizeof state.key);
    }
    state.last_sequence = args.last_sequence;
    return state;
}

std::vector<CapturedDatagram> captured_datagrams(const std::string &path, const std::string &bytes)
{
    Capture capture = read_pcap(bytes, kPort);
    if (!capture.fault.empty())
        throw Failure(Exit::failed, "format", path + ": " + capture.fault);
    return std::move(capture.datagrams);
}

std::vector<CapturedDatagram> given_datagrams(const DecodeArgs &args)
{
    if (args.hex.empty() == args.path.empty())
        throw Failure(Exit::usage, "decode takes a file or --hex");
    if (!args.hex.empty()) {
        auto bytes = read_hex(args.hex);
        if (!bytes)
            throw Failure(Exit::usage, "--hex: not hexadecimal");
        return {{1, 0, {}, std::move(*bytes)}};
    }
    std::string bytes = read_file(args.path);
    if (is_pcap(bytes))
        return captured_datagrams(args.path, bytes);
    return {{1, 0, {}, std::move(bytes)}};
}

void show_verdict(const CapturedDatagram &datagram, const Verdict &verdict, Value &list,
                  Reply &reply)
{
    Value value = verdict.status == 0
                      ? message_value(*verdict.header, verdict.message)
                      : Value::object().set("failed", verdict.failed).set("detail", verdict.detail);
    value.set("frame", datagram.frame).set("accepted", verdict.status == 0);
    if (!datagram.sender.empty())
        value.set("time", datagram.time).set("address", datagram.sender);
    list.add(value);

    std::string line = format("%llu: ", static_cast<unsigned long long>(datagram.frame));
    if (!datagram.sender.empty())
        line += datagram.sender + ' ';
    if (verdict.status == 0)
        line += message_line(*verdict.header, verdict.message);
    else
        line += format("rejected: %s (%s)", verdict.failed, verdict.detail.c_str());
    reply.line(line);
}

void decode(const DecodeArgs &args, Reply &reply)
{
    const auto datagrams = given_datagrams(args);
    zorv_protocol_ctrl_t state = decoding_state(args);
    libzorv_log_level = 0; // the reply says it all
    Value list = Value::list();
    for (const CapturedDatagram &datagram : datagrams) {
        const Verdict verdict = check_datagram(datagram.payload, state);
        show_verdict(datagram, verdict, list, reply);
        if (verdict.status == 0)
            state.last_sequence = verdict.header->sequence; // as a receiver keeps it
        else
            reply.exit = Exit::no;
    }
    if (datagrams.empty())
        reply.exit = Exit::no;
    reply.document.set("datagrams", list);
}

// ---- init-check ----

// Whether the kernel knows how to reach the group: leaving it, to join elsewhere, needs that.
bool has_route(uint32_t group)
{
    const zorv::Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = group;
    return connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

void check_init(const NoArgs & /*none*/, Reply &reply)
{
    const Transport transport(true);
    const zorv_protocol_ctrl_t &state = zorv_protocol_ctrl;
    const bool group = IN_MULTICAST(ntohl(state.group_address));
    const bool route = has_route(state.group_address);
    const bool joined = state.own_address != 0;
    reply.pairs(
        Value::object()
            .set("device", mac_text(state.device))
            .set("group", address_text(state.group_address))
            .set("group_is_multicast", group)
            .set("bridge_address", joined ? Value(address_text(state.own_address)) : Value())
            .set("joined", joined)
            .set("route_to_group", route));
    if (!group || !joined || !route)
        reply.exit = Exit::no;
}

constexpr Option kListen[] = {
    option<&ListenArgs::methods>("--method", "Only messages of this method; may be repeated"),
    option<&ListenArgs::count>("--count",
                               "End after so many messages; exit status 1 when fewer came"),
    option<&ListenArgs::timeout>("--timeout", "End after so many seconds").range(0, 1e9),
};
constexpr Option kSend[] = {
    option<&SendArgs::texts>("TEXT", "The messages").required(),
    option<&SendArgs::method>("--method", "The method's number").required(),
    option<&SendArgs::type>("--type", "The type's number, 0 by default"),
    option<&SendArgs::nul>("--nul", "End each message with a NUL byte"),
    option<&SendArgs::plain>("--plain", "Do not encrypt; receivers reject such messages"),
};
constexpr Option kDecode[] = {
    option<&DecodeArgs::path>("FILE", "A datagram as it was received, or a pcap file"),
    option<&DecodeArgs::key>("--key", "The site key; by default this device's"),
    option<&DecodeArgs::last_sequence>("--last", "The sequence accepted last, 0 by default"),
    option<&DecodeArgs::hex>("--hex", "A datagram as hexadecimal text"),
};

constexpr Verb kVerbs[] = {
    verb<listen>("listen", "Show accepted messages, until interrupted",
                 "zorvctl discovery listen --method 5 --count 1 --timeout 10", kListen),
    verb<send>("send", "Send messages to the group",
               "zorvctl discovery send --method 5 --type 1 hello", kSend),
    verb<decode>("decode", "Decode datagrams, and say which check one fails",
                 "zorvctl discovery decode --key 000102030405060708090a0b0c0d0e0f capture.pcap",
                 kDecode),
    verb<check_init>("init-check", "Start discovery and say what it found, then stop it",
                     "zorvctl discovery init-check"),
};

} // namespace

extern const Family discovery_family = {
    "discovery", "Messages between the devices of the site", {kVerbs}};

} // namespace ctl
