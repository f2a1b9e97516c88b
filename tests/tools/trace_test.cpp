#include "support/cloud_host.h"
#include "tools/zorvctl.h"

namespace {

constexpr char kMode[] = "/var/run/system.analytics.mode";

class ZorvctlTrace : public Zorvctl {
protected:
    ZorvctlTrace() { file("/usr/lib/build.properties", "scm_reftype=atag\n"); }
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
    const std::string arguments =
        "trace send radio 'caf\xc3\xa9' --data '{\"a\":1}' --data @/tmp/data "
        "--source port=eth0 --meta 'k=v=w' --meta e= --timestamp 7";
    const Outcome shown = ctl(arguments + " --dry-run");
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.errors, "");
    EXPECT_THAT(host.received(), IsEmpty());

    const Outcome sent = ctl(arguments + " --json");
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

    expect(0, "", "trace send a b --data '{}' --data '{}' --data '{}' --each");
    expect(0, "", "trace send a b");
    EXPECT_EQ(host.received().size(), 4U);
}

TEST_F(ZorvctlTrace, RefusesWhatIsNoTrace)
{
    CloudHost host(service(202));
    const std::pair<const char *, const char *> rows[] = {
        {"a", "TYPE is required"},
        {"a b --data '{'", "{: "},
        {"a b --data '[]'", "[]: not a JSON object"},
        {"a b --data @/dev/null", "@/dev/null: "},
        {"a b --meta k", "k: not KEY=VALUE"},
        {"a b --meta \"$(printf 'k=\\377')\"", "k=\\xff: not UTF-8"},
        {"a b --timestamp soon", "soon"},
    };
    for (const auto &[arguments, message] : rows)
        expect(2, message, std::string("trace send ") + arguments);
    expect(5, "", "trace send a b --data @/tmp/none");
    EXPECT_THAT(host.received(), IsEmpty());
}

TEST_F(ZorvctlTrace, TellsFailuresFromGates)
{
    std::string each = "trace send a b --each --json";
    for (int i = 0; i < 6; ++i)
        each += " --data '{}'";
    const Outcome nobody = ctl("trace -v send a b");
    EXPECT_EQ(nobody.status, 5);
    EXPECT_THAT(nobody.output, HasSubstr("1       1  failed"));
    EXPECT_THAT(nobody.errors, HasSubstr("failed: [6] Couldn't resolve host name"));
    const std::string failed = R"({"traces":1,"result":1,"name":"failed"},)";
    const Outcome backing_off = ctl(each); // the sixth comes within a second of the fifth
    EXPECT_EQ(backing_off.status, 4);
    EXPECT_THAT(backing_off.output, HasSubstr(failed + failed + failed + failed + failed +
                                              R"({"traces":1,"result":2,"name":"back-off"}]})"));
    {
        CloudHost host(service(200));
        expect(5, "", "trace send a b");
        file(kMode, "0\n");
        expect(4, R"("result":4,"name":"off")", "trace send a b --json");
        expect(4, "", "trace send a b --dry-run");
        EXPECT_EQ(host.received().size(), 1U);
    }
}

TEST_F(ZorvctlTrace, StatusNamesTheGateAndTheService)
{
    const struct {
        const char *mode; // NULL for no file
        const char *config;
        int status;
        const char *state, *from;
    } rows[] = {
        {nullptr, "", 0, R"("state":"open","mode":2,)", "default"},
        {"0\n", "", 4, R"("state":"off","mode":0,)", "file"},
        {"2\n", "mgmt.kelo.env=stage\n", 0, R"("state":"open","mode":2,)", "file"},
    };
    for (const auto &row : rows) {
        if (row.mode)
            file(kMode, row.mode);
        file("/tmp/system.cfg", row.config);
        const std::string service =
            *row.config
                ? R"("environment":"stage","url":"https://trace.stage.zorv.example/traces"})"
                : R"("environment":"production","url":"https://trace.zorv.example/traces"})";
        expect(row.status,
               std::string("{") + row.state + R"("mode_file":"/var/run/system.analytics.mode",)" +
                   R"("mode_from":")" + row.from + "\"," + service,
               "trace status --json");
    }
}

TEST_F(ZorvctlTrace, AnalyticsComparesTheConfigurationWithTheUnit)
{
    const struct {
        const char *config, *mode, *coredump, *settings;
        int status;
    } rows[] = {
        {"a=1\n", nullptr, nullptr,
         R"([2,2,"default","anonymous reports"] [0,0,"default","no dumps"])", 0},
        {"system.analytics.status=enabled\nsystem.analytics.coredump=on\n", "0\n", "1\n",
         R"([1,0,"file","reports are off"] [1,1,"file","dumps may go"])", 1},
        {"system.analytics.anonymous=0\n", "1\n", "2\n",
         R"([1,1,"file","reports with identities"] [0,2,"file","no dumps"])", 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.config);
        file("/tmp/other.cfg", row.config);
        if (row.mode)
            file(kMode, row.mode);
        if (row.coredump)
            file("/var/run/system.analytics.coredump", row.coredump);
        const Outcome outcome = ctl("analytics /tmp/other.cfg --json");
        EXPECT_EQ(outcome.status, row.status);
        std::string settings;
        const Json document = loaded(outcome.output);
        size_t index;
        const json_t *setting;
        json_array_foreach(json_object_get(document.get(), "settings"), index, setting) settings +=
            (index ? " [" : "[") + member(setting, "configured") + "," + member(setting, "unit") +
            "," + member(setting, "from") + "," + member(setting, "meaning") + "]";
        EXPECT_EQ(settings, row.settings);
    }
    expect(5, "", "analytics"); // there is no /tmp/system.cfg
    file("/tmp/system.cfg", "");
    expect(1, "", "analytics");
}

} // namespace
