#include <zorv/crash.h>

#include <cstring>
#include <ctime>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <zorv/status.h>

#include "telemetry/crash_unit.h"

using cloud::Conduct;
using testing::AllOf;

namespace {

constexpr char kCopy[] = "/var/run/report_payload.txt";
constexpr char kSent[] = "/var/run/last-crashlog.sent";
constexpr char kOops[] = "Oops: 17 [#1] SMP ARM passphrase=very-private\n";

cfg_entry *parsed(const std::string &text)
{
    Device::file("/run/cfg", text);
    return parse("/run/cfg");
}

// A report whose copy has that many bytes.
Json report_of(size_t length)
{
    const std::string text(length - strlen("{\n  \"a\": \"\"\n}"), 'x');
    Json report(json_object());
    json_object_set_new(report.get(), "a", json_string(text.c_str()));
    return report;
}

TEST_F(Crash, AnalyticsModeOfTheConfiguration)
{
    const struct {
        const char *text;
        int mode, coredump;
    } rows[] = {
        {"", 2, 0},
        {"system.analytics.status=enabled\n", 1, 0},
        {"system.analytics.anonymous=false\n", 1, 0},
        {"system.analytics.anonymous=perhaps\nsystem.analytics.status=on\n", 1, 0},
        {"system.analytics.anonymous=true\nsystem.analytics.status=false\n", 0, 0},
        {"system.analytics.anonymous=on\nsystem.analytics.status=on\n", 2, 0},
        {"system.analytics.coredump=enabled\n", 2, 1},
        {"system.analytics.coredump=maybe\n", 2, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const std::unique_ptr<cfg_entry, decltype(&free_cfg)> cfg(parsed(row.text), free_cfg);
        EXPECT_EQ(get_analytics_mode(cfg.get()), row.mode);
        EXPECT_EQ(get_analytics_coredump_mode(cfg.get()), row.coredump);
    }
}

TEST_F(Crash, PathsThatSurviveAReboot)
{
    for (const char *path : {"/etc/persistent", "/etc/persistent/cfg/", "/etc/persistentX"})
        EXPECT_EQ(is_dir_in_persistent(path), 1) << path;
    for (const char *path : {"/etc/persisten", "/tmp/etc/persistent", ""})
        EXPECT_EQ(is_dir_in_persistent(path), 0) << path;
    EXPECT_EQ(is_dir_in_persistent(nullptr), 0);
}

TEST_F(Crash, KeepsACopyOfAReportUpToItsLimit)
{
    save_crash_payload(report_of(102400).get());
    const std::string kept = read(kCopy);
    EXPECT_EQ(kept.size(), 102401U);
    EXPECT_THAT(kept, StartsWith("{\n  \"a\": \"xx"));
    EXPECT_EQ(kept.back(), '\n');
    save_crash_payload(report_of(102401).get());
    EXPECT_TRUE(read(kCopy) == kept);
    save_crash_payload(nullptr);
    EXPECT_TRUE(read(kCopy) == kept);
    save_crash_payload(report_of(20).get());
    EXPECT_EQ(read(kCopy).size(), 21U);
    remove(kCopy);
    file(std::string(kCopy) + "/file", "");
    save_crash_payload(report_of(20).get());
    EXPECT_THAT(
        logged(),
        ElementsAre(
            "[info ] crash.save_crash_payload(): Saved crash report payload of 102400 bytes",
            "[info ] crash.save_crash_payload(): Skipped saving crash report payload "
            "because it was > 100KB (102401)",
            "[error] crash.save_crash_payload(): Invalid payload",
            "[info ] crash.save_crash_payload(): Saved crash report payload of 20 bytes",
            "[error] crash.save_crash_payload(): Failed opening file for saving crash "
            "report payload"));
}

TEST_F(Crash, KeepsACommand)
{
    constexpr char kCommand[] = "/var/run/report_payload_cmd.txt";
    save_crash_payload_cmd("a longer command %s %n");
    save_crash_payload_cmd("tar 50%");
    save_crash_payload_cmd(nullptr);
    EXPECT_EQ(read(kCommand), "tar 50%\n");
    remove(kCommand);
    file(std::string(kCommand) + "/file", "");
    save_crash_payload_cmd("tar");
    EXPECT_THAT(logged(), ElementsAre("[error] crash.save_crash_payload_cmd(): Failed opening file "
                                      "for saving crash report payload command"));
}

TEST_F(Crash, CapturesWhatACommandPrints)
{
    libzorv_log_level = 1; // the statuses of commands are exec.h's warnings
    const Json object(json_object());
    const struct {
        const char *command;
        int rc;
        const char *value;
    } rows[] = {
        {"printf 'two\\nlines\\n'", 0, "\"two\\nlines\\n\""},
        {"true", 0, "\"\""},
        {"echo before; exit 3", 0, "\"before\\n\""},
        {"/nowhere/tool 2>/dev/null", 0, "\"\""},
        {"printf 'a\\000b'", 0, "\"a\""},
        {"printf 'caf\\351'", -1, "\"kept\""}, // not UTF-8
        {nullptr, 0, "\"kept\""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.command ? row.command : "NULL");
        json_object_set_new(object.get(), "x", json_string("kept"));
        EXPECT_EQ(json_object_capture_popen(object.get(), "x", row.command), row.rc);
        EXPECT_EQ(member(object.get(), "x"), row.value);
    }
    EXPECT_EQ(json_object_capture_popen(object.get(), "x", "yes | head -c 1100000"), 0);
    EXPECT_EQ(json_string_length(json_object_get(object.get(), "x")), (1U << 20) - 1);
    const Json array(json_array());
    EXPECT_EQ(json_object_capture_popen(array.get(), "x", "true"), -1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Crash, ACommandThatCannotStartGivesAnEmptyText)
{
    const Json object(json_object());
    limit_descriptors(3); // none for a pipe
    const int rc = json_object_capture_popen(object.get(), "x", "echo text");
    limit_descriptors();
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(member(object.get(), "x"), "\"\"");
    EXPECT_THAT(logged(), testing::Contains("[warn ] crash.json_object_capture_popen(): Failed to "
                                            "capture the output of command echo text"));
}

TEST_F(Crash, AKernelCrashIsReportedOnce)
{
    file("/run/oops", kOops);
    file("/tmp/system.cfg", "pluvo.anonymous_controller_id=c-1\npluvo.anonymous_site_id=s-1\n"
                            "pluvo.version=9.1.120\nmgmt.kelo.env.force=1\n"
                            "wireless.1.passphrase=very-private\n");
    file("/proc/zorvhal/system.info", "boardrevision=13\nmanufid=001f\ndevice.anonid=d-1\n");
    file("/proc/zorvhal/status/IsDefault", "true\n");
    CloudHost host(crash_service());
    const time_t before = time(nullptr);
    EXPECT_EQ(send_kernel_crash(), 0);
    EXPECT_EQ(send_kernel_crash(), 0);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].host, "crash.zorv.example");
    EXPECT_EQ(requests[0].path, "/v1/kernel-crash");
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");

    const Json report = loaded(requests[0].body);
    utsname kernel;
    ASSERT_EQ(uname(&kernel), 0);
    const auto moment = [&report](const char *name) {
        return ",\"" + std::string(name) + "\":" + member(report.get(), name);
    };
    EXPECT_EQ(dumped(report.get()),
              R"({"product_line":"network","anonymous_controller_id":"c-1",)"
              R"("anonymous_site_id":"s-1","anonymous_device_id":"d-1","kernel_version":")" +
                  std::string(kernel.release) + R"(","architecture":")" + kernel.machine +
                  R"(","bomrev":"13","manufacturer_id":"31","model":"","version":"6.6.55.15189",)"
                  R"("is_default":true)" +
                  moment("uptime") + moment("boot_time") + R"(,"controller_version":"9.1.120")" +
                  moment("system_time") + R"(,"crash_log":"Oops: 17 [#1] SMP ARM passphrase=*\n")" +
                  moment("system_cfg") + R"(,"source":"oopsdump","sender":"firmware"})");
    EXPECT_THAT(member(report.get(), "system_cfg"), HasSubstr("wireless.1.passphrase=*"));
    const auto boot = json_integer_value(json_object_get(report.get(), "boot_time"));
    const auto uptime = json_integer_value(json_object_get(report.get(), "uptime"));
    EXPECT_NEAR(static_cast<double>(boot + uptime), static_cast<double>(before), 2);
    tm local;
    char expected[64];
    strftime(expected, sizeof expected, "\"%Y-%m-%dT%H:", localtime_r(&before, &local));
    EXPECT_THAT(member(report.get(), "system_time"), StartsWith(expected));

    EXPECT_THAT(read(kCopy), HasSubstr("\n  \"sender\": \"firmware\"\n}\n"));
    struct stat marker;
    ASSERT_EQ(stat(kSent, &marker), 0);
    EXPECT_EQ(marker.st_mode, static_cast<mode_t>(S_IFREG | 0644));
    EXPECT_EQ(marker.st_size, 0);
    EXPECT_EQ(read("/run/oops"), kOops); // left for oops_clear()
    EXPECT_EQ(read("/run/oopsdumps"), "oopsdump -e\noopsdump \n");
}

TEST_F(Crash, ABareUnitReportsWhatItKnows)
{
    file("/run/oops", kOops);
    remove("/tmp/system.cfg");
    remove("/usr/etc/.version");
    CloudHost host(crash_service());
    EXPECT_EQ(send_kernel_crash(), 0);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].host, "crash.dev.zorv.example");
    const Json report = loaded(requests[0].body);
    EXPECT_THAT(dumped(report.get()),
                AllOf(StartsWith(R"({"product_line":"network","kernel_version":")"),
                      HasSubstr(R"("bomrev":"-1","manufacturer_id":"0","model":"",)"
                                R"("version":"unknown.0","is_default":false,)"),
                      HasSubstr(R"("controller_version":"unknown",)"),
                      HasSubstr(R"("system_cfg":"",)")));
    EXPECT_THAT(logged(), testing::Contains("[warn ] crash.generate_common_payload(): Couldn't "
                                            "obtain firmware version! error code = -2"));
}

TEST_F(Crash, TheCloudOfTheUnitIsAsked)
{
    file("/run/oops", kOops);
    CloudHost host(crash_service());
    const std::pair<const char *, const char *> rows[] = {
        {"mgmt.kelo.env=stage\n", "crash.stage.zorv.example"},
        {"mgmt.kelo.env=dev\n", "crash.dev.zorv.example"},
        {"mgmt.kelo.env=prod\n", "crash.dev.zorv.example"}, // no release
        {"mgmt.kelo.env=prod\nmgmt.kelo.env.force=enabled\n", "crash.zorv.example"},
    };
    for (const auto &[text, name] : rows) {
        SCOPED_TRACE(text);
        file("/tmp/system.cfg", text);
        EXPECT_EQ(send_kernel_crash(), 0);
        remove(kSent);
        const auto requests = host.received();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].host, name);
    }
}

TEST_F(Crash, NothingLeavesWhileTheGateIsShut)
{
    file("/run/oops", kOops);
    CloudHost host(crash_service());
    constexpr char kMode[] = "/var/run/system.analytics.mode";
    for (const char *needed : {"/var/run/ntp.ready", "/var/run/ipready.br0"}) {
        SCOPED_TRACE(needed);
        remove(needed);
        EXPECT_EQ(send_kernel_crash(), -2);
        EXPECT_EQ(send_ram_dump("ram", "bytes", 5), -1);
        file(needed, "");
    }
    file(kMode, "0\n");
    EXPECT_EQ(send_kernel_crash(), -2);
    EXPECT_EQ(send_crash_binary_data("httpd", 7, 11, 1, 60, nullptr, 0, 0), -1);
    EXPECT_THAT(host.received(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
    for (const char *open : {"1\n", "2\n", "nonsense\n", ""}) {
        SCOPED_TRACE(open);
        file(kMode, open);
        EXPECT_EQ(send_kernel_crash(), 0);
        remove(kSent);
    }
    EXPECT_EQ(host.received().size(), 4U);
}

TEST_F(Crash, AnOopsIsLookedForOnceInAProcess)
{
    EXPECT_EQ(has_oops(), 0);
    file("/run/oops", kOops);
    EXPECT_EQ(has_oops(), 0);
    EXPECT_EQ(send_kernel_crash(), -1);
    EXPECT_EQ(read("/run/oopsdumps"), "oopsdump -e\n");
    EXPECT_THAT(logged(), ElementsAre("[error] crash.send_kernel_crash(): Tried processing a crash "
                                      "when no crash was found"));
}

TEST_F(Crash, ClearingKeepsTheTextAndTheMarker)
{
    file("/run/oops", kOops);
    file(kSent, "");
    EXPECT_EQ(has_oops(), 1);
    oops_clear();
    EXPECT_EQ(has_oops(), 0);
    EXPECT_EQ(read("/var/run/last-crashlog.txt"), kOops);
    EXPECT_EQ(read("/run/oops"), "");
    EXPECT_TRUE(exists(kSent));
    EXPECT_EQ(read("/run/oopsdumps"), "oopsdump -e\noopsdump \noopsdump -c\n");
    remove("/usr/local/bin/oopsdump");
    const pid_t other = start([] { _exit(has_oops()); }); // the answer of this process is known
    EXPECT_EQ(wait_for(other), 0);
}

TEST_F(Crash, AKernelCrashThatIsNotTakenStays)
{
    file("/run/oops", kOops);
    const std::string path = "/v1/kernel-crash";
    CloudHost host(crash_service({
        {.path = path, .status = 500, .body = "out of order", .times = 1},
        {.path = path, .status = 204, .times = 1},
        {.path = path, .status = 404, .body = std::string(5000, 'x'), .times = 1},
        {.path = path, .body = "{\"accepted\":true}", .conduct = Conduct::reset, .times = 1},
        {.path = path, .conduct = Conduct::silent, .times = 1},
        {.path = path, .body = "<html>no JSON is asked for here"},
    }));
    const std::string url = "POST 'https://crash.dev.zorv.example/v1/kernel-crash' failed: ";
    const struct {
        const char *what;
        std::string warning;
        bool has_copy;
    } rows[] = {
        {"500", "[500] out of order", true},
        {"204", "[204] ", true},
        {"a long 404", "[404] " + std::string(2048, 'x'), true},
        {"reset", "[", false},
        {"silent", "[28] Timeout was reached", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        remove(kCopy);
        static_cast<void>(logged());
        EXPECT_EQ(send_kernel_crash(), -5);
        EXPECT_FALSE(exists(kSent));
        EXPECT_EQ(exists(kCopy), row.has_copy);
        const auto lines = logged();
        ASSERT_FALSE(lines.empty());
        EXPECT_THAT(lines, testing::Contains(
                               StartsWith("[warn ] crash.post_crash(): " + url + row.warning)));
        EXPECT_EQ(lines.back(),
                  "[warn ] crash.send_kernel_crash(): Failed to process kernel crash: -1");
    }
    EXPECT_EQ(send_kernel_crash(), 0);
    EXPECT_TRUE(exists(kSent));
}

} // namespace
