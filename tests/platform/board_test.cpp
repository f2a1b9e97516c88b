#include <zorv/board.h>

#include <cerrno>

#include "platform/rows.h"
#include "support/json.h"

using Board = Device;

namespace {

constexpr char kSystemInfo[] = "/proc/zorvhal/system.info";
const std::string kConsole = "vendorid=1f3d\nsystemid=7e8b\n";
#define ACCELEROMETER "/sys/bus/i2c/devices/1-0018/iio:device0/"

// What is known of the unit: name, firmware minimum, address and what else it tells of itself.
std::string unit()
{
    const board_record *const r = get_board();
    if (!r)
        return "none";
    std::string text = shown(r->name, hex(r->fw_min), shown_mac(r->cpu_mac));
    text += r->cpuid == UINT32_MAX ? "" : " cpu " + hex(r->cpuid);
    text += r->board_revision == -1 ? "" : " revision " + std::to_string(r->board_revision);
    return text + (r->country_code == 0 ? "" : " country " + std::to_string(r->country_code));
}

// A board of the caller's own, in place of the real one.
board_record &own_board()
{
    static board_record record;
    record = {};
    update_cached_board(&record);
    return record;
}

// Name, number of radios and the last of these, of a unit that is asked for anew.
std::string radios()
{
    update_cached_board(nullptr);
    const board_record *const r = board_identify();
    const int count = r->radio_count;
    const board_radio &last = r->radios[count == 0 ? 0 : count - 1];
    return shown(r->name, count, last.name, hex(last.subsystem_vendor), hex(last.subsystem_device));
}

} // namespace

TEST_F(Board, IdsComeFromTheLastLinesThatTellThem)
{
    uint16_t vendor = 0, system = 0;
    const auto ids = [&] {
        vendor = system = 0xAAAA;
        const int rc = board_identify_ids(&vendor, &system);
        return shown(rc, hex(vendor), hex(system));
    };
    const std::string x254(254, 'x'); // a long line is read in pieces of 255
    expect_rows(kSystemInfo, ids,
                {"(none) => -2 aaaa aaaa", kConsole + " => 0 1f3d 7e8b",
                 "systemid=0x7E8B\r\nnoise\n\nvendorid= 1F3D => 0 1f3d 7e8b",
                 "vendorid=1\nsystemid=2\nvendorid=3\n => 0 3 2",
                 "vendorid=12341f3d\nsystemid=ffff0001\n => 0 1f3d 1",
                 "vendorid=1f3d\n => -1 1f3d aaaa", "systemid=7e8b\n => -1 aaaa 7e8b",
                 " vendorid=1\nVendorid=1\nvendorid=\nsystemid=zz\n => -1 aaaa aaaa",
                 " => -1 aaaa aaaa",
                 x254 + "xsystemid=7e8b\n" + x254 + "\nvendorid=1f3d\n" + x254 +
                     "vendorid=9\n => 0 1f3d 7e8b"});
    EXPECT_EQ(board_identify_ids(nullptr, &system), -1);
    EXPECT_EQ(board_identify_ids(&vendor, nullptr), -1);
}

TEST_F(Board, TheUnitsOwnFactsAreReadAfresh)
{
    expect_rows(kSystemInfo, unit,
                {"(none) => none", kConsole + " => Tarn Console 20000 0:0:0:0:0:0"});
    const auto facts = [] { return unit().substr(strlen("Tarn Console 20000 ")); };
    std::vector<std::string> rows = {
        "serialno=0a1b2c3d4e5f\ncpuid=80fe\nboardrevision=-3\ncountrycode=276\n => "
        "a:1b:2c:3d:4e:5f cpu 80fe revision -3 country 276",
        "serialno=0a1b2c3d4e5f9988\n => a:1b:2c:3d:4e:5f",
        "serialno=0a1b2\n => a:1b:2:0:0:0",
        "serialno=0a1bxx3d4e5f\n => a:1b:0:0:0:0",
        "serialno=\n => 0:0:0:0:0:0",
        "regdmn[0]=802a\n => 0:0:0:0:0:0 country 42",
        "regdmn[0]=2a\n => 0:0:0:0:0:0 country 840",
        "regdmn[0]=10\n => 0:0:0:0:0:0",
        "regdmn[0]=ffff\n => 0:0:0:0:0:0 country 16383",
        "regdmn[]=0010,002a\n => 0:0:0:0:0:0 country 840",
        "regdmn[]=002A\n => 0:0:0:0:0:0",
        "countrycode=276\nregdmn[]=0010\n => 0:0:0:0:0:0 country 276",
        "countrycode=276\nregdmn[0]=10\n => 0:0:0:0:0:0"};
    for (std::string &row : rows)
        row.insert(0, kConsole);
    expect_rows(kSystemInfo, facts, rows);
    // The address block raises the minimum. A unit that is in no row any more is refreshed where it
    // is, and the minimum never lowered.
    expect_rows(kSystemInfo, unit,
                {kConsole + "serialno=02a0f3000007\ncountrycode=276\n => Tarn Console 20306 "
                            "2:a0:f3:0:0:7 country 276",
                 "vendorid=1f3e\nsystemid=7e8b\nserialno=02a0f1000008\n => Tarn Console 20306 "
                 "2:a0:f1:0:0:8",
                 "(none) => Tarn Console 20306 2:a0:f1:0:0:8",
                 "vendorid=1f3d\nsystemid=7e8e\n => Tarn Router 20100 0:0:0:0:0:0"});
}

TEST_F(Board, AKnownUnitIsOneRecordForTheProcess)
{
    file(kSystemInfo, kConsole + "serialno=02a0f1000007\n");
    const board_record *const record = board_identify();
    uint8_t mac[6] = {};
    const int rc = board_get_cpu_mac(mac);
    EXPECT_EQ(shown(map_board_name(record), rc, shown_mac(mac), board_get_cpu_mac(nullptr),
                    get_num_of_eth_ports(), get_main_phy_idx(), get_phy_port_id_by_idx(8),
                    get_phy_port_id_by_idx(12), record->ifaces[12].name, record->ifaces[13].name),
              "Tarn Console 0 2:a0:f1:0:0:7 -1 11 9 8 -1 eth12 ");

    file(kSystemInfo, "vendorid=1f3d\nsystemid=7e8e\n");
    EXPECT_EQ(pluvo_identify(), record);
    EXPECT_EQ(board_identify(), record);
    EXPECT_STREQ(record->name, "Tarn Console");
    EXPECT_EQ(get_board(), record); // which changes it in place
    EXPECT_STREQ(record->name, "Tarn Router");
    EXPECT_EQ(get_num_of_eth_ports(), 13);
}

TEST_F(Board, AUnitOfNoRowIsKnownByItsRadios)
{
    const std::string a = "0000\t168c003c\t10\n", b = "0001\t168c003c\t10\n"; // in the PCI bus
    file(kSystemInfo, "vendorid=1f3e\nsystemid=7e8b\n");
    file("/proc/bus/pci/00/00.0", std::string(46, '\0') + "\x51\xc2");
    file("/proc/bus/pci/00/00.1", std::string(46, '\0') + "\x51\xc6");
    expect_rows("/proc/bus/pci/devices", radios,
                {b + a + b + a + b + a + " => Unknown 4 Unknown 0 51c2",
                 a + b + " => Unknown 2 Unknown 0 51c6", a + " => Unknown 1 Unknown 0 51c2"});
    file("/proc/bus/pci/devices", a + b);
    const board_record *const record = board_identify();
    EXPECT_EQ(record->radio_count, 1);               // still
    EXPECT_STREQ(map_board_name(record), "Unknown"); // the mapped names are of system id 1
    EXPECT_EQ(shown(record->system_id, get_num_of_eth_ports(), get_main_phy_idx(), board_has_poe()),
              "0 0 -1 0");

    std::string rubbish;
    for (int i = 0; i < 100000; ++i)
        rubbish += static_cast<char>(i * 7919 >> 3);
    file("/tmp/rubbish", rubbish);
    for (const std::string target : {"/none", "/tmp/rubbish", "/dev/zero"}) {
        for (const std::string path : {kSystemInfo, "/proc/bus/pci/devices", "/proc/cpuinfo"})
            must_run("ln -sf " + target + " " + path);
        EXPECT_EQ(radios().substr(0, 9), "Unknown 0") << target;
    }
}

TEST_F(Board, NamesOfRadiosIdsAndPlatforms)
{
    board_record record = {};
    const auto name = [&record](uint8_t radios, uint16_t system_id, uint16_t radio) {
        record.radio_count = radios;
        record.system_id = system_id;
        record.radios[0].subsystem_device = radio;
        return std::string(map_board_name(&record));
    };
    EXPECT_EQ(name(1, 1, 0x51C2) + name(2, 1, 0x51C6), "Tarn Station ATarn Station B");
    EXPECT_EQ(name(0, 1, 0x51C2) + name(1, 2, 0x51C2) + name(1, 1, 0x51C3), ""); // its own
    EXPECT_EQ(map_board_name(nullptr), nullptr);

    EXPECT_STREQ(pluvo_get_board(0x7E8E)->name, "Tarn Router");
    EXPECT_EQ(pluvo_get_board(0), nullptr);
    for (const auto identify : {board_identify_platform, pluvo_identify_platform}) {
        EXPECT_EQ(identify("TARN-R"), pluvo_get_board(0x7E8E));
        EXPECT_EQ(identify("TARN-Console"), pluvo_get_board(0x7E8B));
        for (const char *other : {"tarn-r", "TARN-", "TARN-Router", ""})
            EXPECT_EQ(identify(other), nullptr) << other;
        EXPECT_EQ(identify(nullptr), nullptr);
    }
    EXPECT_EQ(pluvo_board_is_beta_firmware(&record), 0);
    record.fw_min = 0x090909;
    EXPECT_EQ(pluvo_board_is_beta_firmware(&record), 1);
    for (const auto query : {pluvo_board_is_beta_firmware, kbr_is_supported_by_old_wifi,
                             kbr_is_supported_ble_fast_adopt})
        EXPECT_EQ(query(nullptr), 0);
}

TEST_F(Board, PowerAndPorts)
{
    const uint16_t kBudgets[][3] = {{180, 10, 170}, {10, 12, 0}, {11, 10, 1},
                                    {0, 0, 0},      {12, 12, 0}, {65535, 0, 65535}};
    for (const auto &[total, reserved, budget] : kBudgets) {
        board_record &record = own_board();
        record.poe_total = total;
        record.poe_reserved = reserved;
        EXPECT_EQ(board_get_poe_budget(), budget);
        EXPECT_EQ(board_has_poe(), budget != 0);
    }

    const struct {
        uint8_t ports[3];     // of the groups
        const char *label[3]; // of the second port of each
        const char *want;     // the main port's index and id, the ids of 0 and 27, how many
    } kRows[] = {
        {{8, 1, 1}, {}, "10 110 100 -1 10"},
        {{8, 1, 8}, {"LAN", nullptr, "Main"}, "10 110 100 127 17"},
        {{8, 8, 1}, {nullptr, "PoE In + Data", nullptr}, "11 111 100 -1 17"},
        {{8, 8, 8}, {"main", "Main ", "Main"}, "21 121 100 127 24"},
        {{8, 8, 8}, {"LAN", nullptr, "WAN"}, "-1 -1 100 127 24"},
        {{1, 8, 8}, {"Main", "Main", "Main"}, "0 100 100 127 17"},
        {{0, 0, 0}, {"Main", "Main", "Main"}, "-1 -1 -1 -1 0"},
    };
    for (const auto &row : kRows) {
        board_record &record = own_board();
        record.port_group_count = 3;
        for (uint8_t g = 0; g < 3; ++g) {
            record.port_groups[g].port_count = row.ports[g];
            record.port_groups[g].ports[1].label = row.label[g];
            for (uint8_t p = 0; p < 8; ++p) {
                record.port_groups[g].ports[p].phy_idx = static_cast<uint8_t>(10 * g + p);
                record.port_groups[g].ports[p].port_id = static_cast<uint8_t>(100 + 10 * g + p);
            }
        }
        EXPECT_EQ(shown(get_main_phy_idx(), get_main_phy_port_id(), get_phy_port_id_by_idx(0),
                        get_phy_port_id_by_idx(27), get_num_of_eth_ports()),
                  row.want);
    }

    board_record &record = own_board(); // counts beyond the arrays reach nothing
    record.port_group_count = 255;
    for (board_port_group &group : record.port_groups)
        group.port_count = 255;
    EXPECT_EQ(get_main_phy(), nullptr);
    EXPECT_EQ(get_phy_port_id_by_idx(77), -1);
}

TEST_F(Board, TheBomRevisionIsTheLastOneTold)
{
    const auto bomrev = [] { return hex(pluvo_get_bomrev()) + " " + hex(pluvo_get_hw_board_id()); };
    expect_rows("/proc/zorvhal/board", bomrev,
                {"(none) => ffffffff ffffff00", "bomrev=0x00524101\n => 524101 524100",
                 "bomrev=1\r\nboard=2\nbomrev=43607 => 43607 43600",
                 "bomrev=x=y=2e8ff\n => 2e8ff 2e800", "bomrev_old=2e8ff and more\n => 2e8ff 2e800",
                 "bomrev=123456789ab\n => 456789ab 45678900", "bomrev=zz\n => 0 0",
                 " bomrev=1\nxbomrev=1\n => 0 0", " => 0 0"});
}

TEST_F(Board, ArchitectureNames)
{
    const std::tuple<const char *, size_t, unsigned> kRows[] = {
        {"ar2313", 6, 0},  {"AR2316", 6, 1},   {"ar7100", 6, 2},  {"AR7240", 6, 3},
        {"Ar933X", 6, 4},  {"ar7240x", 7, 43}, {"ar7240x", 6, 3}, {"ar7240", 5, 43},
        {"x86_64", 6, 43}, {"", 6, 43},        {"ar", 6, 43},     {nullptr, 6, 43}};
    for (const auto &[name, length, type] : kRows)
        EXPECT_EQ(arch_name_to_type(name, length), type);
}

TEST_F(Board, TheAccelerometerIsSetAndRead)
{
    const auto axes = [] {
        return shown(has_accelerometer(), dumped(Json(prepare_accelerometer_status()).get()));
    };
    file(ACCELEROMETER "in_accel_y_raw", "123456789\n"); // seven characters are read
    file(ACCELEROMETER "in_accel_z_raw", "");
    expect_rows(ACCELEROMETER "in_accel_x_raw", axes,
                {R"(-1024 => 1 {"x":-1024,"y":1234567,"z":0})"});
    EXPECT_EQ(read(ACCELEROMETER "sampling_frequency"), "50");
    remove("/sys/bus");
    EXPECT_EQ(axes(), R"(0 {"x":0,"y":0,"z":0})");
}
