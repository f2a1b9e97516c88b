// status.cpp - what the unit says about itself, source by source.
#include <zorv/status.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/cli.h"
#include "core/own.h"

namespace ctl {
namespace {

constexpr char kConfig[] = "/tmp/system.cfg";
constexpr char kSystemInfo[] = "/proc/zorvhal/system.info";
constexpr char kNotSo[] = "-";

struct StatusArgs {
    std::string ifname;
};

// "ok", or why a file says nothing.
std::string state_of(const char *path)
{
    const zorv::Fd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    char byte;
    return file && TEMP_FAILURE_RETRY(read(file.get(), &byte, 1)) >= 0 ? "ok" : strerror(errno);
}

// The answers: each names its source, and says "ok" or the reason why there is none.
class Sources {
public:
    template <class T>
    void add(const char *fact, const T &value, const char *source, const std::string &state)
    {
        list_.add(Value::object()
                      .set("fact", fact)
                      .set("value", state == "ok" ? Value(value) : Value())
                      .set("source", source)
                      .set("state", state));
    }
    template <class T>
    void add(const char *fact, const T &value, const char *path)
    {
        add(fact, value, path, state_of(path));
    }
    void show(Reply &reply) const
    {
        reply.table("sources", list_, {"fact", "value", "source", "state"});
    }

private:
    Value list_ = Value::list();
};

// Seconds to programs, words to people.
Value uptime(bool json)
{
    const long seconds = get_uptime_from_proc();
    if (json)
        return Value(seconds);
    char text[32];
    uptime2str(static_cast<unsigned long>(seconds), text, sizeof text);
    return Value(text);
}

std::string services(const dev_status &status)
{
    const struct {
        const char *name;
        int enabled;
    } kServices[] = {
        {"dhcpc", status.dhcpc},       {"dhcpd", status.dhcpd},       {"ppp", status.ppp},
        {"iptables", status.iptables}, {"ebtables", status.ebtables},
    };
    std::string names;
    for (const auto &service : kServices)
        if (service.enabled)
            names += (names.empty() ? "" : ",") + std::string(service.name);
    return names.empty() ? "none" : names;
}

std::string config_state()
{
    struct stat info;
    if (stat(kConfig, &info) == 0 && info.st_mode == (S_IFREG | 0777))
        return "permissions 0777: taken for none";
    return state_of(kConfig);
}

void add_unit(bool json, Sources &sources)
{
    const char *version;
    const int rc = get_version(&version);
    sources.add("version", version, "/usr/etc/.version, .build", rc == 0 ? "ok" : strerror(-rc));
    sources.add("uptime", uptime(json), "/proc/uptime");
    sources.add("main_mac", get_main_mac_str(), kSystemInfo);
    sources.add("manufacturer", format("0x%04lx", get_manufid()), kSystemInfo);
    dev_status status = {};
    fill_services(&status);
    sources.add("services", services(status), kConfig, config_state());
    constexpr const char *kEnvironments[] = {"production", "stage", "dev"};
    sources.add("environment", kEnvironments[get_kelo_env()], "mgmt.kelo.env", "ok");
    sources.add("environment_in_use", kEnvironments[get_kelo_env_limit_prod()],
                "build and mgmt.kelo.env.force", "ok");
}

void add_connections(Sources &sources)
{
    constexpr const char *kDhcpStates[] = {"unknown", "deconfig", "leasefail", "bound", "renew"};
    sources.add("internet", std::to_string(system_internet_status()), "/var/run/system.internet");
    sources.add("dhcp_client", kDhcpStates[system_dhcp_status()], "/var/run/dhcpc.last_state");
    sources.add("ssh", system_is_ssh() ? "listens" : "does not listen", "/proc/net/tcp");
    char gateway[16] = "", mac[18] = "";
    uint32_t address;
    const int found = get_gateway(gateway, &address, sizeof gateway);
    sources.add("gateway", gateway, "route netlink",
                found == 1   ? "ok"
                : found == 0 ? "no default route through br0"
                             : "the kernel does not answer");
    if (found != 1)
        return;
    const bool has_mac = get_mac_by_ip(gateway, mac, sizeof mac) != 0;
    sources.add("gateway_mac", mac, "/proc/net/arp", has_mac ? "ok" : "no complete entry");
}

std::string link_text(const char *ifname)
{
    const int up = get_ethtool_link_status(ifname);
    return up < 0 ? kNotSo : up ? "up" : "down";
}

std::string speed_text(const dev_status &status)
{
    constexpr const char *kDuplex[] = {"half", "full"};
    if (status.duplex >= std::size(kDuplex))
        return kNotSo;
    return format("%u Mbit/s %s", status.speed, kDuplex[status.duplex]);
}

void add_interface(const std::string &ifname, Sources &sources, Reply &reply)
{
    dev_status status = {};
    if (const int rc = fill_dev_status(ifname.c_str(), &status))
        return sources.add("interface", "", "/proc/net/dev",
                           rc == -1 ? strerror(errno) : strerror(-rc));
    sources.add("interface", ifname, "/proc/net/dev", status.present ? "ok" : "no such interface");
    if (!status.present) {
        reply.exit = Exit::no;
        return;
    }
    const uint8_t *const mac = status.hwaddr;
    sources.add(
        "mac",
        format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]),
        "SIOCGIFHWADDR", "ok");
    sources.add("address", status.ipaddr_str, "SIOCGIFADDR", status.ipaddr ? "ok" : "none");
    sources.add("netmask", status.netmask_str, "SIOCGIFNETMASK", status.ipaddr ? "ok" : "none");
    sources.add("interface_up", status.flags & IFF_UP ? "yes" : "no", "SIOCGIFFLAGS", "ok");
    const std::string link = link_text(ifname.c_str()), speed = speed_text(status);
    sources.add("link", link, "ethtool", link == kNotSo ? "the driver does not tell" : "ok");
    sources.add("speed", speed, "ethtool", speed == kNotSo ? "the driver does not tell" : "ok");
    sources.add("received", format("%ju bytes", static_cast<uintmax_t>(status.rx_bytes)),
                "/proc/net/dev", "ok");
    sources.add("sent", format("%ju bytes", static_cast<uintmax_t>(status.tx_bytes)),
                "/proc/net/dev", "ok");
}

void show_status(const StatusArgs &args, Reply &reply)
{
    Sources sources;
    add_unit(reply.json(), sources);
    add_connections(sources);
    if (!args.ifname.empty())
        add_interface(args.ifname, sources, reply);
    sources.show(reply);
}

constexpr Option kOptions[] = {
    option<&StatusArgs::ifname>("IFACE", "An interface to tell of, too"),
};

constexpr Verb kVerbs[] = {
    verb<show_status>("status", "Tell what the unit says about itself, source by source",
                      "zorvctl status br0", kOptions),
};

} // namespace

extern const Family status_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
