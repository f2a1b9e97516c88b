// What zorvctl doctor finds on a whole unit, and on one with a fault.
#include <map>

#include "tools/zorvctl.h"

using testing::AllOf;
using testing::Not;

namespace {

constexpr char kInfo[] = "/proc/zorvhal/system.info";
constexpr char kSite[] = "/var/run/zorv_protocol.info";
constexpr char kLogs[] = "/etc/persistent/isolation_logs/";
constexpr char kMetas[] = "/etc/persistent/isolation_logs/meta/";
constexpr char kMarkers[] = "/etc/persistent/isolation_logs_sent/";

// The members of the table /proc/net that doctor looks at, as a kernel without traffic has them.
constexpr struct {
    const char *path, *text;
} kKernelFiles[] = {
    {"/proc/cpuinfo", "processor\t: 0\n"},
    {"/proc/meminfo", "MemTotal:         246820 kB\n"},
    {"/proc/uptime", "4711.20 9001.10\n"},
    {"/proc/net/dev", "Inter-|   Receive  |  Transmit\n"},
    {"/proc/net/arp", "IP address  HW type  Flags  HW address  Mask  Device\n"},
    {"/proc/net/tcp", "  sl  local_address rem_address   st\n"},
    {"/proc/net/udp", "  sl  local_address rem_address   st\n"},
    {"/proc/net/unix", "Num       RefCount Protocol Flags\n"},
};

class ZorvctlDoctor : public ZorvctlUnit {
protected:
    // A whole unit.
    ZorvctlDoctor()
    {
        must_run("mkdir -p /sys/class/net/br0/bridge /var/run/report /etc/persistent/cfg");
        for (const auto &row : kKernelFiles)
            file(row.path, row.text);
        file(kInfo, "vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\n"
                    "eth0.macaddr=02:a0:f3:00:00:07\ncpuid=2008a007\n");
        file("/proc/zorvhal/board", "bomrev=2e8ff\n");
        file("/proc/zorvhal/status/IsDefault", "false\n");
        file("/tmp/system.cfg", "mgmt.kelo.env=prod\n");
        file(kSite, "pluvo.key=000102030405060708090a0b0c0d0e0f\npluvo.mcip=239.255.90.90\n");
        file("/var/run/ntp.ready", "");
        file("/var/run/ipready.br0", "192.0.2.1\n");
        file("/usr/etc/.version", "6.6.55\n");
        file("/usr/etc/.build", "15189\n");
        file("/usr/lib/build.properties", "scm_reftype=atag\n");
        file("/etc/ssl/certs/ca-certificates.crt", "-----BEGIN CERTIFICATE-----\n");
        script("/etc/syswrapper.sh", "#!/bin/sh\ncat\n");
        for (const char *const tool : {"syswrapper.sh", "logread"})
            script(std::string("/usr/local/bin/") + tool, "#!/bin/sh\n");
        script("/usr/local/bin/oopsdump", "#!/bin/sh\ntest -e /tmp/oops\n");
    }
};

struct Page {
    Device::Outcome outcome;
    std::map<std::string, std::string> off;     // thing: "state: detail; without"
    std::map<std::string, std::string> sending; // what: "state: detail", with "!" behind a fault
    bool healthy;
    std::string reports, traces; // why nothing is sent
};

std::string text_of(const json_t *object, const char *name)
{
    const char *const text = json_string_value(json_object_get(object, name));
    return text ? text : "";
}

std::string reason_of(const json_t *destination)
{
    EXPECT_EQ(json_is_true(json_object_get(destination, "sent")),
              json_is_null(json_object_get(destination, "reason")));
    return text_of(destination, "reason");
}

Page examine(const std::string &zorvctl = "zorvctl")
{
    Page page = {Device::run(zorvctl + " doctor --json"), {}, {}, false, "", ""};
    const Json json = loaded(page.outcome.output);
    const json_t *const document = json.get();
    EXPECT_TRUE(json_is_object(document)) << page.outcome.output << page.outcome.errors;
    size_t index;
    const json_t *row;
    json_array_foreach(json_object_get(document, "things"), index, row)
    {
        const std::string state = text_of(row, "state");
        if (state == "missing" || state == "unfit")
            page.off[text_of(row, "thing")] =
                state + ": " + text_of(row, "detail") + "; " + text_of(row, "without");
    }
    json_array_foreach(json_object_get(document, "sending"), index, row)
    {
        page.sending[text_of(row, "what")] =
            text_of(row, "state") + ": " + text_of(row, "detail") +
            (json_is_true(json_object_get(row, "fault")) ? "!" : "");
    }
    page.healthy = json_is_true(json_object_get(document, "healthy"));
    page.reports = reason_of(json_object_get(document, "reports"));
    page.traces = reason_of(json_object_get(document, "traces"));
    EXPECT_EQ(page.outcome.status, page.healthy ? 0 : 1) << page.outcome.errors;
    return page;
}

} // namespace

TEST_F(ZorvctlDoctor, AWholeUnitIsHealthy)
{
    const Page page = examine();
    EXPECT_TRUE(page.healthy);
    EXPECT_THAT(page.off, IsEmpty());
    EXPECT_EQ(page.reports + page.traces + page.outcome.errors, "");
    EXPECT_THAT(run("zorvctl doctor").output,
                AllOf(StartsWith("crash reports go to https://crash.zorv.example\n"
                                 "traces go to https://trace.zorv.example\n"),
                      HasSubstr("\nhealthy\n"), Not(HasSubstr("Off:")),
                      testing::ContainsRegex("system.analytics.mode +absent +not there +reports")));

    file("/var/run/system.analytics.mode", "1\n"); // what is optional, and sane
    file("/var/run/system.uplink_ifname", "lo\n");
    file("/var/run/dhcpc.last_state", "bound\n");
    file("/etc/persistent/cfg/mgmt", "mgmt.kelo.env=prod\n");
    EXPECT_TRUE(examine().healthy);
}

TEST_F(ZorvctlDoctor, EachFaultIsNamedWithWhatIsOff)
{
    const struct {
        const char *path;
        const char *text; // NULL takes the file away
        const char *thing, *finding;
    } rows[] = {
        {kInfo, "serialno=02a0f3000007\neth0.macaddr=02:a0:f3:00:00:07\n",
         "/proc/zorvhal/system.info systemid",
         "missing: vendorid or systemid is not in it; no known board"},
        {kInfo,
         "vendorid=1f3d\nsystemid=0bad\nserialno=02a0f3000007\neth0.macaddr=02:a0:f3:00:00:07\n",
         "/proc/zorvhal/system.info systemid",
         "unfit: vendor 0x1f3d, system id 0x0bad: no board of the table"},
        {kInfo, "vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3\nwifi0.macaddr=02:a0:f3:00:00:07\n",
         "/proc/zorvhal/system.info serialno", "unfit: 02a0f3: not 12 hexadecimal digits"},
        {kInfo, "vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\neth0.macaddr=02-a0\n",
         "/proc/zorvhal/system.info eth0.macaddr", "unfit: 02-a0: not a MAC address; the main MAC"},
        {"/proc/zorvhal/board", nullptr, "/proc/zorvhal/board bomrev", "missing: not there"},
        {"/proc/zorvhal/board", "garbage\n", "/proc/zorvhal/board bomrev", "unfit: no bomrev"},
        {"/proc/zorvhal/status/IsDefault", "maybe\n", nullptr, "unfit: maybe: neither"},
        {"/tmp/system.cfg", "half a li", nullptr, "unfit: no entries"},
        {"/etc/persistent/cfg/mgmt", "#\n", nullptr, "unfit: no entries; management keys"},
        {kSite, "pluvo.mcip=239.255.90.90\n", "/var/run/zorv_protocol.info pluvo.key",
         "missing: no such key; discovery does not start"},
        {kSite, "pluvo.key=0001\npluvo.mcip=239.255.90.90\n",
         "/var/run/zorv_protocol.info pluvo.key", "unfit: 4 digits in place of 32; discovery"},
        {kSite, "pluvo.key=zz0102030405060708090a0b0c0d0e0f\npluvo.mcip=239.255.90.90\n",
         "/var/run/zorv_protocol.info pluvo.key", "unfit: not hexadecimal; discovery"},
        {kSite, "pluvo.key=000102030405060708090a0b0c0d0e0f\npluvo.mcip=192.0.2.9\n",
         "/var/run/zorv_protocol.info pluvo.mcip", "unfit: 192.0.2.9: not a multicast"},
        {"/var/run/ipready.br0", "", nullptr, "unfit: empty; no crash report leaves the unit, dis"},
        {"/var/run/ipready.br0", "0.0.0.0\n", nullptr, "unfit: 0.0.0.0: no address yet"},
        {"/var/run/system.analytics.mode", "off\n", nullptr, "unfit: no number; reports are anon"},
        {"/var/run/system.internet", "yes\n", nullptr, "unfit: no digit"},
        {"/var/run/system.uplink_ifname", "eth9\n", nullptr, "unfit: eth9: no such interface"},
        {"/var/run/dhcpc.last_state", "bind\n", nullptr, "unfit: bind: no state of the DHCP"},
        {"/var/run/guest/portal", "", nullptr, "unfit: not a folder; no guest portals"},
        {"/var/run/report", nullptr, nullptr, "missing: not there; the report lock"},
        {"/usr/etc/.version", nullptr, nullptr, "missing: not there; the firmware"},
        {"/usr/etc/.version", "\x01\n", nullptr, "unfit: \x01: not a version"},
        {"/usr/lib/build.properties", "", "/usr/lib/build.properties scm_reftype",
         "unfit: no such key; no release"},
        {"/etc/syswrapper.sh", nullptr, nullptr, "missing: nor in /usr/etc; no system"},
        {"/etc/syswrapper.sh", "#!/bin/sh\n", nullptr, "unfit: /etc/syswrapper.sh: cannot be st"},
        {"/usr/local/bin/syswrapper.sh", nullptr, "syswrapper.sh", "missing: not on PATH; reports"},
        {"/proc/meminfo", "", nullptr, "unfit: empty; no memory statistics"},
        {"/proc/net/tcp", "garbage\n", nullptr,
         "unfit: its first line lacks \"local_address\"; TCP sockets are unknown"},
        {"/sys/class/net/br0", nullptr, "/sys/class/net/br0/bridge", "missing: not there"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.path << ": " << (row.text ? row.text : "none"));
        must_run(std::string("rm -rf /tmp/kept; mkdir /tmp/kept; cp -a ").append(row.path) +
                 " /tmp/kept/it 2>/dev/null || :");
        remove(row.path);
        if (row.text)
            file(row.path, row.text);
        const Page page = examine();
        EXPECT_FALSE(page.healthy);
        ASSERT_EQ(page.off.size(), 1U) << page.outcome.output;
        EXPECT_EQ(page.off.begin()->first, row.thing ? row.thing : row.path);
        EXPECT_THAT(page.off.begin()->second, StartsWith(row.finding));
        EXPECT_THAT(run("zorvctl doctor").output,
                    HasSubstr(page.off.begin()->first +
                              (row.finding[0] == 'm' ? ": missing (" : ": unfit (")));
        remove(row.path);
        must_run(std::string("[ ! -e /tmp/kept/it ] || cp -a /tmp/kept/it ").append(row.path));
    }
    EXPECT_TRUE(examine().healthy);
}

TEST_F(ZorvctlDoctor, SaysWhyNothingIsBeingSent)
{
    remove("/var/run/ntp.ready");
    Page page = examine();
    EXPECT_EQ(page.reports, "the clock is not set: No such file or directory");
    EXPECT_EQ(page.traces, "");
    EXPECT_THAT(page.sending.at("clock"), AllOf(StartsWith("shut: "), HasSubstr("!")));
    EXPECT_EQ(page.sending.at("address"), "open: ready");
    file("/var/run/system.analytics.mode", "0\n");
    EXPECT_EQ(examine().traces, "reporting is off");
    file("/var/run/ntp.ready", "");
    page = examine(); // a choice, but nothing is sent
    EXPECT_FALSE(page.healthy);
    EXPECT_THAT(page.off, IsEmpty());
    EXPECT_EQ(page.reports, "reporting is off");
    EXPECT_THAT(run("zorvctl doctor").output,
                StartsWith("crash reports: nothing is sent: reporting is off\ntraces: nothing"));
}

TEST_F(ZorvctlDoctor, TellsTheServiceAndWhetherItIsTrusted)
{
    EXPECT_EQ(examine().sending.at("service"), "production: as configured");
    file("/usr/lib/build.properties", "scm_reftype=branch\n");
    EXPECT_EQ(examine().sending.at("service"), "dev: the build is no release");
    EXPECT_TRUE(examine().healthy);
    file("/tmp/system.cfg", "mgmt.kelo.env=stage\n");
    EXPECT_EQ(examine().sending.at("service"), "stage: as configured");
    file("/etc/ssl/certs/ca-certificates.crt", "");
    EXPECT_EQ(examine().sending.at("certificates"), "unfit: none in it: no service is trusted!");
    remove("/etc/ssl/certs/ca-certificates.crt");
    EXPECT_THAT(examine().sending.at("certificates"), StartsWith("missing: /etc/ssl/certs/"));
}

TEST_F(ZorvctlDoctor, TellsWhatBecameOfCrashes)
{
    EXPECT_EQ(examine().sending.at("kernel crash"), "none: none to report");
    file("/tmp/oops", "");
    EXPECT_EQ(examine().sending.at("kernel crash"), "pending: to be reported");
    file("/var/run/last-crashlog.sent", "");
    EXPECT_THAT(examine().sending.at("kernel crash"), StartsWith("reported: marked"));
    remove("/tmp/oops");
    EXPECT_THAT(examine().sending.at("kernel crash"), StartsWith("none: marked as reported: ano"));
    EXPECT_TRUE(examine().healthy);
    remove("/usr/local/bin/oopsdump");
    const Page page = examine();
    EXPECT_THAT(page.off.at("oopsdump"), HasSubstr("a crash of the kernel is not found"));
    EXPECT_EQ(page.sending.at("kernel crash"), "unknown: no oopsdump to tell!");
}

TEST_F(ZorvctlDoctor, TellsWhatTheStoreHoldsBack)
{
    const std::pair<const char *, const char *> rows[] = {
        {nullptr, "ok: 1 to be delivered"},
        {R"({"payload":{},"send_attempts":0})", "ok: 1 to be delivered"},
        {R"({"payload":{},"sent_to_analytics":true,"send_attempts":4})", "ok: 1 delivered"},
        {R"({"payload":{},"send_attempts":4})", "failed: 1 failed, to be tried again!"},
        {R"({"payload":{},"sent_to_analytics":true,"send_attempts":5})",
         "failed: 1 given up after five failed attempts!"},
        {"{}", "failed: 1 passed over, the meta has no payload!"},
    };
    EXPECT_EQ(examine().sending.at("crash logs"), "none: none in the store");
    file(std::string(kLogs) + "a.tgz", "");
    for (const auto &[meta, logs] : rows) {
        SCOPED_TRACE(logs);
        if (meta)
            file(std::string(kMetas) + "a.tgz", meta);
        EXPECT_EQ(examine().sending.at("crash logs"), logs);
    }
    file(std::string(kMetas) + "a.tgz", R"({"payload":{},"send_attempts":1})");
    file(std::string(kMarkers) + "a.tgz", "");
    const Page page = examine();
    EXPECT_EQ(page.sending.at("crash logs"), "failed: 1 finished before the service had it!");
    EXPECT_FALSE(page.healthy);
    EXPECT_THAT(page.off, IsEmpty());
}

TEST_F(ZorvctlDoctor, WhatMayNotBeReadIsUnfit)
{
    must_run("chmod 000 /usr/etc/.build && ln -sf system.cfg /tmp/system.cfg");
    const Page page = examine("setpriv --securebits +noroot zorvctl"); // no powers of root
    EXPECT_FALSE(page.healthy);
    EXPECT_THAT(page.off.at("/usr/etc/.build"), StartsWith("unfit: Permission denied; "));
    EXPECT_THAT(page.off.at("/tmp/system.cfg"), StartsWith("unfit: Too many levels of "));
}
