

#include <sys/file.h>

#include "telemetry/crash_unit.h"

using testing::EndsWith;

namespace {

constexpr char kSaves[] = "/run/saves"; // a line each time that the configuration was saved

int g_waited = 0;                      // seconds that the library has waited, of which none pass
std::function<void()> g_while_waiting; // called for each

std::string meta_text(const std::string &delivered, const std::string &rest = "",
                      const std::string &name = "a.tgz")
{
    return R"({"filename":")" + name + R"(","sent_to_analytics":)" + delivered +
           R"(,"payload":{unit,"type":"vwire_disconnect","uplink_model":"unknown"})" + rest + "}";
}

std::string report_of(const std::string &text, const std::string &model = "unknown")
{
    return R"(POST crash.dev/v1/crash {unit,"type":"vwire_disconnect","uplink_model":")" + model +
           R"(","crash_log":")" + text + "\"}\n";
}
const std::string kReport = report_of("lost passphrase=*\\n");

class CrashStore : public Reporting {
protected:
    CrashStore()
    {
        make_crash_unit();
        serve();
    }

    // Puts an archive into the store, as the components do.
    static void add_log(const std::string &name,
                        const std::string &text = "lost passphrase=private\n")
    {
        file("/run/packing/log.txt", text);
        must_run("mkdir -p " + kLogs + " && tar -czf " + kLogs + name + " -C /run/packing log.txt");
    }

    // Has the logs delivered. Returns the requests, and "saved" when the configuration was.
    std::string delivered()
    {
        remove(kSaves);
        EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
        return received() + (exists(kSaves) ? "saved" : "");
    }
};

} // namespace

// How the library waits for locks.
extern "C" int clock_nanosleep(clockid_t, int, const timespec *, timespec *)
{
    static int calls = 0;
    if (++calls % 2 == 1) // the wait goes on at a signal
        return EINTR;
    ++g_waited;
    usleep(20'000);
    if (g_while_waiting)
        g_while_waiting();
    return 0;
}

// What comes of preparing the logs, of asking for any and for the next, of marking one without a
// name and a.tgz; what that leaves, and how many lines it logs.
TEST_F(CrashStore, StoresOfAllKinds)
{
    const std::pair<const char *, const char *> rows[] = {
        {"rm -r /etc/persistent", "0 0 none 0 0 #0"},
        {"touch ../../isolation_logs_sent", "-1 0 none 0 0 #5"},
        {"mkdir -p ../../isolation_logs_sent a.tgz && ln -s /x ../../isolation_logs_sent/a.tgz",
         "0 0 none 0 0 marked #0"}, // a link marks, too, and the meta is not opened
        {"touch ../b.tgz", "0 1 log 0 1 marked saved #2"}, // only one of them is looked at
        {"ln -sf /run/oops ../a.tgz", "0 0 none 0 0 #0"},  // no link is followed
        {"ln -s /run/oops a.tgz", "0 0 none 0 0 #10"},
        {R"(echo '{"payload":{},"sent_to_net":true}' >a.tgz)", "0 0 none 0 0 marked saved #0"},
        {"echo {} >a.tgz", "0 0 none 0 0 #10"},
        {"mkfifo a.tgz", "0 0 none 0 0 #10"},
        {"rm ../a.tgz && mkfifo ../a.tgz", "0 0 none 0 0 #0"}, // a pipe is no log
    };
    for (const auto &[make, want] : rows) {
        remove("/etc/persistent");
        remove(kSaves);
        file(kLogs + "a.tgz", "");
        must_run("mkdir " + kMetas + " && cd " + kMetas + " && " + make);
        std::ostringstream text;
        text << check_vwire_disconnect_logs(nullptr, 0) << " " << has_crash_logs()
             << (Json(get_next_crash_log()) ? " log " : " none ")
             << mark_crash_log_finished(nullptr) << " ";
        text << mark_crash_log_finished("a.tgz") << (exists(kMarkers + "a.tgz") ? " marked" : "");
        text << (exists(kSaves) ? " saved #" : " #") << logged().size();
        EXPECT_EQ(text.str(), want) << make;
    }
}

TEST_F(CrashStore, ALogIsPreparedThenDeliveredOnce)
{
    add_log("a.tgz");
    EXPECT_EQ(check_vwire_disconnect_logs("QX-4", 0), 0);
    EXPECT_EQ(read(kSaves), "\n");
    const std::string meta = known("a.tgz");
    EXPECT_EQ(meta, std::regex_replace(meta_text("false"), std::regex("unknown"), "QX-4"));
    EXPECT_EQ(delivered(), std::regex_replace(kReport, std::regex("unknown"), "QX-4") + "saved");
    EXPECT_EQ(known("a.tgz"), std::regex_replace(meta, std::regex("false"), "true"));
    EXPECT_THAT(log_text(), HasSubstr("[info ] crash.send_vwire_disconnect_log(): Recorded "
                                      "vwire_disconnect log a.tgz\n"));
    EXPECT_EQ(delivered() + log_text(), "");
    EXPECT_FALSE(exists(kMarkers + "a.tgz"));

    file(kLogs + "b.tgz", "no archive");
    EXPECT_EQ(delivered(), report_of("") + "saved");
    log_text();
    file(kLogs + "c;echo >>$HOME;.tgz", "");
    EXPECT_EQ(delivered(), "saved"); // its meta, for the local management
    EXPECT_EQ(log_text(),
              "[warn ] crash.send_vwire_disconnect_log(): A vwire_disconnect log is passed "
              "over: its name may hold A-Z a-z 0-9 . _ - only\n");
}

TEST_F(CrashStore, WhatDoesNotFitIsLeftForLater)
{
    add_log("a.tgz");
    must_run("mkdir " + kMetas + "; mount -t tmpfs -o size=8192 x " + kMetas);
    const std::string meta =
        R"({"payload":{"a":")" + std::string(4070, 'x') + "\"}}"; // of one page
    file(kMetas + "a.tgz", meta);
    file(kMetas + "filler", std::string(4096, '\0'));
    EXPECT_EQ(delivered(), "");
    EXPECT_EQ(mark_crash_log_finished("a.tgz"), 0);
    EXPECT_EQ(read(kMetas + "a.tgz"), meta);
    EXPECT_EQ(
        log_text(),
        "[warn ] crash.finish_crash_meta(): Couldn't process vwire_disconnect: No space left on "
        "device\n[error] crash.finish_crash_meta(): Cannot save vwire_disconnect " +
            kMetas + "a.tgz meta file\n");
    remove(kMetas + "filler");
    EXPECT_THAT(delivered(), EndsWith("lost passphrase=*\\n\"}\nsaved"));
}

TEST_F(CrashStore, DeliveryIsGivenUpAfterFiveFailures)
{
    add_log("a.tgz");
    serve({{.path = "/v1/crash", .status = 503}});
    for (int attempt = 1; attempt <= 5; ++attempt) {
        EXPECT_EQ(delivered(),
                  kReport + (attempt == 5 ? "saved" : "")); // a count is not worth flash
        EXPECT_EQ(known("a.tgz"), meta_text(attempt == 5 ? "true" : "false",
                                            ",\"send_attempts\":" + std::to_string(attempt)));
    }
    EXPECT_THAT(log_text(), EndsWith("[info ] crash.send_vwire_disconnect_log(): Failed to record "
                                     "vwire_disconnect log a.tgz after 5 attempts\n"));
    EXPECT_EQ(delivered() + log_text(), "");
    EXPECT_EQ(has_crash_logs(), 1); // the local management may still have it
}

TEST_F(CrashStore, LogsAreHandedToTheLocalManagementOneByOne)
{
    for (const char *name : {"a.tgz", "b.tgz", "c.tgz"})
        add_log(name, name);
    EXPECT_EQ(mark_crash_log_finished("other.tgz") + mark_crash_log_finished("a"), 0);
    for (int left = 3; left > 0; --left) {
        EXPECT_EQ(has_crash_logs(), 1);
        const Json next(get_next_crash_log());
        const std::string name = json_string_value(json_object_get(next.get(), "filename"));
        EXPECT_EQ(steady(dumped(next.get())),
                  meta_text("false",
                            ",\"file_data\":\"" + run("base64 -w0 " + kLogs + name).output + "\"",
                            name));
        remove(kSaves);
        EXPECT_EQ(mark_crash_log_finished(name.c_str()), 1);
        EXPECT_EQ(read(kSaves), "\n");
        EXPECT_EQ(known(name), meta_text("false", ",\"sent_to_net\":true", name));
        EXPECT_EQ(read(kMarkers + name), "");
        EXPECT_EQ(mark_crash_log_finished(name.c_str()), 0); // looked at no more
    }
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(log_text(), "");
}

TEST_F(CrashStore, ALogInOtherHandsIsWaitedForThenLeft)
{
    for (const char *name : {"a.tgz", "b.tgz"})
        add_log(name);
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 0), 0);
    const int held = open((kMetas + "a.tgz").c_str(), O_RDONLY | O_CLOEXEC);
    check(flock(held, LOCK_EX), "flock");
    libzorv_log_level = 2;
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(g_waited, 10);
    EXPECT_EQ(known("a.tgz"), meta_text("false"));
    EXPECT_EQ(log_text(), "[warn ] crash.finish_crash_meta(): Couldn't process vwire_disconnect: "
                          "Device or resource busy\n");
    g_while_waiting = [held] { close(held); };
    EXPECT_EQ(delivered(), kReport + "saved");
    EXPECT_EQ(g_waited, 11);
}

TEST_F(CrashStore, ProcessesAtOnceDeliverEachLogOnce)
{
    for (int i = 10; i < 40; ++i)
        add_log(std::to_string(i), std::to_string(i));
    std::vector<pid_t> processes;
    for (int i = 0; i < 6; ++i) {
        processes.push_back(static_cast<pid_t>(check(fork(), "fork")));
        if (processes.back() == 0)
            _exit(check_vwire_disconnect_logs(nullptr, 1) == 0 ? 0 : 1);
    }
    for (const pid_t process : processes)
        EXPECT_EQ(wait_for(process), 0);
    std::set<std::string> reports;
    for (const auto &request : host_->received())
        EXPECT_TRUE(reports.insert(member(request.body, "crash_log")).second);
    EXPECT_EQ(reports.size(), 30U);
    EXPECT_EQ(delivered(), "");
}
