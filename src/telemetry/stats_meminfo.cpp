#include "telemetry/stats_meminfo.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include <jansson.h>
#include <sys/sysinfo.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "telemetry/json_members.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";
constexpr char kMeminfo[] = "/proc/meminfo";

constexpr struct {
    char key[15];
    uint64_t meminfo_t::*field;
} kRows[] = {
    {"MemTotal", &meminfo_t::MemTotal},
    {"MemFree", &meminfo_t::MemFree},
    {"MemAvailable", &meminfo_t::MemAvailable},
    {"Buffers", &meminfo_t::Buffers},
    {"Cached", &meminfo_t::Cached},
    {"Active", &meminfo_t::Active},
    {"Inactive", &meminfo_t::Inactive},
    {"Active(anon)", &meminfo_t::Active_anon},
    {"Inactive(anon)", &meminfo_t::Inactive_anon},
    {"Active(file)", &meminfo_t::Active_file},
    {"Inactive(file)", &meminfo_t::Inactive_file},
    {"Unevictable", &meminfo_t::Unevictable},
    {"Mlocked", &meminfo_t::Mlocked},
    {"Dirty", &meminfo_t::Dirty},
    {"Writeback", &meminfo_t::Writeback},
    {"AnonPages", &meminfo_t::AnonPages},
    {"Mapped", &meminfo_t::Mapped},
    {"Shmem", &meminfo_t::Shmem},
    {"Slab", &meminfo_t::Slab},
    {"SReclaimable", &meminfo_t::SReclaimable},
    {"SUnreclaim", &meminfo_t::SUnreclaim},
    {"KernelStack", &meminfo_t::KernelStack},
    {"PageTables", &meminfo_t::PageTables},
    {"CommitLimit", &meminfo_t::CommitLimit},
    {"Committed_AS", &meminfo_t::Committed_AS},
};
static_assert(sizeof(meminfo_t) == 26 * sizeof(uint64_t));
static_assert(offsetof(meminfo_t, used_percent) == 25 * sizeof(uint64_t));

// Sets the field of that key; false for a key that is in no row.
bool set_field(meminfo_t &memory, const char *key, uint64_t value)
{
    for (const auto &row : kRows) {
        if (row.key[0] == key[0] && strcmp(row.key, key) == 0) {
            memory.*row.field = value;
            return true;
        }
    }
    return false;
}

// On purpose plain: without MemAvailable all is in use, and one above MemTotal wraps around.
float percent_used(const meminfo_t &memory)
{
    if (memory.MemTotal == 0)
        return 0;
    const auto used = static_cast<double>(memory.MemTotal - memory.MemAvailable);
    return static_cast<float>(used * 100.0 / static_cast<double>(memory.MemTotal));
}

} // namespace

meminfo_t zorv::parse_meminfo(MeminfoTable &table, const char *function)
{
    meminfo_t memory = {};
    for (size_t matched = 0; matched < std::size(kRows);) {
        char *const line = table.next();
        if (!line)
            break;
        char *const colon = strchr(line, ':');
        if (!colon) {
            log_error_as(function, "No colon found");
            continue;
        }
        *colon = '\0';
        if (set_field(memory, line, strtoul(colon + 1, nullptr, 10)))
            ++matched;
    }
    memory.used_percent = percent_used(memory);
    return memory;
}

int meminfo(meminfo_t *out)
{
    MeminfoTable table(kMeminfo);
    if (!table) {
        log_error("Failed to open '%s': %s", kMeminfo, strerror(errno));
        return -1;
    }
    const meminfo_t memory = parse_meminfo(table, __func__);
    if (table.error() != 0) {
        log_error("Failed to read '%s': %s", kMeminfo, strerror(table.error()));
        return -1;
    }
    *out = memory;
    return 0;
}

json_t *zorv_meminfo_to_obj(const meminfo_t *m)
{
    Json object(json_object());
    Members members(object.get(), {kModule, __func__});
    for (const auto &row : kRows)
        members.set(row.key, json_integer(static_cast<json_int_t>(m->*row.field)));
    if (!members.is_whole()) {
        log_error("Failed to allocate json object");
        return nullptr;
    }
    return object.release();
}

float get_memused_percent(const struct sysinfo *si)
{
    meminfo_t memory;
    if (meminfo(&memory) == 0)
        return memory.used_percent;
    const auto total = static_cast<double>(si->totalram);
    return static_cast<float>((total - static_cast<double>(si->freeram)) * 100.0 / total);
}
