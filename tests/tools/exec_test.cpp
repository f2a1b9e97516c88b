#include <sys/stat.h>

#include "tools/zorvctl.h"

namespace {

using ZorvctlExec = Zorvctl;

constexpr char kScript[] = "/etc/syswrapper.sh";

TEST_F(ZorvctlExec, ExecRunHandsOverTheArgumentsAndTheOutput)
{
    script(kScript, "#!/bin/sh\nprintf '<%s>' \"$@\"\n");
    EXPECT_EQ(ctl("exec run set -- 'a b' --json").output, "<set><a b><--json>");
    const Outcome json = ctl("--json exec run set");
    EXPECT_EQ(json.output,
              "{\"script\":\"/etc/syswrapper.sh\",\"word\":\"set\",\"waited\":true}\n");
    EXPECT_EQ(json.errors, "<set>");

    mkfifo("/tmp/go", 0600);
    mkfifo("/tmp/done", 0600);
    script(kScript, "#!/bin/sh\nread word </tmp/go\necho $word >/tmp/done\n");
    expect(0, "", "exec run --no-wait set");
    file("/tmp/go", "on\n");
    EXPECT_EQ(read("/tmp/done"), "on\n");
}

TEST_F(ZorvctlExec, ExecExplainShowsWhatWouldRun)
{
    for (const char *command : {"exec run set", "exec explain set"})
        expect(3, "neither /etc/syswrapper.sh nor /usr/etc/syswrapper.sh can be read\n", command);
    expect(3, "{\"code\":\"unavailable\",", "exec explain --json set");

    file("/usr/etc/syswrapper.sh", "");
    EXPECT_EQ(ctl("exec explain reload a").output, "script      /usr/etc/syswrapper.sh\n"
                                                   "executable  no\n"
                                                   "logged      no\n"
                                                   "too_many    no\n"
                                                   "SLOT  TEXT                    PASSED\n"
                                                   "   0  /usr/etc/syswrapper.sh  yes\n"
                                                   "   1  reload                  yes\n"
                                                   "   2  a                       yes\n");
    expect(0, "too_many    yes\n", "exec explain set $(seq 49)");
    expect(0,
           "  49  48                      yes\n"
           "  50  49                      no\n",
           "exec explain set $(seq 49)");
}

TEST_F(ZorvctlExec, CapturePrintsWithinTheLimit)
{
    EXPECT_EQ(ctl("capture 'seq 3; exit 3'").output, "1\n2\n3\n");
    EXPECT_EQ(ctl("capture --max 4 'yes'").output, "y\ny");
    expect(0, R"({"command":"seq 3","output":"1\n2\n3\n","length":6,"full":false})",
           "capture --json --max 9 'seq 3'");
    expect(0, "'exit 3' returned rc=768", "capture -v 'exit 3'");

    // One descriptor is free, a pipe wants two. A leak check would want some of its own.
    const Outcome failed =
        run("exec 3<&-; ulimit -n 4; ASAN_OPTIONS=detect_leaks=0 zorvctl capture true");
    EXPECT_EQ(failed.status, 5);
    EXPECT_THAT(failed.errors, testing::HasSubstr("open failed on 'true': Too many open files"));
}

} // namespace
