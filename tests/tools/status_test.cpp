// What zorvctl says of the running unit: status, bridges, guest portals, locks.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "tools/zorvctl.h"

namespace {

using ZorvctlStatus = ZorvctlUnit;

} // namespace

TEST_F(ZorvctlStatus, EachSourceIsOkOrSaysWhyNot)
{
    expect(0, "/var/run/system.internet       No such file", "status");
    expect(0, "no default route through br0\n", "status");

    kernel_proc();
    make_bridge();
    must_run("ip route add default via 192.0.2.254 dev br0");
    file("/tmp/system.cfg", "ppp.status=enabled\nppp.1.status=enabled\n");
    const std::string json = ctl("status br0 --json").output;
    for (const char *row :
         {R"({"fact":"services","value":"ppp",)", R"({"fact":"address","value":"192.0.2.1",)",
          R"({"fact":"gateway","value":"192.0.2.254","source":"route netlink","state":"ok"})",
          R"({"fact":"main_mac","value":null,)"})
        EXPECT_THAT(json, HasSubstr(row));
    must_run("chmod 777 /tmp/system.cfg");
    expect(0, "permissions 0777: taken for none", "status");
    expect(1, "no such interface", "status br9");
}

TEST_F(ZorvctlStatus, TheBridgeOfTheKernel)
{
    kernel_sys();
    make_bridge();
    must_run("bridge fdb add 02:a0:f1:00:00:07 dev eth0 master dynamic");
    expect(0, "02:a0:f1:00:00:07     1  eth0    no", "bridge fdb");
    expect(0, "   1  eth0    forwarding  ", "bridge ports br0");
    expect(0, R"({"bridge":"br0","mac":"02:a0:f1:00:00:07","port":1,"ifname":"eth0")",
           "bridge lookup 02:A0:F1:00:00:07 --json");
    expect(0, "", "bridge delete 02:a0:f1:00:00:07 eth0");
    expect(1, "", "bridge lookup 02:a0:f1:00:00:07");
    expect(5, "", "bridge delete 02:a0:f1:00:00:07 eth9");
    for (const std::string mac : {"02:a0:f1:00:00", "02:a0:f1:00:00:0g", "2:a0:f1:00:00:007"})
        expect(2, "", "bridge delete " + mac + " eth0");
    expect(3, "", "bridge fdb eth0");
    expect(3, "", "bridge ports br9");
}

TEST_F(ZorvctlStatus, PortalsAnswerQuestions)
{
    expect(3, "", "portal list");
    file("/var/run/guest/portal/hotel/authorized", "aa:bb\ncc:dd\n");
    file("/var/run/guest/portal/hotel/vlans", "10,20");
    expect(0,
           R"({"portals":[{"name":"hotel","authorized":["aa:bb","cc:dd"],"devnames":null,)"
           R"("vlans":["10","20"]}]})",
           "portal list --json");
    expect(0, "yes\n", "portal auth hotel cc:dd");
    expect(1, "no\n", "portal auth hotel c:dd");
    expect(1, "", "portal auth motel cc:dd");
    expect(0, "hotel\n", "portal find --vlan 20");
    expect(1, "", "portal find --device wlan0");
    expect(0, "{\"portal\":\"hotel\"}\n", "portal find --name hotel --json");
    expect(2, "", "portal find");
    expect(2, "", "portal find --vlan 20 --name hotel");
}

TEST_F(ZorvctlStatus, ACommandRunsUnderALock)
{
    kernel_proc();
    expect(3, "", "lock report -- true");
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
    expect(5, "", "lock inform -- no-such-command");
    expect(2, "", "lock inform");
}

TEST_F(ZorvctlStatus, ALockThatIsHeldIsRefused)
{
    const int other = open("/var/run/inform-profile.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    expect(4, "couldn't lock /var/run/inform-profile.lock", "lock inform -- true"); // after 11 s
    close(other);
}
