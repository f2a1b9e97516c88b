// discovery_listen.cpp - what is heard in the group: each message, or who sends them.
#include "discovery.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <event2/event.h>

#include "datagram_check.h"

namespace ctl {
namespace {

struct ListenArgs {
    std::vector<uint16_t> methods;
    uint64_t count = 0;
    std::optional<double> timeout;
};

struct ListArgs {
    std::optional<std::string> question;
    uint16_t method = 0;
    uint16_t type = 0;
    uint64_t count = 0;
    double timeout = 3;
};

// Releases what libevent hands out.
struct FreeEvent {
    void operator()(event_base *base) const { event_base_free(base); }
    void operator()(event *object) const { event_free(object); }
};

// libevent's loop until a signal, a time or end(). What libevent cannot make throws.
class Loop {
public:
    using Callback = void (*)(evutil_socket_t fd, short what, void *argument);

    Loop() : base_(checked(event_base_new()))
    {
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
            add(
                number, EV_SIGNAL,
                [](evutil_socket_t, short, void *loop) { static_cast<Loop *>(loop)->end(); }, this);
    }

    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    event_base *base() const { return base_.get(); }

    void add(int fd, short what, Callback callback, void *argument)
    {
        events_.emplace_back(checked(event_new(base(), fd, what, callback, argument)));
        check(event_add(events_.back().get(), nullptr) == 0);
    }

    void receive(const std::vector<zorv_protocol_handler> &table)
    {
        const int before = event_base_get_num_events(base(), EVENT_BASE_COUNT_ADDED);
        zorv_protocol_init_recv(base(), table.data());
        // It says 0, whatever became of its two events.
        check(event_base_get_num_events(base(), EVENT_BASE_COUNT_ADDED) == before + 2);
    }

    // Runs it for so many seconds at most.
    void run(std::optional<double> limit)
    {
        if (limit) {
            const auto seconds = static_cast<time_t>(*limit);
            const auto rest = (*limit - static_cast<double>(seconds)) * 1e6;
            const timeval time{seconds, static_cast<suseconds_t>(rest)};
            check(event_base_loopexit(base(), &time) == 0);
        }
        check(event_base_dispatch(base()) >= 0);
        if (failure_)
            std::rethrow_exception(failure_);
    }

    void end() { event_base_loopbreak(base()); }

    // What a callback throws ends the loop: C has no exceptions. Once that happened it does
    // nothing.
    template <class Work>
    void guard(Work work)
    {
        if (failure_)
            return;
        try {
            work();
        } catch (...) {
            failure_ = std::current_exception();
            end();
        }
    }

private:
    static void check(bool is_done)
    {
        if (!is_done)
            throw Failure(Exit::failed, "the event loop failed");
    }

    template <class T>
    static T *checked(T *made)
    {
        check(made);
        return made;
    }

    std::unique_ptr<event_base, FreeEvent> base_;
    std::vector<std::unique_ptr<event, FreeEvent>> events_;
    std::exception_ptr failure_;
};

// ---- listen ----

struct Listener {
    Reply &reply;
    Loop &loop;
    uint64_t wanted; // 0 is no limit
    uint64_t count;
};
Listener *g_listener = nullptr; // handlers have no argument of their own; set while listening

void handle_message(const void *message)
{
    Listener &listener = *g_listener;
    if (listener.wanted != 0 && listener.count == listener.wanted)
        return; // the loop ends behind the datagrams that have come already
    listener.loop.guard([&listener, message] {
        zorv_protocol_header header;
        memcpy(&header, static_cast<const char *>(message) - sizeof header, sizeof header);
        const std::string_view text(static_cast<const char *>(message), header.length);
        listener.reply.document = message_value(header, text);
        listener.reply.line(message_line(header, text));
        listener.reply.next();
        if (++listener.count == listener.wanted)
            listener.loop.end();
    });
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

void listen(const ListenArgs &args, Reply &reply)
{
    Loop loop;
    const Transport transport(true); // ends before the loop
    const auto table = make_table(args.methods);
    Listener listener{reply, loop, args.count, 0};
    g_listener = &listener;
    reply.in_lines = true;
    loop.receive(table);
    loop.run(args.timeout);
    if (args.count > listener.count)
        reply.exit = Exit::no;
}

// ---- list ----

struct Neighbour {
    std::set<uint16_t> methods;
    uint64_t messages = 0;
    time_t heard = 0; // last
};

using Place = std::pair<uint32_t, std::string>; // IPv4 address in host order, MAC address

// Everyone who was heard. It reads the transport's socket itself, for handlers are not told where a
// message comes from.
struct Census {
    Loop &loop;
    uint64_t wanted; // of them; 0 is no limit
    zorv_protocol_ctrl_t state;
    std::map<Place, Neighbour> neighbours = {};
};

time_t seconds_now()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

void count_datagram(Census &census, int fd)
{
    alignas(zorv_protocol_header) char bytes[kMostDatagram];
    sockaddr_in sender{};
    socklen_t size = sizeof sender;
    const ssize_t received = recvfrom(fd, bytes, sizeof bytes, MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr *>(&sender), &size);
    if (received < 0 && errno != EINTR && errno != EAGAIN)
        throw io_failure("recvfrom", errno);
    if (received < 0 || dec_payload(static_cast<int>(received), bytes, &census.state) != 0)
        return;
    zorv_protocol_header header;
    memcpy(&header, bytes, sizeof header);
    Neighbour &neighbour =
        census.neighbours[{ntohl(sender.sin_addr.s_addr), mac_text(header.device)}];
    neighbour.methods.insert(header.method);
    ++neighbour.messages;
    neighbour.heard = seconds_now();
    if (census.neighbours.size() == census.wanted)
        census.loop.end();
}

void handle_datagram(evutil_socket_t fd, short /*what*/, void *argument)
{
    Census &census = *static_cast<Census *>(argument);
    census.loop.guard([&census, fd] { count_datagram(census, fd); });
}

void ask(const ListArgs &args)
{
    const std::string message = message_of(*args.question, false);
    zorv_protocol_ctrl.own_sequence = random_sequence();
    if (zorv_protocol_send(message.data(), static_cast<unsigned>(message.size()), args.method,
                           args.type, 1) < 0)
        throw Failure(Exit::failed, "network", "the question could not be sent");
}

void show(const Census &census, Reply &reply)
{
    const time_t now = seconds_now();
    Value devices = Value::list();
    for (const auto &[place, neighbour] : census.neighbours) {
        Value methods = Value::list();
        for (const uint16_t method : neighbour.methods)
            methods.add(method);
        devices.add(Value::object()
                        .set("address", address_text(htonl(place.first)))
                        .set("mac", place.second)
                        .set("methods", methods)
                        .set("messages", neighbour.messages)
                        .set("age_seconds", now - neighbour.heard));
    }
    reply.table("devices", devices, {"address", "mac", "methods", "messages", "age_seconds"});
    if (census.neighbours.size() < std::max<uint64_t>(census.wanted, 1))
        reply.exit = Exit::no;
}

void list(const ListArgs &args, Reply &reply)
{
    Loop loop;
    const Transport transport(true);
    if (zorv_protocol_ctrl.own_address == 0)
        throw Failure(Exit::unavailable, "the bridge has no address: the group is not joined");
    Census census{loop, args.count, zorv_protocol_ctrl};
    census.state.last_sequence = kLastSequence + 1; // nobody's: nothing is a duplicate
    loop.add(zorv_protocol_ctrl.fd, EV_READ | EV_PERSIST, handle_datagram, &census);
    if (args.question)
        ask(args);
    loop.run(args.timeout);
    show(census, reply);
}

constexpr Option kListen[] = {
    option<&ListenArgs::methods>("--method", "Only messages of this method; may be repeated"),
    option<&ListenArgs::count>("--count",
                               "End after so many messages; exit status 1 when fewer came"),
    option<&ListenArgs::timeout>("--timeout", "End after so many seconds").range(0, 1e9),
};
constexpr Option kList[] = {
    option<&ListArgs::timeout>("--timeout", "Listen for so many seconds, 3 by default")
        .range(0, 1e9),
    option<&ListArgs::count>("--count",
                             "End when so many were heard; exit status 1 when fewer were"),
    option<&ListArgs::question>("--ask", "Send this first, for those who answer").needs("--method"),
    option<&ListArgs::method>("--method", "The question's method").needs("--ask"),
    option<&ListArgs::type>("--type", "The question's type, 0 by default").needs("--ask"),
};

} // namespace

constexpr Verb kDiscoveryListen[2] = {
    verb<listen>("listen", "Show accepted messages, until interrupted; JSON is a line for each",
                 "zorvctl discovery listen --method 5 --count 1 --timeout 10", kListen),
    verb<list>("list", "List who is heard in the group, or answers a question",
               "zorvctl discovery list --ask 'who is there?' --method 5 --timeout 2", kList),
};

} // namespace ctl
