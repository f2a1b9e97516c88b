// Traces when memory is short: nothing is sent half, no reference is lost.
#include <zorv/trace.h>

#include <map>
#include <string>

#include <jansson.h>

#include "support/allocation.h"
#include "support/cloud_host.h"
#include "support/device.h"

namespace {

class TraceMemory : public Device {
protected:
    TraceMemory()
    {
        libzorv_log_use_syslog = 0;
        libzorv_log_level = 16;
        json_set_alloc_funcs(malloc, free);
    }
};

TEST_F(TraceMemory, RunsOutForAPayload)
{
    json_t *const data = json_pack("{s:s}", "key", "value");
    json_t *const trace = trace_object();
    int failures = 0;
    while (true) {
        fail_allocation(failures + 1);
        const int rc = trace_object_set_payload_new(trace, json_incref(data));
        fail_allocations_off();
        EXPECT_EQ(data->refcount, 1U);
        if (rc == 0)
            break;
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(json_object_size(trace), 0U);
        ASSERT_LT(++failures, 100);
    }
    EXPECT_GT(failures, 5); // the text, the object, its two members, the member of the trace
    EXPECT_THAT(logged(), Contains("[debug] trace.trace_object_set_payload_new(): Failed to create "
                                   "payload object"));
    trace_decref(trace);
    trace_decref(data);
}

TEST_F(TraceMemory, RunsOutForABatch)
{
    CloudHost host({.sites = {{"trace.zorv.example"}},
                    .answers = {{.path = "/traces", .method = "PUT", .status = 202}}});
    file("/usr/lib/build.properties", "scm_reftype=atag\n");
    json_t *const trace = json_pack("{s:s}", "type", "a");
    EXPECT_EQ(send_trace_with_meta(trace, nullptr), TRACE_ACCEPTED);
    const long before = allocations();
    EXPECT_EQ(send_trace_with_meta(trace, nullptr), TRACE_ACCEPTED);
    const long all = allocations() - before;
    const std::string whole = host.received().back().body;
    logged();

    std::map<std::string, int> lines;
    for (long n = 1; n <= all; ++n) {
        SCOPED_TRACE(n);
        fail_allocation(n);
        const int rc = send_trace_with_meta(trace, nullptr);
        fail_allocations_off();
        EXPECT_EQ(trace->refcount, 1U);
        for (const auto &line : logged())
            ++lines[line];
        const auto requests = host.received();
        ASSERT_EQ(requests.size(), rc == TRACE_ACCEPTED ? 1U : 0U);
        if (requests.empty())
            continue;
        // A device field may be missing, nothing else. What jansson loses while it writes the text
        // leaves no JSON, which no service takes for a batch.
        const std::string &body = requests[0].body;
        json_t *const document = json_loads(body.c_str(), 0, nullptr);
        json_decref(document);
        if (!document)
            continue;
        EXPECT_THAT(body, HasSubstr(R"("type":"event","meta":{)"));
        EXPECT_THAT(body, testing::EndsWith(R"(},"source":{}},"traces":[{"type":"a"}]})"));
        EXPECT_LE(body.size(), whole.size());
    }
    const std::string debug = "[debug] trace.", envelope = "trace_envelope_object(): Failed to ";
    const std::string failed = "send_traces(): Failed to create envelope";
    EXPECT_GT(lines[debug + "send_traces(): Traces must be an array"], 0);
    EXPECT_GT(lines[debug + envelope + "init envelope"], 0);
    EXPECT_GT(lines[debug + envelope + "create outer meta"], 0);
    EXPECT_GT(lines[debug + failed], lines[debug + envelope + "create outer meta"]);
    EXPECT_GT(lines["[error] trace.put_trace(): Failed to allocate curl response"], 0);
    trace_decref(trace);
}

TEST_F(TraceMemory, RunsOutForATrace)
{
    json_t *const data = json_object();
    fail_allocation(1);
    EXPECT_EQ(send_trace_simple("a", "b", json_incref(data)), -1);
    EXPECT_EQ(data->refcount, 1U);
    EXPECT_THAT(logged(), IsEmpty());
    trace_decref(data);
}

} // namespace
