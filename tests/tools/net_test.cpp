#include <string>

#include "support/device.h"

using testing::EndsWith;
using testing::HasSubstr;

namespace {

class ZorvctlNet : public Device {
protected:
    ZorvctlNet() { kernel_proc(); } // for the sanitizers of zorvctl

    static Outcome zorvctl(const std::string &arguments) { return run(ZORVCTL " " + arguments); }

    // The first line of the output, and the exit status.
    static std::string answer(const std::string &arguments)
    {
        const Outcome outcome = zorvctl(arguments);
        return outcome.output.substr(0, outcome.output.find('\n')) + " " +
               std::to_string(outcome.status);
    }
};

} // namespace

TEST_F(ZorvctlNet, UrlShowsPartsAddressAndEncodedText)
{
    EXPECT_EQ(answer("--json url parse HTTPS://u@[fe80::1]:8080/a?b"),
              R"({"url":"https://u@[fe80::1]:8080/a?b","scheme":"https","userinfo":"u",)"
              R"("host":"fe80::1","port":8080,"path":"/a?b","https":true,"ipv6":true} 0)");
    EXPECT_THAT(zorvctl("url parse myhost").output, HasSubstr("userinfo  -\n"));
    EXPECT_EQ(
        answer("--json url parse ftp://myhost"),
        R"({"error":{"code":"invalid","message":"ftp://myhost: not a URL of a known scheme"}} 1)");
    EXPECT_EQ(answer("url encode 'a b&c'"), "a+b%26c 0");

    file("/etc/host.conf", "multi on\n");
    file("/etc/hosts", "127.0.0.5 inform\n127.0.0.6 inform\n2001:db8::6 inform\n");
    EXPECT_EQ(answer("--json url resolve inform"),
              R"({"host":"inform","address":"127.0.0.6","port":80} 0)");
    EXPECT_EQ(answer("url resolve --ipv6 inform"), "2001:db8::6 0");
    EXPECT_THAT(answer("--json url resolve nowhere.invalid"), HasSubstr(R"("code":"network")"));
    EXPECT_EQ(zorvctl("url resolve nowhere.invalid").status, 5);
}

TEST_F(ZorvctlNet, JsonGetFollowsKeysAndNumbers)
{
    file("/tmp/a.json", R"({"board":{"ports":[{"name":"lan 1"},{"name":"0x1f"}]},"up":true})");
    EXPECT_EQ(answer("json get /tmp/a.json board ports 0 name"), "lan 1 0");
    EXPECT_EQ(answer("json get /tmp/a.json board ports 1 name --int"), "31 0");
    EXPECT_EQ(answer("--json json get /tmp/a.json board ports 1"),
              R"({"file":"/tmp/a.json","value":{"name":"0x1f"}} 0)");
    EXPECT_EQ(answer("json get /tmp/a.json up"), "true 0");
    EXPECT_EQ(answer("json get /tmp/a.json board ports 0 name --int"), " 1");
    for (const char *const keys :
         {"board ports 2", "board ports +0", "board ports 0x0", "up x", ""})
        EXPECT_EQ(zorvctl(std::string("json get /tmp/a.json ") + keys).status, keys[0] ? 1 : 0)
            << keys;
    file("/tmp/a.json", "{\n\"a\":}");
    EXPECT_THAT(zorvctl("json get /tmp/a.json a").errors, HasSubstr("/tmp/a.json:2: "));
    EXPECT_EQ(zorvctl("json get /tmp/a.json a").status, 5);
    EXPECT_EQ(zorvctl("json get /tmp/none a").status, 5);
}

TEST_F(ZorvctlNet, IfaceShowsInterfacesAndTheUplink)
{
    must_run("ip link add eth0 type veth peer name eth1 && ip addr add 192.0.2.7/24 dev eth0");
    EXPECT_THAT(answer("--json iface show eth0"),
                EndsWith(R"("up":false,"address":"192.0.2.7"}]} 0)"));
    EXPECT_THAT(zorvctl("iface show").output, HasSubstr("127.0.0.1"));
    EXPECT_EQ(answer("iface up lo"), "yes 0");
    EXPECT_EQ(answer("iface up eth0"), "no 1");
    const Outcome unknown = zorvctl("iface up eth9");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.errors, "zorvctl: eth9: no such interface\n");

    EXPECT_THAT(answer("--json iface uplink"),
                testing::StartsWith(R"({"state":"none","device":null,"wireless":"none"} 1)"));
    must_run("ip link set eth1 up");
    file("/var/run/system.uplink", "");
    EXPECT_EQ(answer("--json iface uplink"),
              R"({"state":"connected","device":"eth1","wireless":"none"} 0)");
    file("/var/run/system.uplink", "down\n");
    EXPECT_EQ(answer("--json iface uplink"),
              R"({"state":"down","device":null,"wireless":"down"} 1)");
}
