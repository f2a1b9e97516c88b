#include <zorv/status.h>

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/rows.h"

namespace {

using Status = Device;

std::string version()
{
    const char *text = nullptr;
    errno = EBUSY;
    const int rc = get_version(&text);
    return shown(rc, text) + (errno == EBUSY ? "" : " and another errno");
}

// As a process finds it that has not asked before: a good version is kept.
std::string first_version()
{
    if (fork() == 0) {
        Device::file("/tmp/version", version());
        _exit(0);
    }
    wait(nullptr);
    return Device::read("/tmp/version");
}

} // namespace

TEST_F(Status, ServicesNeedBothOfTheirKeys)
{
    const auto services = [] {
        dev_status s;
        memset(&s, 0x55, sizeof s);
        EXPECT_EQ(fill_services(&s), 0);
        EXPECT_EQ(s.reserved[31], 0x5555555555555555U);
        return shown(s.dhcpc, s.dhcpd, s.ppp, s.iptables, s.ebtables);
    };
    const std::string both = "dhcpc.status=enabled\ndhcpc.1.status=enabled\n";
    expect_rows(
        "/tmp/system.cfg", services,
        {"dhcpc.status=enabled\ndhcpc.1.status=disabled\n => 0 0 0 0 0",
         "dhcpc.1.status=enabled\ndhcpc.status=enabled => 1 0 0 0 0",
         " ppp.status = enabled \n\x01\tppp.1.status\xff=\x80 enabled\r\n => 0 0 1 0 0",
         "dhcpd.status=enabled\ndhcpd.1.status=enabled\ndhcpd.1.status=disabled\n => 0 1 0 0 0",
         "iptables.status=enabled\niptables.50.status=enabled\n => 0 0 0 1 0",
         "ebtables.50.status=enabled\nebtables.status=enabled\n => 0 0 0 0 1",
         "#" + both + " => 0 0 0 0 0", "\r" + both + " => 0 0 0 0 0",
         "dhcpc.status=Enabled\nDHCPC.1.status=enabled\n => 0 0 0 0 0",
         "dhcpc.status==enabled\ndhcpc.1.status=enabled=\n=enabled\nenabled\n\r\n\n => 0 0 0 0 0",
         "(none) => 0 0 0 0 0", " => 0 0 0 0 0",
         "x=" + std::string(3000, 'x') + "\n" + both + std::string(1, '\0') + " => 1 0 0 0 0"});
    chmod("/tmp/system.cfg", 0777);
    EXPECT_EQ(services(), "0 0 0 0 0");
    EXPECT_EQ(fill_services(nullptr), 0);
}

TEST_F(Status, TheVersionIsKeptOnceItIsGood)
{
    const auto v = [](size_t length) { return std::string(length, 'v'); };
    const std::string digits = "1234567890123456789012345678901"; // what is read of a build
    expect_rows("/usr/etc/.build", first_version,
                {"(none) => -2 unknown.0", "1\n => -2 unknown.0"});
    expect_rows("/usr/etc/.version", first_version,
                {" => -22 unknown.0", "(folder) => -21 unknown.0"});
    file("/usr/etc/.build", digits + "23\n");
    expect_rows("/usr/etc/.version", first_version,
                {v(31) + "\nmore\n => 0 " + v(31) + "." + digits, v(61) + " => 0 " + v(61) + ".1",
                 v(62) + " => 0 " + v(62) + ".", v(64) + " => 0 " + v(63),
                 "6.6.55\n => 0 6.6.55." + digits});
    expect_rows("/usr/etc/.build", version,
                {" => -22 unknown.0", "(folder) => -21 unknown.0", "15189\n => 0 6.6.55.15189",
                 "(none) => 0 6.6.55.15189"});
    EXPECT_EQ(get_version(nullptr), 0);
}

TEST_F(Status, FlagFiles)
{
    const char *const kFlag = "/proc/zorvhal/status/IsDefault";
    const auto flag = [&] { return shown(system_is_xxx(kFlag, 0), system_is_xxx(kFlag, 7)); };
    expect_rows(kFlag, flag,
                {"true\n => 1 1", "true => 1 1", "false\n => 0 0", "TRUE\n => 0 0",
                 "true \n => 0 0", "1\n => 0 0", "\n => 0 0", " => 0 1", "true\nx\n => 1 1",
                 "(none) => 0 7"});
    // What is set, the result, what is there then, how it is read.
    const std::tuple<const char *, int, const char *> kSteps[] = {
        {"/proc/flag", 0, "0 false\n 0"}, {"/proc/flag", 1, "0 true\n 1"},
        {"/run/flag", 5, "0 true\n 1"},   {"/run/flag", 0, "0 nothing 0"},
        {"/run/flag", 0, "-1 nothing 0"}, {"/run/none/flag", 1, "-1 nothing 0"}};
    for (const auto &[path, value, want] : kSteps) {
        const int rc = system_set_xxx(path, value);
        EXPECT_EQ(shown(rc, exists(path) ? read(path) : "nothing", system_is_xxx(path, 0)), want)
            << path;
    }
    file("/tmp/value", "a long one");
    EXPECT_EQ(system_set_value("/tmp/value", "%d"), 0);
    EXPECT_EQ(read("/tmp/value"), "%d\n");

    umask(077);
    file("/tmp/old", "content");
    EXPECT_EQ(shown(touch_file("/tmp/old", 0600), touch_file("/tmp/new", 0644), read("/tmp/old")),
              "0 0 content");
    EXPECT_EQ(run("stat -c %a /tmp/old /tmp/new").output, "600\n644\n");
    for (const int rc :
         {touch_file("/tmp/none/new", 0600), touch_file(nullptr, 0600),
          system_set_value("/dev/full", "x"), system_set_value("/tmp/value", nullptr),
          system_set_value(nullptr, "x"), system_set_xxx(nullptr, 0), system_is_xxx(nullptr, -1)})
        EXPECT_EQ(rc, -1);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_status.touch_file(): /tmp/none/new - "
                                      "2/No such file or directory",
                                      "[error] libzorv_status.touch_file():  - 14/Bad address"));
}

TEST_F(Status, BoardFile)
{
    const auto board = [] {
        char serial[300] = "";
        memset(serial, 'z', sizeof serial - 1);
        const int rc = get_boardsn("/tmp/board", serial, sizeof serial);
        serial[strcspn(serial, "z") + 1] = '\0';
        return shown(get_boardrevision("/tmp/board"), rc, serial);
    };
    expect_rows("/tmp/board", board,
                {"serialno=0123\r\nboardrevision=7\r\n => 7 0 0123\nz",
                 "boardrevision=7\nboardrevision=x=0x12\nserialno=a=b\n => 0 0 b\nz",
                 "boardrevisions = 12 \nserialno=\n => 12 0 serialno\nz",
                 " boardrevision=9\nSERIALNO=1\n => 0 0 \nz", "boardrevision=-3 => -3 0 \nz",
                 " => 0 0 \nz", "(none) => -1 -1 z", "serialno=0123\n => 0 0 0123\nz"});
    char serial[5] = "";
    const int before = open_descriptors();
    EXPECT_EQ(get_boardsn("/tmp/board", serial, 5), 0);
    for (const int rc : {get_boardrevision(nullptr), get_boardsn(nullptr, serial, 5),
                         get_boardsn("/tmp/board", nullptr, 5)})
        EXPECT_EQ(rc, -1);
    EXPECT_EQ(open_descriptors(), before);
    for (const int size : {4, 0, -1}) // what does not fit leaves its file open
        EXPECT_EQ(get_boardsn("/tmp/board", serial, size), -1);
    EXPECT_EQ(open_descriptors(), before + 3);

    const auto facts = [] {
        return shown(get_main_mac_str(), hex(static_cast<uint64_t>(get_manufid())));
    };
    expect_rows(
        "/proc/zorvhal/system.info", facts,
        {"(none) => 00:11:22:33:44:55 0",
         "eth0.macaddr=02:a0:f1:00:00:07\nwifi0.macaddr=x\nmanufid=0a1B\n => 02:a0:f1:00:00:07 a1b",
         "eth0.macaddr=\nwifi0.macaddr=02:a0:f1:00:00:08:99\nmanufid=12345\n => 02:a0:f1:00:00:08 "
         "1234",
         "manufid=xyz\n => 00:11:22:33:44:55 0"});
}

TEST_F(Status, PublishedStates)
{
    const auto internet = [] { return shown(system_internet_status()); };
    expect_rows("/var/run/system.internet", internet,
                {"(none) => -1", "1\n => 1", "72 => 7", "0 => 0", "9 => 9", "/1 => 0", ": => 0",
                 " => 0", "\xff\xff => 0"});
    const auto dhcp = [] { return shown(system_dhcp_status()); };
    expect_rows("/var/run/dhcpc.last_state", dhcp,
                {"(none) => 0", "bound\n => 3", "renew => 4", "leasefail => 2", "deconfig\n => 1",
                 "Bound\n => 0", "bound \n => 0", " => 0"});
    const std::string others = "  sl  local_address rem_address   st tx_queue rx_queue\n"
                               "   0: 00000000:0050 00000000:0000 0A 00000000:00000000\n"
                               "   1: 0100007F:0016 0100007F:8A3C 01 00000000:00000000\n";
    const auto ssh = [] { return shown(system_is_ssh()); };
    expect_rows("/proc/net/tcp", ssh,
                {"(none) => 0", others + " => 0",
                 others + "   2: 00000000:0016 00000000:0000 0A 0:0\n => 1"});
    kernel_proc();
    const sockaddr_in port22 = {AF_INET, htons(22), {htonl(INADDR_LOOPBACK)}, {}};
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr *>(&port22), sizeof port22), 0);
    EXPECT_EQ(system_is_ssh(), 0);
    listen(server, 1);
    EXPECT_EQ(system_is_ssh(), 1);
    close(server);
}

TEST_F(Status, Uptime)
{
    const auto uptime = [] { return shown(get_uptime_from_proc()); };
    expect_rows("/proc/uptime", uptime,
                {"(none) => -1", "12345.67 890.12\n => 12345", "  7 => 7", "0.01 0.02\n => 0",
                 ".5 1\n => -1", "soon\n => -1", " => -1", "\n123\n => -1"});
    EXPECT_EQ(get_uptime_from_file(nullptr), -1);
    kernel_proc();
    const long before = get_uptime_from_sysinfo();
    EXPECT_GT(before, 0);
    EXPECT_LE(std::abs(get_uptime_from_proc() - before), 2);

    const auto words = [](unsigned long seconds, size_t size = 32) {
        char text[32] = "kept";
        uptime2str(seconds, text, size);
        return std::string(text);
    };
    EXPECT_THAT(
        (std::vector{words(90061), words(3600), words(86399), words(0), words(90061, 4),
                     words(90061, 0), words(86400UL * 4294967295 + 86399),
                     words(86400UL * 4294967296)}), // days count in 32 bits
        ElementsAre("1d1h1m1s", "1h", "23h59m59s", "", "1d1", "kept", "4294967295d23h59m59s", ""));
    uptime2str(90061, nullptr, 4);
}

TEST_F(Status, TimeInTheZoneOfTheMoment)
{
    const auto time_in = [](const char *zone) {
        char cells[7][8];
        std::string joined;
        setenv("TZ", zone, 1);
        get_system_time(cells);
        for (const auto &cell : cells)
            joined += std::string(cell) + "|";
        return joined;
    };
    const std::string here = time_in("UTC0");
    EXPECT_THAT(here,
                testing::MatchesRegex("(Mon|Tue|Wed|Thu|Fri|Sat|Sun)\\|[A-Z][a-z]+\\|[0-9]+\\|"
                                      "[0-9][0-9]\\|[0-9][0-9]\\|[0-9][0-9]\\|[0-9]+\n\\|"));
    EXPECT_NE(time_in("EST5").substr(0, 13), here.substr(0, 13)); // the hours
}

TEST_F(Status, CloudEnvironment)
{
    // The environment, and the one where only releases are in production.
    const auto environment = [] { return shown(get_kelo_env(), get_kelo_env_limit_prod()); };
    expect_rows("/usr/lib/build.properties", environment,
                {"(none) => 0 2", "scm_reftype=atag\n => 0 0", "scm_reftype=branch\n => 0 2"});
    file("/etc/persistent/cfg/mgmt", "mgmt.kelo.env=stage\nmgmt.kelo.env.force=enabled\n");
    expect_rows("/tmp/system.cfg", environment,
                {"(none) => 1 1", "mgmt.kelo.env=dev\n => 2 2", "mgmt.kelo.env=\n => 1 1",
                 "mgmt.kelo.env=develop\n => 0 0",
                 "mgmt.kelo.env=prod\nmgmt.kelo.env.force=0\n => 0 2",
                 "mgmt.kelo.env=prod\nmgmt.kelo.env.force=1\n => 0 0",
                 "mgmt.kelo.env=prod\nmgmt.kelo.env.force=11\n => 0 2"});
    file("/etc/persistent/cfg/mgmt", "");
    expect_rows("/tmp/system.cfg", environment,
                {"mgmt.kelo.env=stage\n => 1 1", "mgmt.kelo.env=x\n => 0 2"});
}

// What a broken unit may have in place of each file: no fault, no descriptor kept, no endless read.
TEST_F(Status, FilesThatAreNone)
{
    must_run("mkdir -p /etc/persistent/cfg /usr/etc; head -c 100000 /bin/sh > /run/rubbish");
    const int before = open_descriptors();
    for (const std::string target : {"/dev/zero", "/tmp", "/dev/null", "/run/rubbish"}) {
        for (const std::string path :
             {"/tmp/system.cfg", "/etc/persistent/cfg/mgmt", "/usr/etc/.version", "/usr/etc/.build",
              "/var/run/system.internet", "/var/run/dhcpc.last_state", "/proc/uptime"})
            must_run("ln -sfn " + target + " " + path);
        dev_status s = {};
        char serial[32] = "", mac[18];
        fill_services(&s);
        version();
        get_uptime_from_proc();
        EXPECT_EQ(shown(get_kelo_env(), system_internet_status(), system_dhcp_status(),
                        get_boardrevision("/proc/uptime"), get_boardsn("/proc/uptime", serial, 32),
                        serial, get_mac_by_ip("192.0.2.1", mac, sizeof mac)),
                  "0 0 0 0 0 \n 0")
            << target;
    }
    EXPECT_EQ(open_descriptors(), before);
}
