#include <zorv/hardware.h>

#include <climits>

#include <unistd.h>

#include "platform/rows.h"
#include "support/json.h"

using Hardware = Device;

namespace {

// The last byte of what zorv_read_eeprom() returned, "none" for NULL.
std::string eeprom()
{
    buffer *const bytes = zorv_read_eeprom();
    if (!bytes)
        return "none";
    EXPECT_EQ(bytes->length(bytes), 65536U);
    const std::string last(1, static_cast<char>(bytes->data(bytes)[65535]));
    buffer_destroy(bytes);
    return last;
}

// Where in the list, ids, ids of the subsystem, revision, interrupt.
std::string devices(int max, uint16_t vendor)
{
    pci_entry found[4];
    memset(found, 0xEE, sizeof found);
    std::string text = std::to_string(pci_detect(found, max, vendor));
    for (const pci_entry &e : found) {
        char line[100];
        snprintf(line, sizeof line, "; %x:%x.%x %x %x, %x %x, %x %x", e.bus, e.slot, e.function,
                 e.vendor, e.device, e.subsystem_vendor, e.subsystem_device, e.revision, e.irq);
        text += e.irq == 0xEEEEEEEE ? "" : line; // left alone
    }
    return text;
}

} // namespace

TEST_F(Hardware, TheEepromIsThePartitionOfThatName)
{
    ASSERT_EQ(chdir("/tmp"), 0);
    EXPECT_EQ(eeprom(), "none");
    for (const std::string path :
         {"/dev/mtd3", "/dev/mtd/4", "/dev/mtd5", "/dev/mtd6", "/dev/mtd7", "EEPROM"})
        file(path, std::string(65535, 'e') + path.back() + "more");
    const std::string head = "dev:    size   erasesize  name\n";
    expect_rows(
        "/proc/mtd", eeprom,
        {head + "mtd3: 00010000 00010000 \"EEPROM\"\n => 3",
         head + "mtd3: 00010000 00010000 \"eeprom\"\n => 3", // in any case
         "mtd4: 0 0 \"EEPROM\"\n => 4",                      // by the other device path
         "mtd0: 0 0 \"u-boot\"\nmtd5: 0 0 \"Eeprom\"\nmtd6: 0 0 \"EEPROM\"\n => 5",
         // Longer names and rows in another form are passed over.
         "mtd5: 0 0 \"EEPROM2\"\nmtd6: 0 0 \"EEPROMs\"\nmtdx: 0 0 \"EEPROM\"\nmtd4: 0 0 EEPROM\n"
         "mtd7: 0 0 \"EEPROM => 7",
         "mtd0: 0 0 \"EEPROM\"\n => none",               // named, so it must be there
         "mtd3: 0 0 \"u-boot\"\n => M", "(none) => M"}); // in the current folder
    for (const size_t size : {0U, 1U, 65535U}) {
        file("EEPROM", std::string(size, 'e'));
        EXPECT_EQ(eeprom(), "none") << size;
    }
}

TEST_F(Hardware, PciDevicesOfOneVendor)
{
    EXPECT_EQ(devices(4, 0x168C), "-1");
    file("/proc/bus/pci/devices", "0008\t168c003c\t10\tffff\n"
                                  "00a1\t80862922\t11\n"
                                  "168c\n"
                                  "01fd\t168cabcd\tffffffff\n");
    const std::string other = "; 1:1f.5 168c abcd, 0 0, 0 ffffffff"; // no configuration space
    // Only when the configuration space is there whole the ids are swapped.
    const std::pair<size_t, const char *> kRows[] = {
        {0, "0 0, 0 10"},     {8, "0 0, 0 10"},        {9, "0 0, 7 10"},
        {47, "168c 0, 7 10"}, {48, "8c16 3412, 7 10"}, {256, "8c16 3412, 7 10"}};
    std::string space(256, '\0');
    space[8] = 7;
    space.replace(44, 4, "\x8c\x16\x34\x12");
    for (const auto &[size, want] : kRows) {
        file("/proc/bus/pci/00/01.0", space.substr(0, size));
        EXPECT_EQ(devices(3, 0x168C), "2; 0:1.0 168c 3c, " + std::string(want) + other);
    }
    EXPECT_EQ(devices(1, 0x168C), "1; 0:1.0 168c 3c, 8c16 3412, 7 10");
    EXPECT_EQ(devices(4, 0x8086), "1; 0:14.1 8086 2922, 0 0, 0 11");
    for (const int none : {0, -1, INT_MIN})
        EXPECT_EQ(devices(none, 0x168C), "0");
    EXPECT_EQ(devices(4, 0x1234), "0");
    EXPECT_EQ(pci_detect(nullptr, 4, 0x168C), -1);
}

TEST_F(Hardware, ThisBuildHasNoOutlets)
{
    const Json payload = loaded(R"({"uptime":7})");
    EXPECT_EQ(zorv_outlet_get_outlet_status_json(), nullptr);
    EXPECT_EQ(zorv_psu_get_json_psu_table(), nullptr);
    EXPECT_EQ(zorv_outlet_status_update_json_payload(payload.get()), 0);
    EXPECT_EQ(dumped(payload.get()), R"({"uptime":7})");
    EXPECT_EQ(zorv_outlet_status_update_json_payload(nullptr), 0);
}
