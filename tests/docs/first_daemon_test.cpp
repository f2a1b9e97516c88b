// The daemon of the guide, beside another unit of the site.
#include "protocol/peer.h"

using FirstDaemon = Device;
using testing::MatchesRegex;

TEST_F(FirstDaemon, AsksAnswersFollowsItsNameAndEnds)
{
    file("/tmp/system.cfg", "system.name=attic\n");
    script("/etc/syswrapper.sh", "#!/bin/sh\necho \"$*\" >>/tmp/script\n");
    must_run("mkfifo /tmp/pid /tmp/status");
    start_peer();
    kernel_processes(); // a leak would be found there
    must_run("(" FIRST_DAEMON " 2>/tmp/log & echo $! >/tmp/pid; wait $!; echo $? >/tmp/status)"
             " >/dev/null 2>&1 &");
    const std::string pid = read("/tmp/pid");
    EXPECT_THAT(next_message(), MatchesRegex("6 0 [0-9]+ 02a0f1000007 who is there"));

    send_to_site(peer_message("nobody asks", 6, 7));
    send_to_site(peer_message("who is there", 6, 8));
    EXPECT_THAT(next_message(), MatchesRegex("6 0 [0-9]+ 02a0f1000007 I am attic"));

    file("/tmp/system.cfg", "system.name=loft $(reboot)\n");
    must_run("kill -HUP " + pid);
    EXPECT_THAT(next_message(), MatchesRegex("6 0 [0-9]+ 02a0f1000007 from now on I am loft .*"));
    EXPECT_EQ(read("/tmp/script"), "set-hostname loft $(reboot)\n");

    must_run("kill -TERM " + pid);
    EXPECT_EQ(read("/tmp/status"), "0\n") << read("/tmp/log");
    EXPECT_THAT(read("/tmp/log"), testing::HasSubstr("[info ] greeter.on_greeting(): 12 bytes"));
}
