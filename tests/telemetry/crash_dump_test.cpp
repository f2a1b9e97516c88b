#include <zorv/crash.h>

#include <cstring>

#include "telemetry/crash_unit.h"

using cloud::Conduct;

namespace {

constexpr char kAllowed[] = "/var/run/system.analytics.coredump";
constexpr char kDump[] = {'E', 'L', 'F', '\0', '\xff', '\n', 'x'};
constexpr int kLength = sizeof kDump;
constexpr char kUrl[] = R"({"id":7,"upload_url":"https://crash.dev.zorv.example/put?key=a%20b"})";

cloud::Script uploading_service(const std::string &body = kUrl, const cloud::Answer &put = {})
{
    cloud::Answer upload = put;
    upload.path = "/put?key=a%20b";
    return {.sites = {{"crash.dev.zorv.example"}},
            .answers = {{.path = "/v1/crash", .body = body}, upload}};
}

int send_core_dump()
{
    return send_crash_binary_data("httpd", 812, 11, 3, 90061, kDump, kLength, 0);
}

TEST_F(Crash, ACoreDumpIsAnnouncedAndUploaded)
{
    std::string lines;
    for (int i = 0; i < 150; ++i)
        lines += "line " + std::to_string(i) + (i % 50 == 0 ? " httpd[812]: " : " httpd[8120]: ") +
                 kPassphrase + "\n";
    file("/var/log/messages", lines);
    file(kAllowed, "1\n");
    CloudHost host(uploading_service());
    const int before = open_descriptors();
    EXPECT_EQ(send_core_dump(), 0);
    EXPECT_EQ(open_descriptors(), before);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 2U);
    const Json report = loaded(requests[0].body);
    const std::pair<const char *, const char *> rows[] = {
        {"type", "\"core-dump\""},
        {"upload", "true"},
        {"cmd", "\"httpd\""},
        {"signal", "11"},
        {"number_of_crashes", "3"},
        {"process_uptime", "90061"},
        {"dump_type", ""},
        {"system_cfg", ""},
        {"process_stdout",
         R"("line 50 httpd[812]: passphrase=*\nline 100 httpd[812]: passphrase=*\n")"},
    };
    for (const auto &[name, value] : rows)
        EXPECT_EQ(member(report.get(), name), value) << name;
    const std::string log = member(report.get(), "crash_log");
    EXPECT_THAT(log, StartsWith("\"line 50 httpd[812]: passphrase=*\\nline 51 httpd[8120]:"));
    EXPECT_EQ(log.find("private"), log.npos);
    EXPECT_EQ(requests[1].method, "PUT");
    EXPECT_EQ(requests[1].path, "/put?key=a%20b");
    EXPECT_EQ(requests[1].body, std::string(kDump, kLength));
}

TEST_F(Crash, ARamDumpHasTheLinesBeforeIt)
{
    std::string lines;
    for (int i = 0; i < 300; ++i)
        lines += "line " + std::to_string(i) + "\n";
    file("/run/log", lines + "kernel: Collecting RAMDUMP of wifi0\nlater\n");
    file(kAllowed, "1");
    CloudHost host(uploading_service());
    EXPECT_EQ(send_ram_dump("wifi0", kDump, kLength), 0);
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 2U);
    const Json report = loaded(requests[0].body);
    EXPECT_EQ(member(report.get(), "type"), "\"ram-dump\"");
    EXPECT_EQ(member(report.get(), "dump_type"), "\"wifi0\"");
    EXPECT_EQ(member(report.get(), "process_stdout"), "");
    EXPECT_EQ(member(report.get(), "system_cfg"), "\"wireless.1.passphrase=*\\n\"");
    const std::string log = member(report.get(), "crash_log");
    EXPECT_THAT(log, StartsWith("\"line 100\\n"));
    EXPECT_THAT(log, testing::EndsWith("line 299\\nkernel: Collecting RAMDUMP of wifi0\\n\""));
}

TEST_F(Crash, TypesOfDumps)
{
    CloudHost host(uploading_service());
    const std::pair<int, const char *> rows[] = {
        {0, "core-dump"}, {1, "app-crash"}, {2, "oom-kill"}, {4, "unknown"}, {-1, "unknown"}};
    for (const auto &[type, name] : rows) {
        EXPECT_EQ(send_crash_binary_data(nullptr, 1, 9, 1, 2, nullptr, 0, type), 0);
        const auto requests = host.received();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(member(requests[0].body, "type"), "\"" + std::string(name) + "\"");
        EXPECT_EQ(member(requests[0].body, "cmd"), "\"\"");
    }
}

TEST_F(Crash, BytesLeaveOnlyWhenThereAreSomeAndItIsAllowed)
{
    CloudHost host(uploading_service());
    const struct {
        const char *what, *allowed;
        const char *data;
        int length;
        const char *upload;
        size_t requests;
    } rows[] = {
        {"allowed", "1\n", kDump, kLength, "true", 2},
        {"no bytes", "1\n", nullptr, kLength, "false", 1},
        {"length 0", "1\n", kDump, 0, "false", 1},
        {"length -1", "1\n", kDump, -1, "false", 1},
        {"no file", nullptr, kDump, kLength, "false", 1},
        {"0", "0\n", kDump, kLength, "false", 1},
        {"2", "2\n", kDump, kLength, "false", 1},
        {"a word", "enabled\n", kDump, kLength, "false", 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        remove(kAllowed);
        if (row.allowed)
            file(kAllowed, row.allowed);
        static_cast<void>(logged());
        EXPECT_EQ(send_crash_binary_data("a", 1, 6, 1, 1, row.data, row.length, 0), 0);
        const auto requests = host.received();
        ASSERT_EQ(requests.size(), row.requests);
        EXPECT_EQ(member(requests[0].body, "upload"), row.upload);
        const bool is_refused = row.data && row.length > 0 && row.requests == 1;
        const std::string last = logged().back();
        EXPECT_EQ(last == "[info ] crash.send_crash_binary_data(): Binary dump upload disabled by "
                          "system settings",
                  is_refused)
            << last;
    }
}

TEST_F(Crash, AnswersThatNameNoPlaceForTheBytes)
{
    file(kAllowed, "1");
    const std::string none = "[warn ] crash.send_crash_binary_data(): No upload_url in response";
    const std::string unparsed = "[warn ] crash.post_crash(): Failed to parse response: ";
    const struct {
        std::string body;
        int rc;
        std::string warning;
    } rows[] = {
        {"{}", 0, none},
        {"[]", 0, none},
        {R"({"upload_url":7})", 0, none},
        {R"({"Upload_URL":"https://crash.dev.zorv.example/put"})", 0, none},
        {"", -1, unparsed + "'[' or '{' expected near end of file at line 1, column 0"},
        {"<html>", -1, unparsed + "'[' or '{' expected near '<' at line 1, column 1"},
        {"{\"upload_url\":\"\xff\"}", -1, unparsed},
        {R"({"upload_url":")" + std::string(2100, 'x') + "\"}", -1, unparsed}, // cut at 2048
        {std::string(2048, '['), -1, unparsed},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.body.substr(0, 60));
        CloudHost host(uploading_service(row.body));
        EXPECT_EQ(send_core_dump(), row.rc);
        EXPECT_THAT(logged(), Contains(StartsWith(row.warning)));
        EXPECT_THAT(host.received(), testing::SizeIs(1));
        remove("/run/cloud");
    }
}

TEST_F(Crash, AnUploadThatFailsIsAFailure)
{
    file(kAllowed, "1");
    file("/tmp/secret", "the unit's own");
    const std::string unsupported = "[1] Unsupported protocol";
    const std::string good = "https://crash.dev.zorv.example/put?key=a%20b";
    const struct {
        std::string url;
        cloud::Answer answer;
        std::string why;
    } rows[] = {
        {good, {.status = 500, .body = "full"}, "[500] full"},
        {good, {.status = 201, .body = std::string(3000, 'y')}, "[201] " + std::string(2048, 'y')},
        {good, {.conduct = Conduct::hang_up}, "["},
        {good, {.conduct = Conduct::silent}, "[28] Timeout was reached"},
        {"https://nowhere.zorv.example/", {}, "[6] Couldn't resolve host name"},
        {"file:///tmp/secret", {}, unsupported},
        {"dict://127.0.0.1:443/a", {}, unsupported},
        {"/tmp/secret", {}, unsupported},
        {"", {}, unsupported},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url + " " + row.why.substr(0, 40));
        CloudHost host(uploading_service("{\"upload_url\":\"" + row.url + "\"}", row.answer));
        EXPECT_EQ(send_core_dump(), -1);
        EXPECT_THAT(logged().back(), StartsWith("[warn ] crash.upload_file(): PUT '" + row.url +
                                                "' failed: " + row.why));
        remove("/run/cloud");
    }
}

} // namespace
