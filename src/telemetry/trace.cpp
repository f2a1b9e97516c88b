#include <zorv/trace.h>

#include <utility>

#include <jansson.h>

#include "core/json_text.h"
#include "core/log_gate.h"
#include "core/own.h"
#include "telemetry/json_members.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "trace";
constexpr int kDeepest = 16; // levels of a dump; what contains itself has no end

bool is_object_of_strings(json_t *value)
{
    if (!json_is_object(value))
        return false;
    const char *key;
    json_t *member;
    json_object_foreach(value, key, member)
    {
        if (!json_is_string(member))
            return false;
    }
    return true;
}

int set(json_t *trace, const char *key, Json value)
{
    return json_object_set_new(trace, key, value.release());
}

// The document travels as a text, whatever the service makes of it.
Json make_payload(const json_t *data)
{
    const Text text = dump_json(data, JSON_COMPACT);
    return Json(text
                    ? json_pack("{s:s, s:s}", "contentType", "application/json", "data", text.get())
                    : nullptr);
}

// NULL for NULL.
json_t *to_json(const char *text)
{
    return text ? text_to_json(text, {kModule, "send_trace_simple"}) : nullptr;
}

// NOLINTNEXTLINE(misc-no-recursion): kDeepest bounds it
void dump_value(json_t *value, const char *label, int level)
{
    if (label)
        log_verbose_as("dump_refcount", "%s", label);
    log_verbose_as("dump_refcount", "refcount=%zu", value->refcount);
    if (level == kDeepest || !(json_is_array(value) || json_is_object(value)))
        return;
    log_verbose_as("dump_refcount", json_is_array(value) ? "[" : "{");
    for (size_t i = 0; i < json_array_size(value); ++i)
        dump_value(json_array_get(value, i), nullptr, level + 1);
    const char *key;
    json_t *member;
    json_object_foreach(value, key, member) dump_value(member, key, level + 1);
    log_verbose_as("dump_refcount", json_is_array(value) ? "]" : "}");
}

} // namespace

json_t *trace_object(void)
{
    return json_object();
}

json_t *trace_array(void)
{
    return json_array();
}

int trace_array_append_new(json_t *array, json_t *trace)
{
    return json_array_append_new(array, trace);
}

int trace_object_set_payload_new(json_t *trace, json_t *data)
{
    const Json owner(data);
    if (!json_is_object(data))
        return -1;
    Json payload = make_payload(data);
    if (!payload) {
        log_verbose("Failed to create payload object");
        return -1;
    }
    return set(trace, "payload", std::move(payload));
}

int trace_object_set_timestamp_new(json_t *trace, json_t *value)
{
    Json owner(value);
    if (!json_is_integer(value)) {
        log_verbose("Trace timestamp must be an integer");
        return -1;
    }
    return set(trace, "timestamp", std::move(owner));
}

int trace_object_set_type_new(json_t *trace, json_t *value)
{
    Json owner(value);
    if (!json_is_string(value)) {
        log_verbose("Trace type must be a string");
        return -1;
    }
    return set(trace, "type", std::move(owner));
}

int trace_object_set_namespace_new(json_t *trace, json_t *value)
{
    Json owner(value);
    if (!json_is_string(value)) {
        log_verbose("Trace namespace must be a string");
        return -1;
    }
    return set(trace, "namespace", std::move(owner));
}

int trace_object_set_source_new(json_t *trace, json_t *value)
{
    Json owner(value);
    if (!is_object_of_strings(value)) {
        log_verbose("Trace source must be an object containing only string values");
        return -1;
    }
    return set(trace, "source", std::move(owner));
}

int trace_object_set_meta_new(json_t *trace, json_t *value)
{
    Json owner(value);
    if (!is_object_of_strings(value)) {
        log_verbose("Trace meta must be an object containing only string values");
        return -1;
    }
    return set(trace, "meta", std::move(owner));
}

int send_trace_with_meta(json_t *trace, json_t *meta)
{
    const Json traces(json_array());
    const bool whole = json_array_append(traces.get(), trace) == 0;
    return send_traces(whole ? traces.get() : nullptr, meta);
}

int send_trace_simple(const char *name_space, const char *type, json_t *data)
{
    Json owner(data);
    const Json trace(trace_object());
    if (!trace)
        return -1;
    trace_object_set_payload_new(trace.get(), owner.release());
    trace_object_set_type_new(trace.get(), to_json(type));
    trace_object_set_namespace_new(trace.get(), to_json(name_space));
    return send_trace_with_meta(trace.get(), nullptr);
}

void trace_decref(json_t *value)
{
    json_decref(value);
}

void dump_refcount(json_t *value, const char *label)
{
    if (value && libzorv_log_level >= 16)
        dump_value(value, label, 0);
}
