// The record beside a crash log, whatever a full disk, a killed process or a stranger left in it:
// read, counted up for a delivery that failed, stored, and read again.
#include <zorv/log.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <zorv/json.h>

#include "telemetry/crash_store.h"
#include "temporary_file.h"

using namespace zorv;

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

// Nothing of it is there: a log that is marked gets no marker.
CrashLogWalk walk_of(const char *path)
{
    CrashLogWalk walk = {.family = "vwire_disconnect",
                         .log_dir = "/nowhere/",
                         .sent_dir = "/nowhere/sent/",
                         .meta_dir = "/nowhere/meta/",
                         .add_extra = nullptr,
                         .act = nullptr};
    walk.name = "a.tgz";
    walk.meta_file.reset(open(path, O_RDWR | O_CLOEXEC));
    require(static_cast<bool>(walk.meta_file));
    return walk;
}

// Returns what is stored, or none for a meta that is passed over.
Json count_and_store(const char *path)
{
    CrashLogWalk walk = walk_of(path);
    prepare_crash_log_meta(walk);
    require(walk.error == 0 || walk.error == ENODATA);
    require((walk.error == 0) == (walk.payload != nullptr) && walk.meta);
    Json stored;
    if (walk.error == 0 && json_is_object(walk.meta.get())) {
        json_t *const meta = walk.meta.get();
        const long before = zorv_json_read_long(meta, "send_attempts", 0);
        require(count_failure(meta) == (before < LONG_MAX ? before + 1 : before));
        require(is_set(meta, "sent_to_net") == json_is_true(json_object_get(meta, "sent_to_net")));
        walk.flags |= kMetaCounted;
        stored.reset(json_deep_copy(meta));
    }
    finish_crash_meta(walk);
    require(!walk.meta_file && !walk.meta && walk.flags == 0);
    return stored;
}

void check_stored(const char *path, const json_t *stored)
{
    CrashLogWalk walk = walk_of(path);
    prepare_crash_log_meta(walk);
    require(walk.error == 0 && !(walk.flags & kMetaChanged));
    require(json_equal(walk.meta.get(), stored) == 1);
    finish_crash_meta(walk);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const TemporaryFile file(data, size);
    const Json stored = count_and_store(file.path());
    if (stored)
        check_stored(file.path(), stored.get());
    return 0;
}
