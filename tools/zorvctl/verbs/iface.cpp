// iface.cpp - network interfaces and the uplink.
#include <cerrno>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <net/if.h>

#include <zorv/iface.h>

#include "base/ask.h"
#include "base/cli.h"
#include "core/own.h"

namespace ctl {
namespace {

using Names = std::unique_ptr<struct if_nameindex, zorv::Closer<if_freenameindex>>;

// As the library reads them; one that cannot be read passes for one that is not there.
constexpr const char *kUplinkFiles[] = {"/var/run/system.uplink", "/var/run/system.uplink_ifname",
                                        "/var/run/system.uplink_port"};

struct NameArgs {
    std::string name;
};

Value address_or_null(const std::string &name)
{
    uint32_t address;
    char text[INET_ADDRSTRLEN];
    const bool has_one = ask(name, [&] { return get_iface_ip(name.c_str(), &address) == 0; });
    return has_one ? Value(inet_ntop(AF_INET, &address, text, sizeof text)) : Value();
}

bool is_up(const std::string &name)
{
    return ask(name, [&] { return iface_is_up(name.c_str()) != 0; });
}

// 0 when there is no such interface, which the library would say in a log line.
unsigned index_of(const std::string &name)
{
    return ask(name, [&] { return if_nametoindex(name.c_str()); });
}

void require_interface(const std::string &name)
{
    if (index_of(name) == 0)
        throw Failure(Exit::no, name + ": no such interface");
}

Value describe(const std::string &name)
{
    return Value::object()
        .set("name", name)
        .set("index", index_of(name))
        .set("up", is_up(name))
        .set("address", address_or_null(name));
}

void show(const NameArgs &args, Reply &reply)
{
    Value list = Value::list();
    if (!args.name.empty()) {
        require_interface(args.name);
        list.add(describe(args.name));
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
    const bool yes = is_up(args.name);
    reply.document.set("name", args.name).set("up", yes);
    reply.line(yes ? "yes" : "no");
    reply.exit = yes ? Exit::done : Exit::no;
}

// What leads out where no word says so, as the library looks for it.
std::string wired_uplink()
{
    for (const char *const name : {"eth0", "bond0", "eth1"})
        if (index_of(name) != 0 && is_up(name))
            return name;
    return "";
}

void uplink(const NoArgs &, Reply &reply)
{
    static constexpr const char *kStates[] = {"connected", "init", "down", "unknown"};
    static constexpr const char *kWireless[] = {"none", "init", "wds", "eth", "down"};
    const std::string word = read_if_there(kUplinkFiles[0]).value_or("");
    const bool is_wired = word.empty() || word[0] == '\n';
    for (const char *const path : kUplinkFiles)
        expect_readable(path);
    char device[256] = "";
    const int state =
        ask(kUplinkFiles[0], [&] { return get_uplink_device(device, sizeof device); });
    const int wireless = ask(kUplinkFiles[0], get_wireless_uplink_state);
    if (is_wired && device != wired_uplink())
        throw Failure(Exit::failed, "the interfaces do not tell whether they are up");
    const bool found = device[0] != '\0';
    reply.pairs(Value::object()
                    .set("state", found || state != 0 ? kStates[state] : "none")
                    .set("device", found ? Value(device) : Value())
                    .set("wireless", kWireless[wireless]));
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
