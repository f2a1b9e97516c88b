// bridge.cpp - ports and learned addresses of the kernel's bridges.
#include <zorv/bridge.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>

#include <net/if.h>
#include <strings.h>
#include <zorv/text.h>

#include "base/ask.h"
#include "base/cli.h"
#include "base/numbers.h"
#include "base/text_file.h"
#include "platform/bridge_fdb_table.h"

namespace ctl {
namespace {

struct BridgeArgs {
    std::string bridge = "br0";
};

struct LookupArgs {
    std::string mac, bridge = "br0";
};

struct DeleteArgs {
    std::string mac, ifname;
};

std::string folder_of(const std::string &bridge)
{
    return "/sys/class/net/" + bridge;
}

void check_bridge(const std::string &bridge)
{
    if (!exists(folder_of(bridge) + "/brif"))
        throw Failure(Exit::unavailable, bridge + ": no such bridge");
}

std::string mac_text(const uint8_t *mac)
{
    return format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// The interface that is a port; NULL in JSON when there is none.
Value port_name(const std::string &bridge, unsigned port)
{
    char ifname[IF_NAMESIZE];
    const bool found = ask(folder_of(bridge), [&] {
        return get_ifname_from_br_portno(bridge.c_str(), port, ifname) != 0;
    });
    return found ? Value(ifname) : Value();
}

// The kernel's own table, which fdb_foreach() does not walk. The folder is a bridge's, or has a
// link to it.
std::vector<fdb_record> read_table(const std::string &folder)
{
    const std::string path = folder + "/brforward", bytes = read_file(path);
    std::vector<fdb_record> records(bytes.size() / zorv::kKernelRecord);
    for (size_t i = 0; i < records.size(); ++i)
        memcpy(&records[i], bytes.data() + i * zorv::kKernelRecord, zorv::kKernelRecord);
    return records;
}

unsigned port_of(const fdb_record &record)
{
    return record.port_no | unsigned{record.port_hi} << 8;
}

void fdb(const BridgeArgs &args, Reply &reply)
{
    check_bridge(args.bridge);
    std::map<unsigned, Value> names;
    Value list = Value::list();
    for (const fdb_record &record : read_table(folder_of(args.bridge))) {
        const unsigned port = port_of(record);
        if (names.count(port) == 0)
            names.emplace(port, port_name(args.bridge, port));
        list.add(Value::object()
                     .set("mac", mac_text(record.mac))
                     .set("port", port)
                     .set("ifname", names.at(port))
                     .set("local", record.is_local != 0)
                     .set("age_seconds", record.ageing_timer / 100));
    }
    reply.document.set("bridge", args.bridge);
    reply.table("entries", list, {"mac", "port", "ifname", "local", "age_seconds"});
}

const char *state_word(int state)
{
    constexpr const char *kStates[] = {"disabled", "listening", "learning", "forwarding",
                                       "blocking"};
    return state >= 0 && state < 5 ? kStates[state] : "unknown";
}

// The number of a port, whose folder this is.
unsigned read_port(const std::string &folder)
{
    const std::string path = folder + "/port_no", text = read_file(path);
    unsigned number;
    if (!parse_number(std::string_view(text).substr(0, text.find('\n')), number))
        throw Failure(Exit::failed, path + ": no number");
    return number;
}

void ports(const BridgeArgs &args, Reply &reply)
{
    check_bridge(args.bridge);
    const std::string folder = folder_of(args.bridge) + "/brif/";
    std::map<unsigned, Value> by_number; // the kernel lists them in no order
    for (const std::string &name : names_in(folder)) {
        const unsigned number = read_port(folder + name);
        const int state =
            ask(name, [&] { return get_br_port_state(args.bridge.c_str(), name.c_str()); });
        uint8_t mac[6];
        const bool has_mac = ask(name, [&] { return devhwaddr_get_iface(mac, name.c_str()) == 0; });
        by_number.insert_or_assign(number,
                                   Value::object()
                                       .set("port", number)
                                       .set("ifname", name)
                                       .set("state", state_word(state))
                                       .set("mac", has_mac ? Value(mac_text(mac)) : Value()));
    }
    Value list = Value::list();
    for (const auto &[number, port] : by_number)
        list.add(port);
    reply.document.set("bridge", args.bridge);
    reply.table("ports", list, {"port", "ifname", "state", "mac"});
}

// strtomac() is content with less than this.
void parse_mac(const std::string &text, uint8_t (&mac)[6])
{
    if (strtomac(text.c_str(), mac) != 0 || strcasecmp(mac_text(mac).c_str(), text.c_str()) != 0)
        throw Misuse(text + ": not a hardware address");
}

void lookup(const LookupArgs &args, Reply &reply)
{
    uint8_t mac[6];
    parse_mac(args.mac, mac);
    check_bridge(args.bridge);
    unsigned age, port;
    const bool found = ask(folder_of(args.bridge), [&] {
        return get_mac_brinfo(args.bridge.c_str(), args.mac.c_str(), &age, &port) != 0;
    });
    if (!found)
        throw Failure(Exit::no, args.mac + ": not learned on " + args.bridge);
    reply.pairs(Value::object()
                    .set("bridge", args.bridge)
                    .set("mac", mac_text(mac))
                    .set("port", port)
                    .set("ifname", port_name(args.bridge, port))
                    .set("age_seconds", age));
}

bool has_learned(const std::string &port_folder, const uint8_t (&mac)[6])
{
    const unsigned port = read_port(port_folder);
    const std::vector<fdb_record> records = read_table(port_folder + "/bridge");
    return std::any_of(records.begin(), records.end(), [&](const fdb_record &record) {
        return port_of(record) == port && memcmp(record.mac, mac, sizeof mac) == 0;
    });
}

// The kernel has dealt with the request when it is sent, but its verdict is not told.
void forget(const DeleteArgs &args, Reply &reply)
{
    uint8_t mac[6];
    parse_mac(args.mac, mac);
    const std::string folder = folder_of(args.ifname) + "/brport";
    if (!exists(folder))
        throw Failure(Exit::unavailable, args.ifname + ": no port of a bridge");
    const int rc = fdb_delneigh(mac, args.ifname.c_str());
    if (rc != 0)
        throw io_failure(args.ifname, -rc);
    if (has_learned(folder, mac))
        throw Failure(Exit::failed,
                      args.ifname + ": the kernel still has " + mac_text(mac) + " there");
    reply.document.set("mac", mac_text(mac)).set("ifname", args.ifname);
    reply.line("the kernel has no " + mac_text(mac) + " on " + args.ifname);
}

constexpr Option kBridge[] = {
    option<&BridgeArgs::bridge>("BRIDGE", "The bridge, br0 unless given"),
};
constexpr Option kLookup[] = {
    option<&LookupArgs::mac>("MAC", "The address").required(),
    option<&LookupArgs::bridge>("BRIDGE", "The bridge, br0 unless given"),
};
constexpr Option kDelete[] = {
    option<&DeleteArgs::mac>("MAC", "The address").required(),
    option<&DeleteArgs::ifname>("PORT", "The interface").required(),
};

constexpr Verb kVerbs[] = {
    verb<fdb>("fdb", "List the addresses that a bridge has learned", "zorvctl bridge fdb br0",
              kBridge),
    verb<ports>("ports", "List the ports of a bridge and their states", "zorvctl bridge ports br0",
                kBridge),
    verb<lookup>("lookup", "Tell the port where an address was learned",
                 "zorvctl bridge lookup 02:a0:f1:00:00:07", kLookup),
    verb<forget>("delete", "Have the kernel forget an address that it learned on a port",
                 "zorvctl bridge delete 02:a0:f1:00:00:07 eth0", kDelete),
};

} // namespace

extern const Family bridge_family = {"bridge", "Ports and learned addresses of bridges", {kVerbs}};

} // namespace ctl
