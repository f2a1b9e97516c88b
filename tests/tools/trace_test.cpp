#include <string>

#include <jansson.h>

#include "support/cloud_host.h"
#include "support/device.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr char kMode[] = "/var/run/system.analytics.mode";

class ZorvctlTrace : public Device {
protected:
    ZorvctlTrace()
    {
        kernel_proc(); // for the sanitizers of zorvctl
        file("/usr/lib/build.properties", "scm_reftype=atag\n");
    }

    static Outcome trace(const std::string &arguments)
    {
        return run(ZORVCTL " trace " + arguments);
    }
};

cloud::Script service(int status)
{
    return {.sites = {{"trace.zorv.example"}},
            .answers = {{.path = "/traces", .method = "PUT", .status = status}}};
}

// A document with the times, which are the moment's, taken out.
std::string without_times(std::string text)
{
    const std::string key = "\"timestamp\":";
    for (size_t at = 0; (at = text.find(key, at)) != text.npos; at += key.size())
        text.erase(at + key.size(), text.find(',', at) - at - key.size());
    return text;
}

TEST_F(ZorvctlTrace, SendsWhatTheDryRunShows)
{
    CloudHost host(service(202));
    file("/tmp/data", "{\"b\": [2, 3]}\n");
    const std::string arguments = "send radio 'caf\xc3\xa9' --data '{\"a\":1}' --data @/tmp/data "
                                  "--source port=eth0 --meta 'k=v=w' --meta e= --timestamp 7";
    const Outcome shown = trace(arguments + " --dry-run");
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.errors, "");
    EXPECT_THAT(host.received(), IsEmpty());

    const Outcome sent = trace(arguments + " --json");
    EXPECT_EQ(sent.status, 0);
    EXPECT_EQ(sent.output, R"({"url":"https://trace.zorv.example/traces","requests":)"
                           R"([{"traces":2,"result":0,"name":"accepted"}]})"
                           "\n");
    const auto requests = host.received();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(without_times(shown.output),
              "PUT https://trace.zorv.example/traces\n" + without_times(requests[0].body) + "\n");
    const std::string rest = R"(,"timestamp":7,"type":"café","namespace":"radio",)"
                             R"("source":{"port":"eth0"},"meta":{"k":"v=w","e":""}})";
    EXPECT_THAT(requests[0].body,
                testing::EndsWith(R"("traces":[{"payload":{"contentType":"application/json",)"
                                  R"("data":"{\"a\":1}"})" +
                                  rest +
                                  R"(,{"payload":{"contentType":"application/json",)"
                                  R"("data":"{\"b\":[2,3]}"})" +
                                  rest + "]}"));

    EXPECT_EQ(trace("send a b --data '{}' --data '{}' --data '{}' --each").status, 0);
    EXPECT_EQ(trace("send a b").status, 0);
    EXPECT_EQ(host.received().size(), 4U);
}

TEST_F(ZorvctlTrace, RefusesWhatIsNoTrace)
{
    CloudHost host(service(202));
    const struct {
        const char *arguments, *message;
    } rows[] = {
        {"a", "TYPE is required"},
        {"a b --data '{'", "{: "},
        {"a b --data '[]'", "[]: not a JSON object"},
        {"a b --data '{}' --data 1", "1: "},
        {"a b --data @/dev/null", "@/dev/null: "},
        {"a b --meta k", "k: not KEY=VALUE"},
        {"a \"$(printf '\\377')\"", "TYPE: not UTF-8"},
        {"a b --meta \"$(printf 'k=\\377')\"", "k=\\xff: not UTF-8"},
        {"a b --timestamp soon", "soon"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = trace(std::string("send ") + row.arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.errors, HasSubstr(row.message));
    }
    EXPECT_EQ(trace("send a b --data @/tmp/none").status, 5);
    EXPECT_THAT(host.received(), IsEmpty());
}

TEST_F(ZorvctlTrace, TellsFailuresFromGates)
{
    std::string each = "send a b --each --json";
    for (int i = 0; i < 6; ++i)
        each += " --data '{}'";
    const Outcome nobody = trace("-v send a b");
    EXPECT_EQ(nobody.status, 5);
    EXPECT_THAT(nobody.output, HasSubstr("1       1  failed"));
    EXPECT_THAT(nobody.errors, HasSubstr("failed: [6] Couldn't resolve host name"));
    const std::string failed = R"({"traces":1,"result":1,"name":"failed"},)";
    const Outcome backing_off = trace(each); // the sixth comes within a second of the fifth
    EXPECT_EQ(backing_off.status, 4);
    EXPECT_THAT(backing_off.output, HasSubstr(failed + failed + failed + failed + failed +
                                              R"({"traces":1,"result":2,"name":"back-off"}]})"));
    {
        CloudHost host(service(200));
        EXPECT_EQ(trace("send a b").status, 5);
        file(kMode, "0\n");
        const Outcome off = trace("send a b --json");
        EXPECT_EQ(off.status, 4);
        EXPECT_THAT(off.output, HasSubstr(R"("result":4,"name":"off")"));
        EXPECT_EQ(trace("send a b --dry-run").status, 4);
        EXPECT_EQ(host.received().size(), 1U);
    }
}

TEST_F(ZorvctlTrace, StatusNamesTheGateAndTheService)
{
    const std::string production = R"("environment":"production",)"
                                   R"("url":"https://trace.zorv.example/traces"})"
                                   "\n";
    const struct {
        const char *mode; // NULL for no file
        const char *config;
        int status;
        std::string document;
    } rows[] = {
        {nullptr, "", 0,
         R"({"state":"open","mode":2,"mode_file":"/var/run/system.analytics.mode",)"
         R"("mode_from":"default",)" +
             production},
        {"off\n", "", 0,
         R"({"state":"open","mode":2,"mode_file":"/var/run/system.analytics.mode",)"
         R"("mode_from":"default",)" +
             production},
        {"0\n", "", 4,
         R"({"state":"off","mode":0,"mode_file":"/var/run/system.analytics.mode",)"
         R"("mode_from":"file",)" +
             production},
        {"2\n", "mgmt.kelo.env=stage\n", 0,
         R"({"state":"open","mode":2,"mode_file":"/var/run/system.analytics.mode",)"
         R"("mode_from":"file","environment":"stage",)"
         R"("url":"https://trace.stage.zorv.example/traces"})"
         "\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.document);
        if (row.mode)
            file(kMode, row.mode);
        file("/tmp/system.cfg", row.config);
        const Outcome outcome = trace("status --json");
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.output, row.document);
        EXPECT_EQ(outcome.errors, "");
    }
}

TEST_F(ZorvctlTrace, AnalyticsComparesTheConfigurationWithTheUnit)
{
    const auto setting = [](const char *name, const char *values, const char *meaning) {
        return R"({"setting":")" + std::string(name) + R"(",)" + values +
               R"(,"file":"/var/run/system.analytics.)" + name + R"(","meaning":")" + meaning +
               R"("})";
    };
    const struct {
        const char *config, *mode, *coredump;
        int status;
        std::string mode_setting, coredump_setting;
    } rows[] = {
        {"a=1\n", nullptr, nullptr, 0,
         setting("mode", R"("configured":2,"unit":2,"from":"default")", "anonymous reports"),
         setting("coredump", R"("configured":0,"unit":0,"from":"default")", "no dumps")},
        {"system.analytics.status=enabled\nsystem.analytics.coredump=on\n", "0\n", "1\n", 1,
         setting("mode", R"("configured":1,"unit":0,"from":"file")", "reports are off"),
         setting("coredump", R"("configured":1,"unit":1,"from":"file")", "dumps may go")},
        {"system.analytics.status=0\nsystem.analytics.anonymous=1\n", "0\n", "2\n", 1,
         setting("mode", R"("configured":0,"unit":0,"from":"file")", "reports are off"),
         setting("coredump", R"("configured":0,"unit":2,"from":"file")", "no dumps")},
        {"system.analytics.anonymous=0\n", "1\n", "0\n", 0,
         setting("mode", R"("configured":1,"unit":1,"from":"file")", "reports with identities"),
         setting("coredump", R"("configured":0,"unit":0,"from":"file")", "no dumps")},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.config);
        file("/tmp/other.cfg", row.config);
        if (row.mode)
            file(kMode, row.mode);
        if (row.coredump)
            file("/var/run/system.analytics.coredump", row.coredump);
        const Outcome outcome = run(ZORVCTL " analytics /tmp/other.cfg --json");
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.output, R"({"file":"/tmp/other.cfg","settings":[)" + row.mode_setting +
                                      "," + row.coredump_setting + "]}\n");
    }
    EXPECT_EQ(run(ZORVCTL " analytics").status, 5); // there is no /tmp/system.cfg
    file("/tmp/system.cfg", "");
    EXPECT_EQ(run(ZORVCTL " analytics").status, 1);
}

} // namespace
