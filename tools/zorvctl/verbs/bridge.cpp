// bridge.cpp - ports and learned addresses of the kernel's bridges.
#include <zorv/bridge.h>

#include <cerrno>
#include <cstring>
#include <map>

#include <fcntl.h>
#include <net/if.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorv/text.h>

#include "base/cli.h"
#include "core/own.h"
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
    struct stat info;
    if (stat((folder_of(bridge) + "/brif").c_str(), &info) != 0)
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
    return get_ifname_from_br_portno(bridge.c_str(), port, ifname) ? Value(ifname) : Value();
}

// The kernel's own table, which fdb_foreach() does not walk.
void fdb(const BridgeArgs &args, Reply &reply)
{
    check_bridge(args.bridge);
    const std::string path = folder_of(args.bridge) + "/brforward";
    const zorv::Fd table(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!table)
        throw io_failure(path, errno);
    std::map<unsigned, Value> names;
    Value list = Value::list();
    char block[zorv::kTableBlock];
    ssize_t size;
    while ((size = read(table.get(), block, sizeof block)) > 0)
        for (size_t at = 0; at + zorv::kKernelRecord <= static_cast<size_t>(size);
             at += zorv::kKernelRecord) {
            fdb_record record = {};
            memcpy(&record, block + at, zorv::kKernelRecord);
            const unsigned port = record.port_no | unsigned{record.port_hi} << 8;
            if (names.count(port) == 0)
                names.emplace(port, port_name(args.bridge, port));
            list.add(Value::object()
                         .set("mac", mac_text(record.mac))
                         .set("port", port)
                         .set("ifname", names.at(port))
                         .set("local", record.is_local != 0)
                         .set("age_seconds", record.ageing_timer / 100));
        }
    if (size < 0)
        throw io_failure(path, errno);
    reply.document.set("bridge", args.bridge);
    reply.table("entries", list, {"mac", "port", "ifname", "local", "age_seconds"});
}

const char *state_word(int state)
{
    constexpr const char *kStates[] = {"disabled", "listening", "learning", "forwarding",
                                       "blocking"};
    return state >= 0 && state < 5 ? kStates[state] : "unknown";
}

void ports(const BridgeArgs &args, Reply &reply)
{
    check_bridge(args.bridge);
    const zorv::Dir folder(opendir((folder_of(args.bridge) + "/brif").c_str()));
    std::map<unsigned, Value> by_number; // the kernel lists them in no order
    while (const dirent *const entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string name = entry->d_name;
        const zorv::File file(
            fopen((folder_of(args.bridge) + "/brif/" + name + "/port_no").c_str(), "re"));
        unsigned number;
        if (name[0] == '.' || !file || fscanf(file.get(), "%x", &number) != 1)
            continue;
        uint8_t mac[6];
        const bool has_mac = devhwaddr_get_iface(mac, name.c_str()) == 0;
        by_number.insert_or_assign(
            number,
            Value::object()
                .set("port", number)
                .set("ifname", name)
                .set("state", state_word(get_br_port_state(args.bridge.c_str(), name.c_str())))
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
        throw Failure(Exit::usage, text + ": not a hardware address");
}

void lookup(const LookupArgs &args, Reply &reply)
{
    uint8_t mac[6];
    parse_mac(args.mac, mac);
    check_bridge(args.bridge);
    unsigned age, port;
    if (!get_mac_brinfo(args.bridge.c_str(), args.mac.c_str(), &age, &port))
        throw Failure(Exit::no, args.mac + ": not learned on " + args.bridge);
    reply.pairs(Value::object()
                    .set("bridge", args.bridge)
                    .set("mac", mac_text(mac))
                    .set("port", port)
                    .set("ifname", port_name(args.bridge, port))
                    .set("age_seconds", age));
}

void forget(const DeleteArgs &args, Reply &reply)
{
    uint8_t mac[6];
    parse_mac(args.mac, mac);
    const int rc = fdb_delneigh(mac, args.ifname.c_str());
    if (rc != 0)
        throw io_failure(args.ifname, -rc);
    reply.document.set("mac", mac_text(mac)).set("ifname", args.ifname);
    reply.line("asked the kernel to forget " + mac_text(mac) + " on " + args.ifname);
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
