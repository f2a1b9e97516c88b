#include <zorv/exec.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/device.h"

namespace {

constexpr char kScript[] = "/etc/syswrapper.sh";
constexpr char kFallback[] = "/usr/etc/syswrapper.sh";
constexpr char kRecorder[] = "#!/bin/sh\nprintf '%s|' \"$0\" \"$@\" >/tmp/run\n";
constexpr char kTooMany[] = "[debug] libzorv_exec.syswrapper_impl(): [ERROR] too many arguments "
                            "for syswrapper, 'set' skipped!";
constexpr char kExec[] = "[debug] libzorv_exec.syswrapper_impl(): [EXEC] /etc/syswrapper.sh set";

int g_forks_that_work = -1; // those that follow fail; negative: all work

// Says who it is, waits for a word, and hands it on.
void install_slow_script()
{
    for (const char *pipe : {"/tmp/started", "/tmp/go", "/tmp/done"})
        mkfifo(pipe, 0600);
    Device::script(kScript, "#!/bin/sh\necho $$ >/tmp/started\n"
                            "read word </tmp/go\necho $word >/tmp/done\n");
}

bool has_children()
{
    siginfo_t info;
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

class Syswrapper : public Device {
protected:
    void SetUp() override { libzorv_log_level = 8; }
};

} // namespace

// The library's calls end up here, too.
extern "C" pid_t fork()
{
    if (g_forks_that_work == 0) {
        errno = EAGAIN;
        return -1;
    }
    if (g_forks_that_work > 0)
        --g_forks_that_work;
    static const auto real = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
    return real();
}

namespace {

TEST_F(Syswrapper, TakesTheFirstScriptThatCanBeRead)
{
    libzorv_log_level = 16;
    syswrapper_impl(1, "set", "a", nullptr);
    EXPECT_THAT(logged(), ElementsAre("[debug] libzorv_exec.syswrapper_impl(): [ERROR] unable to "
                                      "locate syswrapper.sh, 'set' skipped!"));

    script(kFallback, kRecorder);
    syswrapper_impl(1, "set", "", "two words", "*", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/usr/etc/syswrapper.sh|set||two words|*|");
    EXPECT_THAT(logged(), ElementsAre("[debug] libzorv_exec.syswrapper_impl(): syswrapper to use: "
                                      "/usr/etc/syswrapper.sh",
                                      "[debug] libzorv_exec.syswrapper_impl(): [EXEC] "
                                      "/usr/etc/syswrapper.sh set"));

    script(kScript, kRecorder);
    syswrapper_impl(1, "set", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/etc/syswrapper.sh|set|");

    chmod(kScript, 0);
    unprivileged();
    syswrapper_impl(1, nullptr, nullptr);
    syswrapper_impl(1, "get", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/usr/etc/syswrapper.sh|get|");
}

template <size_t... Slot>
void call(const std::array<const char *, sizeof...(Slot)> &words, std::index_sequence<Slot...>)
{
    syswrapper_impl(1, "set", words[Slot]..., nullptr);
}

TEST_F(Syswrapper, RunsTheFirst48ArgumentsAndSaysSoFrom48On)
{
    script(kScript, "#!/bin/sh\necho $# $(eval echo \\${$#}) >/tmp/run\n");
    std::array<std::string, 49> texts;
    std::array<const char *, 49> words = {};
    for (size_t count = 1; count <= words.size(); ++count) {
        texts[count - 1] = std::to_string(count);
        words[count - 1] = texts[count - 1].c_str();
        if (count < 47)
            continue;
        SCOPED_TRACE(count);
        call(words, std::make_index_sequence<49>());
        EXPECT_EQ(read("/tmp/run"), count == 47 ? "48 47\n" : "49 48\n"); // "set" is the first
        if (count == 47)
            EXPECT_THAT(logged(), ElementsAre(kExec));
        else
            EXPECT_THAT(logged(), ElementsAre(kTooMany, kExec));
    }
}

TEST_F(Syswrapper, DetachedScriptOutlivesTheCallAsAChildOfInit)
{
    kernel_proc();
    install_slow_script();
    syswrapper_impl(0, "reload", nullptr);
    EXPECT_FALSE(has_children());
    const auto pid = std::to_string(std::stoi(read("/tmp/started")));
    EXPECT_THAT(read("/proc/" + pid + "/status"), testing::HasSubstr("\nPPid:\t1\n"));
    file("/tmp/go", "on\n");
    EXPECT_EQ(read("/tmp/done"), "on\n");
    EXPECT_THAT(logged(), IsEmpty()); // a reload is not logged
}

TEST_F(Syswrapper, OnlyASignalIsReported)
{
    constexpr struct {
        const char *script;
        bool reported;
    } kRows[] = {
        {"#!/bin/sh\nexit 3\n", false},
        {"#!/bin/sh\nkill -KILL $$\n", true},
        {"#!/no/such/interpreter\n", false},
    };
    kernel_proc(); // exit() runs the leak check of a sanitizer, which needs it
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.script);
        script(kScript, row.script);
        syswrapper_impl(1, "reload", nullptr);
        char path[] = "/etc/syswrapper.sh";
        char *const vector[] = {path, nullptr};
        forkexec(vector);
        if (row.reported)
            EXPECT_THAT(logged(), ElementsAre("[debug] libzorv_exec.syswrapper_impl(): [ERROR] "
                                              "exit abnormally. code: 0",
                                              "[debug] libzorv_exec.forkexec(): [ERROR] exit "
                                              "abnormally. code: 0"));
        else
            EXPECT_THAT(logged(), IsEmpty());
        EXPECT_FALSE(has_children());
    }
}

TEST_F(Syswrapper, FailedForksAreReported)
{
    libzorv_log_level = 0; // perror() speaks all the same
    script(kScript, kRecorder);
    g_forks_that_work = 0;
    syswrapper_impl(1, "reload", nullptr);
    EXPECT_THAT(logged(), ElementsAre("Fork Failed!!", ": Resource temporarily unavailable"));
    EXPECT_FALSE(exists("/tmp/run"));

    libzorv_log_level = 8;
    char path[] = "/bin/true";
    char *const vector[] = {path, nullptr};
    forkexec(vector);
    EXPECT_THAT(logged(), ElementsAre("Fork Failed!!", ": Resource temporarily unavailable",
                                      "[debug] libzorv_exec.forkexec(): [ERROR] fork failed"));

    g_forks_that_work = 1; // detaching fails: the caller waits
    syswrapper_impl(0, "set", nullptr);
    EXPECT_EQ(read("/tmp/run"), "/etc/syswrapper.sh|set|");
    EXPECT_THAT(logged(),
                ElementsAre(kExec, "Fork Failed!!", ": Resource temporarily unavailable",
                            "[debug] libzorv_exec.syswrapper_impl(): [ERROR] fork failed"));
}

TEST_F(Syswrapper, AnotherChildThatEndsFirstIsReapedInPlaceOfTheProgram)
{
    install_slow_script();
    const pid_t other = fork();
    if (other == 0)
        _exit(0);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT);

    char path[] = "/etc/syswrapper.sh";
    char *const vector[] = {path, nullptr};
    forkexec(vector);
    EXPECT_EQ(waitpid(other, nullptr, WNOHANG), -1);
    const pid_t program = std::stoi(read("/tmp/started"));
    file("/tmp/go", "on\n");
    EXPECT_EQ(read("/tmp/done"), "on\n");
    EXPECT_EQ(waitpid(program, nullptr, 0), program);
}

TEST_F(Syswrapper, OnlyForkexecFlushesTheBuffersOfAProgramThatCannotStart)
{
    kernel_proc(); // exit() runs the leak check of a sanitizer, which needs it
    script(kScript, "#!/no/such/interpreter\n");
    FILE *stream = fopen("/tmp/words", "we");
    ASSERT_NE(stream, nullptr);
    fputs("last words\n", stream);
    syswrapper_impl(1, "set", nullptr);
    EXPECT_EQ(read("/tmp/words"), "");

    char path[] = "/no/such/program";
    char *const vector[] = {path, nullptr};
    forkexec(vector);
    forkexec(vector + 1);
    forkexec(nullptr);
    EXPECT_EQ(read("/tmp/words"), "last words\n");
    fclose(stream);
}

} // namespace
