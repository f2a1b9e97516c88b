// The daemon of the guide, beside another unit of the site.
#include <fstream>

#include "protocol/appliance.h"
#include "support/device.h"

namespace {

using testing::MatchesRegex;

std::string first_line(const std::string &path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

using FirstDaemon = Device;

} // namespace

TEST_F(FirstDaemon, AsksAnswersFollowsItsNameAndEnds)
{
    file("/tmp/system.cfg", "system.name=attic\n");
    script("/etc/syswrapper.sh", "#!/bin/sh\necho \"$*\" >>/tmp/script\n");
    must_run("mkfifo /tmp/pid /tmp/status");
    make_switch();
    const Appliance attic({"attic", "192.0.2.11", "02a0f1000011"});
    const Appliance barn({"barn", "192.0.2.12", "02a0f1000012"});
    ASSERT_EQ(barn.order("init 1"), "0");

    attic.order("run ln -s /run/kernel/self /proc/self");
    attic.order("run (" FIRST_DAEMON
                " 2>/tmp/log & echo $! >/tmp/pid; wait $!; echo $? >/tmp/status)"
                " >/dev/null 2>&1 &");
    const std::string pid = first_line("/tmp/pid");
    attic.order("run ln -s /run/kernel/" + pid + " /proc"); // a leak would be found there
    EXPECT_THAT(barn.report(), MatchesRegex("B 6 0 [0-9]+ 02a0f1000011 who is there"));

    barn.order("sequence 7");
    barn.order("send 6 0 nobody asks");
    barn.order("sequence 8");
    barn.order("send 6 0 who is there");
    EXPECT_THAT(barn.report(), MatchesRegex("B 6 0 [0-9]+ 02a0f1000011 I am attic"));

    file("/tmp/system.cfg", "system.name=loft $(reboot)\n");
    must_run("kill -HUP " + pid);
    EXPECT_THAT(barn.report(), MatchesRegex("B 6 0 [0-9]+ 02a0f1000011 from now on I am loft .*"));
    EXPECT_EQ(read("/tmp/script"), "set-hostname loft $(reboot)\n");

    must_run("kill -TERM " + pid);
    EXPECT_EQ(first_line("/tmp/status"), "0") << read("/tmp/log");
    EXPECT_THAT(read("/tmp/log"), testing::HasSubstr("[info ] greeter.on_greeting(): 12 bytes"));
}
