// trace.cpp - sending traces, and what stands in their way.
#include <zorv/trace.h>

#include <optional>
#include <string>
#include <vector>

#include <jansson.h>
#include <zorv/status.h>

#include "analytics.h"
#include "base/cli.h"
#include "base/text_file.h"
#include "core/own.h"
#include "environment.h"
#include "telemetry/cloud_service.h"
#include "telemetry/trace_envelope.h"

namespace ctl {
namespace {

struct SendArgs {
    std::string name_space, type;
    std::vector<std::string> data, source, meta;
    std::optional<json_int_t> timestamp;
    bool each = false, dry_run = false;
};

// What a request came to.
struct Outcome {
    const char *name;
    int result; // of send_traces()
    Exit exit;
};

constexpr Outcome kOutcomes[] = {
    {"accepted", TRACE_ACCEPTED, Exit::done},    {"failed", TRACE_FAILED, Exit::failed},
    {"back-off", TRACE_BACK_OFF, Exit::refused}, {"stopped", TRACE_STOPPED, Exit::refused},
    {"off", TRACE_OFF, Exit::refused},           {"not-sent", -1, Exit::failed},
};

const Outcome &outcome_of(int result)
{
    for (const Outcome &outcome : kOutcomes)
        if (outcome.result == result)
            return outcome;
    return kOutcomes[std::size(kOutcomes) - 1];
}

std::string service_url()
{
    return ask_environment([] { return std::string(zorv::kTraceService.origin()) + "/traces"; });
}

// A setter refuses a text that is not UTF-8, and what jansson had no memory for.
void expect_set(int rc, std::string_view text, const std::string &what)
{
    bool damaged = false;
    if (rc != 0)
        clean_utf8(text, damaged);
    if (damaged)
        throw Misuse(what + ": not UTF-8");
    if (rc != 0)
        throw std::bad_alloc();
}

// An object, in the command line or in a file.
json_t *read_object(const std::string &data)
{
    const std::string text = data.starts_with('@') ? read_input(data.substr(1)) : data;
    json_error_t error;
    zorv::Json json(json_loadb(text.data(), text.size(), 0, &error));
    if (!json && json_error_code(&error) == json_error_out_of_memory)
        throw std::bad_alloc();
    if (!json)
        throw Misuse("--data: " + data + ": " + error.text);
    if (!json_is_object(json.get()))
        throw Misuse("--data: " + data + ": not a JSON object");
    return json.release();
}

// An object of KEY=VALUE texts.
json_t *make_texts(const std::vector<std::string> &pairs)
{
    zorv::Json object(json_object());
    for (const std::string &pair : pairs) {
        const size_t end = pair.find('=');
        if (end == pair.npos)
            throw Misuse(pair + ": not KEY=VALUE");
        expect_set(json_object_set_new(object.get(), pair.substr(0, end).c_str(),
                                       json_string(pair.substr(end + 1).c_str())),
                   pair, pair);
    }
    return object.release();
}

// One trace, with its payload unless it has none.
zorv::Json make_trace(const SendArgs &args, const std::string *data)
{
    zorv::Json trace(trace_object());
    json_t *const json = trace.get();
    if (data)
        expect_set(trace_object_set_payload_new(json, read_object(*data)), "", "--data");
    const auto now = static_cast<json_int_t>(zorv::milliseconds_now());
    if (args.timestamp.value_or(now) < 0)
        throw Misuse("--timestamp: before 1970");
    expect_set(trace_object_set_timestamp_new(json, json_integer(args.timestamp.value_or(now))), "",
               "--timestamp");
    expect_set(trace_object_set_type_new(json, json_string(args.type.c_str())), args.type, "TYPE");
    expect_set(trace_object_set_namespace_new(json, json_string(args.name_space.c_str())),
               args.name_space, "NAMESPACE");
    if (!args.source.empty())
        expect_set(trace_object_set_source_new(json, make_texts(args.source)), "", "--source");
    if (!args.meta.empty())
        expect_set(trace_object_set_meta_new(json, make_texts(args.meta)), "", "--meta");
    return trace;
}

void append(const zorv::Json &batch, zorv::Json trace)
{
    if (trace_array_append_new(batch.get(), trace.release()) != 0)
        throw std::bad_alloc();
}

// One batch for all traces, or one for each.
std::vector<zorv::Json> make_batches(const SendArgs &args)
{
    std::vector<zorv::Json> batches;
    if (args.data.empty())
        append(batches.emplace_back(trace_array()), make_trace(args, nullptr));
    for (const std::string &data : args.data) {
        if (batches.empty() || args.each)
            batches.emplace_back(trace_array());
        append(batches.back(), make_trace(args, &data));
    }
    return batches;
}

// The library takes a mode that it cannot read for off.
int send_batch(const zorv::Json &batch)
{
    const int result = send_traces(batch.get(), nullptr);
    return result == TRACE_OFF && unit_mode().value != 0 ? -1 : result;
}

void send_all(const std::vector<zorv::Json> &batches, Reply &reply)
{
    Value list = Value::list();
    for (const zorv::Json &batch : batches) {
        const Outcome &outcome = outcome_of(send_batch(batch));
        if (outcome.exit != Exit::done)
            reply.exit = outcome.exit;
        list.add(Value::object()
                     .set("traces", json_array_size(batch.get()))
                     .set("result", outcome.result)
                     .set("name", outcome.name));
    }
    reply.table("requests", list, {"traces", "result", "name"});
}

// What send_all() would send, made by the same function.
void show_all(const std::vector<zorv::Json> &batches, Reply &reply)
{
    Value list = Value::list();
    for (const zorv::Json &batch : batches) {
        const Value envelope = Value::object();
        if (!zorv::trace_envelope_object(const_cast<json_t *>(envelope.get()), batch.get(),
                                         nullptr))
            throw std::bad_alloc();
        list.add(envelope);
        reply.line(envelope.dump());
    }
    reply.document.set("documents", list);
    if (unit_mode().value == 0)
        reply.exit = Exit::refused;
}

void send(const SendArgs &args, Reply &reply)
{
    const std::vector<zorv::Json> batches = make_batches(args);
    const std::string url = service_url();
    reply.document.set("url", url);
    reply.line("PUT " + url);
    if (args.dry_run)
        show_all(batches, reply);
    else
        send_all(batches, reply);
}

void status(const NoArgs &, Reply &reply)
{
    constexpr const char *kEnvironments[] = {"production", "stage", "dev"};
    const UnitSetting unit = unit_mode();
    reply.pairs(Value::object()
                    .set("state", unit.value == 0 ? "off" : "open")
                    .set("mode", unit.value)
                    .set("mode_file", kModeFile)
                    .set("mode_from", unit.is_told ? "file" : "default")
                    .set("environment", kEnvironments[ask_environment(get_kelo_env_limit_prod)])
                    .set("url", service_url()));
    if (unit.value == 0)
        reply.exit = Exit::refused;
}

constexpr Option kSend[] = {
    option<&SendArgs::name_space>("NAMESPACE", "Whose event it is").required(),
    option<&SendArgs::type>("TYPE", "What kind of event it is").required(),
    option<&SendArgs::data>(
        "--data", "The payload: a JSON object, or @ and a file that holds one, @- for the standard "
                  "input; each one makes a trace of the batch"),
    option<&SendArgs::source>("--source", "KEY=VALUE, where it comes from; may be repeated"),
    option<&SendArgs::meta>("--meta", "KEY=VALUE, more about it; may be repeated"),
    option<&SendArgs::timestamp>("--timestamp", "Milliseconds since 1970; now unless given"),
    option<&SendArgs::each>("--each", "A request for each trace"),
    option<&SendArgs::dry_run>("--dry-run", "Show what would be sent, and send nothing"),
};

constexpr Verb kVerbs[] = {
    verb<send>("send", "Send traces to the trace service",
               "zorvctl trace send radio channel-change --data '{\"from\":36,\"to\":44}'", kSend),
    verb<status>("status", "Show whether traces may be sent, and where to", "zorvctl trace status"),
};

} // namespace

extern const Family trace_family = {"trace", "Send small events to the trace service", {kVerbs}};

} // namespace ctl
