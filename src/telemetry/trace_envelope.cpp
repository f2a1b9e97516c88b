#include "telemetry/trace_envelope.h"

#include <cstdio>
#include <utility>

#include <sys/time.h>
#include <zorv/board.h>
#include <zorv/file.h>
#include <zorv/status.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "platform/config_files.h"
#include "platform/system_info.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "trace";
constexpr size_t kAnonymousId = 65; // 64 hexadecimal digits

constinit char g_device_id[kAnonymousId] = ""; // from the first envelope on

void set_text(json_t *meta, const char *key, const char *text)
{
    json_object_set_new(meta, key, json_string(text));
}

template <size_t Size>
void set_number(json_t *meta, const char *key, long number)
{
    char text[Size];
    snprintf(text, sizeof text, "%d", static_cast<int>(number));
    set_text(meta, key, text);
}

void set_version(json_t *meta)
{
    const char *version;
    const int rc = get_version(&version);
    if (rc != 0)
        log_warning("Couldn't obtain firmware version! error code = %d", rc);
    set_text(meta, "version", version);
}

// One of the ids that the controller chose; a unit that has none yet does not send it.
void set_configured_id(json_t *meta, const char *key, const char *configured)
{
    char id[kAnonymousId];
    if (*freadvalue(kSystemCfg, configured, id, sizeof id, "") != '\0')
        set_text(meta, key, id);
}

// On purpose the stand-in is kept as well: the service tells the process's traces by it.
const char *device_id()
{
    if (*g_device_id == '\0')
        freadvalue(kSystemInfo, "device.anonid", g_device_id, sizeof g_device_id,
                   "0000000000000000");
    return g_device_id;
}

void add_device_fields(json_t *meta)
{
    char controller[64], week[8];
    set_text(meta, "model", board_identify()->platform);
    set_version(meta);
    set_number<16>(meta, "board_rev", get_boardrevision(kSystemInfo));
    set_number<8>(meta, "manufacturer_id", get_manufid());
    set_text(meta, "controller.version",
             freadvalue(kSystemCfg, "pluvo.version", controller, sizeof controller, "unknown"));
    // On purpose a text: the service takes no other values here.
    set_text(meta, "is_default",
             system_is_xxx("/proc/zorvhal/status/IsDefault", 0) ? "true" : "false");
    set_text(meta, "mfg_week", freadvalue(kSystemInfo, "mfgweek", week, sizeof week, "2005"));
    set_configured_id(meta, "anonymous_controller_id", "pluvo.anonymous_controller_id");
    set_configured_id(meta, "anonymous_site_id", "pluvo.anonymous_site_id");
    set_text(meta, "anonymous_device_id", device_id());
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
    add_device_fields(inner.get());
    Json outer(json_object());
    const bool whole =
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
