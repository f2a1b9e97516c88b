

#include "support/device.h"

constexpr char kScript[] = "/etc/syswrapper.sh";
const std::string kLog = "[debug] libzorv_exec.syswrapper_impl(): ";

static void run_alone(const char *program)
{
    char *const vector[] = {const_cast<char *>(program), nullptr};
    forkexec(vector);
}

using Syswrapper = Device;

TEST_F(Syswrapper, RunsTheFirst48ArgumentsAndSaysSoFrom48On)
{
    libzorv_log_level = 8;
    script("/usr/etc/syswrapper.sh",
           "#!/bin/sh\necho $0 $# \"$1|$2\" $(eval echo \\${$#}) >/tmp/run\n");
    script(kScript, ""); // not to be read, so the second one is taken
    must_run("chmod 0 /etc/syswrapper.sh");
    unprivileged();
    const std::string run = kLog + "[EXEC] /usr/etc/syswrapper.sh set";
    const std::string many = kLog + "[ERROR] too many arguments for syswrapper, 'set' skipped!";
    const char *const x = "x", *const none = nullptr;
    for (const char *const last : {none, x}) {
        syswrapper_impl(1, "set", "* *", x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x,
                        x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x,
                        "47", last, "49", nullptr);
        EXPECT_EQ(read("/tmp/run"), std::string("/usr/etc/syswrapper.sh ") +
                                        (last ? "49 set|* * x\n" : "48 set|* * 47\n"));
    }
    EXPECT_THAT(logged(), ElementsAre(run, many, run));
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

    const pid_t other = fork(); // a child that ends first is reaped in place of the program
    if (other == 0)
        _exit(0);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT);
    run_alone(kScript);
    EXPECT_EQ(waitpid(other, nullptr, WNOHANG), -1);
    const pid_t program = std::stoi(read("/tmp/started"));
    EXPECT_EQ(waitpid(program, nullptr, WNOHANG), 0);

    // Who reaps does not matter, nor another child that goes on: the FIFO's reader, for good.
    for (const sighandler_t handler :
         {SIG_IGN, sighandler_t([](int) { waitpid(-1, nullptr, WNOHANG); })}) {
        signal(SIGCHLD, handler);
        run_alone("/bin/true");
        EXPECT_EQ(kill(program, 0), 0);
    }
}

TEST_F(Syswrapper, OnlyASignalIsReportedAndOnlyForkexecFlushesStreams)
{
    libzorv_log_level = 8;
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

    script(kScript, "#!/bin/sh\necho -n $$ >/tmp/pid\n");
    start_syslog();
    syswrapper_impl(1, "set", nullptr); // the line is the child's
    EXPECT_THAT(syslogged(), HasSubstr("[" + read("/tmp/pid") + "]: libzorv_exec."));
}
