#include "tools/zorvctl.h"

namespace {

using ZorvctlNet = Zorvctl;

} // namespace

TEST_F(ZorvctlNet, UrlShowsPartsAddressAndEncodedText)
{
    expect(0,
           R"({"url":"https://u@[fe80::1]:8080/a?b","scheme":"https","userinfo":"u",)"
           R"("host":"fe80::1","port":8080,"path":"/a?b","https":true,"ipv6":true})",
           "--json url parse HTTPS://u@[fe80::1]:8080/a?b");
    expect(0, "userinfo  -\n", "url parse myhost");
    expect(1, R"({"code":"invalid","message":"ftp://myhost: not a URL of a known scheme"})",
           "--json url parse ftp://myhost");
    expect(0, "a+b%26c\n", "url encode 'a b&c'");

    file("/etc/host.conf", "multi on\n");
    file("/etc/hosts", "127.0.0.5 inform\n127.0.0.6 inform\n2001:db8::6 inform\n");
    expect(0, R"({"host":"inform","address":"127.0.0.6","port":80})", "--json url resolve inform");
    expect(0, "2001:db8::6\n", "url resolve --ipv6 inform");
    expect(5, R"("code":"network")", "--json url resolve nowhere.invalid");
}

TEST_F(ZorvctlNet, JsonGetFollowsKeysAndNumbers)
{
    file("/tmp/work/a", R"({"board":{"ports":[{"name":"lan 1"},{"name":"0x1f"}]},"up":true})");
    expect(0, "lan 1\n", "json get a board ports 0 name");
    expect(0, "31\n", "json get a board ports 1 name --int");
    expect(0, R"({"file":"a","value":{"name":"0x1f"}})", "--json json get a board ports 1");
    expect(0, "true\n", "json get a up");
    for (const std::string keys :
         {"board ports 0 name --int", "board ports 2", "board ports +0", "board ports 0x0", "up x"})
        expect(1, "", "json get a " + keys);
    expect(0, "{", "json get a");
    file("/tmp/work/a", "{\n\"a\":}");
    expect(5, "a:2: ", "json get a a");
    expect(5, "", "json get none a");
}

TEST_F(ZorvctlNet, IfaceShowsInterfacesAndTheUplink)
{
    must_run("ip link add eth0 type veth peer name eth1 && ip addr add 192.0.2.7/24 dev eth0");
    expect(0, R"("up":false,"address":"192.0.2.7"}]})", "--json iface show eth0");
    expect(0, "127.0.0.1", "iface show");
    expect(0, "yes\n", "iface up lo");
    expect(1, "no\n", "iface up eth0");
    expect(1, "zorvctl: eth9: no such interface\n", "iface up eth9");

    const std::string uplink = "--json iface uplink";
    expect(1, R"({"state":"none","device":null,"wireless":"none"})", uplink);
    must_run("ip link set eth1 up");
    file("/var/run/system.uplink", "");
    expect(0, R"({"state":"connected","device":"eth1","wireless":"none"})", uplink);
    file("/var/run/system.uplink", "down\n");
    expect(1, R"({"state":"down","device":null,"wireless":"down"})", uplink);
}
