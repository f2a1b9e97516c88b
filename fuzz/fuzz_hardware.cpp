// Any text as the lists of flash partitions and PCI devices, and any bytes as a configuration
// space.
#include <cstdlib>
#include <cstring>

#include "core/lines.h"
#include "platform/hardware_rows.h"

using namespace zorv;

namespace {

void must(bool holds)
{
    if (!holds)
        abort();
}

void read_partitions(FILE *text)
{
    Lines<kMtdRow> rows(text);
    int partition;
    while (const char *const row = rows.next())
        if (read_eeprom_row(row, partition))
            must(strcasestr(row, "\"eeprom") != nullptr);
}

void read_devices(FILE *text, std::span<const uint8_t> config)
{
    Lines<kPciRow> rows(text);
    while (const char *const row = rows.next()) {
        pci_entry entry = {};
        if (!read_pci_row(row, entry))
            continue;
        must(entry.slot <= 31 && entry.function <= 7 && entry.subsystem_device == 0);
        read_pci_config(config, entry);
        if (config.size() >= 48)
            must(entry.subsystem_device == (config[46] << 8 | config[47]));
        if (config.size() < 9)
            must(entry.revision == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File text(size > 0 ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr);
    if (!text)
        return 0;
    read_partitions(text.get());
    rewind(text.get());
    read_devices(text.get(), {data, size});
    return 0;
}
