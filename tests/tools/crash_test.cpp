#include <algorithm>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <utime.h>

#include "telemetry/crash_unit.h"
#include "tools/zorvctl.h"

using testing::AllOf;
using testing::Not;

namespace {

class ZorvctlCrash : public Crash {
protected:
    ZorvctlCrash()
    {
        install_zorvctl();
        kernel_proc(); // for the sanitizers of zorvctl, and to find other processes
    }

    static Outcome crash(const std::string &arguments) { return ctl("crash " + arguments); }

    // A log as the library leaves it, an hour short of that many days old.
    static void add_done(const std::string &name, int days, const char *members, bool marked)
    {
        file(log_of(name), "0123456789");
        file(meta_of(name), R"({"filename":")" + name + R"(","payload":{},)" + members + "}");
        if (marked)
            file(marker_of(name), "");
        const time_t then = time(nullptr) - time_t{days} * 86400 + 3600;
        const utimbuf times = {then, then};
        utime(log_of(name).c_str(), &times);
    }

    // What is in the store, one word a file.
    static std::string files()
    {
        return run("cd /etc/persistent && find . -type f | sort | xargs").output;
    }
};

constexpr char kDelivered[] = R"("sent_to_analytics":true,"sent_to_net":true)";
constexpr char kGivenUp[] = R"("sent_to_analytics":true,"send_attempts":5,"sent_to_net":true)";
constexpr char kUnfinished[] = R"("sent_to_analytics":true)";
constexpr char kWaiting[] = R"("sent_to_analytics":false,"send_attempts":2)";

TEST_F(ZorvctlCrash, StatusTellsWhyNothingIsSent)
{
    add_done("a.tgz", 0, kWaiting, false);
    add_done("b.tgz", 0, kGivenUp, true);
    const Outcome open = crash("status --json");
    EXPECT_EQ(open.status, 0) << open.errors;
    const Json document = loaded(open.output);
    EXPECT_EQ(member(document.get(), "service"), R"("https://crash.dev.zorv.example")");
    EXPECT_EQ(member(document.get(), "environment"), R"("dev")");
    EXPECT_EQ(member(document.get(), "oops"), "false");
    EXPECT_EQ(member(document.get(), "store_size"), "20");
    EXPECT_EQ(member(document.get(), "reasons"),
              R"(["kernel crash: none to report","1 log: to be delivered",)"
              R"("1 log: given up after five attempts"])");
    EXPECT_EQ(member(document.get(), "logs"),
              R"([{"name":"a.tgz","size":10,"state":"prepared","attempts":2,"sent_to_net":false,)"
              R"("marker":false},{"name":"b.tgz","size":10,"state":"given-up","attempts":5,)"
              R"("sent_to_net":true,"marker":true}])");

    file("/run/oops", "BUG\n");
    file("/var/run/last-crashlog.sent", "");
    expect(0, "reported since the last reboot\n", "crash status");
    file("/var/run/system.analytics.mode", "0\n");
    expect(4, "nothing is sent: reporting is off\n", "crash status");
    remove("/var/run/ntp.ready");
    expect(4, "sent: the clock is not set: No such file or directory\n", "crash status");
}

TEST_F(ZorvctlCrash, ADryRunShowsTheReportThatIsThenSent)
{
    file("/run/oops", "BUG passphrase=very-private\n");
    CloudHost host(crash_service());
    const Outcome preview = crash("report --dry-run");
    EXPECT_EQ(preview.status, 0) << preview.errors;
    EXPECT_THAT(host.received(), IsEmpty());
    EXPECT_FALSE(exists("/var/run/report_payload.txt"));
    EXPECT_FALSE(exists("/var/run/last-crashlog.sent"));

    EXPECT_EQ(crash("report").output,
              "reported to https://crash.dev.zorv.example/v1/kernel-crash\n");
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/v1/kernel-crash");
    const Json shown = loaded(preview.output), sent = loaded(requests[0].body);
    for (const char *const moment : {"uptime", "boot_time", "system_time"}) {
        EXPECT_NE(member(shown.get(), moment), "") << moment;
        json_object_del(shown.get(), moment);
        json_object_del(sent.get(), moment);
    }
    EXPECT_TRUE(json_equal(shown.get(), sent.get())) << preview.output << requests[0].body;
    EXPECT_EQ(member(shown.get(), "crash_log"), R"("BUG passphrase=*\n")");

    EXPECT_EQ(crash("report").output, "reported already since the last reboot\n");
    EXPECT_THAT(host.received(), IsEmpty());
}

TEST_F(ZorvctlCrash, AReportThatDoesNotLeaveSaysWhy)
{
    CloudHost host(crash_service({{.path = "/v1/kernel-crash", .status = 503}}));
    expect(1, "the kernel holds no oops", "crash report");
    expect(1, R"({"code":"not-found",)", "crash report --dry-run --json");
    file("/run/oops", "BUG\n");
    expect(5, "", "crash report");
    EXPECT_EQ(host.received().size(), 1U);
    remove("/var/run/ipready.br0");
    expect(4,
           "zorvctl: /var/run/ipready.br0: the bridge has no address: No such file or directory\n",
           "crash report");
    expect(4, R"("source": "oopsdump")", "crash report --dry-run");
    remove("/usr/local/bin/oopsdump");
    expect(3, "", "crash report");
    EXPECT_THAT(host.received(), IsEmpty());
}

TEST_F(ZorvctlCrash, LogsTellsWhatBecameOfEach)
{
    EXPECT_EQ(crash("logs").output, "");
    expect(0, R"({"store":"/etc/persistent/isolation_logs/","size":0,"logs":[]})",
           "crash logs --json");
    EXPECT_FALSE(exists("/etc/persistent"));
    add_done("a.tgz", 0, kDelivered, true);
    add_done("b.tgz", 0, kUnfinished, false);
    add_done("c.tgz", 0, kGivenUp, true);
    add_done("d.tgz", 0, kWaiting, false);
    file(log_of("e.tgz"), "");
    file(log_of("f.tgz"), "1");
    file(meta_of("f.tgz"), "{\"filename\": \"f.t"); // as a full disk leaves it
    file(log_of("g.tgz"), "1");
    file(meta_of("g.tgz"), "{}");
    EXPECT_EQ(crash("logs").output, "NAME   SIZE  STATE       ATTEMPTS  SENT TO NET  MARKER\n"
                                    "a.tgz    10  delivered          0  yes          yes\n"
                                    "b.tgz    10  delivered          0  no           no\n"
                                    "c.tgz    10  given-up           5  yes          yes\n"
                                    "d.tgz    10  prepared           2  no           no\n"
                                    "e.tgz     0  new                0  no           no\n"
                                    "f.tgz     1  new                0  no           no\n"
                                    "g.tgz     1  no-payload         0  no           no\n");
}

TEST_F(ZorvctlCrash, PipesAreNotWaitedFor)
{
    add_done("a.tgz", 0, kDelivered, true);
    must_run("mkfifo " + log_of("pipe.tgz") + " " + meta_of("gone.tgz"));
    remove(meta_of("a.tgz"));
    must_run("mkfifo " + meta_of("a.tgz"));
    const std::string rows = run("timeout 20 " ZORVCTL " crash logs").output;
    EXPECT_THAT(rows, AllOf(HasSubstr("a.tgz"), HasSubstr("new"), Not(HasSubstr("pipe.tgz"))));
    EXPECT_EQ(run("timeout 20 " ZORVCTL " crash prune --keep 0").status, 0);
    EXPECT_FALSE(exists(meta_of("gone.tgz")));
}

TEST_F(ZorvctlCrash, DeliverShowsEachLog)
{
    EXPECT_EQ(crash("deliver").output, "no log to deliver\n");
    add_log("a.tgz", "first\n");
    add_log("b.tgz", "second\n");
    add_done("done.tgz", 0, kDelivered, true);
    remove("/var/run/ntp.ready");
    EXPECT_EQ(crash("deliver").status, 4);
    EXPECT_FALSE(exists(meta_of("a.tgz")));
    file("/var/run/ntp.ready", "");

    CloudHost host(
        crash_service({{.path = "/v1/crash", .status = 500, .times = 1}, {.path = "/v1/crash"}}));
    const Outcome first = crash("deliver --uplink QX-4");
    EXPECT_EQ(first.status, 5);
    EXPECT_THAT(first.output, HasSubstr("tgz  failed, attempt 1 of 5\n"));
    EXPECT_THAT(first.output, HasSubstr("tgz  delivered\n"));
    EXPECT_THAT(first.output, Not(HasSubstr("done.tgz")));
    for (const auto &request : host.received())
        EXPECT_EQ(member(request.body, "uplink_model"), "\"QX-4\"");

    const Outcome second = crash("deliver --json");
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(member(second.output, "counts"),
              R"({"delivered":1,"failed":0,"given-up":0,"passed-over":0})");
    EXPECT_EQ(host.received().size(), 1U);

    add_done("last.tgz", 0, R"("sent_to_analytics":false,"send_attempts":4)", false);
    file(log_of("none.tgz"), "1");
    file(meta_of("none.tgz"), "{}");
    remove("/etc/hosts");
    EXPECT_THAT(crash("deliver").output, AllOf(HasSubstr("last.tgz  given up after 5 attempts\n"),
                                               HasSubstr("none.tgz  passed over\n")));
}

TEST_F(ZorvctlCrash, DeliverDrawsABarOnATerminal)
{
    must_run("mkdir -p /dev/pts && mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts && "
             "rm -f /dev/ptmx && ln -s pts/ptmx /dev/ptmx");
    for (const char *const name : {"a.tgz", "b.tgz"})
        add_log(name, name);
    CloudHost host(crash_service());
    const Outcome shown = run("script -qec '" ZORVCTL " crash deliver' /dev/null </dev/null");
    EXPECT_EQ(shown.status, 0) << shown.output;
    EXPECT_THAT(shown.output, HasSubstr("\r\x1b[K[  ] 0/2 "));
    EXPECT_THAT(shown.output, HasSubstr("\r\x1b[K[=>] 1/2 "));
    EXPECT_THAT(shown.output, HasSubstr("\r\x1b[Ka.tgz  delivered\r\n"));
    EXPECT_THAT(shown.output, HasSubstr("\r\x1b[Kb.tgz  delivered\r\n"));
    EXPECT_EQ(host.received().size(), 2U);
}

TEST_F(ZorvctlCrash, LogsAreHandedOutAndFinished)
{
    EXPECT_EQ(crash("next").status, 1);
    const std::string text("\x1f\x8b not \0 an archive", 19);
    file(log_of("a.tgz"), text);
    const Outcome next = crash("next --file /tmp/a.tgz");
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(read("/tmp/a.tgz"), text);
    EXPECT_EQ(member(next.output, "filename"), "\"a.tgz\"");
    EXPECT_EQ(member(next.output, "file_data"), "");
    EXPECT_EQ(crash("next --file /none/a.tgz").status, 5);

    EXPECT_EQ(crash("finish b.tgz").status, 1);
    EXPECT_EQ(crash("finish a.tgz").output, "finished a.tgz\n");
    EXPECT_TRUE(exists(marker_of("a.tgz")));
    EXPECT_EQ(crash("finish a.tgz").errors, "zorvctl: a.tgz: finished before\n");
    EXPECT_EQ(crash("next").status, 1);
    EXPECT_EQ(saves(), 2U);

    must_run("ln -s /none " + log_of("hidden.tgz"));
    EXPECT_EQ(crash("next").status, 5);
}

TEST_F(ZorvctlCrash, DumpsAreReportedUnderFitNames)
{
    const std::string process = " --pid 812 --signal 11 ";
    for (const std::string name : {"'a b'", "'$(id)'", "''", "'a\"b'", "a/b"})
        expect(2, "", std::string("crash dump --name ").append(name).append(process));
    EXPECT_EQ(crash("dump --name hostapd --pid 812").status, 2);
    file("/tmp/core", "bytes");
    CloudHost host(crash_service(
        {{.path = "/v1/crash", .body = R"({"upload_url":"https://crash.dev.zorv.example/up"})"},
         {.path = "/up"}}));
    expect(0, "without the bytes", "crash dump --name hostapd" + process + "/tmp/core");
    file("/var/run/system.analytics.coredump", "1\n");
    EXPECT_EQ(crash("dump --name hostapd --type app --crashes 3" + process + "/tmp/core").output,
              "reported, 5 bytes were offered to the service\n");
    EXPECT_EQ(crash("dump --name wifi0 --type ram").output, "reported\n");
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_EQ(member(requests[0].body, "upload"), "false");
    EXPECT_EQ(member(requests[1].body, "type"), "\"app-crash\"");
    EXPECT_EQ(member(requests[1].body, "number_of_crashes"), "3");
    EXPECT_EQ(requests[2].method + requests[2].body, "PUTbytes");
    EXPECT_EQ(member(requests[3].body, "dump_type"), "\"wifi0\"");
    file("/var/run/system.analytics.mode", "0\n");
    EXPECT_EQ(crash("dump --name wifi0 --type ram").status, 4);
}

TEST_F(ZorvctlCrash, PruneTakesTheOldestThatAreDoneWith)
{
    add_done("a.tgz", 9, kGivenUp, true);
    add_done("b.tgz", 8, kDelivered, true);
    add_done("c.tgz", 1, kDelivered, true);
    add_done("d.tgz", 20, kUnfinished, false);
    add_done("e.tgz", 30, kWaiting, true);
    add_done("f.tgz", 30, kWaiting, false);
    const std::string all = files();
    const struct {
        const char *arguments;
        std::vector<std::string> names;
    } rows[] = {
        {"--keep 2", {"a.tgz"}},
        {"--keep 0", {"a.tgz", "b.tgz", "c.tgz"}},
        {"--keep 2 --unfinished", {"d.tgz", "a.tgz"}},
        {"--max-age 8", {"a.tgz"}},
        {"--max-age 7", {"a.tgz", "b.tgz"}},
        {"--max-size 41", {"a.tgz", "b.tgz"}},
        {"--max-size 40", {"a.tgz", "b.tgz"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Json shown =
            loaded(crash("prune --dry-run --json " + std::string(row.arguments)).output);
        std::vector<std::string> names;
        size_t index;
        const json_t *log;
        json_array_foreach(json_object_get(shown.get(), "removed"), index, log)
            names.emplace_back(json_string_value(json_object_get(log, "name")));
        EXPECT_EQ(names, row.names);
    }
    EXPECT_EQ(crash("prune").status, 2);
    EXPECT_EQ(crash("prune --keep 1 --max-age 1").status, 2);
    EXPECT_EQ(files(), all);

    expect(0,
           "2 of 6 logs, 20 bytes removed\n"
           "1 kept for the local management, which has not finished them\n",
           "crash prune --keep 1");
    EXPECT_EQ(saves(), 1U);
    EXPECT_THAT(files(), AllOf(Not(HasSubstr("a.tgz")), Not(HasSubstr("b.tgz")),
                               HasSubstr("_sent/c.tgz"), HasSubstr("meta/d.tgz")));
    EXPECT_EQ(crash("prune --keep 1").status, 0);
    EXPECT_EQ(saves(), 0U); // flash is not written for nothing
    EXPECT_EQ(crash("prune --keep 0 --unfinished").status, 0);
    EXPECT_EQ(files(), "./isolation_logs/e.tgz ./isolation_logs/f.tgz ./isolation_logs/meta/e.tgz "
                       "./isolation_logs/meta/f.tgz ./isolation_logs_sent/e.tgz\n");
}

TEST_F(ZorvctlCrash, PruneLeavesALogThatIsInWork)
{
    add_done("a.tgz", 2, kDelivered, true);
    add_done("b.tgz", 1, kDelivered, true);
    file(meta_of("killed.tgz"), "{}"); // of a prune that was killed
    file(marker_of("killed.tgz"), "");
    const int meta = open(meta_of("a.tgz").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(meta, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(member(crash("prune --keep 0 --json").output, "in_work"), "1");
    EXPECT_EQ(files(), "./isolation_logs/a.tgz ./isolation_logs/meta/a.tgz "
                       "./isolation_logs_sent/a.tgz\n");
    close(meta);

    // A walk that has read the names holds the directory open.
    add_done("c.tgz", 0, kUnfinished, false);
    const std::string all = files();
    const int walk = open(log_of().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    expect(4, "in use by another process", "crash prune --keep 0 --unfinished");
    EXPECT_EQ(files(), all);
    close(walk);
    EXPECT_EQ(crash("prune --keep 0 --unfinished").status, 0);
    EXPECT_EQ(files(), "\n");
}

TEST_F(ZorvctlCrash, PrunedLogsAreNotDeliveredAgain)
{
    for (int i = 0; i < 30; ++i)
        add_done("done-" + std::to_string(i), i, kUnfinished, false);
    for (int i = 0; i < 10; ++i)
        add_log("new-" + std::to_string(i) + ".tgz", "text " + std::to_string(i));
    CloudHost host(crash_service());
    std::vector<pid_t> processes;
    for (const char *const verb : {"deliver", "deliver", "prune --keep 5 --unfinished",
                                   "prune --keep 3 --unfinished", "deliver"})
        processes.push_back(start([verb] { crash(verb); }));
    for (const pid_t process : processes)
        wait_for(process);
    EXPECT_EQ(crash("prune --keep 2 --unfinished").status, 0);
    std::vector<std::string> texts;
    for (const auto &request : host.received())
        texts.push_back(member(request.body, "crash_log"));
    std::sort(texts.begin(), texts.end());
    std::vector<std::string> expected(10);
    for (size_t i = 0; i < expected.size(); ++i)
        expected[i] = "\"text " + std::to_string(i) + '"';
    EXPECT_EQ(texts, expected);
}

} // namespace
