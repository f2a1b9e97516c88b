// iface.cpp - network interfaces and the uplink.
#include <cerrno>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <net/if.h>

#include <zorv/iface.h>

#include "base/cli.h"
#include "core/own.h"

namespace ctl {
namespace {

using Names = std::unique_ptr<struct if_nameindex, zorv::Closer<if_freenameindex>>;

struct NameArgs {
    std::string name;
};

Value address_or_null(const char *name)
{
    uint32_t address;
    char text[INET_ADDRSTRLEN];
    if (get_iface_ip(name, &address) != 0 || !inet_ntop(AF_INET, &address, text, sizeof text))
        return {};
    return Value(text);
}

Value describe(const char *name)
{
    int index = 0;
    get_iface_index(name, &index);
    return Value::object()
        .set("name", name)
        .set("index", index)
        .set("up", iface_is_up(name) != 0)
        .set("address", address_or_null(name));
}

// The library would say it in a log line; here it is the answer.
void require_interface(const std::string &name)
{
    if (if_nametoindex(name.c_str()) == 0)
        throw Failure(Exit::no, name + ": no such interface");
}

void show(const NameArgs &args, Reply &reply)
{
    Value list = Value::list();
    if (!args.name.empty()) {
        require_interface(args.name);
        list.add(describe(args.name.c_str()));
    } else {
        const Names names(if_nameindex());
        if (!names)
            throw io_failure("interfaces", errno);
        for (const struct if_nameindex *entry = names.get(); entry->if_name; ++entry)
            list.add(describe(entry->if_name));
    }
    reply.table("interfaces", list, {"name", "index", "up", "address"});
}

void up(const NameArgs &args, Reply &reply)
{
    require_interface(args.name);
    const bool is_up = iface_is_up(args.name.c_str()) != 0;
    reply.document.set("name", args.name).set("up", is_up);
    reply.line(is_up ? "yes" : "no");
    reply.exit = is_up ? Exit::done : Exit::no;
}

void uplink(const NoArgs &, Reply &reply)
{
    static constexpr const char *kStates[] = {"connected", "init", "down", "unknown"};
    static constexpr const char *kWireless[] = {"none", "init", "wds", "eth", "down"};
    char device[IFNAMSIZ] = "";
    const int state = get_uplink_device(device, sizeof device);
    const bool found = device[0] != '\0';
    reply.pairs(Value::object()
                    .set("state", found || state != 0 ? kStates[state] : "none")
                    .set("device", found ? Value(device) : Value())
                    .set("wireless", kWireless[get_wireless_uplink_state()]));
    reply.exit = found ? Exit::done : Exit::no;
}

constexpr Option kShow[] = {
    option<&NameArgs::name>("NAME", "The interface; all without it"),
};
constexpr Option kUp[] = {
    option<&NameArgs::name>("NAME", "The interface").required(),
};

constexpr Verb kVerbs[] = {
    verb<show>("show", "List an interface, or all, with index, state and IPv4 address",
               "zorvctl iface show br0", kShow),
    verb<up>("up", "Tell whether an interface is up: exit status 0, or 1 when it is not",
             "zorvctl iface up eth0", kUp),
    verb<uplink>("uplink", "Show what leads out, as the network scripts tell it",
                 "zorvctl iface uplink"),
};

} // namespace

extern const Family iface_family = {"iface", "Show network interfaces and the uplink", {kVerbs}};

} // namespace ctl
