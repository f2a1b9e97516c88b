// Any text as system.info, as the board file and as cpuinfo: only the facts of the unit change, and
// within their bounds.
#include <cstdlib>
#include <cstring>

#include "core/lines.h"
#include "platform/board_cpu_arch.h"
#include "platform/board_firmware.h"
#include "platform/system_info.h"

using namespace zorv;

namespace {

constexpr uint16_t kPreset = 0xABCD;

void must(bool holds)
{
    if (!holds)
        abort();
}

void read_ids(FILE *text)
{
    uint16_t vendor = kPreset, system = kPreset;
    FoundIds found;
    Lines<kSystemInfoLine> lines(text);
    while (const char *const line = lines.next())
        read_id(line, vendor, system, found);
    must(found.vendor || vendor == kPreset);
    must(found.system || system == kPreset);
}

void read_facts(FILE *text, uint16_t system_id)
{
    board_record record = {};
    record.system_id = system_id;
    Lines<kSystemInfoLine> lines(text);
    while (const char *const line = lines.next())
        read_unit_fact(line, record);
    raise_firmware_minimum(record);
    must(record.fw_min == 0xFFFFFF || record.fw_min <= 0x03092A);

    board_record others = {};
    others.system_id = system_id;
    memcpy(others.cpu_mac, record.cpu_mac, sizeof others.cpu_mac);
    others.cpuid = record.cpuid;
    others.board_revision = record.board_revision;
    others.country_code = record.country_code;
    others.fw_min = record.fw_min;
    must(memcmp(&others, &record, sizeof record) == 0);
}

void read_cpu(FILE *text)
{
    CpuInfo info;
    Lines<kCpuInfoLine> lines(text);
    while (char *const line = lines.next())
        read_cpu_line(line, info);
    const unsigned arch = cpu_arch(info);
    must(arch <= 4 || arch == 43);
}

void read_board(FILE *text)
{
    char value[kLineBuffer];
    if (read_last_value(text, "bomrev", value))
        must(*value != '\0' && !strpbrk(value, "=\r\n"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File text(size > 0 ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr);
    read_ids(text.get());
    for (const int system_id : {0x7E8B, 0x3123, 0x3328}) {
        if (text)
            rewind(text.get());
        read_facts(text.get(), static_cast<uint16_t>(system_id));
    }
    if (!text)
        return 0;
    rewind(text.get());
    read_cpu(text.get());
    rewind(text.get());
    read_board(text.get());
    return 0;
}
