// doctor_things.cpp - each thing that the library reads on a unit, and what depends on it.
#include "doctor.h"

#include "analytics.h"
#include "diagnostics.h"
#include "platform/config_files.h"

namespace ctl {
namespace {

using enum Kind;

constexpr bool kRequired = true, kOptional = false;
constexpr char kSystemInfo[] = "/proc/zorvhal/system.info";
constexpr char kSiteFile[] = "/var/run/zorv_protocol.info";

// A row is what, how it is looked at, who reads it, and what is so without it.
// clang-format off
constexpr Thing kTable[] = {
    // The hardware driver's files.
    {kSystemInfo, "systemid", file, kRequired, check_board,
     "board, model, crash, trace", "no known board: the default record, no model, no ports"},
    {kSystemInfo, "serialno", file, kRequired, check_serial,
     "board, discovery", "discovery sends as 00:00:00:00:00:00, the CPU's MAC address is zero"},
    {kSystemInfo, "eth0.macaddr", file, kRequired, check_mac,
     "status", "the main MAC address is 00:11:22:33:44:55"},
    {kSystemInfo, "device.anonid", file, kOptional, check_text,
     "crash, trace", "reports bear no device, traces 0000000000000000"},
    {kSystemInfo, "boardrevision", file, kOptional, check_decimal,
     "board, crash, trace", "revision 0 in reports, rules for firmware by revision do not apply"},
    {kSystemInfo, "manufid", file, kOptional, check_hex,
     "status, crash, trace", "manufacturer 0"},
    {kSystemInfo, "cpuid", file, kOptional, check_hex,
     "board", "the CPU's id is unknown"},
    {kSystemInfo, "mfgweek", file, kOptional, check_text,
     "trace", "week of manufacture 2005"},
    {kSystemInfo, "countrycode", file, kOptional, check_country,
     "board", "country 0"},
    {"/proc/zorvhal/board", "bomrev", file, kRequired, check_bomrev,
     "board", "rules for firmware by the bill of materials do not apply"},
    {"/proc/zorvhal/status/IsDefault", "", file, kRequired, check_flag,
     "crash, trace", "reports say that the unit is not at its factory settings"},

    // The configuration.
    {zorv::kSystemCfg, "", file, kRequired, check_system_cfg,
     "cfg, analytics, status, crash, trace",
     "no services, reports without controller, site and configuration"},
    {zorv::kManagementCfg, "", file, kOptional, check_config,
     "status, crash, trace", "management keys are those of system.cfg alone"},
    {kSiteFile, "pluvo.key", file, kRequired, check_site_key,
     "discovery", "discovery does not start, or nobody understands it"},
    {kSiteFile, "pluvo.mcip", file, kRequired, check_site_group,
     "discovery", "discovery does not start, or joins no group"},

    // State files.
    {"/var/run/ntp.ready", "", file, kRequired, check_presence,
     "crash", "no crash report leaves the unit"},
    {"/var/run/ipready.br0", "", file, kRequired, check_address,
     "crash, discovery", "no crash report leaves the unit, discovery waits for an address"},
    {kModeFile, "", file, kOptional, check_number,
     "analytics, crash, trace", "reports are anonymous"},
    {kCoredumpFile, "", file, kOptional, check_number,
     "analytics, crash", "bytes of dumps do not leave the unit"},
    {"/var/run/system.internet", "", file, kOptional, check_digit,
     "status", "nobody knows whether there is internet"},
    {"/var/run/system.uplink", "", file, kOptional, check_line,
     "iface uplink", "the uplink is the first of eth0, bond0 and eth1 that is up"},
    {"/var/run/system.uplink_ifname", "", file, kOptional, check_interface,
     "iface uplink", "the uplink's interface is its port"},
    {"/var/run/system.uplink_port", "", file, kOptional, check_interface,
     "iface uplink", "the uplink's port is not known"},
    {"/var/run/dhcpc.last_state", "", file, kOptional, check_lease,
     "status", "the state of the DHCP client is unknown"},
    {"/var/run/guest/portal", "", folder, kOptional, check_presence,
     "portal", "no guest portals"},
    {"/var/run/report", "", folder, kRequired, check_presence,
     "lock report", "the report lock cannot be taken"},

    // What survives a reboot, and the firmware.
    {"/etc/persistent", "", folder, kRequired, check_presence,
     "crash logs", "no crash logs are kept"},
    {"/etc/persistent/isolation_logs", "", folder, kOptional, check_presence,
     "crash logs", "no crash logs"},
    {"/usr/etc/.version", "", file, kRequired, check_version,
     "status, crash, trace", "the firmware's version is unknown.0"},
    {"/usr/etc/.build", "", file, kRequired, check_version,
     "status, crash, trace", "the firmware's version is unknown.0"},
    {"/usr/lib/build.properties", "scm_reftype", file, kRequired, check_build,
     "status, crash, trace", "no release: reports go to development in place of production"},
    {"/etc/meshmode.conf", "", file, kOptional, check_presence,
     "model", "a router is not part of a mesh"},

    // Programs, and what they and the library read.
    {"/etc/syswrapper.sh", "", anywhere, kRequired, check_script,
     "exec, crash", "no system command runs, what survives a reboot is not saved to flash"},
    {"syswrapper.sh", "", tool, kRequired, check_presence,
     "crash", "reports hold no log and no configuration: nothing filters them"},
    {"oopsdump", "", tool, kRequired, check_presence,
     "crash status, crash report", "a crash of the kernel is not found"},
    {"tar", "", tool, kRequired, check_presence,
     "crash deliver", "reports of crash logs hold no log"},
    {"logread", "", tool, kRequired, check_presence,
     "crash dump", "reports of RAM dumps hold no log"},
    {"grep", "", tool, kRequired, check_presence,
     "crash dump", "reports of dumps hold no log"},
    {"tail", "", tool, kRequired, check_presence,
     "crash dump", "reports of dumps hold no log"},
    {"cat", "", tool, kRequired, check_presence,
     "crash report, crash dump", "reports hold no configuration"},
    {"/bin/sh", "", file, kRequired, check_presence,
     "capture, crash", "no output of a command can be had"},
    {"/var/log/messages", "", file, kOptional, check_presence,
     "crash dump", "no syslog: messages go to /dev/kmsg, reports of dumps hold no log"},
    {"/dev/urandom", "", device, kRequired, check_presence,
     "discovery", "no random numbers"},

    // The kernel's files.
    {"/proc/cpuinfo", ":", file, kRequired, check_heading,
     "board", "no name for a unit of no known board"},
    {"/proc/meminfo", "MemTotal:", file, kRequired, check_heading,
     "mem, top", "no memory statistics"},
    {"/proc/uptime", "", file, kRequired, check_digit,
     "status", "no uptime"},
    {"/proc/net/dev", "Receive", file, kRequired, check_heading,
     "status", "no counters of interfaces"},
    {"/proc/net/arp", "HW address", file, kRequired, check_heading,
     "status", "no hardware address of the gateway"},
    {"/proc/net/tcp", "local_address", file, kRequired, check_heading,
     "sockets, ps --fds, status", "TCP sockets are unknown, ssh seems not to listen"},
    {"/proc/net/tcp6", "local_address", file, kOptional, check_heading,
     "sockets, ps --fds", "no IPv6 in the kernel (CONFIG_IPV6): TCP sockets of it are unknown"},
    {"/proc/net/udp", "local_address", file, kRequired, check_heading,
     "sockets, ps --fds", "UDP sockets are unknown"},
    {"/proc/net/udp6", "local_address", file, kOptional, check_heading,
     "sockets, ps --fds", "no IPv6 in the kernel (CONFIG_IPV6): UDP sockets of it are unknown"},
    {"/proc/net/unix", "RefCount", file, kRequired, check_heading,
     "sockets, ps --fds", "UNIX sockets are unknown"},
    {kConntrack, "", file, kOptional, check_presence,
     "conntrack, top", "no tracked connections (CONFIG_NF_CONNTRACK_PROCFS)"},
    {"/sys/class/net/br0/bridge", "", folder, kRequired, check_presence,
     "bridge, status", "no bridge br0 (CONFIG_BRIDGE, or nobody made it)"},
    {"/proc/mtd", "dev:", file, kOptional, check_heading,
     "hw eeprom", "no EEPROM (CONFIG_MTD)"},
    {"/proc/bus/pci/devices", "", file, kOptional, check_presence,
     "hw pci, board", "no PCI devices (CONFIG_PCI, CONFIG_PROC_FS)"},
};
// clang-format on

} // namespace

constinit const std::span<const Thing> kThings(kTable);

} // namespace ctl
