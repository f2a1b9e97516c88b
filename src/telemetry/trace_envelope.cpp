#include "telemetry/trace_envelope.h"

#include <utility>

#include <jansson.h>
#include <sys/time.h>
#include <zorv/file.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "platform/system_info.h"
#include "telemetry/device_facts.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "trace";
constexpr size_t kAnonymousId = 65; // 64 hexadecimal digits

constinit char g_device_id[kAnonymousId] = ""; // from the first envelope on

// On purpose the stand-in is kept as well: one process sends one id.
const char *device_id()
{
    if (*g_device_id == '\0')
        freadvalue(kSystemInfo, "device.anonid", g_device_id, sizeof g_device_id,
                   "0000000000000000");
    return g_device_id;
}

// False when memory is short.
bool add_device_fields(json_t *meta)
{
    char week[8];
    Members members(meta, {kModule, __func__});
    set_model(members);
    set_version(members);
    set_board_revision(members, "board_rev");
    set_manufacturer(members);
    set_controller_version(members, "controller.version");
    members.set_text("is_default", is_default() ? "true" : "false"); // the service takes texts only
    members.set_text("mfg_week", freadvalue(kSystemInfo, "mfgweek", week, sizeof week, "2005"));
    set_controller_ids(members, kAnonymousId);
    members.set_text("anonymous_device_id", device_id());
    return members.is_whole();
}

// The caller's member, shared, or what stands in for it.
Json member_or(json_t *member, json_t *(*make)())
{
    return Json(member ? json_incref(member) : make());
}

json_t *only_object(json_t *value)
{
    return json_is_object(value) ? value : nullptr;
}

json_t *make_timestamp()
{
    return json_integer(static_cast<json_int_t>(milliseconds_now()));
}

json_t *make_type()
{
    return json_string("event");
}

// Sets a member that must not be missing.
bool set(json_t *object, const char *key, Json value)
{
    return json_object_set_new(object, key, value.release()) == 0;
}

Json make_outer_meta(const json_t *meta)
{
    Json inner = member_or(only_object(json_object_get(meta, "meta")), json_object);
    Json outer(json_object());
    const bool whole =
        add_device_fields(inner.get()) &&
        set(outer.get(), "timestamp",
            member_or(json_object_get(meta, "timestamp"), make_timestamp)) &&
        set(outer.get(), "type", member_or(json_object_get(meta, "type"), make_type)) &&
        set(outer.get(), "meta", std::move(inner)) &&
        set(outer.get(), "source",
            member_or(only_object(json_object_get(meta, "source")), json_object));
    return whole ? std::move(outer) : Json();
}

} // namespace

uint64_t zorv::milliseconds_now()
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

bool zorv::trace_envelope_object(json_t *envelope, json_t *traces, const json_t *meta)
{
    if (!envelope) {
        log_verbose("Failed to init envelope");
        return false;
    }
    Json outer = make_outer_meta(meta);
    if (!outer) {
        log_verbose("Failed to create outer meta");
        return false;
    }
    return set(envelope, "meta", std::move(outer)) &&
           set(envelope, "traces", Json(json_incref(traces)));
}
