// The rules that no board of the table shows, and the processor's architecture, which no record
// keeps.
#include <cstring>
#include <string>

#include "platform/cpu_arch.h"
#include "platform/firmware.h"
#include "support/allocation.h"
#include "support/device.h"

using BoardInside = Device;
using namespace zorv;

TEST_F(BoardInside, TheFirmwareMinimumIsTheHighestOfTheRules)
{
    constexpr uint32_t kA = 0x02A0F1, kB = 0x02A0F2, kC = 0x02A0F3, kOther = 0x02A0F4;
    const struct {
        uint16_t system_id;
        uint32_t oui;
        int revision;
        uint32_t before, after;
    } kCases[] = {
        // boards of the first wireless firmware, by the address block
        {0x3123, kA, 0, 0, 0x010000},
        {0x3353, kB, 0, 0, 0x010201},
        {0x3336, kC, 0, 0, 0x020306}, // its own rule gives more than the block's 0x020203
        {0x3323, kOther, 0, 0, 0x020404},
        {0x3323, kOther, 0, 0x020405, 0x020405},
        // by the board revision
        {0x3361, kA, -1, 0, 0x03092A},
        {0x3361, kA, 12, 0, 0x03092A},
        {0x3361, kA, 13, 0, 0x030900},
        {0x3361, kA, 13, 0x030901, 0x030901},
        {0x3351, kA, 29, 0, 0x03092A},
        {0x3351, kA, 30, 0, 0x030900},
        {0x3328, kA, 23, 0, 0x020300},
        {0x3328, kC, 23, 0, 0x020306},
        {0x3328, kA, 24, 0, 0x020404},
        {0x3328, kA, 255, 0, 0x020404},
        {0x3328, kA, 300, 0, 0xFFFFFF},
        {0x3328, kA, -2, 0, 0xFFFFFF},
        // other boards
        {0x7E8B, kB, 300, 5, 5},
        {0x7E8B, kC, 300, 5, 0x020306},
        {0x7E8B, kC, 300, 0x090909, 0x090909},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(testing::Message()
                     << std::hex << c.system_id << " " << c.oui << " " << std::dec << c.revision);
        board_record record = {};
        record.system_id = c.system_id;
        record.board_revision = c.revision;
        record.fw_min = c.before;
        for (int i = 0; i < 3; ++i)
            record.cpu_mac[i] = static_cast<uint8_t>(c.oui >> (16 - 8 * i));
        raise_firmware_minimum(record);
        EXPECT_EQ(record.fw_min, c.after);
    }
}

TEST_F(BoardInside, OneBoardGoesByItsBillOfMaterials)
{
    const struct {
        uint16_t system_id;
        uint32_t after;
        const char *board;
    } kCases[] = {
        {0x5241, 0x052A00, "bomrev=2e8ff\n"},
        {0x5241, 0x052B25, "bomrev=0x43600\n"},
        {0x5241, 1, "bomrev=43700\n"},
        {0x5241, 1, "bomrev=ff0002e8\n"},
        {0x5241, 1, ""},
        {0x5240, 1, "bomrev=2e8ff\n"},
    };
    board_record record = {};
    record.system_id = 0x5241;
    raise_firmware_minimum(record); // without the file
    EXPECT_EQ(record.fw_min, 0u);
    for (const auto &c : kCases) {
        file("/proc/zorvhal/board", c.board);
        record.system_id = c.system_id;
        record.fw_min = 1;
        raise_firmware_minimum(record);
        EXPECT_EQ(record.fw_min, c.after) << c.board;
    }
}

TEST_F(BoardInside, TheArchitectureIsToldBySystemAndProcessor)
{
    const std::pair<const char *, unsigned> kCases[] = {
        {"system type\t\t: Atheros AR7240 rev 2\ncpu model\t\t: MIPS 24Kc V7.4\n", 3},
        {"system type : Atheros AR7161 rev 2\n", 2},
        {"system type : Atheros AR9330\n", 4},
        {"system type : Atheros AR5315\n", 1},
        {"system type : Atheros AR5315\ncpu model : MIPS 4KEc\n", 1},
        {"system type : Atheros AR5312\ncpu model : MIPS 4Kc V0.8\n", 0},
        {"system type : Atheros AR9533\n", 43},
        {"system type :  Atheros AR7240\n", 43}, // one blank stands before the value
        {"System type : Atheros AR7240\nsystem type\n", 43},
        {"system type : Atheros AR7161\nsystem type : Other\n", 43},
        {"system type :\nsystem type :x\n:\n", 43},
        {"processor : 0\nBogoMIPS : 48.00\n", 43},
    };
    EXPECT_EQ(detect_cpu_arch(), 43u);
    for (const auto &[text, arch] : kCases) {
        file("/proc/cpuinfo", text);
        EXPECT_EQ(detect_cpu_arch(), arch) << text;
    }
}

TEST_F(BoardInside, WithoutMemoryAUnitIsUnknownUntilItIsAskedAgain)
{
    file("/proc/zorvhal/system.info", "vendorid=1f3d\nsystemid=7e8b\n");
    fail_allocation(1);
    EXPECT_EQ(get_board(), nullptr);
    fail_allocations_off();
    ASSERT_NE(get_board(), nullptr);
    EXPECT_STREQ(get_board()->name, "Tarn Console");
}
