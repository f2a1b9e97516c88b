#include <zorv/hardware.h>

#include <climits>
#include <cstring>
#include <string>

#include <unistd.h>

#include "support/device.h"
#include "support/json.h"

using Hardware = Device;

namespace {

std::string image()
{
    return std::string(65535, 'e') + "!";
}

// What zorv_read_eeprom() returned, as text; "none" for NULL.
std::string eeprom()
{
    buffer *const bytes = zorv_read_eeprom();
    if (!bytes)
        return "none";
    const uint8_t *const begin = bytes->data(bytes);
    std::string text(begin, begin + bytes->length(bytes));
    buffer_destroy(bytes);
    return text;
}

// A PCI configuration space: revision 7, subsystem ids 34 12 and 8c 16 in memory order.
std::string config_space()
{
    std::string space(256, '\0');
    space[8] = 7;
    space.replace(44, 4, "\x8c\x16\x34\x12");
    return space;
}

} // namespace

TEST_F(Hardware, TheEepromIsThePartitionOfThatName)
{
    const std::string head = "dev:    size   erasesize  name\n";
    const struct {
        const char *partitions, *device, *meaning;
    } kCases[] = {
        {"mtd3: 00010000 00010000 \"EEPROM\"\n", "/dev/mtd3", "as it is named"},
        {"mtd3: 00010000 00010000 \"eeprom\"\n", "/dev/mtd3", "in any case"},
        {"mtd3: 00010000 00010000 \"EEPROM\"\n", "/dev/mtd/3", "the other device path"},
        {"mtd0: 0 0 \"u-boot\"\nmtd5: 0 0 \"Eeprom\"\nmtd6: 0 0 \"EEPROM\"\n", "/dev/mtd5",
         "the first of two"},
        {"mtd1: 0 0 \"EEPROM2\"\nmtd2: 0 0 \"EEPROMs\"\nmtdx: 0 0 \"EEPROM\"\nmtd4: 0 0 EEPROM\n"
         "mtd7: 0 0 \"EEPROM",
         "/dev/mtd7", "longer names and rows in another form are passed over"},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.meaning);
        file("/proc/mtd", head + c.partitions);
        file(c.device, image() + "more");
        EXPECT_EQ(eeprom(), image());
        remove(c.device);
        EXPECT_EQ(eeprom(), "none");
    }
}

TEST_F(Hardware, WithoutAPartitionAnImageInTheCurrentFolderIsRead)
{
    ASSERT_EQ(chdir("/tmp"), 0);
    EXPECT_EQ(eeprom(), "none");
    file("/tmp/EEPROM", image());
    EXPECT_EQ(eeprom(), image());
    file("/proc/mtd", "dev:    size   erasesize  name\nmtd0: 0 0 \"u-boot\"\n");
    EXPECT_EQ(eeprom(), image());
    file("/proc/mtd", "mtd0: 0 0 \"EEPROM\"\n"); // named, so it must be there
    EXPECT_EQ(eeprom(), "none");
}

TEST_F(Hardware, AShortEepromIsNone)
{
    file("/proc/mtd", "mtd0: 0 0 \"EEPROM\"\n");
    for (const size_t size : {0U, 1U, 65535U}) {
        file("/dev/mtd0", image().substr(0, size));
        EXPECT_EQ(eeprom(), "none") << size;
    }
}

TEST_F(Hardware, PciDevicesOfOneVendor)
{
    file("/proc/bus/pci/devices", "0008\t168c003c\t10\tffff\n"
                                  "00a1\t80862922\t11\n"
                                  "168c\n"
                                  "01fd\t168cabcd\tffffffff\n");
    file("/proc/bus/pci/00/01.0", config_space());
    pci_entry found[3];
    memset(found, 0xEE, sizeof found);
    ASSERT_EQ(pci_detect(found, 3, 0x168C), 2);
    const auto text = [](const pci_entry &e) {
        char line[100];
        snprintf(line, sizeof line, "%x:%x.%x %x %x, %x %x, %x %x", e.bus, e.slot, e.function,
                 e.vendor, e.device, e.subsystem_vendor, e.subsystem_device, e.revision, e.irq);
        return std::string(line);
    };
    EXPECT_EQ(text(found[0]), "0:1.0 168c 3c, 8c16 3412, 7 10");    // the subsystem's are swapped
    EXPECT_EQ(text(found[1]), "1:1f.5 168c abcd, 0 0, 0 ffffffff"); // no configuration space
    EXPECT_EQ(found[2].irq, 0xEEEEEEEEu);                           // not touched
}

TEST_F(Hardware, ACutConfigurationSpaceIsNotSwapped)
{
    file("/proc/bus/pci/devices", "0000\t168c003c\t10\n");
    const struct {
        size_t size;
        int device, vendor, revision;
    } kCases[] = {
        {0, 0, 0, 0}, {8, 0, 0, 0}, {9, 0, 0, 7}, {47, 0, 0x168C, 7}, {48, 0x3412, 0x8C16, 7},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.size);
        file("/proc/bus/pci/00/00.0", config_space().substr(0, c.size));
        pci_entry entry;
        ASSERT_EQ(pci_detect(&entry, 1, 0x168C), 1);
        EXPECT_EQ(entry.subsystem_device, c.device);
        EXPECT_EQ(entry.subsystem_vendor, c.vendor);
        EXPECT_EQ(entry.revision, c.revision);
    }
}

TEST_F(Hardware, PciDetectionStaysInItsRoom)
{
    pci_entry entries[4];
    EXPECT_EQ(pci_detect(entries, 4, 0x168C), -1);
    std::string list;
    for (int i = 0; i < 6; ++i)
        list += "000" + std::to_string(i) + "\t168c003c\t10\n";
    file("/proc/bus/pci/devices", list);
    EXPECT_EQ(pci_detect(entries, 4, 0x168C), 4);
    EXPECT_EQ(entries[3].function, 3);
    EXPECT_EQ(pci_detect(entries, 0, 0x168C), 0);
    EXPECT_EQ(pci_detect(entries, INT_MIN, 0x168C), 0);
    EXPECT_EQ(pci_detect(entries, 4, 0x1234), 0);
    EXPECT_EQ(pci_detect(nullptr, 4, 0x168C), -1);
}

TEST_F(Hardware, ThisBuildHasNoOutlets)
{
    const Json payload = loaded(R"({"uptime":7})");
    EXPECT_EQ(zorv_outlet_get_outlet_status_json(), nullptr);
    EXPECT_EQ(zorv_psu_get_json_psu_table(), nullptr);
    EXPECT_EQ(zorv_outlet_status_update_json_payload(payload.get()), 0);
    EXPECT_EQ(json_object_size(payload.get()), 1u);
    EXPECT_EQ(zorv_outlet_status_update_json_payload(nullptr), 0);
}
