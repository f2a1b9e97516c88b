#include <zorv/crash.h>

#include <cstring>
#include <ctime>

#include <sys/stat.h>
#include <sys/utsname.h>

#include "telemetry/crash_unit.h"

using cloud::Conduct;
using testing::EndsWith;

namespace {

constexpr char kCopy[] = "/var/run/report_payload.txt";
constexpr char kCommand[] = "/var/run/report_payload_cmd.txt";
constexpr char kSent[] = "/var/run/last-crashlog.sent";
constexpr char kMode[] = "/var/run/system.analytics.mode";
constexpr char kAllowed[] = "/var/run/system.analytics.coredump";
constexpr char kOops[] = "Oops: 17 [#1] SMP ARM passphrase=private\n";
const std::string kDump("ELF\0\xff\nx", 7);

TEST_F(Crash, AnalyticsModeOfTheConfiguration)
{
    constexpr struct {
        const char *text;
        int mode, coredump;
    } kRows[] = {
        {"", 2, 0},
        {"system.analytics.status=enabled\n", 1, 0},
        {"system.analytics.anonymous=false\n", 1, 0},
        {"system.analytics.anonymous=perhaps\nsystem.analytics.status=on\n", 1, 0},
        {"system.analytics.anonymous=true\nsystem.analytics.status=false\n", 0, 0},
        {"system.analytics.anonymous=on\nsystem.analytics.status=on\n", 2, 0},
        {"system.analytics.coredump=enabled\n", 2, 1},
        {"system.analytics.coredump=maybe\n", 2, 0},
    };
    for (const auto &row : kRows) {
        file("/run/cfg", row.text);
        cfg_entry *const cfg = parse("/run/cfg");
        EXPECT_EQ(get_analytics_mode(cfg), row.mode) << row.text;
        EXPECT_EQ(get_analytics_coredump_mode(cfg), row.coredump) << row.text;
        free_cfg(cfg);
    }
    for (const char *path : {"/etc/persistent", "/etc/persistent/cfg/", "/etc/persistentX"})
        EXPECT_EQ(is_dir_in_persistent(path), 1) << path;
    for (const char *path : {"/etc/persisten", "/tmp/etc/persistent", ""})
        EXPECT_EQ(is_dir_in_persistent(path), 0) << path;
    EXPECT_EQ(is_dir_in_persistent(nullptr), 0);
}

TEST_F(Crash, KeepsACopyOfAReportAndItsCommand)
{
    const auto save = [](size_t length) { // of the copy
        Json report(json_object());
        const std::string text(length - strlen("{\n  \"a\": \"\"\n}"), 'x');
        json_object_set_new(report.get(), "a", json_string(text.c_str()));
        save_crash_payload(report.get());
        return "{\n  \"a\": \"" + text + "\"\n}\n";
    };
    const std::string kept = save(102400);
    EXPECT_TRUE(read(kCopy) == kept);
    save(102401);
    save_crash_payload(nullptr);
    EXPECT_TRUE(read(kCopy) == kept);
    const std::string small = save(20);
    EXPECT_EQ(read(kCopy), small);
    save_crash_payload_cmd("a longer command %s %n");
    save_crash_payload_cmd("tar 50%");
    save_crash_payload_cmd(nullptr);
    EXPECT_EQ(read(kCommand), "tar 50%\n");
    for (const std::string path : {kCopy, kCommand}) {
        remove(path);
        file(path + "/file", "");
    }
    save(20);
    save_crash_payload_cmd("tar");
    EXPECT_EQ(log_text(),
              "[info ] crash.save_crash_payload(): Saved crash report payload of 102400 bytes\n"
              "[info ] crash.save_crash_payload(): Skipped saving crash report payload because it "
              "was > 100KB (102401)\n"
              "[error] crash.save_crash_payload(): Invalid payload\n"
              "[info ] crash.save_crash_payload(): Saved crash report payload of 20 bytes\n"
              "[error] crash.save_crash_payload(): Failed opening file for saving crash report "
              "payload\n"
              "[error] crash.save_crash_payload_cmd(): Failed opening file for saving crash report "
              "payload command\n");
}

TEST_F(Crash, CapturesWhatACommandPrints)
{
    libzorv_log_level = 1; // the statuses of commands are exec.h's warnings
    constexpr struct {
        const char *command;
        int rc;
        const char *value;
    } kRows[] = {
        {"printf 'two\\nlines\\n'", 0, "\"two\\nlines\\n\""},
        {"true", 0, "\"\""},
        {"echo before; exit 3", 0, "\"before\\n\""},
        {"/nowhere/tool 2>/dev/null", 0, "\"\""},
        {"printf 'a\\000b'", 0, "\"a\""},
        {"printf 'caf\\351'", -1, "\"kept\""}, // not UTF-8
        {nullptr, 0, "\"kept\""},
    };
    const Json object(json_object());
    for (const auto &row : kRows) {
        json_object_set_new(object.get(), "x", json_string("kept"));
        EXPECT_EQ(json_object_capture_popen(object.get(), "x", row.command), row.rc) << row.value;
        EXPECT_EQ(member(object.get(), "x"), row.value);
    }
    EXPECT_EQ(json_object_capture_popen(object.get(), "x", "yes | head -c 1100000"), 0);
    EXPECT_EQ(json_string_length(json_object_get(object.get(), "x")), (1U << 20) - 1);
    EXPECT_EQ(json_object_capture_popen(Json(json_array()).get(), "x", "true"), -1);
    EXPECT_EQ(log_text(), "");
}

TEST_F(Crash, AKernelCrashIsReportedOnce)
{
    file("/run/oops", kOops);
    file("/tmp/system.cfg", "pluvo.anonymous_controller_id=c-1\npluvo.anonymous_site_id=s-1\n"
                            "pluvo.version=9.1.120\nmgmt.kelo.env.force=1\npassphrase=private\n");
    file("/proc/zorvhal/system.info", "boardrevision=13\nmanufid=001f\ndevice.anonid=d-1\n");
    file("/proc/zorvhal/status/IsDefault", "true\n");
    serve();
    const time_t before = time(nullptr);
    EXPECT_EQ(send_kernel_crash(), 0);
    EXPECT_EQ(send_kernel_crash(), 0);
    const auto requests = host_->received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    const Json report = loaded(requests[0].body);
    EXPECT_EQ(steady(requests[0].body),
              R"({"product_line":"network","anonymous_controller_id":"c-1",)"
              R"("anonymous_site_id":"s-1","anonymous_device_id":"d-1","kernel_version":~,)"
              R"("architecture":~,"bomrev":"13","manufacturer_id":"31","model":"",)"
              R"("version":"6.6.55.15189","is_default":true,"uptime":~,"boot_time":~,)"
              R"("controller_version":"9.1.120","system_time":~,)"
              R"("crash_log":"Oops: 17 [#1] SMP ARM passphrase=*\n","system_cfg":)"
              R"("pluvo.anonymous_controller_id=c-1\npluvo.anonymous_site_id=s-1\n)"
              R"(pluvo.version=9.1.120\nmgmt.kelo.env.force=1\npassphrase=*\n",)"
              R"("source":"oopsdump","sender":"firmware"})");
    utsname kernel;
    ASSERT_EQ(uname(&kernel), 0);
    EXPECT_EQ(member(report.get(), "kernel_version"), std::string("\"") + kernel.release + "\"");
    EXPECT_EQ(member(report.get(), "architecture"), std::string("\"") + kernel.machine + "\"");
    const auto boot = json_integer_value(json_object_get(report.get(), "boot_time"));
    const auto uptime = json_integer_value(json_object_get(report.get(), "uptime"));
    EXPECT_NEAR(static_cast<double>(boot + uptime), static_cast<double>(before), 2);
    char expected[64];
    strftime(expected, sizeof expected, "\"%Y-%m-%dT%H:", localtime(&before));
    EXPECT_THAT(member(report.get(), "system_time"), StartsWith(expected));

    EXPECT_THAT(read(kCopy), HasSubstr("\n  \"sender\": \"firmware\"\n}\n"));
    struct stat marker;
    ASSERT_EQ(stat(kSent, &marker), 0);
    EXPECT_EQ(marker.st_mode, static_cast<mode_t>(S_IFREG | 0644));
    EXPECT_EQ(marker.st_size, 0);
    EXPECT_EQ(read("/run/oops"), kOops); // left for oops_clear()
    EXPECT_EQ(read("/run/oopsdumps"), "oopsdump -e\noopsdump \n");
}

// Each row is what happens after the ones above it, and the sending of a kernel crash.
TEST_F(Crash, AKernelCrashThatIsNotTakenStays)
{
    const std::string path = "/v1/kernel-crash", large(5000, 'x');
    serve({{.path = path, .holds = "[500]", .status = 500, .body = "out of order"},
           {.path = path, .holds = "[204]", .status = 204},
           {.path = path, .holds = "[404]", .status = 404, .body = large},
           {.path = path, .holds = "[0]", .body = large, .conduct = Conduct::reset},
           {.path = path, .body = "<html>no JSON is asked for here"}});
    const std::string failed = "[warn ] crash.post_crash(): POST "
                               "'https://crash.dev.zorv.example/v1/kernel-crash' failed: ";
    const struct {
        const char *path, *text; // of a file, NULL removes it
        int rc;
        const char *host;
        std::string why;
    } rows[] = {
        {"/run/oops", "[500]", -5, "crash.dev", failed + "[500] out of order\n"},
        {"/run/oops", "[204]", -5, "crash.dev", failed + "[204] \n"},
        {"/run/oops", "[404]", -5, "crash.dev", failed + "[404] " + large.substr(0, 2048) + "\n"},
        {"/run/oops", "[0]", -5, "crash.dev", failed + "[56] Failure when receiving data"},
        {"/run/oops", "good", 0, "crash.dev", ""},
        {"/var/run/ntp.ready", nullptr, -2, "", ""},
        {"/var/run/ntp.ready", "", 0, "crash.dev", ""},
        {"/var/run/ipready.br0", nullptr, -2, "", ""},
        {"/var/run/ipready.br0", "", 0, "crash.dev", ""},
        {kMode, "0\n", -2, "", ""},
        {kMode, "1\n", 0, "crash.dev", ""},
        {kMode, "2\n", 0, "crash.dev", ""},
        {kMode, "nonsense\n", 0, "crash.dev", ""},
        {"/tmp/system.cfg", "mgmt.kelo.env=stage\n", 0, "crash.stage", ""},
        {"/tmp/system.cfg", "mgmt.kelo.env=prod\n", 0, "crash.dev", ""}, // no release
        {"/tmp/system.cfg", "mgmt.kelo.env=prod\nmgmt.kelo.env.force=enabled\n", 0, "crash", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path + std::string(row.text ? row.text : " removed"));
        row.text ? file(row.path, row.text) : remove(row.path);
        remove(kSent);
        remove(kCopy);
        logged();
        EXPECT_EQ(send_kernel_crash(), row.rc);
        EXPECT_EQ(exists(kSent), row.rc == 0);
        EXPECT_EQ(exists(kCopy), *row.host && read("/run/oops") != "[0]"); // after an answer
        const std::string begin =
            *row.host ? std::string("POST ") + row.host + path + " {unit," : "";
        EXPECT_THAT(received(), StartsWith(begin));
        const std::string lines = log_text();
        EXPECT_THAT(lines, HasSubstr(row.why));
        EXPECT_EQ(lines.empty(), row.rc == -2);
        EXPECT_EQ(lines.ends_with("[warn ] crash.send_kernel_crash(): Failed to process kernel "
                                  "crash: -1\n"),
                  row.rc == -5);
    }
    file(kMode, "0\n");
    EXPECT_EQ(send_ram_dump("ram", "bytes", 5), -1);
    EXPECT_EQ(log_text() + received(), "");
}

TEST_F(Crash, AnOopsIsLookedForOnceInAProcess)
{
    EXPECT_EQ(has_oops(), 0);
    file("/run/oops", kOops);
    EXPECT_EQ(has_oops(), 0);
    EXPECT_EQ(send_kernel_crash(), -1);
    EXPECT_EQ(read("/run/oopsdumps"), "oopsdump -e\n");
    EXPECT_EQ(log_text(), "[error] crash.send_kernel_crash(): Tried processing a crash when no "
                          "crash was found\n");
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
}

TEST_F(Crash, DumpsAreAnnouncedAndUploaded)
{
    serve({{.path = "/v1/crash",
            .body = R"({"id":7,"upload_url":"https://crash.dev.zorv.example/put?key=a%20b"})"},
           {.path = "/put?key=a%20b"}});
    std::string lines, last;
    for (int i = 0; i < 300; ++i) {
        const std::string number = "line " + std::to_string(i);
        const char *const process = i % 50 == 0 ? " httpd[812]: " : " httpd[8120]: ";
        lines += number + process + "passphrase=private\n";
        last += i >= 200 ? number + process + "passphrase=*\\n" : "";
    }
    file("/var/log/messages", lines);
    file("/run/log", lines + "kernel: Collecting RAMDUMP of wifi0\nlater\n");
    const std::string begin = R"(POST crash.dev/v1/crash {unit,"crash_log":")";
    const std::string core = begin + last + R"(","type":"core-dump","upload":)";
    const std::string process =
        R"(,"cmd":"httpd","signal":11,"number_of_crashes":3,)"
        R"("process_uptime":90061,"process_stdout":"line 200 httpd[812]: passphrase=*\n)"
        R"(line 250 httpd[812]: passphrase=*\n"})"
        "\n";
    const std::string put = "PUT crash.dev/put?key=a%20b " + kDump + "\n";
    const struct {
        const char *allowed; // NULL for no file
        const char *data;
        int length;
        std::string received;
    } rows[] = {
        {"1\n", kDump.data(), 7, core + "true" + process + put},
        {"1\n", nullptr, 7, core + "false" + process},
        {"1\n", kDump.data(), 0, core + "false" + process},
        {"1\n", kDump.data(), -1, core + "false" + process},
        {nullptr, kDump.data(), 7, core + "false" + process},
        {"0\n", kDump.data(), 7, core + "false" + process},
        {"2\n", kDump.data(), 7, core + "false" + process},
        {"enabled\n", kDump.data(), 7, core + "false" + process},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.allowed ? row.allowed : "NULL");
        remove(kAllowed);
        if (row.allowed)
            file(kAllowed, row.allowed);
        logged();
        EXPECT_EQ(send_crash_binary_data("httpd", 812, 11, 3, 90061, row.data, row.length, 0), 0);
        EXPECT_EQ(received(), row.received);
        const bool is_refused =
            row.data && row.length > 0 && row.received == core + "false" + process;
        EXPECT_EQ(log_text().ends_with(
                      "[info ] crash.send_crash_binary_data(): Binary dump upload disabled by "
                      "system settings\n"),
                  is_refused);
    }
    file(kAllowed, "1");
    EXPECT_EQ(send_ram_dump("wifi0", kDump.data(), 7), 0);
    const std::string sent = received();
    EXPECT_THAT(sent, StartsWith(begin + "line 100 httpd[812]: passphrase=*\\nline 101"));
    EXPECT_THAT(
        sent,
        EndsWith(
            R"(kernel: Collecting RAMDUMP of wifi0\n","system_cfg":)"
            R"("wireless.1.passphrase=*\n","type":"ram-dump","upload":true,"dump_type":"wifi0"})"
            "\n" +
            put));

    file("/var/log/messages", "");
    constexpr std::pair<int, const char *> kTypes[] = {
        {1, "app-crash"}, {2, "oom-kill"}, {4, "unknown"}, {-1, "unknown"}};
    for (const auto &[type, name] : kTypes) {
        EXPECT_EQ(send_crash_binary_data(nullptr, 1, 9, 1, 2, nullptr, 0, type), 0);
        EXPECT_EQ(received(), begin + R"(","type":")" + name +
                                  R"(","upload":false,"cmd":"","signal":9,"number_of_crashes":1,)"
                                  R"("process_uptime":2,"process_stdout":""})"
                                  "\n");
    }
}

TEST_F(Crash, AUnitWithoutAVersionReportsNone)
{
    remove("/usr/etc/.version");
    remove("/tmp/system.cfg");
    serve();
    EXPECT_EQ(send_ram_dump(nullptr, nullptr, 0), 0);
    EXPECT_EQ(
        received(),
        R"(POST crash.dev/v1/crash {"product_line":"network","kernel_version":~,)"
        R"("architecture":~,"bomrev":"-1","manufacturer_id":"0","model":"","version":"unknown.0",)"
        R"("is_default":false,"uptime":~,"boot_time":~,"controller_version":"unknown",)"
        R"("system_time":~,"crash_log":"","system_cfg":"","type":"ram-dump","upload":false,)"
        R"("dump_type":""})"
        "\n");
    EXPECT_THAT(logged(), Contains("[warn ] crash.generate_common_payload(): Couldn't "
                                   "obtain firmware version! error code = -2"));
}

TEST_F(Crash, AnswersToADumpAndItsUpload)
{
    file(kAllowed, "1");
    file("/tmp/secret", "the unit's own");
    const std::string none = "[warn ] crash.send_crash_binary_data(): No upload_url in response\n";
    const std::string unparsed = "[warn ] crash.post_crash(): Failed to parse response: ";
    const std::string url = "https://crash.dev.zorv.example/put",
                      good = "{\"upload_url\":\"" + url + "\"}";
    const std::string put = "[warn ] crash.upload_file(): PUT '", failed = put + url + "' failed: ";
    const std::string unsupported = "' failed: [1] Unsupported protocol\n";
    const struct {
        std::string body;
        cloud::Answer upload;
        int rc;
        std::string last; // of the log
    } rows[] = {
        {"{}", {}, 0, none},
        {"[]", {}, 0, none},
        {R"({"upload_url":7})", {}, 0, none},
        {R"({"Upload_URL":"https://crash.dev.zorv.example/put"})", {}, 0, none},
        {"", {}, -1, unparsed + "'[' or '{' expected near end of file at line 1, column 0\n"},
        {"<html>", {}, -1, unparsed + "'[' or '{' expected near '<' at line 1, column 1\n"},
        {"{\"upload_url\":\"\xff\"}", {}, -1, unparsed},
        {R"({"upload_url":")" + std::string(2100, 'x') + "\"}", {}, -1, unparsed}, // cut at 2048
        {std::string(2048, '['), {}, -1, unparsed},
        {good, {.status = 500, .body = "full"}, -1, failed + "[500] full\n"},
        {good,
         {.status = 201, .body = std::string(3000, 'y')},
         -1,
         failed + "[201] " + std::string(2048, 'y') + "\n"},
        {good, {.conduct = Conduct::hang_up}, -1, failed + "["},
        {R"({"upload_url":"https://nowhere.zorv.example/"})",
         {},
         -1,
         put + "https://nowhere.zorv.example/' failed: [6] Couldn't resolve host name\n"},
        {R"({"upload_url":"file:///tmp/secret"})",
         {},
         -1,
         put + "file:///tmp/secret" + unsupported},
        {R"({"upload_url":"dict://127.0.0.1:443/a"})",
         {},
         -1,
         put + "dict://127.0.0.1:443/a" + unsupported},
        {R"({"upload_url":"/tmp/secret"})", {}, -1, put + "/tmp/secret" + unsupported},
        {R"({"upload_url":""})", {}, -1, put + unsupported},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.body.substr(0, 60));
        cloud::Answer upload = row.upload;
        upload.path = "/put";
        serve({{.path = "/v1/crash", .body = row.body}, upload});
        EXPECT_EQ(send_crash_binary_data("httpd", 812, 11, 3, 90061, kDump.data(), 7, 0), row.rc);
        EXPECT_THAT(log_text(), HasSubstr(row.last));
    }
}

} // namespace
