#include <zorv/exec.h>

#include <string>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"

namespace {

constexpr char kScript[] = "/etc/syswrapper.sh";
constexpr char kRecorder[] = "#!/bin/sh\nprintf '%s|' \"$0\" \"$@\" >/tmp/run\n";
const std::string kLog = "[debug] libzorv_exec.syswrapper_impl(): ";
const std::string kExec = kLog + "[EXEC] /etc/syswrapper.sh set";

void run_alone(const char *program)
{
    char *const vector[] = {const_cast<char *>(program), nullptr};
    forkexec(vector);
}

class Syswrapper : public Device {
protected:
    void SetUp() override { libzorv_log_level = 8; }
};

TEST_F(Syswrapper, TakesTheFirstScriptThatCanBeRead)
{
    syswrapper_impl(1, "set", "a", nullptr);
    EXPECT_THAT(logged(), ElementsAre(kLog + "[ERROR] unable to locate syswrapper.sh, 'set' "
                                             "skipped!"));
    libzorv_log_level = 16;
    script("/usr/etc/syswrapper.sh", kRecorder);
    syswrapper_impl(1, "set", "", "two words", "*", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/usr/etc/syswrapper.sh|set||two words|*|");
    EXPECT_THAT(logged(), ElementsAre(kLog + "syswrapper to use: /usr/etc/syswrapper.sh",
                                      kLog + "[EXEC] /usr/etc/syswrapper.sh set"));
    script(kScript, kRecorder);
    chmod(kScript, 0);
    unprivileged();
    syswrapper_impl(1, nullptr, nullptr);
    syswrapper_impl(1, "get", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/usr/etc/syswrapper.sh|get|");
    chmod(kScript, 0500);
    syswrapper_impl(1, "set", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/etc/syswrapper.sh|set|");
}

TEST_F(Syswrapper, RunsTheFirst48ArgumentsAndSaysSoFrom48On)
{
    script(kScript, "#!/bin/sh\necho $# $(eval echo \\${$#}) >/tmp/run\n");
    const std::string many = kLog + "[ERROR] too many arguments for syswrapper, 'set' skipped!";
    const char *const x = "x", *const none = nullptr;
    for (const char *const last : {none, x}) {
        syswrapper_impl(1, "set", x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x,
                        x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x,
                        "47", last, "49", none);
        EXPECT_EQ(read("/tmp/run"), last ? "49 x\n" : "48 47\n"); // "set" is the first
    }
    EXPECT_THAT(logged(), ElementsAre(kExec, many, kExec));
}

TEST_F(Syswrapper, DetachedScriptOutlivesTheCallAsAChildOfInit)
{
    kernel_proc();
    // A script that says who it is, waits for a word, and hands it on.
    must_run("mkfifo /tmp/started /tmp/go /tmp/done");
    script(kScript, "#!/bin/sh\necho $$ >/tmp/started\n"
                    "read word </tmp/go\necho $word >/tmp/done\n");
    syswrapper_impl(0, "reload", nullptr);
    EXPECT_EQ(wait(nullptr), -1); // no child
    const auto pid = std::to_string(std::stoi(read("/tmp/started")));
    EXPECT_THAT(read("/proc/" + pid + "/status"), HasSubstr("\nPPid:\t1\n"));
    file("/tmp/go", "on\n");
    EXPECT_EQ(read("/tmp/done"), "on\n");
    EXPECT_THAT(logged(), IsEmpty()); // a reload is not logged

    const pid_t other = fork(); // a child that ends first is reaped in place of the program
    if (other == 0)
        _exit(0);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT);
    run_alone(kScript);
    EXPECT_EQ(waitpid(other, nullptr, WNOHANG), -1);
    const pid_t program = std::stoi(read("/tmp/started"));
    EXPECT_EQ(waitpid(program, nullptr, WNOHANG), 0);
    file("/tmp/go", "on\n");
    EXPECT_EQ(read("/tmp/done"), "on\n");
}

TEST_F(Syswrapper, OnlyASignalIsReportedAndOnlyForkexecFlushesStreams)
{
    kernel_proc(); // exit() runs the leak check of a sanitizer, which needs it
    for (const auto text :
         {"#!/bin/sh\nexit 3\n", "#!/bin/sh\nkill -KILL $$\n", "#!/no/such/interpreter\n"}) {
        script(kScript, text);
        syswrapper_impl(1, "reload", nullptr);
        run_alone(kScript);
        EXPECT_EQ(wait(nullptr), -1); // no child is left
    }
    EXPECT_THAT(logged(), ElementsAre(kLog + "[ERROR] exit abnormally. code: 0",
                                      "[debug] libzorv_exec.forkexec(): [ERROR] exit abnormally. "
                                      "code: 0"));
    FILE *const stream = fopen("/tmp/words", "we");
    fputs("last words\n", stream);
    syswrapper_impl(1, "reload", nullptr); // its interpreter is not there, still
    run_alone(nullptr);
    forkexec(nullptr);
    EXPECT_EQ(read("/tmp/words"), "");
    run_alone("/no/such/program");
    EXPECT_EQ(read("/tmp/words"), "last words\n");
    fclose(stream);
}

} // namespace
