#include <zorv/status.h>

#include <array>
#include <cerrno>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "support/device.h"

using testing::MatchesRegex;

namespace {

using Status = Device;

std::string version()
{
    const char *text = nullptr;
    const int rc = get_version(&text);
    return std::to_string(rc) + " " + text;
}

} // namespace

TEST_F(Status, ServicesNeedBothOfTheirKeys)
{
    const struct {
        const char *config;
        std::array<int, 5> expected; // dhcpc, dhcpd, ppp, iptables, ebtables
    } rows[] = {
        {"dhcpc.status=enabled\ndhcpc.1.status=disabled\n", {}},
        {"dhcpc.1.status=enabled\ndhcpc.status=enabled", {1}},
        {" ppp.status = enabled \n\x01\tppp.1.status\xff=\x80 enabled\r\n", {0, 0, 1}},
        {"dhcpd.status=enabled\ndhcpd.1.status=enabled\ndhcpd.1.status=disabled\n", {0, 1}},
        {"iptables.status=enabled\niptables.50.status=enabled\nebtables.status=enabled\n"
         "ebtables.50.status=enabled\n",
         {0, 0, 0, 1, 1}},
        {"#dhcpc.status=enabled\ndhcpc.1.status=enabled\n", {}},
        {"\rdhcpc.status=enabled\ndhcpc.1.status=enabled\n", {}},
        {"dhcpc.status=Enabled\nDHCPC.1.status=enabled\n", {}},
        {"dhcpc.status==enabled\ndhcpc.1.status=enabled=\n=enabled\nenabled\n\r\n\n", {}},
        {"", {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.config);
        file("/tmp/system.cfg", row.config);
        dev_status s;
        memset(&s, 0x55, sizeof s);
        EXPECT_EQ(fill_services(&s), 0);
        EXPECT_EQ((std::array{s.dhcpc, s.dhcpd, s.ppp, s.iptables, s.ebtables}), row.expected);
        EXPECT_EQ(s.reserved[31], 0x5555555555555555U);
    }
    dev_status s = {};
    const std::string both = "dhcpc.status=enabled\ndhcpc.1.status=enabled\n";
    file("/tmp/system.cfg", "x=" + std::string(3000, 'x') + "\n" + both + std::string(1, '\0'));
    fill_services(&s);
    EXPECT_EQ(s.dhcpc, 1);
    chmod("/tmp/system.cfg", 0777);
    fill_services(&s);
    EXPECT_EQ(s.dhcpc, 0);
    remove("/tmp/system.cfg");
    s.ppp = 1;
    EXPECT_EQ(fill_services(&s), 0);
    EXPECT_EQ(s.ppp, 0);
}

TEST_F(Status, TheVersionIsKeptOnceItIsGood)
{
    EXPECT_EQ(version(), "-2 unknown.0");
    file("/usr/etc/.version", "6.6.55\nmore\n");
    EXPECT_EQ(version(), "-2 unknown.0");
    file("/usr/etc/.build", "");
    errno = EBUSY;
    EXPECT_EQ(version(), "-22 unknown.0");
    EXPECT_EQ(errno, EBUSY);
    must_run("rm /usr/etc/.build && mkdir /usr/etc/.build");
    EXPECT_EQ(version(), "-21 unknown.0"); // EISDIR
    must_run("rmdir /usr/etc/.build");
    file("/usr/etc/.build", "15189\n");
    EXPECT_EQ(version(), "0 6.6.55.15189");
    remove("/usr/etc/.build");
    EXPECT_EQ(version(), "0 6.6.55.15189");
    EXPECT_EQ(get_version(nullptr), 0);
}

TEST_F(Status, ALongVersionIsCut)
{
    const std::string build = std::to_string(123456789012345) + std::string(30, 'b');
    file("/usr/etc/.build", build + "\n");
    file("/usr/etc/.version", std::string(70, 'v') + "\n");
    // Each length of the version has a process of its own, because a good one is kept.
    for (const size_t length : {61U, 62U, 63U, 64U}) {
        file("/usr/etc/.version", std::string(length, 'v') + "\n");
        if (fork() == 0) {
            file("/tmp/version", version());
            _exit(0);
        }
        wait(nullptr);
        const std::string whole =
            std::string(std::min<size_t>(length, 63), 'v') + "." + build.substr(0, 31);
        EXPECT_EQ(read("/tmp/version"), "0 " + whole.substr(0, 63));
    }
}

TEST_F(Status, FlagFiles)
{
    const struct {
        const char *content;
        int without, with; // by the default
    } rows[] = {{"true\n", 1, 1}, {"true", 1, 1},    {"false\n", 0, 0},
                {"TRUE\n", 0, 0}, {"true \n", 0, 0}, {"1\n", 0, 0},
                {"\n", 0, 0},     {"", 0, 1},        {"true\nx\n", 1, 1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.content);
        file("/proc/zorvhal/status/IsDefault", row.content);
        file("/var/run/flag", row.content);
        EXPECT_EQ(system_is_xxx("/proc/zorvhal/status/IsDefault", 0), row.without);
        EXPECT_EQ(system_is_xxx("/proc/zorvhal/status/IsDefault", 7), row.with);
        EXPECT_EQ(system_is_xxx("/var/run/flag", 0), 1);
    }
    EXPECT_EQ(system_is_xxx("/proc/none", 7), 7);
    EXPECT_EQ(system_is_xxx(nullptr, 7), 7);

    EXPECT_EQ(system_set_xxx("/proc/flag", 0), 0);
    EXPECT_EQ(read("/proc/flag"), "false\n");
    EXPECT_EQ(system_set_xxx("/var/run/flag", 5), 0);
    EXPECT_EQ(read("/var/run/flag"), "true\n");
    EXPECT_EQ(system_set_xxx("/var/run/flag", 0), 0);
    EXPECT_FALSE(exists("/var/run/flag"));
    EXPECT_EQ(system_set_xxx("/var/run/flag", 0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(system_set_xxx("/var/run/none/flag", 1), -1);
    EXPECT_EQ(system_set_xxx(nullptr, 0), -1);

    EXPECT_EQ(system_set_value("/var/run/value", "a long one"), 0);
    EXPECT_EQ(system_set_value("/var/run/value", "%d"), 0);
    EXPECT_EQ(read("/var/run/value"), "%d\n");
    EXPECT_EQ(system_set_value("/dev/full", "x"), EOF);
    EXPECT_EQ(system_set_value("/var/run/value", nullptr), -1);
    EXPECT_EQ(system_set_value(nullptr, "x"), -1);
}

TEST_F(Status, BoardFile)
{
    const struct {
        const char *content;
        int revision;
        const char *serial;
    } rows[] = {
        {"serialno=0123\r\nboardrevision=7\r\n", 7, "0123\n"},
        {"boardrevision=7\nboardrevision=x=0x12\nserialno=a=b\n", 0, "b\n"},
        {"boardrevisions = 12 \nserialno=\n", 12, "serialno\n"},
        {" boardrevision=9\nSERIALNO=1\n", 0, "\n"},
        {"boardrevision=-3", -3, "\n"},
        {"", 0, "\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.content);
        file("/tmp/board", row.content);
        EXPECT_EQ(get_boardrevision("/tmp/board"), row.revision);
        char serial[300];
        memset(serial, 'z', sizeof serial);
        const std::string expected = row.serial;
        EXPECT_EQ(get_boardsn("/tmp/board", serial, static_cast<int>(expected.size())), 0);
        EXPECT_EQ(std::string(serial, expected.size() + 1), expected + "z"); // no NUL
    }
    EXPECT_EQ(get_boardrevision("/tmp/none"), -1);
    EXPECT_EQ(get_boardrevision(nullptr), -1);
    char serial[4] = "";
    EXPECT_EQ(get_boardsn("/tmp/none", serial, sizeof serial), -1);
    EXPECT_EQ(get_boardsn(nullptr, serial, sizeof serial), -1);
    EXPECT_EQ(get_boardsn("/tmp/board", nullptr, 4), -1);
}

TEST_F(Status, ASerialNumberThatDoesNotFitLeavesItsFileOpen)
{
    file("/tmp/board", "serialno=0123\n");
    const int before = open_descriptors();
    char serial[5] = "";
    EXPECT_EQ(get_boardsn("/tmp/board", serial, 5), 0);
    EXPECT_EQ(open_descriptors(), before);
    for (const int size : {4, 0, -1})
        EXPECT_EQ(get_boardsn("/tmp/board", serial, size), -1);
    EXPECT_EQ(open_descriptors(), before + 3);
}

TEST_F(Status, MainAddressAndManufacturer)
{
    const struct {
        const char *content;
        const char *mac;
        long id;
    } rows[] = {
        {"eth0.macaddr=02:a0:f1:00:00:07\nwifi0.macaddr=x\nmanufid=0a1B\n", "02:a0:f1:00:00:07",
         0x0a1b},
        {"eth0.macaddr=\nwifi0.macaddr=02:a0:f1:00:00:08:99\nmanufid=12345\n", "02:a0:f1:00:00:08",
         0x1234},
        {"manufid=xyz\n", "00:11:22:33:44:55", 0},
        {"", "00:11:22:33:44:55", 0},
    };
    EXPECT_STREQ(get_main_mac_str(), "00:11:22:33:44:55");
    EXPECT_EQ(get_manufid(), 0);
    for (const auto &row : rows) {
        file("/proc/zorvhal/system.info", row.content);
        EXPECT_STREQ(get_main_mac_str(), row.mac);
        EXPECT_EQ(get_manufid(), row.id);
    }
}

TEST_F(Status, PublishedStates)
{
    EXPECT_EQ(system_internet_status(), -1);
    EXPECT_EQ(system_dhcp_status(), 0);
    const struct {
        const char *content;
        int internet, dhcp;
    } rows[] = {{"1\n", 1, 0},       {"72", 7, 0},         {"bound\n", 0, 3}, {"renew", 0, 4},
                {"leasefail", 0, 2}, {"deconfig\n", 0, 1}, {"Bound\n", 0, 0}, {"bound \n", 0, 0},
                {"", 0, 0},          {"\xff\xff", 0, 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.content);
        file("/var/run/system.internet", row.content);
        file("/var/run/dhcpc.last_state", row.content);
        EXPECT_EQ(system_internet_status(), row.internet);
        EXPECT_EQ(system_dhcp_status(), row.dhcp);
    }
}

TEST_F(Status, SshListens)
{
    EXPECT_EQ(system_is_ssh(), 0);
    constexpr char kOthers[] = "  sl  local_address rem_address   st tx_queue rx_queue\n"
                               "   0: 00000000:0050 00000000:0000 0A 00000000:00000000\n"
                               "   1: 0100007F:0016 0100007F:8A3C 01 00000000:00000000\n";
    file("/proc/net/tcp", kOthers);
    EXPECT_EQ(system_is_ssh(), 0);
    file("/proc/net/tcp", kOthers + std::string("   2: 00000000:0016 00000000:0000 0A 0:0\n"));
    EXPECT_EQ(system_is_ssh(), 1);

    kernel_proc();
    EXPECT_EQ(system_is_ssh(), 0);
    const sockaddr_in port22 = {AF_INET, htons(22), {htonl(INADDR_LOOPBACK)}, {}};
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr *>(&port22), sizeof port22), 0);
    EXPECT_EQ(system_is_ssh(), 0);
    listen(server, 1);
    EXPECT_EQ(system_is_ssh(), 1);
    close(server);
}

TEST_F(Status, TouchedFiles)
{
    umask(077);
    EXPECT_EQ(touch_file("/tmp/new", 0644), 0);
    EXPECT_EQ(run("stat -c %a /tmp/new").output, "644\n");
    file("/tmp/new", "content");
    EXPECT_EQ(touch_file("/tmp/new", 0600), 0);
    EXPECT_EQ(read("/tmp/new"), "content");
    EXPECT_EQ(touch_file("/tmp/none/new", 0600), -1);
    EXPECT_EQ(touch_file(nullptr, 0600), -1);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_status.touch_file(): /tmp/none/new - "
                                      "2/No such file or directory",
                                      "[error] libzorv_status.touch_file():  - 14/Bad address"));
}

TEST_F(Status, Uptime)
{
    const std::pair<const char *, long> rows[] = {{"12345.67 890.12\n", 12345},
                                                  {"  7", 7},
                                                  {".5 1\n", -1},
                                                  {"soon\n", -1},
                                                  {"", -1},
                                                  {"\n123\n", -1}};
    for (const auto &[content, seconds] : rows) {
        file("/proc/uptime", content);
        EXPECT_EQ(get_uptime_from_proc(), seconds) << content;
    }
    EXPECT_EQ(get_uptime_from_file("/proc/none"), -1);
    EXPECT_EQ(get_uptime_from_file(nullptr), -1);
    kernel_proc();
    const long before = get_uptime_from_sysinfo();
    EXPECT_GT(before, 0);
    EXPECT_LE(std::abs(get_uptime_from_proc() - before), 2);
}

TEST_F(Status, UptimeInWords)
{
    const struct {
        unsigned long seconds;
        const char *text;
    } rows[] = {
        {90061, "1d1h1m1s"},
        {3600, "1h"},
        {0, ""},
        {86399, "23h59m59s"},
        {86400UL * 4294967296, ""}, // days count in 32 bits
        {86400UL * 4294967295 + 86399, "4294967295d23h59m59s"},
    };
    for (const auto &row : rows) {
        char text[32];
        uptime2str(row.seconds, text, sizeof text);
        EXPECT_STREQ(text, row.text);
    }
    char text[] = "kept";
    uptime2str(90061, text, 0);
    EXPECT_STREQ(text, "kept");
    uptime2str(90061, text, 4);
    EXPECT_STREQ(text, "1d1");
}

TEST_F(Status, TimeInWordsAndInTheZoneOfTheMoment)
{
    char cells[7][8];
    get_system_time(cells);
    std::string joined;
    for (const auto &cell : cells)
        joined += std::string(cell) + "|";
    EXPECT_THAT(joined, MatchesRegex("(Mon|Tue|Wed|Thu|Fri|Sat|Sun)\\|[A-Z][a-z]+\\|[0-9]+\\|"
                                     "[0-9][0-9]\\|[0-9][0-9]\\|[0-9][0-9]\\|[0-9]+\n\\|"));

    char before[7][8], after[7][8];
    setenv("TZ", "UTC0", 1);
    get_system_time(before);
    setenv("TZ", "EST5", 1);
    get_system_time(after);
    unsetenv("TZ");
    EXPECT_STRNE(before[3], after[3]);
}

TEST_F(Status, CloudEnvironment)
{
    const struct {
        const char *config, *management, *build;
        int environment, limited;
    } rows[] = {
        {nullptr, nullptr, nullptr, 0, 2},
        {nullptr, nullptr, "scm_reftype=atag\n", 0, 0},
        {nullptr, nullptr, "scm_reftype=branch\n", 0, 2},
        {"mgmt.kelo.env=dev\n", "mgmt.kelo.env=stage\n", nullptr, 2, 2},
        {"mgmt.kelo.env=\n", "mgmt.kelo.env=stage\n", nullptr, 1, 1},
        {"mgmt.kelo.env=develop\n", nullptr, nullptr, 0, 2},
        {"mgmt.kelo.env.force=1\n", nullptr, nullptr, 0, 0},
        {"mgmt.kelo.env.force=11\n", nullptr, nullptr, 0, 2},
        {nullptr, "mgmt.kelo.env.force=enabled\n", "scm_reftype=branch\n", 0, 0},
        {"mgmt.kelo.env.force=0\n", "mgmt.kelo.env.force=1\n", nullptr, 0, 2},
    };
    const auto put = [](const char *path, const char *content) {
        remove(path);
        if (content)
            file(path, content);
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(i);
        put("/tmp/system.cfg", rows[i].config);
        put("/etc/persistent/cfg/mgmt", rows[i].management);
        put("/usr/lib/build.properties", rows[i].build);
        EXPECT_EQ(get_kelo_env(), rows[i].environment);
        EXPECT_EQ(get_kelo_env_limit_prod(), rows[i].limited);
    }
}

// What a broken unit may have in place of each file: no fault, no descriptor kept, no endless read.

TEST_F(Status, FilesThatAreNone)
{
    must_run("mkdir -p /etc/persistent/cfg");
    constexpr const char *kPaths[] = {"/tmp/system.cfg",          "/etc/persistent/cfg/mgmt",
                                      "/usr/etc/.version",        "/usr/etc/.build",
                                      "/var/run/system.internet", "/var/run/dhcpc.last_state"};
    const int before = open_descriptors();
    for (const auto *command : {"ln -sf /dev/zero %", "ln -sfn /tmp %", "ln -sf /dev/null %",
                                "rm -f %; head -c 100000 /bin/sh > %"}) {
        SCOPED_TRACE(command);
        for (const char *path : kPaths) {
            std::string line = command;
            for (size_t at; (at = line.find('%')) != line.npos;)
                line.replace(at, 1, path);
            must_run(line);
        }
        dev_status s = {};
        char text[32], mac[18];
        uint32_t address;
        fill_services(&s);
        version();
        EXPECT_EQ(get_kelo_env(), 0);
        EXPECT_EQ(system_internet_status(), 0);
        EXPECT_EQ(system_dhcp_status(), 0);
        for (const char *path : kPaths) {
            get_uptime_from_file(path);
            get_boardrevision(path);
            EXPECT_EQ(get_boardsn(path, text, sizeof text), 0);
            EXPECT_EQ(std::string_view(text, 1), "\n");
        }
        EXPECT_EQ(get_gateway(text, &address, sizeof text), 0);
        EXPECT_EQ(get_mac_by_ip("192.0.2.1", mac, sizeof mac), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
}
