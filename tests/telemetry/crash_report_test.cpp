
#include <ctime>

#include "telemetry/crash_unit.h"

using cloud::Conduct;
using testing::EndsWith;

namespace {

constexpr char kCopy[] = "/var/run/report_payload.txt";
constexpr char kCommand[] = "/var/run/report_payload_cmd.txt";
constexpr char kSent[] = "/var/run/last-crashlog.sent";
constexpr char kMode[] = "/var/run/system.analytics.mode";
constexpr char kAllowed[] = "/var/run/system.analytics.coredump";
constexpr char kConfig[] = "/tmp/system.cfg";
constexpr char kOops[] = "Oops: 17 [#1] SMP ARM passphrase=private\n";
const std::string kDump("ELF\0\xff\nx", 7);

class Crash : public Reporting {
protected:
    Crash() { make_crash_unit(); }
};

TEST_F(Crash, AnalyticsModeOfTheConfiguration)
{
    const std::tuple<const char *, int, int> rows[] = {
        {"", 2, 0},
        {"system.analytics.status=enabled\n", 1, 0},
        {"system.analytics.anonymous=perhaps\nsystem.analytics.status=on\n", 1, 0},
        {"system.analytics.anonymous=true\nsystem.analytics.status=false\n", 0, 0},
        {"system.analytics.anonymous=on\nsystem.analytics.coredump=enabled\n", 2, 1},
    };
    for (const auto &[text, mode, coredump] : rows) {
        file("/run/cfg", text);
        cfg_entry *const cfg = parse("/run/cfg");
        EXPECT_EQ(get_analytics_mode(cfg), mode) << text;
        EXPECT_EQ(get_analytics_coredump_mode(cfg), coredump) << text;
        free_cfg(cfg);
    }
    EXPECT_EQ(is_dir_in_persistent("/etc/persistentX"), 1);
    EXPECT_EQ(is_dir_in_persistent(nullptr), 0);
}

TEST_F(Crash, KeepsACopyOfAReportAndItsCommand)
{
    std::string copy;
    for (const size_t length : {20U, 102400U, 102401U}) {
        const std::string text(length - strlen("{\n  \"a\": \"\"\n}"), 'x');
        const Json report(json_pack("{s:s}", "a", text.c_str()));
        save_crash_payload(report.get());
        copy = length <= 102400 ? "{\n  \"a\": \"" + text + "\"\n}\n" : copy;
        EXPECT_TRUE(read(kCopy) == copy) << length;
    }
    save_crash_payload_cmd("a longer command %s %n");
    save_crash_payload_cmd("tar 50%");
    save_crash_payload_cmd(nullptr);
    EXPECT_EQ(read(kCommand), "tar 50%\n");
    save_crash_payload(nullptr);
    EXPECT_EQ(log_text(),
              R"([info ] crash.save_crash_payload(): Saved crash report payload of 20 bytes
[info ] crash.save_crash_payload(): Saved crash report payload of 102400 bytes
[info ] crash.save_crash_payload(): Skipped saving crash report payload because it was > 100KB (102401)
[error] crash.save_crash_payload(): Invalid payload
)");
}

TEST_F(Crash, BytesThatAreNoUtf8AreReplacedOneByOne)
{
    const Json report(json_object());
    const std::string good = "\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xf0\x90\x80\x80"
                             "\xf4\x8f\xbf\xbf";
    file("/run/text", "caf\xe9|\xe2\x82|\x80|\xc1\xbf|\xe0\x9f\xbf|\xed\xa0\x80|\xf0\x8f\xbf\xbf|"
                      "\xf4\x90\x80\x80|\xf8\x80\x80\x80\x80|" +
                          good + "\xe2\x82");
    libzorv_log_level = 8;
    EXPECT_EQ(json_object_capture_popen(report.get(), "text", "cat /run/text"), 0);
    const std::string shown = "\"caf?|??|?|??|???|???|????|????|?????|" + good + "??\"";
    EXPECT_EQ(dumped(json_object_get(report.get(), "text")),
              std::regex_replace(shown, std::regex("\\?"), "\xef\xbf\xbd"));
    EXPECT_THAT(log_text(), HasSubstr("(): 27 bytes of a text are no UTF-8 and became U+FFFD\n"));
}

TEST_F(Crash, AKernelCrashIsReportedOnce)
{
    file("/run/oops", kOops);
    file(kConfig, "pluvo.anonymous_controller_id=c-1\npluvo.anonymous_site_id=s-1\n"
                  "pluvo.version=9.1.120\npassphrase=private\n");
    file("/proc/zorvhal/system.info", "boardrevision=13\nmanufid=001f\ndevice.anonid=d-1\n");
    file("/proc/zorvhal/status/IsDefault", "true\n");
    serve();
    signal(SIGCHLD, SIG_IGN); // then nobody learns what the command said, and nothing is kept
    EXPECT_EQ(has_oops(), 0);
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(send_kernel_crash() + send_kernel_crash(), 0);
    EXPECT_EQ(
        received(),
        R"(POST crash.dev/v1/kernel-crash {"product_line":"network","anonymous_controller_id":"c-1","anonymous_site_id":"s-1",)"
        R"("anonymous_device_id":"d-1","kernel_version":~,"architecture":~,"bomrev":"13",)"
        R"("manufacturer_id":"31","model":"","version":"6.6.55.15189","is_default":true,)"
        R"("uptime":~,"boot_time":~,"controller_version":"9.1.120","system_time":~,)"
        R"("crash_log":"Oops: 17 [#1] SMP ARM passphrase=*\n","system_cfg":)"
        R"("pluvo.anonymous_controller_id=c-1\npluvo.anonymous_site_id=s-1\n)"
        R"(pluvo.version=9.1.120\npassphrase=*\n","source":"oopsdump","sender":"firmware"})"
        "\n");
    const std::string copy = read(kCopy);
    EXPECT_THAT(copy, EndsWith("\n  \"sender\": \"firmware\"\n}\n"));
    const long now = stol(member(copy, "boot_time")) + stol(member(copy, "uptime"));
    EXPECT_LT(labs(time(nullptr) - now), 4);
    EXPECT_EQ(run(std::string("stat -c '%a %s' ") + kSent).output, "644 0\n");

    // Whether there is an oops is asked once in a process.
    EXPECT_EQ(read("/run/oops"), kOops); // left for oops_clear()
    oops_clear();
    EXPECT_EQ(read("/var/run/last-crashlog.txt"), kOops);
    EXPECT_TRUE(exists(kSent));
    file("/run/oops", kOops);
    EXPECT_EQ(send_kernel_crash(), -1);
    EXPECT_EQ(read("/run/oopsdumps"),
              "oopsdump -e\noopsdump -e\noopsdump \noopsdump \noopsdump -c\n");
    EXPECT_EQ(
        logged().back(),
        "[error] crash.send_kernel_crash(): Tried processing a crash when no crash was found");
}

// Each row is what happens after the ones above it, and the sending of a kernel crash: the result,
// where the report went to, whether a marker and a copy were made, and why it failed.
TEST_F(Crash, AKernelCrashThatIsNotTakenStays)
{
    libzorv_log_level = 2;
    const std::string url = "/v1/kernel-crash", large(5000, 'x');
    serve({{.path = url, .holds = "[404]", .status = 404, .body = large},
           {.path = url, .holds = "[0]", .body = large, .conduct = Conduct::reset},
           {.path = url, .body = "<html>no JSON is asked for here"}});
    const std::string unread = "[warn ] crash.analytics_mode(): Nothing is sent: " +
                               (kMode + std::string(" cannot be read\n"));
    // A file, its text or NULL to remove it, the result and the reason of a failure.
    const std::tuple<const char *, const char *, std::string, std::string> rows[] = {
        {"/run/oops", "[404]", "-5 POST crash.dev copied", "[404] " + large.substr(0, 2048)},
        {"/run/oops", "[0]", "-5 POST crash.dev", "[56] Failure when receiving data from the peer"},
        {"/run/oops", "good", "0 POST crash.dev sent copied", ""},
        {"/var/run/ntp.ready", nullptr, "-2 ", ""},
        {"/var/run/ntp.ready", "", "0 POST crash.dev sent copied", ""},
        {"/var/run/ipready.br0", nullptr, "-2 ", ""},
        {"/var/run/ipready.br0", "", "0 POST crash.dev sent copied", ""},
        {kConfig, "mgmt.kelo.env=stage\n", "0 POST crash.stage sent copied", ""},
        {kConfig, "mgmt.kelo.env=prod\n", "0 POST crash.dev sent copied", ""}, // no release
        {kConfig, "mgmt.kelo.env=prod\nmgmt.kelo.env.force=1\n", "0 POST crash sent copied", ""},
        {kMode, "nonsense\n", "0 POST crash sent copied", ""},
        {kMode, "0\n", "-2 ", ""},
        {kMode, nullptr, "0 POST crash sent copied", ""},
        {"/var/run/system.analytics.mode/folder", "", "-2 ", unread},
    };
    const std::string failed = "[warn ] crash.post_crash(): POST "
                               "'https://crash.dev.zorv.example/v1/kernel-crash' failed: ";
    const std::string end =
        "\n[warn ] crash.send_kernel_crash(): Failed to process kernel crash: -1\n";
    for (const auto &[path, text, want, why] : rows) {
        text ? file(path, text) : remove(path);
        remove(kSent);
        remove(kCopy);
        const std::string rc = std::to_string(send_kernel_crash()), request = received();
        EXPECT_EQ(rc + " " + request.substr(0, request.find("/v1/kernel-crash {unit,")) +
                      (exists(kSent) ? " sent" : "") + (exists(kCopy) ? " copied" : ""),
                  want)
            << path << text;
        EXPECT_EQ(log_text(), why.empty() || why == unread ? why : failed + why + end);
    }
    EXPECT_EQ(send_ram_dump("ram", "bytes", 5), -1);
    EXPECT_EQ(log_text() + received(), unread);
}

TEST_F(Crash, DumpsAreAnnouncedAndUploaded)
{
    serve({{.path = "/v1/crash",
            .body = R"({"id":7,"upload_url":"https://crash.dev.zorv.example/put?key=a%20b"})"},
           {.path = "/put?key=a%20b"}});
    std::string lines, last;
    for (int i = 0; i < 300; ++i) {
        const std::string line = std::to_string(i) + (i % 50 == 0 ? " httpd[812]:" : " a[812]:");
        lines += line + " passphrase=private\n";
        last += i >= 200 ? line + " passphrase=*\\n" : "";
    }
    file("/var/log/messages", lines);
    file("/run/log", lines + "Collecting RAMDUMP of wifi0\nlater\n");
    const std::string begin = R"(POST crash.dev/v1/crash {unit,"crash_log":")";
    const std::string process = R"(,"cmd":"httpd","signal":11,"number_of_crashes":3,)"
                                R"("process_uptime":90061,"process_stdout":")"
                                R"(200 httpd[812]: passphrase=*\n250 httpd[812]: passphrase=*\n"})"
                                "\n";
    const std::string put = "PUT crash.dev/put?key=a%20b " + kDump + "\n";
    const std::tuple<const char *, const char *, int, int, std::string, bool> rows[] = {
        {"1\n", kDump.data(), 7, 0, "core-dump", true},
        {"1\n", nullptr, 7, 1, "app-crash", false},
        {"1\n", kDump.data(), 0, 2, "oom-kill", false},
        {"1\n", kDump.data(), -1, 4, "unknown", false},
        {"", kDump.data(), 7, 0, "core-dump", false},
    };
    for (const auto &[allowed, data, length, type, name, is_uploaded] : rows) {
        file(kAllowed, allowed);
        EXPECT_EQ(send_crash_binary_data("httpd", 812, 11, 3, 90061, data, length, type), 0);
        EXPECT_EQ(received(), begin + last + R"(","type":")" + name + R"(","upload":)" +
                                  (is_uploaded ? "true" + process + put : "false" + process));
    }
    EXPECT_EQ(logged().back(), "[info ] crash.send_crash_binary_data(): Binary dump upload "
                               "disabled by system settings");
    file(kAllowed, "1");
    EXPECT_EQ(send_crash_binary_data("a\"; sh; \"", 1, 1, 1, 5, nullptr, 0, 0), 0); // runs nothing
    EXPECT_THAT(received(), EndsWith("\"process_uptime\":5}\n"));
    EXPECT_EQ(send_ram_dump("wifi0", kDump.data(), 7), 0);
    const std::string sent = received();
    EXPECT_THAT(sent, StartsWith(begin + "100 httpd[812]: passphrase=*\\n101"));
    EXPECT_THAT(sent, EndsWith(R"(Collecting RAMDUMP of wifi0\n","system_cfg":)"
                               R"("wireless.1.passphrase=*\n","type":"ram-dump","upload":true,)"
                               R"("dump_type":"wifi0"})"
                               "\n" +
                               put));
    EXPECT_EQ(send_ram_dump(nullptr, nullptr, 0), 0);
    EXPECT_THAT(received(), EndsWith("\"dump_type\":\"\"}\n"));
}

TEST_F(Crash, AnswersToADumpAndItsUpload)
{
    file(kAllowed, "1");
    libzorv_log_level = 2;
    const auto to = [](const std::string &url) { return R"({"upload_url":")" + url + "\"}"; };
    const std::string url = "https://crash.dev.zorv.example/put", good = to(url), large(3000, 'y');
    const std::string put = "upload_file(): PUT '", failed = put + url + "' failed: [";
    const std::string unsupported = "' failed: [1] Unsupported protocol";
    const std::string none = "send_crash_binary_data(): No upload_url in response";
    const std::string unparsed = "post_crash(): Failed to parse response: ";
    const std::tuple<std::string, int, std::string, cloud::Answer> rows[] = {
        {"{}", 0, none, {}},
        {R"({"upload_url":7})", 0, none, {}},
        {"", -1, unparsed + "'[' or '{' expected near end of file at line 1, column 0", {}},
        {to("\xff"), -1, unparsed, {}},
        {"\x7f", -1, unparsed + "'[' or '{' expected near ' ' at", {}},
        {to(std::string(2100, 'x')), -1, unparsed, {}}, // cut at 2048
        {std::string(2048, '['), -1, unparsed, {}},
        {good, -1, failed + "500] f  l\n", {.status = 500, .body = "f\n\x1bl"}},
        {good, -1, failed + "201] " + large.substr(952) + "\n", {.status = 201, .body = large}},
        {good, -1, failed, {.conduct = Conduct::hang_up}},
        {to("HTTP://127.0.0.1:1"), -1, put + "HTTP://127.0.0.1:1' failed: [7] ", {}},
        {to("file:///tmp/secret"), -1, put + "file:///tmp/secret" + unsupported, {}},
    };
    const std::string version = "[warn ] crash.generate_common_payload(): Couldn't obtain firmware "
                                "version! error code = -2\n[warn ] crash.";
    remove("/usr/etc/.version");
    for (auto [body, rc, log, upload] : rows) {
        upload.path = "/put";
        serve({{.path = "/v1/crash", .body = body}, upload});
        EXPECT_EQ(send_crash_binary_data("httpd", 812, 11, 3, 90061, kDump.data(), 7, 0), rc);
        EXPECT_THAT(log_text(), StartsWith(version + log)) << body;
    }
}

} // namespace
