#include "telemetry/device_facts.h"

#include <zorv/board.h>
#include <zorv/file.h>
#include <zorv/status.h>

#include "core/log_gate.h"
#include "platform/config_files.h"
#include "platform/system_info.h"

using namespace zorv;

namespace {

constexpr size_t kLongestId = 65; // 64 hexadecimal digits

void set_id(Members &members, const char *name, const char *key, size_t size)
{
    char id[kLongestId];
    if (*freadvalue(kSystemCfg, key, id, size, "") != '\0')
        members.set_text(name, id);
}

} // namespace

void zorv::set_model(Members &members)
{
    members.set_text("model", board_identify()->platform);
}

void zorv::set_version(Members &members)
{
    const char *version;
    const int rc = get_version(&version);
    if (rc != 0)
        LOG_GATED(2, LOG_WARNING, members.log().module, members.log().function,
                  "Couldn't obtain firmware version! error code = %d", rc);
    members.set_text("version", version);
}

void zorv::set_board_revision(Members &members, const char *name)
{
    members.set_number_text(name, get_boardrevision(kSystemInfo));
}

void zorv::set_controller_version(Members &members, const char *name)
{
    char version[64];
    members.set_text(name,
                     freadvalue(kSystemCfg, "pluvo.version", version, sizeof version, "unknown"));
}

void zorv::set_manufacturer(Members &members)
{
    members.set_number_text("manufacturer_id", static_cast<int>(get_manufid()));
}

void zorv::set_controller_ids(Members &members, size_t size)
{
    set_id(members, "anonymous_controller_id", "pluvo.anonymous_controller_id", size);
    set_id(members, "anonymous_site_id", "pluvo.anonymous_site_id", size);
}

bool zorv::is_default()
{
    return system_is_xxx("/proc/zorvhal/status/IsDefault", 0) != 0;
}
