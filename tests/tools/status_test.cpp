// What zorvctl says of the running unit: status, bridges, guest portals, locks.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "support/device.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ZorvctlStatus : public Device {
protected:
    ZorvctlStatus()
    {
        must_run("mkdir -p /tmp/work && ln -s " ZORVCTL " /usr/local/bin/zorvctl");
        kernel_processes();
    }

    static Outcome ctl(const std::string &arguments)
    {
        return run("cd /tmp/work && zorvctl " + arguments);
    }

    static void make_bridge()
    {
        must_run("ip link add br0 type bridge && ip addr add 192.0.2.1/24 dev br0 &&"
                 "ip link add eth0 type veth peer name far0 && ip link set eth0 master br0 &&"
                 "ip link set eth0 up && ip link set far0 up && ip link set br0 up &&"
                 "until bridge link show dev eth0 | grep -q 'state forwarding'; do :; done &&"
                 "bridge fdb add 02:a0:f1:00:00:07 dev eth0 master dynamic");
    }
};

} // namespace

TEST_F(ZorvctlStatus, EachSourceIsOkOrSaysWhyNot)
{
    const Outcome empty = ctl("status");
    EXPECT_EQ(empty.status, 0);
    EXPECT_THAT(empty.output, HasSubstr("/var/run/system.internet       No such file"));
    EXPECT_THAT(empty.output, HasSubstr("no default route through br0\n"));

    kernel_proc();
    make_bridge();
    must_run("ip route add default via 192.0.2.254 dev br0 && mkdir -p /usr/etc &&"
             "ip neigh add 192.0.2.254 lladdr 02:a0:f1:00:00:fe dev br0 &&"
             "echo 6.6.55 > /usr/etc/.version && echo 15189 > /usr/etc/.build");
    file("/tmp/system.cfg", "ppp.status=enabled\nppp.1.status=enabled\nmgmt.kelo.env=stage\n");
    file("/var/run/dhcpc.last_state", "bound\n");
    const std::string json = ctl("status br0 --json").output;
    for (const char *row :
         {R"({"fact":"version","value":"6.6.55.15189",)", R"({"fact":"services","value":"ppp",)",
          R"({"fact":"environment","value":"stage",)", R"({"fact":"dhcp_client","value":"bound",)",
          R"({"fact":"gateway","value":"192.0.2.254","source":"route netlink","state":"ok"})",
          R"({"fact":"gateway_mac","value":"02:a0:f1:00:00:fe",)",
          R"({"fact":"address","value":"192.0.2.1",)", R"({"fact":"main_mac","value":null,)"})
        EXPECT_THAT(json, HasSubstr(row));
    must_run("chmod 777 /tmp/system.cfg");
    EXPECT_THAT(ctl("status").output, HasSubstr("permissions 0777: taken for none"));
    const Outcome none = ctl("status br9");
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.output, HasSubstr("no such interface"));
}

TEST_F(ZorvctlStatus, TheBridgeOfTheKernel)
{
    kernel_sys();
    make_bridge();
    EXPECT_THAT(ctl("bridge fdb").output, HasSubstr("02:a0:f1:00:00:07     1  eth0    no"));
    EXPECT_THAT(ctl("bridge ports br0").output, HasSubstr("   1  eth0    forwarding  "));
    EXPECT_THAT(
        ctl("bridge lookup 02:A0:F1:00:00:07 --json").output,
        StartsWith(R"({"bridge":"br0","mac":"02:a0:f1:00:00:07","port":1,"ifname":"eth0")"));
    EXPECT_EQ(ctl("bridge delete 02:a0:f1:00:00:07 eth0").status, 0);
    EXPECT_EQ(ctl("bridge lookup 02:a0:f1:00:00:07").status, 1);
    EXPECT_EQ(ctl("bridge delete 02:a0:f1:00:00:07 eth9").status, 5);
    for (const std::string mac : {"02:a0:f1:00:00", "02:a0:f1:00:00:0g", "2:a0:f1:00:00:007"})
        EXPECT_EQ(ctl("bridge delete " + mac + " eth0").status, 2) << mac;
    EXPECT_EQ(ctl("bridge fdb eth0").status, 3);
    EXPECT_EQ(ctl("bridge ports br9").status, 3);
}

TEST_F(ZorvctlStatus, PortalsAnswerQuestions)
{
    EXPECT_EQ(ctl("portal list").status, 3);
    file("/var/run/guest/portal/hotel/authorized", "aa:bb\ncc:dd\n");
    file("/var/run/guest/portal/hotel/vlans", "10,20");
    EXPECT_EQ(ctl("portal list --json").output,
              R"({"portals":[{"name":"hotel","authorized":["aa:bb","cc:dd"],"devnames":null,)"
              R"("vlans":["10","20"]}]})"
              "\n");
    const struct {
        const char *arguments;
        int status;
        const char *output;
    } rows[] = {
        {"auth hotel cc:dd", 0, "yes\n"},
        {"auth hotel c:dd", 1, "no\n"},
        {"auth motel cc:dd", 1, ""},
        {"find --vlan 20", 0, "hotel\n"},
        {"find --vlan 2", 1, ""},
        {"find --device wlan0", 1, ""},
        {"find --name hotel --json", 0, "{\"portal\":\"hotel\"}\n"},
        {"find", 2, ""},
        {"find --vlan 20 --name hotel", 2, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = ctl(std::string("portal ") + row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.output, row.output);
    }
}

TEST_F(ZorvctlStatus, ACommandRunsUnderALock)
{
    kernel_proc();
    EXPECT_EQ(ctl("lock report -- true").status, 3);
    must_run("mkdir /var/run/report");
    const Outcome seen = ctl("lock report -- sh -c 'echo $PPID; zorvctl lock status; exit 7'");
    EXPECT_EQ(seen.status, 7);
    const std::string holder = seen.output.substr(0, seen.output.find('\n'));
    EXPECT_THAT(seen.output,
                testing::ContainsRegex("/var/run/report +held +" + holder + "  zorvctl"));
    EXPECT_THAT(seen.output, HasSubstr("free, no such path"));
    EXPECT_THAT(ctl("lock status").output, testing::ContainsRegex("/var/run/report +free"));

    const Outcome json = ctl("--json lock inform -- sh -c 'echo aside; kill -TERM $$'");
    EXPECT_EQ(json.status, 128 + 15);
    EXPECT_EQ(json.output, "{\"lock\":\"inform\",\"path\":\"/var/run/inform-profile.lock\","
                           "\"exit_status\":143}\n");
    EXPECT_EQ(json.errors, "aside\n");
    EXPECT_EQ(ctl("lock inform -- no-such-command").status, 5);
    EXPECT_EQ(ctl("lock inform").status, 2);
}

TEST_F(ZorvctlStatus, ALockThatIsHeldIsRefused)
{
    const int other = open("/var/run/inform-profile.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    const Outcome refused = ctl("lock inform -- true"); // after eleven seconds
    EXPECT_EQ(refused.status, 4);
    EXPECT_THAT(refused.errors, HasSubstr("couldn't lock /var/run/inform-profile.lock"));
    close(other);
}
