#include <string>

#include <sys/stat.h>

#include "support/device.h"

namespace {

class ZorvctlExec : public Device {
protected:
    void SetUp() override { kernel_proc(); } // for the sanitizers of zorvctl
};

constexpr char kScript[] = "/etc/syswrapper.sh";

Device::Outcome zorvctl(const std::string &arguments, const std::string &before = "")
{
    return Device::run(before + ZORVCTL " " + arguments);
}

TEST_F(ZorvctlExec, ExecRunHandsOverTheArgumentsAndTheOutput)
{
    script(kScript, "#!/bin/sh\nprintf '<%s>' \"$@\"\n");
    EXPECT_EQ(zorvctl("exec run set -- 'a b' --json").output, "<set><a b><--json>");

    const Outcome json = zorvctl("--json exec run set");
    EXPECT_EQ(json.output,
              "{\"script\":\"/etc/syswrapper.sh\",\"word\":\"set\",\"waited\":true}\n");
    EXPECT_EQ(json.errors, "<set>");

    mkfifo("/tmp/go", 0600);
    mkfifo("/tmp/done", 0600);
    script(kScript, "#!/bin/sh\nread word </tmp/go\necho $word >/tmp/done\n");
    EXPECT_EQ(zorvctl("exec run --no-wait set").status, 0);
    file("/tmp/go", "on\n");
    EXPECT_EQ(read("/tmp/done"), "on\n");
}

TEST_F(ZorvctlExec, ExecExplainShowsWhatWouldRun)
{
    constexpr char kMissing[] = "neither /etc/syswrapper.sh nor /usr/etc/syswrapper.sh can be read";
    for (const char *verb : {"run", "explain"}) {
        const Outcome text = zorvctl(std::string("exec ") + verb + " set");
        EXPECT_EQ(text.status, 3);
        EXPECT_EQ(text.errors, std::string("zorvctl: ") + kMissing + "\n");
    }
    const Outcome json = zorvctl("exec explain --json set");
    EXPECT_EQ(json.status, 3);
    EXPECT_EQ(json.output, std::string("{\"error\":{\"code\":\"unavailable\",\"message\":\"") +
                               kMissing + "\"}}\n");

    file("/usr/etc/syswrapper.sh", "");
    EXPECT_EQ(zorvctl("exec explain reload a").output, "script      /usr/etc/syswrapper.sh\n"
                                                       "executable  no\n"
                                                       "logged      no\n"
                                                       "too_many    no\n"
                                                       "SLOT  TEXT                    PASSED\n"
                                                       "   0  /usr/etc/syswrapper.sh  yes\n"
                                                       "   1  reload                  yes\n"
                                                       "   2  a                       yes\n");

    const std::string many = zorvctl("exec explain set $(seq 49)").output;
    EXPECT_THAT(many, testing::HasSubstr("too_many    yes\n"));
    EXPECT_THAT(many, testing::HasSubstr("  49  48                      yes\n"
                                         "  50  49                      no\n"));
}

TEST_F(ZorvctlExec, CapturePrintsWithinTheLimit)
{
    EXPECT_EQ(zorvctl("capture 'seq 3; exit 3'").output, "1\n2\n3\n");
    EXPECT_EQ(zorvctl("capture --max 4 'yes'").output, "y\ny");
    EXPECT_EQ(zorvctl("capture --json --max 9 'seq 3'").output,
              "{\"command\":\"seq 3\",\"output\":\"1\\n2\\n3\\n\",\"length\":6,\"full\":false}\n");
    EXPECT_THAT(zorvctl("capture -v 'exit 3'").errors,
                testing::HasSubstr("'exit 3' returned rc=768"));

    // One descriptor is free, a pipe wants two. A leak check would want some of its own.
    const Outcome failed =
        zorvctl("capture true", "exec 3<&-; ulimit -n 4; ASAN_OPTIONS=detect_leaks=0 ");
    EXPECT_EQ(failed.status, 5);
    EXPECT_THAT(failed.errors, testing::HasSubstr("open failed on 'true': Too many open files"));
}

} // namespace
