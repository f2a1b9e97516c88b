#include <zorv/board.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "support/device.h"
#include "support/json.h"

using Board = Device;

namespace {

constexpr char kSystemInfo[] = "/proc/zorvhal/system.info";
constexpr char kConsole[] = "vendorid=1f3d\nsystemid=7e8b\n";
constexpr char kPciDevices[] = "/proc/bus/pci/devices";
#define ACCELEROMETER "/sys/bus/i2c/devices/1-0018/iio:device0/"

std::string mac_text(const uint8_t (&mac)[6])
{
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

// A board of the caller's own, in place of the real one.
board_record &own_board()
{
    static board_record record;
    record = {};
    update_cached_board(&record);
    return record;
}

void give_radios(int count, const std::string &subsystem_device)
{
    std::string list, space(48, '\0');
    space.replace(46, 2, subsystem_device);
    for (int i = 0; i < count; ++i) {
        list += "000" + std::to_string(i) + "\t168c003c\t10\n";
        Device::file("/proc/bus/pci/00/00." + std::to_string(i), space);
    }
    Device::file(kPciDevices, list);
}

} // namespace

TEST_F(Board, IdsComeFromTheLastLinesThatTellThem)
{
    const struct {
        const char *text;
        int rc, vendor, system;
    } kCases[] = {
        {kConsole, 0, 0x1F3D, 0x7E8B},
        {"systemid=0x7E8B\r\nnoise\n\nvendorid= 1F3D", 0, 0x1F3D, 0x7E8B},
        {"vendorid=1\nsystemid=2\nvendorid=3\n", 0, 3, 2},
        {"vendorid=12341f3d\nsystemid=ffff0001\n", 0, 0x1F3D, 1}, // the low 16 bits
        {"vendorid=1f3d\n", -1, 0x1F3D, 0xAAAA},
        {"systemid=7e8b\n", -1, 0xAAAA, 0x7E8B},
        {" vendorid=1\nVendorid=1\nvendorid=\nsystemid=zz\n", -1, 0xAAAA, 0xAAAA},
        {"", -1, 0xAAAA, 0xAAAA},
    };
    uint16_t vendor = 0xAAAA, system = 0xAAAA;
    EXPECT_EQ(board_identify_ids(&vendor, &system), -ENOENT);
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.text);
        file(kSystemInfo, c.text);
        vendor = system = 0xAAAA;
        EXPECT_EQ(board_identify_ids(&vendor, &system), c.rc);
        EXPECT_EQ(vendor, c.vendor);
        EXPECT_EQ(system, c.system);
    }
    EXPECT_EQ(board_identify_ids(nullptr, &system), -1);
    EXPECT_EQ(board_identify_ids(&vendor, nullptr), -1);
}

TEST_F(Board, ALongLineIsReadInPiecesOf255)
{
    uint16_t vendor = 0, system = 0;
    file(kSystemInfo, std::string(255, 'x') + "systemid=7e8b\n" + std::string(254, 'x') + "\n" +
                          "vendorid=1f3d\n" + std::string(254, 'x') + "vendorid=9\n");
    EXPECT_EQ(board_identify_ids(&vendor, &system), 0);
    EXPECT_EQ(vendor, 0x1F3D);
    EXPECT_EQ(system, 0x7E8B);
}

TEST_F(Board, TheUnitsOwnFactsAreReadAfresh)
{
    const std::string blank = "00:00:00:00:00:00";
    const struct {
        const char *lines;
        std::string mac;
        int64_t cpuid;
        int revision, country;
    } kCases[] = {
        {"", blank, 0xFFFFFFFF, -1, 0},
        {"serialno=0a1b2c3d4e5f\ncpuid=80fe\nboardrevision=-3\ncountrycode=276\n",
         "0A:1B:2C:3D:4E:5F", 0x80FE, -3, 276},
        {"serialno=0a1b2c3d4e5f9988\n", "0A:1B:2C:3D:4E:5F", 0xFFFFFFFF, -1, 0},
        {"serialno=0a1b2\n", "0A:1B:02:00:00:00", 0xFFFFFFFF, -1, 0},
        {"serialno=0a1bxx3d4e5f\n", "0A:1B:00:00:00:00", 0xFFFFFFFF, -1, 0},
        {"serialno=\n", blank, 0xFFFFFFFF, -1, 0},
        {"regdmn[0]=802a\n", blank, 0xFFFFFFFF, -1, 42},
        {"regdmn[0]=2a\n", blank, 0xFFFFFFFF, -1, 840},
        {"regdmn[0]=10\n", blank, 0xFFFFFFFF, -1, 0},
        {"regdmn[0]=ffff\n", blank, 0xFFFFFFFF, -1, 0x3FFF},
        {"regdmn[]=0010,002a\n", blank, 0xFFFFFFFF, -1, 840},
        {"regdmn[]=002A\n", blank, 0xFFFFFFFF, -1, 0},
        {"countrycode=276\nregdmn[]=0010\n", blank, 0xFFFFFFFF, -1, 276},
        {"countrycode=276\nregdmn[0]=10\n", blank, 0xFFFFFFFF, -1, 0},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.lines);
        file(kSystemInfo, std::string(kConsole) + c.lines);
        const board_record *const record = get_board();
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(mac_text(record->cpu_mac), c.mac);
        EXPECT_EQ(record->cpuid, c.cpuid);
        EXPECT_EQ(record->board_revision, c.revision);
        EXPECT_EQ(record->country_code, c.country);
    }
}

TEST_F(Board, AKnownUnitIsOneRecordForTheProcess)
{
    file(kSystemInfo, std::string(kConsole) + "serialno=02a0f1000007\n");
    const board_record *const record = board_identify();
    EXPECT_STREQ(record->name, "Tarn Console");
    EXPECT_STREQ(map_board_name(record), "Tarn Console");
    EXPECT_EQ(record->fw_min, 0x020000u);
    uint8_t mac[6];
    EXPECT_EQ(board_get_cpu_mac(mac), 0);
    EXPECT_EQ(mac_text(mac), "02:A0:F1:00:00:07");
    EXPECT_EQ(board_get_cpu_mac(nullptr), -1);
    EXPECT_EQ(get_num_of_eth_ports(), 11);
    EXPECT_EQ(get_main_phy_idx(), 9);
    EXPECT_EQ(get_phy_port_id_by_idx(8), 8);
    EXPECT_EQ(get_phy_port_id_by_idx(12), -1);
    EXPECT_STREQ(record->ifaces[12].name, "eth12");
    EXPECT_STREQ(record->ifaces[13].name, "");

    file(kSystemInfo, "vendorid=1f3d\nsystemid=7e8e\n");
    EXPECT_EQ(pluvo_identify(), record);
    EXPECT_EQ(board_identify(), record);
    EXPECT_STREQ(record->name, "Tarn Console");
    EXPECT_EQ(get_board(), record); // which changes it in place
    EXPECT_STREQ(record->name, "Tarn Router");
    EXPECT_EQ(get_num_of_eth_ports(), 13);
}

TEST_F(Board, ARecordOutlivesItsFile)
{
    EXPECT_EQ(get_board(), nullptr);
    file(kSystemInfo, std::string(kConsole) + "serialno=02a0f3000007\ncountrycode=276\n");
    const board_record *const record = get_board();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->fw_min, 0x020306u); // by the address block

    file(kSystemInfo, "vendorid=1f3e\nsystemid=7e8b\nserialno=02a0f1000008\n");
    EXPECT_EQ(get_board(), record); // no row any more: refreshed where it is, never lowered
    EXPECT_EQ(mac_text(record->cpu_mac), "02:A0:F1:00:00:08");
    EXPECT_EQ(record->country_code, 0);
    EXPECT_EQ(record->fw_min, 0x020306u);

    remove(kSystemInfo);
    EXPECT_EQ(get_board(), record);
    EXPECT_EQ(mac_text(record->cpu_mac), "02:A0:F1:00:00:08");

    file(kSystemInfo, std::string(kConsole) + "serialno=02a0f1000008\n");
    EXPECT_EQ(get_board()->fw_min, 0x020000u); // a new copy of the row
}

TEST_F(Board, AUnitOfNoRowIsKnownByItsRadios)
{
    file(kSystemInfo, "vendorid=1f3e\nsystemid=7e8b\n");
    give_radios(6, "\x51\xc6");
    const board_record *const record = board_identify();
    EXPECT_STREQ(record->name, "Unknown");
    EXPECT_EQ(record->radio_count, 4);
    EXPECT_STREQ(record->radios[3].name, "Unknown");
    EXPECT_EQ(record->radios[3].subsystem_device, 0x51C6);
    EXPECT_EQ(record->system_id, 0);
    EXPECT_STREQ(map_board_name(record), "Unknown"); // the mapped names are of system id 1
    EXPECT_EQ(get_num_of_eth_ports(), 0);
    EXPECT_EQ(get_main_phy(), nullptr);
    EXPECT_EQ(board_has_poe(), 0);

    give_radios(1, "\x51\xc2");
    EXPECT_EQ(board_identify()->radio_count, 4);
    update_cached_board(nullptr);
    EXPECT_EQ(board_identify(), record);
    EXPECT_EQ(record->radio_count, 1);
    EXPECT_EQ(record->radios[0].subsystem_device, 0x51C2);

    remove(kPciDevices);
    update_cached_board(nullptr);
    EXPECT_EQ(board_identify()->radio_count, 0);
}

TEST_F(Board, TheFirstRadioTellsStationsApart)
{
    const struct {
        int radios, system_id, radio;
        const char *name;
    } kCases[] = {
        {1, 1, 0x51C2, "Tarn Station A"},
        {2, 1, 0x51C6, "Tarn Station B"},
        {0, 1, 0x51C2, "own"},
        {1, 2, 0x51C2, "own"},
        {1, 1, 0x51C3, "own"},
    };
    board_record record = {};
    strcpy(record.name, "own");
    for (const auto &c : kCases) {
        record.radio_count = static_cast<uint8_t>(c.radios);
        record.system_id = static_cast<uint16_t>(c.system_id);
        record.radios[0].subsystem_device = static_cast<uint16_t>(c.radio);
        EXPECT_STREQ(map_board_name(&record), c.name) << c.radio;
    }
    EXPECT_EQ(map_board_name(nullptr), nullptr);
}

TEST_F(Board, RowsAreFoundByIdAndByPlatform)
{
    EXPECT_STREQ(pluvo_get_board(0x7E8E)->name, "Tarn Router");
    EXPECT_EQ(pluvo_get_board(0), nullptr);
    for (const auto identify : {board_identify_platform, pluvo_identify_platform}) {
        EXPECT_EQ(identify("TARN-R"), pluvo_get_board(0x7E8E));
        EXPECT_EQ(identify("TARN-Console"), pluvo_get_board(0x7E8B));
        for (const char *other : {"tarn-r", "TARN-", "TARN-Router", ""})
            EXPECT_EQ(identify(other), nullptr) << other;
        EXPECT_EQ(identify(nullptr), nullptr);
    }
}

TEST_F(Board, ThePoeBudgetIsWhatTheReserveLeaves)
{
    const struct {
        uint16_t total, reserved;
        unsigned budget;
    } kCases[] = {{180, 10, 170}, {10, 12, 0}, {0, 0, 0},
                  {0, 5, 0},      {12, 12, 0}, {65535, 0, 65535}};
    board_record &record = own_board();
    for (const auto &c : kCases) {
        record.poe_total = c.total;
        record.poe_reserved = c.reserved;
        EXPECT_EQ(board_get_poe_budget(), c.budget);
        EXPECT_EQ(board_has_poe(), c.budget != 0);
    }
}

TEST_F(Board, TheMainPortIsTheFirstThatIsAloneOrLabelled)
{
    const struct {
        int main;             // its PHY index, 10 * group + port
        int ports[3];         // of the groups
        const char *label[3]; // of the second port of each
    } kCases[] = {
        {10, {8, 1, 1}, {}},
        {10, {8, 1, 8}, {"LAN", nullptr, "Main"}},
        {11, {8, 8, 1}, {nullptr, "PoE In + Data", nullptr}},
        {21, {8, 8, 8}, {"main", "Main ", "Main"}},
        {-1, {8, 8, 8}, {"LAN", nullptr, "WAN"}},
        {0, {1, 8, 8}, {"Main", "Main", "Main"}},
        {-1, {0, 0, 0}, {"Main", "Main", "Main"}},
    };
    for (const auto &c : kCases) {
        board_record &record = own_board();
        record.port_group_count = 3;
        for (uint8_t g = 0; g < 3; ++g) {
            record.port_groups[g].port_count = static_cast<uint8_t>(c.ports[g]);
            record.port_groups[g].ports[1].label = c.label[g];
            for (uint8_t p = 0; p < 8; ++p) {
                record.port_groups[g].ports[p].phy_idx = static_cast<uint8_t>(10 * g + p);
                record.port_groups[g].ports[p].port_id = static_cast<uint8_t>(100 + 10 * g + p);
            }
        }
        EXPECT_EQ(get_main_phy_idx(), c.main);
        EXPECT_EQ(get_main_phy_port_id(), c.main < 0 ? -1 : 100 + c.main);
        EXPECT_EQ(get_phy_port_id_by_idx(0), c.ports[0] == 0 ? -1 : 100);
        EXPECT_EQ(get_phy_port_id_by_idx(27), c.ports[2] == 8 ? 127 : -1);
        EXPECT_EQ(get_num_of_eth_ports(), c.ports[0] + c.ports[1] + c.ports[2]);
    }
}

TEST_F(Board, CountsBeyondTheArraysReachNothing)
{
    board_record &record = own_board();
    record.port_group_count = 255;
    for (board_port_group &group : record.port_groups)
        group.port_count = 255;
    EXPECT_EQ(get_main_phy(), nullptr);
    EXPECT_EQ(get_phy_port_id_by_idx(77), -1);
}

TEST_F(Board, TheBomRevisionIsTheLastOneTold)
{
    const std::pair<const char *, uint32_t> kCases[] = {
        {"bomrev=0x00524101\n", 0x00524101},
        {"bomrev=1\r\nboard=2\nbomrev=43607", 0x43607},
        {"bomrev=x=y=2e8ff\n", 0x2E8FF},
        {"bomrev_old=2e8ff and more\n", 0x2E8FF}, // begins with it, and the number ends somewhere
        {"bomrev=123456789ab\n", 0x456789AB},
        {"bomrev=zz\n", 0},
        {" bomrev=1\nxbomrev=1\n", 0},
        {"", 0},
    };
    EXPECT_EQ(pluvo_get_bomrev(), 0xFFFFFFFFu);
    EXPECT_EQ(pluvo_get_hw_board_id(), 0xFFFFFF00u);
    for (const auto &[text, revision] : kCases) {
        file("/proc/zorvhal/board", text);
        EXPECT_EQ(pluvo_get_bomrev(), revision) << text;
        EXPECT_EQ(pluvo_get_hw_board_id(), revision & 0xFFFFFF00) << text;
    }
}

TEST_F(Board, SetsOfBoards)
{
    const std::vector<int> expected_old_wifi = {0x3123, 0x3323, 0x3333, 0x3336, 0x3353};
    const std::vector<int> expected_fast_adopt = {0x5233, 0x5241, 0x5255, 0x5261, 0x5271};
    board_record record = {};
    std::vector<int> old_wifi, fast_adopt;
    for (int id = 0; id <= 0xFFFF; ++id) {
        record.system_id = static_cast<uint16_t>(id);
        if (kbr_is_supported_by_old_wifi(&record))
            old_wifi.push_back(id);
        if (kbr_is_supported_ble_fast_adopt(&record))
            fast_adopt.push_back(id);
    }
    EXPECT_EQ(old_wifi, expected_old_wifi);
    EXPECT_EQ(fast_adopt, expected_fast_adopt);
    EXPECT_EQ(pluvo_board_is_beta_firmware(&record), 0);
    record.fw_min = 0x090909;
    EXPECT_EQ(pluvo_board_is_beta_firmware(&record), 1);
    for (const auto query : {pluvo_board_is_beta_firmware, kbr_is_supported_by_old_wifi,
                             kbr_is_supported_ble_fast_adopt})
        EXPECT_EQ(query(nullptr), 0);
}

TEST_F(Board, ArchitectureNames)
{
    const struct {
        const char *name;
        size_t length;
        unsigned type;
    } kCases[] = {
        {"ar2313", 6, 0},  {"AR2316", 6, 1},   {"ar7100", 6, 2},  {"AR7240", 6, 3},
        {"Ar933X", 6, 4},  {"ar7240x", 7, 43}, {"ar7240x", 6, 3}, {"ar7240", 5, 43},
        {"x86_64", 6, 43}, {"", 6, 43},        {"ar", 6, 43},     {nullptr, 6, 43},
    };
    for (const auto &c : kCases)
        EXPECT_EQ(arch_name_to_type(c.name, c.length), c.type) << (c.name ? c.name : "NULL");
}

TEST_F(Board, TheAccelerometerIsSetAndRead)
{
    EXPECT_EQ(has_accelerometer(), 0);
    file(ACCELEROMETER "in_accel_x_raw", "-1024\n");
    file(ACCELEROMETER "in_accel_y_raw", "123456789\n"); // seven characters are read
    file(ACCELEROMETER "in_accel_z_raw", "");
    EXPECT_EQ(has_accelerometer(), 1);
    const auto axes = [] { return dumped(Json(prepare_accelerometer_status()).get()); };
    errno = 0;
    EXPECT_EQ(axes(), R"({"x":-1024,"y":1234567,"z":0})");
    EXPECT_EQ(read(ACCELEROMETER "sampling_frequency"), "50");
    remove("/sys/bus");
    EXPECT_EQ(axes(), R"({"x":0,"y":0,"z":0})");
}

TEST_F(Board, RubbishLeavesAUnitUnknown)
{
    constexpr const char *kPaths[] = {kSystemInfo, kPciDevices, "/proc/zorvhal/board",
                                      "/proc/cpuinfo"};
    const auto expect_unknown = [] {
        update_cached_board(nullptr);
        EXPECT_STREQ(board_identify()->name, "Unknown");
        EXPECT_EQ(board_identify()->radio_count, 0);
        EXPECT_EQ(pluvo_get_bomrev(), 0u);
    };
    std::string rubbish;
    for (int i = 0; i < 100000; ++i)
        rubbish += static_cast<char>(i * 7919 >> 3);
    for (const std::string &text : {rubbish, std::string(100000, '\0'), std::string(100000, '=')}) {
        for (const char *path : kPaths)
            file(path, text);
        expect_unknown();
    }
    for (const std::string path : kPaths)
        must_run("ln -sf /dev/zero " + path);
    expect_unknown();
}
