#include <zorv/crash.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/enter.h"
#include "telemetry/crash_unit.h"

using namespace std::string_literals;

namespace {

constexpr char kText[] = "wlan0: uplink lost passphrase=private\n";
constexpr char kSaves[] = "/run/saves"; // a line each time that the configuration was saved
constexpr char kPayload[] =
    R"("payload":{unit,"type":"vwire_disconnect","uplink_model":"unknown"})";

int g_waited = 0;                      // seconds that the library has slept, of which none pass
std::function<void()> g_while_waiting; // called for each sleep

std::string meta_text(const std::string &delivered, const std::string &rest = "")
{
    return R"({"filename":"a.tgz","sent_to_analytics":)" + delivered + "," + kPayload + rest + "}";
}

std::string report_of(const std::string &text, const std::string &model = "unknown")
{
    return R"(POST crash.dev/v1/crash {unit,"type":"vwire_disconnect","uplink_model":")" + model +
           R"(","crash_log":")" + text + "\"}\n";
}
const std::string kReport = report_of("wlan0: uplink lost passphrase=*\\n");

class CrashStore : public Crash {
protected:
    // Has the logs delivered. Returns the requests, and "saved" when the configuration was.
    std::string delivered()
    {
        remove(kSaves);
        EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
        return received() + (exists(kSaves) ? "saved" : "");
    }

    // Runs a part of the test in a process of its own.
    static pid_t start(const std::function<void()> &part)
    {
        const auto process = static_cast<pid_t>(check(fork(), "fork"));
        if (process == 0) {
            part();
            _exit(0);
        }
        return process;
    }

    static int lock(const std::string &path)
    {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        check(flock(fd, LOCK_EX | LOCK_NB), path);
        return fd;
    }

    static void fill_store(int count)
    {
        must_run("mkdir -p /run/packing " + log_of() + " && cd /run/packing && for i in $(seq " +
                 std::to_string(count) + "); do echo text $i >log.txt; tar -czf " +
                 log_of("log-$i.tgz") + " log.txt || exit; done");
    }

    // That the service has each of so many logs, and how often at most.
    void expect_delivered(size_t count, int most)
    {
        std::map<std::string, int> counts;
        for (const auto &request : host_->received())
            EXPECT_LE(++counts[member(request.body, "crash_log")], most);
        EXPECT_EQ(counts.size(), count);
        for (const auto &entry : std::filesystem::directory_iterator(meta_of()))
            EXPECT_THAT(known(entry.path().filename()), HasSubstr("\"sent_to_analytics\":true"));
    }
};

} // namespace

// How the library waits for locks.
extern "C" unsigned sleep(unsigned seconds)
{
    g_waited += static_cast<int>(seconds);
    usleep(20'000);
    if (g_while_waiting)
        g_while_waiting();
    return 0;
}

TEST_F(CrashStore, WithoutAStoreNothingIsMade)
{
    EXPECT_EQ(check_vwire_disconnect_logs("mesh", 1), 0);
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(mark_crash_log_finished("a.tgz"), 0);
    EXPECT_EQ(mark_crash_log_finished(nullptr), 0);
    EXPECT_FALSE(exists("/etc/persistent") || exists(kSaves));
    EXPECT_EQ(log_text(), "");
}

TEST_F(CrashStore, ALogIsPreparedThenDeliveredOnce)
{
    add_log("a.tgz", kText);
    serve();
    EXPECT_EQ(check_vwire_disconnect_logs("QX-4", 0), 0);
    EXPECT_EQ(read(kSaves), "\n");
    const std::string meta = known("a.tgz");
    EXPECT_EQ(meta, R"({"filename":"a.tgz","sent_to_analytics":false,"payload":{unit,)"
                    R"("type":"vwire_disconnect","uplink_model":"QX-4"}})");
    EXPECT_EQ(delivered(), report_of("wlan0: uplink lost passphrase=*\\n", "QX-4") + "saved");
    EXPECT_EQ(known("a.tgz"), std::regex_replace(meta, std::regex("false"), "true"));
    EXPECT_THAT(logged(), Contains("[info ] crash.send_vwire_disconnect_log(): Recorded "
                                   "vwire_disconnect log a.tgz"));
    EXPECT_EQ(delivered(), "");
    EXPECT_FALSE(exists(marker_of("a.tgz")));
    EXPECT_EQ(log_text(), "");
}

TEST_F(CrashStore, DeliveryIsGivenUpAfterFiveFailures)
{
    add_log("a.tgz", kText);
    serve({{.path = "/v1/crash", .status = 503}});
    for (int attempt = 1; attempt <= 5; ++attempt) {
        SCOPED_TRACE(attempt);
        EXPECT_EQ(delivered(),
                  kReport + (attempt == 5 ? "saved" : "")); // a count is not worth flash
        EXPECT_EQ(known("a.tgz"), meta_text(attempt == 5 ? "true" : "false",
                                            ",\"send_attempts\":" + std::to_string(attempt)));
        EXPECT_THAT(log_text(),
                    testing::EndsWith(attempt == 5
                                          ? "[info ] crash.send_vwire_disconnect_log(): Failed to "
                                            "record vwire_disconnect log "
                                            "a.tgz after 5 attempts\n"
                                          : "[error] crash.send_vwire_disconnect_log(): Recording "
                                            "vwire_disconnect log a.tgz failed\n"));
    }
    EXPECT_EQ(delivered() + log_text(), "");
    EXPECT_EQ(has_crash_logs(), 1); // the local management may still have it
}

TEST_F(CrashStore, MetasThatAreDamagedOrForeign)
{
    const std::string failed =
        "[error] crash.prepare_crash_log_meta(): Failed to generate vwire_disconnect meta: No data "
        "available\n[warn ] crash.finish_crash_meta(): Couldn't process vwire_disconnect: No data "
        "available\n";
    const std::string empty = R"({unit,"type":)", fresh = meta_text("true");
    const std::string sent = R"({"payload":{},"sent_to_analytics":true})";
    const struct {
        std::string meta, after;
        bool is_sent;
        std::string log;
    } rows[] = {
        {"", fresh, true, ""},
        {R"({"filename": "a.tgz", "sent_to_ana)", fresh, true, ""},
        {std::string("\x00\xff\x1f\x8b{}", 6), fresh, true, ""},
        {std::string(100000, '['), fresh, true, ""},
        {R"({"payload": {}} x)", fresh, true, ""},
        {R"({"sent_to_analytics":false})", R"({"sent_to_analytics":false})", false, failed},
        {"[1,2]", "[1,2]", false, failed},
        {R"({"payload":"text"})", R"({"payload":"text"})", false, ""},
        {R"({"payload":{},"sent_to_analytics":"true"})", sent, true, ""},
        {R"({"payload":{},"sent_to_analytics":1})", sent, true, ""},
        {sent, sent, false, ""},
        {R"({"payload":{},"send_attempts":"4"})",
         R"({"payload":{},"send_attempts":"4","sent_to_analytics":true})", true, ""},
    };
    serve();
    add_log("a.tgz", kText);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.meta.substr(0, 60));
        file(meta_of("a.tgz"), row.meta);
        logged();
        EXPECT_EQ(delivered().empty(), !row.is_sent);
        EXPECT_EQ(known("a.tgz"), row.after);
        EXPECT_TRUE(row.log.empty() || log_text() == row.log);
    }
}

TEST_F(CrashStore, LogsAreHandedToTheLocalManagementOneByOne)
{
    EXPECT_EQ(has_crash_logs(), 0);
    std::map<std::string, std::string> archives; // in Base64
    for (const char *name : {"a.tgz", "b.tgz", "c.tgz"}) {
        add_log(name, name);
        archives[name] = run("base64 -w0 " + log_of(name)).output;
    }
    EXPECT_EQ(mark_crash_log_finished("other.tgz"), 0);
    EXPECT_EQ(mark_crash_log_finished("a"), 0);
    while (!archives.empty()) {
        EXPECT_EQ(has_crash_logs(), 1);
        const Json next(get_next_crash_log());
        ASSERT_TRUE(next);
        const std::string name = json_string_value(json_object_get(next.get(), "filename"));
        SCOPED_TRACE(name);
        const std::string begin =
            "{\"filename\":\"" + name + "\",\"sent_to_analytics\":false," + kPayload;
        EXPECT_EQ(steady(dumped(next.get())), begin + ",\"file_data\":\"" + archives[name] + "\"}");
        archives.erase(name);
        remove(kSaves);
        EXPECT_EQ(mark_crash_log_finished(name.c_str()), 1);
        EXPECT_EQ(read(kSaves), "\n");
        EXPECT_EQ(known(name), begin + ",\"sent_to_net\":true}");
        EXPECT_EQ(read(marker_of(name)), "");
        EXPECT_EQ(mark_crash_log_finished(name.c_str()), 0); // looked at no more
    }
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(log_text(), "");
}

TEST_F(CrashStore, AMarkThatWasLostIsMadeAgain)
{
    add_log("a.tgz", kText);
    file(meta_of("a.tgz"), R"({"payload": {}, "sent_to_net": true})");
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_TRUE(exists(marker_of("a.tgz")));
    EXPECT_EQ(read(kSaves), "\n");
    file(meta_of("a.tgz"), R"({"payload": {}, "sent_to_net": 1})");
    remove(marker_of("a.tgz"));
    EXPECT_EQ(has_crash_logs(), 1); // only true counts
}

TEST_F(CrashStore, ALogThatCannotBeReadHidesLaterOnes)
{
    must_run("mkdir -p " + log_of());
    std::filesystem::create_symlink("/nowhere", log_of("lost.tgz"));
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(has_crash_logs(), 1);
    EXPECT_EQ(mark_crash_log_finished(nullptr), 0);
    EXPECT_FALSE(exists(marker_of("lost.tgz")));
    const std::string failed =
        "[warn ] crash.finish_crash_meta(): Couldn't process vwire_disconnect: ";
    EXPECT_EQ(log_text(),
              "[warn ] crash.gather_first_vwire_disconnect_log(): Unable to open " +
                  log_of("lost.tgz") + "\n" + failed +
                  "No such file or directory\n"
                  "[error] crash.mark_crash_log_sent_to_net(): Missing finish_filename\n" +
                  failed + "Invalid argument\n");
}

TEST_F(CrashStore, LogsThatAreNoArchivesAreDeliveredAllTheSame)
{
    serve();
    constexpr char kCommand[] = "/var/run/report_payload_cmd.txt";
    must_run("mkdir -p " + log_of() + " && echo no archive >" + log_of("a.tgz"));
    EXPECT_EQ(delivered(), report_of("") + "saved");
    EXPECT_FALSE(exists(kCommand));
    add_log("b.tgz", "caf\xe9");
    EXPECT_EQ(delivered(), report_of("Error generating crash_log payload") + "saved");
    EXPECT_EQ(read(kCommand),
              "tar -xOzf " + log_of("b.tgz") + " | syswrapper.sh sensitive-data-filter\n");
    EXPECT_THAT(logged(), Contains("[error] crash.send_vwire_disconnect_log(): Capturing "
                                   "vwire_disconnect log b.tgz failed"));
    EXPECT_EQ(known("a.tgz"), meta_text("true"));
}

TEST_F(CrashStore, DirectoriesThatCannotBeMade)
{
    add_log("a.tgz", kText);
    file("/etc/persistent/isolation_logs_sent", "a file is in the way");
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), -1);
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(mark_crash_log_finished("a.tgz"), 0);
    const std::string line =
        "[error] crash.iterate_crash_logs(): couldn't make dir " + marker_of() + ": File exists\n";
    EXPECT_EQ(log_text(), line + line + line + line);
}

TEST_F(CrashStore, AFailureStopsNoOtherLog)
{
    for (const char *name : {"a.tgz", "b.tgz", "c.tgz", "d.tgz", "e.tgz"})
        add_log(name, kText);
    must_run("mkdir -p " + meta_of("b.tgz") + " && mkfifo " + log_of("pipe.tgz ") +
             meta_of("c.tgz"));
    std::filesystem::create_symlink("/dev/zero", meta_of("d.tgz"));
    serve({{.path = "/v1/crash", .status = 503, .times = 1}, {.path = "/v1/crash"}});
    EXPECT_EQ(delivered(), kReport + kReport + "saved"); // a.tgz and e.tgz
    const std::string lines = log_text(),
                      line = "[error] crash.iterate_crash_logs(): Couldn't open ";
    for (
        const std::string &why :
        {line + meta_of("b.tgz") + " Is a directory\n",
         line + meta_of("c.tgz") + " Invalid argument\n",
         line + meta_of("d.tgz") + " Invalid argument\n",
         "[warn ] crash.finish_crash_meta(): Couldn't process vwire_disconnect: Is a directory\n"s})
        EXPECT_THAT(lines, HasSubstr(why));
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(delivered(), "");
    EXPECT_FALSE(exists(meta_of("pipe.tgz")));
    EXPECT_TRUE(Json(get_next_crash_log()));
}

TEST_F(CrashStore, FinishedLogsAreWalkedWithoutTheirMetas)
{
    for (int i = 0; i < 500; ++i) {
        const std::string name = "log-" + std::to_string(i) + ".tgz";
        file(log_of(name), "");
        file(marker_of(name), "");
        file(meta_of(name) + "/meta-must-not-be-opened", "");
    }
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(log_text(), "");
}

TEST_F(CrashStore, ALogInOtherHandsIsWaitedForThenLeft)
{
    for (const char *name : {"a.tgz", "b.tgz"})
        add_log(name, kText);
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 0), 0);
    serve();
    const int held = lock(meta_of("a.tgz"));
    logged();
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(g_waited, 10);
    EXPECT_EQ(known("a.tgz"), meta_text("false"));
    const std::string lines = log_text();
    EXPECT_THAT(lines, HasSubstr("[warn ] crash.finish_crash_meta(): Couldn't process "
                                 "vwire_disconnect: Device or resource busy\n"));
    EXPECT_THAT(lines, testing::Not(HasSubstr("[error]")));
    g_while_waiting = [held] { close(held); };
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(g_waited, 11);
    const int directory = lock(log_of()); // as while a meta is opened
    add_log("c.tgz", kText);
    g_while_waiting = [&] { g_waited == 14 ? close(directory) : 0; };
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(g_waited, 14);
}

// The commands of a process that was killed go on, without its locks.
TEST_F(CrashStore, CommandsInheritNoLock)
{
    constexpr char kScript[] = "/usr/local/bin/syswrapper.sh";
    add_log("a.tgz", kText);
    serve();
    const std::string usual = read(kScript);
    script(kScript, "#!/bin/sh\necho >/run/filtering\nexec sleep 100\n");
    const pid_t process = start([] { check_vwire_disconnect_logs(nullptr, 1); });
    while (!exists("/run/filtering"))
        usleep(1000);
    kill(process, SIGKILL);
    wait_for(process);
    remove(kScript);
    script(kScript, usual);
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(g_waited, 0);
}

TEST_F(CrashStore, ProcessesAtOnceDeliverEachLogOnce)
{
    fill_store(40);
    serve();
    std::vector<pid_t> processes;
    for (int i = 0; i < 6; ++i)
        processes.push_back(start([] { _exit(check_vwire_disconnect_logs(nullptr, 1) ? 1 : 0); }));
    for (const pid_t process : processes)
        EXPECT_EQ(wait_for(process), 0);
    expect_delivered(40, 1);
}

TEST_F(CrashStore, KilledProcessesLoseNoLog)
{
    fill_store(20);
    serve();
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments in every run
    std::uniform_int_distribution<unsigned> microseconds(0, 60000);
    for (int i = 0; i < 40; ++i) {
        const pid_t process = start([] { check_vwire_disconnect_logs(nullptr, 1); });
        usleep(microseconds(random));
        kill(process, SIGKILL);
        wait_for(process);
        if (i % 10 == 9) // so that there is always something to deliver
            remove(meta_of());
    }
    const int before = open_descriptors();
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_EQ(open_descriptors(), before);
    expect_delivered(20, 40);
    EXPECT_EQ(delivered(), "");
    EXPECT_EQ(g_waited, 0); // no lock is left
}
