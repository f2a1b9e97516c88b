
#include "platform/rows.h"
#include "support/json.h"

using Board = Device;

constexpr char kSystemInfo[] = "/proc/zorvhal/system.info";
const std::string kAxes = "/sys/bus/i2c/devices/1-0018/iio:device0/";

TEST_F(Board, TheLastLinesOfItsFileTellTheUnit)
{
    uint16_t vendor, system;
    const auto ids = [&] {
        vendor = system = 0xAAAA;
        const int rc = board_identify_ids(&vendor, &system);
        return shown(rc, hex(vendor), hex(system));
    };
    expect_rows(kSystemInfo, ids,
                {"(none) => -2 aaaa aaaa",
                 "systemid=0x7E8B\r\nnoise\n\nvendorid= 1F3D => 0 1f3d 7e8b",
                 "vendorid=1\nsystemid=12340002\nvendorid=3\n => 0 3 2",
                 " vendorid=1\nVendorid=1\nvendorid=1f3d\nsystemid=zz\n => -1 1f3d aaaa"});

    // Name, firmware minimum, address and what else it tells of itself.
    const auto unit = [] {
        const board_record *const r = get_board();
        return r ? shown(r->name, hex(r->fw_min), shown_mac(r->cpu_mac), static_cast<int>(r->cpuid),
                         r->board_revision, r->country_code)
                 : "none";
    };
    const std::string first = "vendorid=1f3d\nsystemid=7e8b\n", console = "Tarn Console 20000 ";
    expect_rows(
        kSystemInfo, unit,
        {"(none) => none", first + " => " + console + "0:0:0:0:0:0 -1 -1 0",
         first + "serialno=0a1b2\nregdmn[0]=802a => " + console + "a:1b:2:0:0:0 -1 -1 42",
         first + "serialno=0a1bxx3d4e5f\nregdmn[0]=2a => " + console + "a:1b:0:0:0:0 -1 -1 840",
         // A unit that is in no row any more is refreshed where it is.
         "serialno=0a1b2c3d4e5f9988\ncpuid=80fe\nboardrevision=-3\ncountrycode=276 => " + console +
             "a:1b:2c:3d:4e:5f 33022 -3 276",
         "countrycode=276\nregdmn[0]=10 => " + console + "a:1b:2c:3d:4e:5f -1 -1 0",
         "regdmn[]=0010,002a\n => " + console + "a:1b:2c:3d:4e:5f -1 -1 840",
         // The address block raises the minimum, and nothing lowers it.
         "serialno=02a0f3000007\nregdmn[]=2a => Tarn Console 20306 2:a0:f3:0:0:7 -1 -1 0",
         "vendorid=1f3e\nsystemid=7e8e\ncpuid=8 => Tarn Console 20306 2:a0:f3:0:0:7 8 -1 0",
         "(none) => Tarn Console 20306 2:a0:f3:0:0:7 8 -1 0"}); // as it was

    const board_record *const record = board_identify();
    uint8_t mac[6] = {};
    const int rc = board_get_cpu_mac(mac);
    EXPECT_EQ(shown(map_board_name(record), rc, shown_mac(mac), board_get_cpu_mac(nullptr),
                    get_num_of_eth_ports(), get_main_phy_idx(), get_phy_port_id_by_idx(8),
                    get_phy_port_id_by_idx(12), record->ifaces[12].name, record->ifaces[13].name),
              "Tarn Console 0 2:a0:f3:0:0:7 -1 11 9 8 -1 eth12 ");
    file(kSystemInfo, "vendorid=1f3d\nsystemid=7e8e\n");
    EXPECT_STREQ(pluvo_identify()->name, "Tarn Console");
    EXPECT_EQ(unit(), "Tarn Router 20100 0:0:0:0:0:0 -1 -1 0");
    EXPECT_STREQ(record->name, "Tarn Router"); // it changed in place
}

TEST_F(Board, AUnitOfNoRowIsKnownByItsRadiosOthersByIdAndPlatform)
{
    const auto radios = [] { // how many, the last of these
        update_cached_board(nullptr);
        const board_record *const r = board_identify();
        const board_radio &last = r->radios[r->radio_count - 1];
        return shown(map_board_name(r), int{r->radio_count}, last.name, hex(last.subsystem_vendor),
                     hex(last.subsystem_device));
    };
    const std::string a = "0000\t168c003c\t10\n", b = "0001\t168c003c\t10\n"; // in the PCI bus
    file(kSystemInfo, "vendorid=1f3e\nsystemid=7e8b\n");
    file("/proc/bus/pci/00/00.0", std::string(46, '\0') + "\x51\xc2");
    file("/proc/bus/pci/00/00.1", std::string(46, '\0') + "\x51\xc6");
    expect_rows("/proc/bus/pci/devices", radios,
                {b + a + b + a + b + a + " => Unknown 4 Unknown 0 51c2",
                 a + b + " => Unknown 2 Unknown 0 51c6"});

    board_record record = {};
    const auto name = [&record](uint8_t count, uint16_t system_id, uint16_t radio) {
        record.radio_count = count;
        record.system_id = system_id;
        record.radios[0].subsystem_device = radio;
        return std::string(map_board_name(&record));
    };
    EXPECT_EQ(name(1, 1, 0x51C2) + name(2, 1, 0x51C6), "Tarn Station ATarn Station B");
    EXPECT_EQ(name(0, 1, 0x51C2) + name(1, 2, 0x51C2) + name(1, 1, 0x51C3), ""); // its own
    EXPECT_EQ(map_board_name(nullptr), nullptr);
    EXPECT_EQ(board_identify_platform("TARN-R"), pluvo_get_board(0x7E8E));
    EXPECT_EQ(pluvo_identify_platform("TARN-Console"), pluvo_get_board(0x7E8B));
    EXPECT_EQ(pluvo_identify_platform("TARN-Router"), nullptr);
    EXPECT_EQ(pluvo_board_is_beta_firmware(&record) + pluvo_board_is_beta_firmware(nullptr), 0);
    record.fw_min = 0x090909;
    EXPECT_EQ(pluvo_board_is_beta_firmware(&record), 1);
    std::string types;
    for (const char *cpu : {"ar2313", "AR2316", "ar7100", "AR7240", "Ar933X", "x86_64"})
        types += shown(arch_name_to_type(cpu, 6), "");
    EXPECT_EQ(types, "0 1 2 3 4 43 ");
    EXPECT_EQ(shown(arch_name_to_type("ar7240", 5), arch_name_to_type(nullptr, 6)), "43 43");
}

TEST_F(Board, PowerPortsMaterialsAndAccelerometer)
{
    static board_record record; // of the caller's own, in place of the real one
    update_cached_board(&record);
    record.poe_reserved = 10;
    for (const auto &[total, budget] :
         {std::pair(9, "0 0"), {10, "0 0"}, {11, "1 1"}, {65535, "65525 1"}}) {
        record.poe_total = static_cast<uint16_t>(total);
        EXPECT_EQ(shown(board_get_poe_budget(), board_has_poe()), budget);
    }
    const struct {
        uint8_t ports[3];     // of the groups
        const char *label[3]; // of the second port of each
        const char *want;     // the main port's index and id, the ids of 0 and 27, how many
    } kRows[] = {{{8, 1, 8}, {"LAN", nullptr, "Main"}, "10 110 100 127 17"},
                 {{8, 8, 1}, {nullptr, "PoE In + Data", nullptr}, "11 111 100 -1 17"},
                 {{8, 8, 8}, {"main", "Main ", "Main"}, "21 121 100 127 24"}};
    record.port_group_count = 3;
    for (const auto &row : kRows) {
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
    record.port_group_count = 255; // a count beyond the array reaches nothing
    EXPECT_EQ(get_phy_port_id_by_idx(77), -1);

    const auto bomrev = [] { return hex(pluvo_get_bomrev()) + " " + hex(pluvo_get_hw_board_id()); };
    expect_rows("/proc/zorvhal/board", bomrev,
                {"(none) => ffffffff ffffff00",
                 "bomrev=1\r\nboard=2\nbomrev=0x43607 => 43607 43600",
                 "bomrev_old=x=2e8ff and more\n => 2e8ff 2e800", " bomrev=1\nxbomrev=1\n => 0 0"});
    const auto axes = [] {
        return shown(has_accelerometer(), dumped(Json(prepare_accelerometer_status()).get()));
    };
    EXPECT_EQ(axes(), R"(0 {"x":0,"y":0,"z":0})");
    file(kAxes + "in_accel_y_raw", "123456789\n"); // seven characters are read
    expect_rows(kAxes + "in_accel_x_raw", axes, {R"(-1024 => 1 {"x":-1024,"y":1234567,"z":0})"});
    EXPECT_EQ(read(kAxes + "sampling_frequency"), "50");
}
