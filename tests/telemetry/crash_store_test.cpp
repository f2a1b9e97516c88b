#include <zorv/crash.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <map>
#include <random>

#include <fcntl.h>
#include <sys/file.h>

#include "telemetry/crash_unit.h"

namespace {

constexpr char kText[] = "wlan0: uplink lost passphrase=very-private\n";
constexpr double kWait = 10; // seconds that a lock is waited for
constexpr char kFiltered[] = "\"wlan0: uplink lost passphrase=*\\n\"";

// What is known of a log, a member as JSON.
std::string known(const std::string &name, const char *of_meta)
{
    return member(Device::read(meta_of(name)), of_meta);
}

int locked_by_us(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0 ? fd : -1;
}

double seconds_of(const std::function<void()> &part)
{
    const auto begin = std::chrono::steady_clock::now();
    part();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// How often the text of each log was accepted by the service.
std::map<std::string, int> count_texts(const std::vector<cloud::Request> &requests)
{
    std::map<std::string, int> counts;
    for (const auto &request : requests)
        ++counts[member(request.body, "crash_log")];
    return counts;
}

void fill_store(int count)
{
    Device::must_run("mkdir -p /run/packing " + log_of());
    Device::must_run("cd /run/packing && for i in $(seq " + std::to_string(count) +
                     "); do echo text $i >log.txt; tar -czf " + log_of("log-$i.tgz") +
                     " log.txt || exit; done");
}

// How many logs the service does not have.
int undelivered()
{
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(log_of()))
        if (entry.is_regular_file())
            count += known(entry.path().filename(), "sent_to_analytics") == "true" ? 0 : 1;
    return count;
}

TEST_F(Crash, WithoutAStoreNothingIsMade)
{
    EXPECT_EQ(check_vwire_disconnect_logs("mesh", 1), 0);
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(mark_crash_log_finished("a.tgz"), 0);
    EXPECT_EQ(mark_crash_log_finished(nullptr), 0);
    EXPECT_FALSE(exists("/etc/persistent"));
    EXPECT_EQ(saves(), 0U);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Crash, ALogIsPreparedThenDeliveredOnce)
{
    add_log("a.tgz", kText);
    CloudHost host(crash_service());
    EXPECT_EQ(check_vwire_disconnect_logs("QX-4", 0), 0);
    EXPECT_THAT(host.received(), IsEmpty());
    EXPECT_EQ(saves(), 1U);
    const std::string meta = read(meta_of("a.tgz"));
    EXPECT_THAT(meta, StartsWith(R"({"filename": "a.tgz", "sent_to_analytics": false, "payload": {)"
                                 R"("product_line": "network", )"));
    EXPECT_EQ(meta.find('\n'), meta.npos);
    const std::string payload = member(meta, "payload");
    EXPECT_EQ(member(payload, "type"), "\"vwire_disconnect\"");
    EXPECT_EQ(member(payload, "uplink_model"), "\"QX-4\"");
    EXPECT_EQ(member(payload, "crash_log"), "");

    const int before = open_descriptors();
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(saves(), 1U);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].path, "/v1/crash");
    EXPECT_EQ(member(requests[0].body, "crash_log"), kFiltered);
    EXPECT_EQ(member(requests[0].body, "uplink_model"), "\"QX-4\"");
    EXPECT_EQ(known("a.tgz", "sent_to_analytics"), "true");
    EXPECT_EQ(known("a.tgz", "payload"), payload);
    EXPECT_FALSE(exists(marker_of("a.tgz")));

    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_THAT(host.received(), IsEmpty());
    EXPECT_EQ(saves(), 0U);
    EXPECT_THAT(logged(),
                Contains("[info ] crash.send_vwire_disconnect_log(): Recorded vwire_disconnect log "
                         "a.tgz"));
}

TEST_F(Crash, DeliveryIsGivenUpAfterFiveFailures)
{
    add_log("a.tgz", kText);
    CloudHost host(crash_service({{.path = "/v1/crash", .status = 503}}));
    const std::string step = "crash.send_vwire_disconnect_log(): ";
    for (int attempt = 1; attempt <= 6; ++attempt) {
        SCOPED_TRACE(attempt);
        EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
        const bool is_given_up = attempt >= 5;
        EXPECT_EQ(known("a.tgz", "send_attempts"), std::to_string(std::min(attempt, 5)));
        EXPECT_EQ(known("a.tgz", "sent_to_analytics"), is_given_up ? "true" : "false");
        EXPECT_EQ(member(known("a.tgz", "payload"), "crash_log"), "");
        EXPECT_EQ(saves(), attempt == 5 ? 1U : 0U); // a count alone is not worth flash
        EXPECT_EQ(host.received().size(), attempt <= 5 ? 1U : 0U);
        const auto lines = logged();
        if (attempt < 5)
            EXPECT_THAT(
                lines, Contains("[error] " + step + "Recording vwire_disconnect log a.tgz failed"));
        else if (attempt == 5)
            EXPECT_THAT(lines, Contains("[info ] " + step +
                                        "Failed to record vwire_disconnect log "
                                        "a.tgz after 5 attempts"));
        else
            EXPECT_THAT(lines, IsEmpty());
    }
    EXPECT_EQ(has_crash_logs(), 1); // the local management may still have it
}

TEST_F(Crash, MetasThatAreDamagedOrForeign)
{
    const std::string error = "[error] crash.prepare_crash_log_meta(): Failed to generate "
                              "vwire_disconnect meta: No data available";
    const struct {
        const char *what;
        std::string meta;
        const char *sent, *attempts;
        size_t requests;
        bool has_data;
    } rows[] = {
        {"empty", "", "true", "", 1, true},
        {"cut", R"({"filename": "a.tgz", "sent_to_ana)", "true", "", 1, true},
        {"binary", std::string("\x00\xff\x1f\x8b{}", 6), "true", "", 1, true},
        {"deep", std::string(100000, '['), "true", "", 1, true},
        {"text behind", R"({"payload": {}} x)", "true", "", 1, true},
        {"no payload", R"({"filename": "a.tgz", "sent_to_analytics": false})", "false", "", 0,
         false},
        {"array", "[1, 2]", "", "", 0, false},
        {"payload no object", R"({"payload": "text"})", "", "", 0, true},
        {"sent as a word", R"({"payload": {}, "sent_to_analytics": "true"})", "true", "", 1, true},
        {"sent as 1", R"({"payload": {}, "sent_to_analytics": 1})", "true", "", 1, true},
        {"sent", R"({"payload": {}, "sent_to_analytics": true})", "true", "", 0, true},
        {"counted as a word", R"({"payload": {}, "send_attempts": "4"})", "true", "\"4\"", 1, true},
    };
    CloudHost host(crash_service());
    add_log("a.tgz", kText);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        file(meta_of("a.tgz"), row.meta);
        static_cast<void>(logged());
        EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
        const std::string after = read(meta_of("a.tgz"));
        EXPECT_EQ(member(after, "sent_to_analytics"), row.sent);
        EXPECT_EQ(member(after, "send_attempts"), row.attempts);
        EXPECT_EQ(host.received().size(), row.requests);
        const auto lines = logged();
        if (!row.has_data) {
            EXPECT_THAT(lines, ElementsAre(error, "[warn ] crash.finish_crash_meta(): Couldn't "
                                                  "process vwire_disconnect: No data available"));
            EXPECT_EQ(after, row.meta);
        }
    }
}

TEST_F(Crash, LogsAreHandedToTheLocalManagementOneByOne)
{
    EXPECT_EQ(has_crash_logs(), 0);
    std::map<std::string, std::string> expected; // archives in Base64
    for (const char *name : {"a.tgz", "b.tgz", "c.tgz"}) {
        add_log(name, name);
        std::string text = run("base64 -w0 " + log_of(name)).output;
        expected[name] = "\"" + text + "\"";
    }
    EXPECT_EQ(mark_crash_log_finished("other.tgz"), 0);
    EXPECT_EQ(mark_crash_log_finished("a"), 0);
    for (size_t left = 3; left > 0; --left) {
        SCOPED_TRACE(left);
        EXPECT_EQ(has_crash_logs(), 1);
        const Json next(get_next_crash_log());
        ASSERT_TRUE(next);
        const std::string name = json_string_value(json_object_get(next.get(), "filename"));
        EXPECT_EQ(expected.count(name), 1U) << name;
        EXPECT_EQ(member(next.get(), "file_data"), expected[name]);
        EXPECT_EQ(member(member(next.get(), "payload"), "uplink_model"), "\"unknown\"");
        expected.erase(name);
        saves();
        EXPECT_EQ(mark_crash_log_finished(name.c_str()), 1);
        EXPECT_EQ(saves(), 1U);
        EXPECT_EQ(known(name, "sent_to_net"), "true");
        EXPECT_EQ(known(name, "file_data"), "");
        EXPECT_EQ(read(marker_of(name)), "");
        EXPECT_EQ(mark_crash_log_finished(name.c_str()), 0); // looked at no more
    }
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_THAT(logged(), Not(Contains(StartsWith("[error]"))));
}

TEST_F(Crash, AMarkThatWasLostIsMadeAgain)
{
    add_log("a.tgz", kText);
    file(meta_of("a.tgz"), R"({"filename": "a.tgz", "payload": {}, "sent_to_net": true})");
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_TRUE(exists(marker_of("a.tgz")));
    EXPECT_EQ(saves(), 1U);
    file(meta_of("a.tgz"), R"({"payload": {}, "sent_to_net": 1})");
    remove(marker_of("a.tgz"));
    EXPECT_EQ(has_crash_logs(), 1); // only true counts
}

TEST_F(Crash, AFirstLogThatCannotBeReadHidesLaterOnes)
{
    add_log("a.tgz", kText);
    std::filesystem::create_symlink("/nowhere", log_of("lost.tgz"));
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 0), 0);
    const std::string first = run("ls -U " + log_of()).output; // the directory's own order
    static_cast<void>(logged());
    const Json next(get_next_crash_log());
    if (first.find("lost.tgz") < first.find("a.tgz")) {
        EXPECT_FALSE(next);
    } else {
        EXPECT_TRUE(next);
        EXPECT_EQ(mark_crash_log_finished("a.tgz"), 1);
        EXPECT_EQ(get_next_crash_log(), nullptr);
    }
    EXPECT_EQ(has_crash_logs(), 1);
    EXPECT_THAT(logged(), ElementsAre("[warn ] crash.gather_first_vwire_disconnect_log(): Unable "
                                      "to open " +
                                          log_of("lost.tgz"),
                                      "[warn ] crash.finish_crash_meta(): Couldn't process "
                                      "vwire_disconnect: No such file or directory"));
}

TEST_F(Crash, MarkingWithoutANameIsAnErrorWhereThereIsALog)
{
    add_log("a.tgz", kText);
    EXPECT_EQ(mark_crash_log_finished(nullptr), 0);
    EXPECT_THAT(logged(),
                ElementsAre("[error] crash.mark_crash_log_sent_to_net(): Missing finish_filename",
                            "[warn ] crash.finish_crash_meta(): Couldn't process vwire_disconnect: "
                            "Invalid argument"));
    EXPECT_FALSE(exists(marker_of("a.tgz")));
}

TEST_F(Crash, LogsThatAreNoArchivesAreDeliveredAllTheSame)
{
    CloudHost host(crash_service());
    constexpr char kCommand[] = "/var/run/report_payload_cmd.txt";
    file(log_of("a.tgz"), "no archive");
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_FALSE(exists(kCommand));
    add_log("b.tgz", "caf\xe9");
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_EQ(read(kCommand),
              "tar -xOzf " + log_of("b.tgz") + " | syswrapper.sh sensitive-data-filter\n");
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(member(requests[0].body, "crash_log"), "\"\"");
    EXPECT_EQ(member(requests[1].body, "crash_log"), "\"Error generating crash_log payload\"");
    EXPECT_EQ(undelivered(), 0);
}

TEST_F(Crash, DirectoriesThatCannotBeMade)
{
    add_log("a.tgz", kText);
    file(marker_of().substr(0, marker_of().size() - 1), "a file is in the way");
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), -1);
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_EQ(get_next_crash_log(), nullptr);
    EXPECT_EQ(mark_crash_log_finished("a.tgz"), 0);
    const std::string line =
        "[error] crash.iterate_crash_logs(): couldn't make dir " + marker_of() + ": File exists";
    EXPECT_THAT(logged(), ElementsAre(line, line, line, line));
}

TEST_F(Crash, AFailureStopsNoOtherLog)
{
    alarm(20); // pipes and devices hold no walk up
    for (const char *name : {"a.tgz", "b.tgz", "c.tgz", "d.tgz", "e.tgz"})
        add_log(name, kText);
    must_run("mkdir -p " + meta_of("b.tgz") + " && mkfifo " + log_of("pipe.tgz ") +
             meta_of("c.tgz"));
    std::filesystem::create_symlink("/dev/zero", meta_of("d.tgz"));
    CloudHost host(
        crash_service({{.path = "/v1/crash", .status = 503, .times = 1}, {.path = "/v1/crash"}}));
    for (const size_t requests : {2U, 1U, 0U}) { // of a.tgz and e.tgz
        EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
        EXPECT_EQ(host.received().size(), requests);
    }
    const std::string line = "[error] crash.iterate_crash_logs(): Couldn't open ";
    const auto lines = logged();
    EXPECT_THAT(lines, Contains(line + meta_of("b.tgz") + " Is a directory"));
    EXPECT_THAT(lines, Contains("[warn ] crash.finish_crash_meta(): Couldn't process "
                                "vwire_disconnect: Is a directory"));
    EXPECT_THAT(lines, Contains(line + meta_of("c.tgz") + " Invalid argument"));
    EXPECT_THAT(lines, Contains(line + meta_of("d.tgz") + " Invalid argument"));
    EXPECT_FALSE(exists(meta_of("pipe.tgz")));
    EXPECT_TRUE(Json(get_next_crash_log()));
}

TEST_F(Crash, AFullDiskLosesOnlyWhatItCannotTake)
{
    for (const char *name : {"a.tgz", "b.tgz"})
        add_log(name, kText);
    small_disk(meta_of(), 8192);
    must_run("head -c 8192 /dev/zero >" + meta_of("filler") + " 2>/dev/null; true");
    CloudHost host(crash_service());
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0);
    EXPECT_EQ(host.received().size(), 2U);
    EXPECT_EQ(saves(), 0U);
    const std::string error =
        "[error] crash.finish_crash_meta(): Cannot save vwire_disconnect " + meta_of();
    const auto lines = logged();
    EXPECT_THAT(lines, Contains(error + "a.tgz meta file"));
    EXPECT_THAT(lines, Contains(error + "b.tgz meta file"));
    EXPECT_EQ(read(meta_of("a.tgz")), "");

    remove(meta_of("filler"));
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0); // new logs again
    EXPECT_EQ(host.received().size(), 2U);
    EXPECT_EQ(undelivered(), 0);
    EXPECT_EQ(saves(), 1U);
}

TEST_F(Crash, FinishedLogsAreWalkedWithoutTheirMetas)
{
    for (int i = 0; i < 1000; ++i) {
        const std::string name = "log-" + std::to_string(i) + ".tgz";
        file(log_of(name), "");
        file(marker_of(name), "");
        file(meta_of(name) + "/meta-must-not-be-opened", "");
    }
    EXPECT_LT(seconds_of([] { EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0); }), 5);
    EXPECT_EQ(has_crash_logs(), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Crash, ALogInOtherHandsIsWaitedForThenLeft)
{
    for (const char *name : {"a.tgz", "b.tgz"})
        add_log(name, kText);
    EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 0), 0);
    CloudHost host(crash_service());
    const int held = locked_by_us(meta_of("a.tgz"));
    ASSERT_GE(held, 0);
    static_cast<void>(logged());
    const double seconds = seconds_of([] { check_vwire_disconnect_logs(nullptr, 1); });
    EXPECT_GE(seconds, kWait);
    EXPECT_LT(seconds, 2 * kWait); // it is waited for once
    EXPECT_EQ(host.received().size(), 1U);
    EXPECT_EQ(known("a.tgz", "sent_to_analytics"), "false");
    EXPECT_THAT(logged(), Contains("[warn ] crash.finish_crash_meta(): Couldn't process "
                                   "vwire_disconnect: Device or resource busy"));
    close(held);
    EXPECT_LT(seconds_of([] { check_vwire_disconnect_logs(nullptr, 1); }), kWait);
    EXPECT_EQ(undelivered(), 0);
}

TEST_F(Crash, ALockThatIsReleasedInTimeIsTaken)
{
    add_log("a.tgz", kText);
    CloudHost host(crash_service());
    const int held = locked_by_us(log_of()); // the directory, as while a meta is opened
    ASSERT_GE(held, 0);
    const pid_t other = start([held] {
        close(held); // the lock is that of the parent's descriptor as well
        check_vwire_disconnect_logs(nullptr, 1);
    });
    usleep(300000);
    EXPECT_THAT(host.received(), IsEmpty());
    flock(held, LOCK_UN);
    EXPECT_EQ(wait_for(other), 0);
    close(held);
    EXPECT_EQ(host.received().size(), 1U);
}

// The commands of a process that was killed go on, without its locks.
TEST_F(Crash, CommandsInheritNoLock)
{
    constexpr char kScript[] = "/usr/local/bin/syswrapper.sh";
    add_log("a.tgz", kText);
    CloudHost host(crash_service());
    const std::string usual = read(kScript);
    script(kScript, "#!/bin/sh\necho >/run/filtering\nexec sleep 100\n");
    const pid_t process = start([] { check_vwire_disconnect_logs(nullptr, 1); });
    while (!exists("/run/filtering"))
        usleep(1000);
    kill(process, SIGKILL);
    wait_for(process);
    remove(kScript);
    script(kScript, usual);
    EXPECT_LT(seconds_of([] { check_vwire_disconnect_logs(nullptr, 1); }), kWait);
    EXPECT_EQ(host.received().size(), 1U);
    EXPECT_EQ(undelivered(), 0);
}

TEST_F(Crash, ProcessesAtOnceDeliverEachLogOnce)
{
    constexpr int kProcesses = 8, kLogs = 200;
    fill_store(kLogs);
    CloudHost host(crash_service());
    std::vector<pid_t> processes;
    processes.reserve(kProcesses);
    for (int i = 0; i < kProcesses; ++i)
        processes.push_back(start([] { _exit(check_vwire_disconnect_logs(nullptr, 1) ? 1 : 0); }));
    for (const pid_t process : processes)
        EXPECT_EQ(wait_for(process), 0);
    EXPECT_EQ(undelivered(), 0);
    const auto counts = count_texts(host.received());
    EXPECT_EQ(counts.size(), static_cast<size_t>(kLogs));
    for (const auto &[text, count] : counts)
        EXPECT_EQ(count, 1) << text;
}

TEST_F(Crash, KilledProcessesLoseNoLog)
{
    constexpr int kKills = 200, kLogs = 30;
    fill_store(kLogs);
    CloudHost host(crash_service());
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments in every run
    std::uniform_int_distribution<unsigned> microseconds(0, 60000);
    for (int i = 0; i < kKills; ++i) {
        const pid_t process = start([] { check_vwire_disconnect_logs(nullptr, 1); });
        usleep(microseconds(random));
        kill(process, SIGKILL);
        wait_for(process);
        if (i % 10 == 9) // so that there is always something to deliver
            remove(meta_of());
    }
    const int before = open_descriptors();
    EXPECT_LT(seconds_of([] { EXPECT_EQ(check_vwire_disconnect_logs(nullptr, 1), 0); }), 60);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(undelivered(), 0);
    const auto counts = count_texts(host.received());
    EXPECT_EQ(counts.size(), static_cast<size_t>(kLogs));
    EXPECT_LT(seconds_of([] { check_vwire_disconnect_logs(nullptr, 1); }), kWait); // none is left
    EXPECT_THAT(host.received(), IsEmpty());
}

} // namespace
