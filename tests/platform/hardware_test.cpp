

#include "platform/rows.h"

using Hardware = Device;

TEST_F(Hardware, TheEepromIsThePartitionOfThatNameAndPciDevicesAreOfOneVendor)
{
    ASSERT_EQ(chdir("/tmp"), 0);
    for (const std::string path : {"/dev/mtd3", "/dev/mtd/4", "/dev/mtd5", "/dev/mtd7", "EEPROM"})
        file(path, std::string(65535, 'e') + path.back() + "more");
    const auto last_byte = [] {
        const std::unique_ptr<buffer, decltype(&buffer_destroy)> image(zorv_read_eeprom(),
                                                                       buffer_destroy);
        return image ? shown(image->length(image.get()), image->data(image.get())[65535]) : "none";
    };
    expect_rows(
        "/proc/mtd", last_byte,
        {"dev:    size   erasesize  name\nmtd3: 00010000 00010000 \"eeprom\"\n => 65536 3",
         "mtd4: 0 0 \"EEPROM\"\n => 65536 4", // by the other device path
         // Longer names and rows in another form are passed over.
         ("mtd5: 0 0 \"EEPROM2\"\nmtd3: 0 0 \"EEPROMs\"\nmtdx: 0 0 \"EEPROM\"\nmtd4: 0 0 EEPROM\n"
          "mtd7: 0 0 \"EEPROM => 65536 7"),
         "mtd0: 0 0 \"EEPROM\"\n => none",      // named, so it must be there
         "mtd3: 0 0 \"u-boot\"\n => 65536 M"}); // in the current folder
    file("EEPROM", std::string(65535, 'e'));
    EXPECT_EQ(last_byte(), "none");

    // Where in the list, ids, ids of the subsystem, revision, interrupt.
    const auto devices = [](int max, uint16_t vendor) {
        pci_entry found[4];
        memset(found, 0xEE, sizeof found);
        std::string text = std::to_string(pci_detect(found, max, vendor));
        for (const pci_entry &e : found)
            if (e.irq != 0xEEEEEEEE) // left alone
                text += "; " + shown(int{e.bus}, int{e.slot}, int{e.function}, hex(e.vendor),
                                     hex(e.device), hex(e.subsystem_vendor),
                                     hex(e.subsystem_device), int{e.revision}, hex(e.irq));
        return text;
    };
    EXPECT_EQ(devices(4, 0x168C), "-1");
    file("/proc/bus/pci/devices", "0008\t168c003c\t10\tffff\n00a1\t80862922\t11\n168c\n"
                                  "01fd\t168cabcd\tffffffff\n");
    // Only when the configuration space is there whole the ids are swapped; what of it is not there
    // stays the caller's.
    std::string space(256, '\0');
    space[8] = 7;
    space.replace(44, 4, "\x8c\x16\x34\x12");
    const std::pair<size_t, const char *> kRows[] = {{8, "eeee eeee 238 10"},
                                                     {9, "eeee eeee 7 10"},
                                                     {47, "168c eeee 7 10"},
                                                     {256, "8c16 3412 7 10"}};
    for (const auto &[size, want] : kRows) {
        file("/proc/bus/pci/00/01.0", space.substr(0, size));
        EXPECT_EQ(devices(3, 0x168C),
                  shown("2; 0 1 0 168c 3c", want) + "; 1 31 5 168c abcd eeee eeee 238 ffffffff");
    }
    EXPECT_EQ(devices(1, 0x168C), "1; 0 1 0 168c 3c 8c16 3412 7 10");
    EXPECT_EQ(pci_detect(nullptr, 4, 0x168C), -1);
    EXPECT_EQ(zorv_outlet_get_outlet_status_json(), nullptr); // this build has no outlets
    EXPECT_EQ(zorv_outlet_status_update_json_payload(nullptr), 0);
}
