#include "platform/hardware_rows.h"

#include <cstring>

#include <fcntl.h>
#include <jansson.h>
#include <strings.h>

#include "core/lines.h"

using namespace zorv;

static_assert(sizeof(pci_entry) == 20 && offsetof(pci_entry, vendor) == 4 &&
              offsetof(pci_entry, revision) == 12 && offsetof(pci_entry, irq) == 16);

namespace {

constexpr size_t kEeprom = 65536;

// Positions in the PCI configuration space.
constexpr size_t kRevision = 8;
constexpr size_t kSubsystemVendor = 44;
constexpr size_t kSubsystemDevice = 46;
constexpr size_t kConfig = kSubsystemDevice + sizeof(uint16_t);

using Buffer = std::unique_ptr<buffer, Closer<buffer_destroy>>;

File open_partition(int partition)
{
    char path[sizeof "/dev/mtd/-2147483648"];
    snprintf(path, sizeof path, "/dev/mtd%d", partition);
    if (File device{fopen(path, "re")})
        return device;
    snprintf(path, sizeof path, "/dev/mtd/%d", partition);
    return File(fopen(path, "re"));
}

File open_eeprom()
{
    const File list(fopen("/proc/mtd", "re"));
    Lines<kMtdRow> rows(list.get());
    int partition;
    while (const char *const row = rows.next())
        if (read_eeprom_row(row, partition))
            return open_partition(partition);
    return File(fopen("EEPROM", "re")); // On purpose: one in the working directory stands in.
}

// Returns how many devices it found, -1 without a list.
int list_devices(pci_entry *entries, int max, uint16_t vendor)
{
    const File list(fopen("/proc/bus/pci/devices", "re"));
    if (!list)
        return -1;
    Lines<kPciRow> rows(list.get());
    int count = 0;
    const char *row;
    while (count < max && (row = rows.next())) {
        pci_entry entry = entries[count]; // what the configuration space tells stays the caller's
        if (read_pci_row(row, entry) && entry.vendor == vendor)
            entries[count++] = entry;
    }
    return count;
}

// Copies a field of the configuration space, if it is there whole.
template <class T>
bool take(std::span<const uint8_t> config, size_t offset, T &field)
{
    if (config.size() < offset + sizeof field)
        return false;
    memcpy(&field, config.data() + offset, sizeof field);
    return true;
}

void read_subsystem(pci_entry &entry)
{
    char path[sizeof "/proc/bus/pci/ff/ff.255"];
    snprintf(path, sizeof path, "/proc/bus/pci/%02x/%02x.%d", entry.bus, entry.slot,
             entry.function);
    const Fd file(open(path, O_RDONLY | O_CLOEXEC));
    uint8_t config[kConfig];
    const ssize_t size = read(file.get(), config, sizeof config);
    if (size > 0)
        read_pci_config({config, static_cast<size_t>(size)}, entry);
}

} // namespace

bool zorv::read_eeprom_row(const char *row, int &partition)
{
    char name[sizeof "EEPROM" + 1]; // one more character tells a longer name apart
    return sscanf(row, "mtd%d: %*s %*s \"%7[^\"]\"", &partition, name) == 2 &&
           strcasecmp(name, "EEPROM") == 0;
}

bool zorv::read_pci_row(const char *row, pci_entry &entry)
{
    unsigned place;
    unsigned ids;
    unsigned irq;
    if (sscanf(row, "%x %x %x", &place, &ids, &irq) != 3)
        return false;
    entry.bus = static_cast<uint8_t>(place >> 8);
    entry.slot = place >> 3 & 31;
    entry.function = place & 7;
    entry.vendor = static_cast<uint16_t>(ids >> 16);
    entry.device = static_cast<uint16_t>(ids);
    entry.irq = irq;
    return true;
}

void zorv::read_pci_config(std::span<const uint8_t> config, pci_entry &entry)
{
    const bool has_revision = take(config, kRevision, entry.revision);
    const bool has_vendor = take(config, kSubsystemVendor, entry.subsystem_vendor);
    if (!take(config, kSubsystemDevice, entry.subsystem_device) || !has_vendor || !has_revision)
        return;
    // On purpose: the board-name table and its readers know the ids with their bytes swapped.
    entry.subsystem_device = __builtin_bswap16(entry.subsystem_device);
    entry.subsystem_vendor = __builtin_bswap16(entry.subsystem_vendor);
}

buffer *zorv_read_eeprom()
{
    const File device = open_eeprom();
    Buffer image(device ? buffer_create() : nullptr);
    if (!image)
        return nullptr;
    void *const room = image->append_zero(image.get(), kEeprom);
    if (!room || fread(room, kEeprom, 1, device.get()) != 1)
        return nullptr;
    return image.release();
}

int pci_detect(pci_entry *entries, int max, uint16_t vendor)
{
    const int count = entries ? list_devices(entries, max, vendor) : -1;
    for (int i = 0; i < count; ++i)
        read_subsystem(entries[i]);
    return count;
}

json_t *zorv_outlet_get_outlet_status_json()
{
    return nullptr;
}

int zorv_outlet_status_update_json_payload(json_t *payload)
{
    const Json status(zorv_outlet_get_outlet_status_json());
    return status ? json_object_update(payload, status.get()) : 0;
}

json_t *zorv_psu_get_json_psu_table()
{
    return nullptr;
}
