#include "platform/board_firmware.h"

#include <algorithm>

#include "platform/model_id_sets.h"

using namespace zorv;

#define OUI_A 0x02A0F1 // the maker's address blocks, oldest first
#define OUI_B 0x02A0F2
#define OUI_C 0x02A0F3

namespace {

constexpr uint32_t kEnd = 0xFFFFFF; // ends a table, and as a candidate: no firmware will do
constexpr uint32_t kNone = 0;       // as a candidate: raises nothing
constexpr uint32_t kBeta = 0x090909;

} // namespace

const uint32_t OUI_1_0_0[] = {OUI_A, 0};
const uint32_t OUI_1_2_1[] = {OUI_A, OUI_B, 0};
const uint32_t OUI_2_2_3[] = {OUI_A, OUI_B, OUI_C, 0};

const board_fw_oui g_fw_oui_table[] = {
    {0x010000, OUI_1_0_0},
    {0x010201, OUI_1_2_1},
    {0x020203, OUI_2_2_3},
    {kEnd, nullptr},
};

// The ends of the three tables cover what is beyond the last revision known.
const board_fw_boardrev g_fw_boardrev_kbracshd_table[] = {
    {0x03092A, UINT32_MAX, 12},
    {0x030900, 13, 255},
    {kEnd, 256, INT32_MAX},
};

const board_fw_boardrev g_fw_boardrev_kbrachd_table[] = {
    {0x03092A, UINT32_MAX, 29},
    {0x030900, 30, 255},
    {kEnd, 256, INT32_MAX},
};

const board_fw_boardrev g_fw_boardrev_kbrpro_table[] = {
    {0x020300, UINT32_MAX, 23},
    {0x020404, 24, 255},
    {kEnd, 256, INT32_MAX},
};

const board_fw_bomrev g_fw_bomrev_QX4v2_table[] = {
    {0x052A00, 0x2E8},
    {0x052B25, 0x436},
    {kEnd, 0},
};

namespace {

constexpr uint16_t kBomrevBoard = 0x5241;
constexpr uint32_t kFirmwareWithOuiC = 0x020306;
constexpr uint32_t kFirmwareForOtherOuis = 0x020404;

constexpr struct {
    uint16_t system_id;
    const board_fw_boardrev *rows;
} kBoardrevTables[] = {
    {0x3361, g_fw_boardrev_kbracshd_table},
    {0x3351, g_fw_boardrev_kbrachd_table},
    {0x3328, g_fw_boardrev_kbrpro_table},
};

uint32_t oui_of(const board_record &record)
{
    const auto &mac = record.cpu_mac;
    return static_cast<uint32_t>(mac[0] << 16 | mac[1] << 8 | mac[2]);
}

bool lists(const uint32_t *ouis, uint32_t oui)
{
    while (*ouis != 0 && *ouis != oui)
        ++ouis;
    return *ouis != 0;
}

uint32_t candidate_by_oui(const board_record &record)
{
    if (!kbr_is_supported_by_old_wifi(&record))
        return kNone;
    for (const board_fw_oui *row = g_fw_oui_table; row->firmware != kEnd; ++row)
        if (lists(row->ouis, oui_of(record)))
            return row->firmware;
    return kFirmwareForOtherOuis;
}

uint32_t candidate_by_boardrev(const board_record &record)
{
    for (const auto &table : kBoardrevTables) {
        if (table.system_id != record.system_id)
            continue;
        for (const board_fw_boardrev *row = table.rows; row->firmware != kEnd; ++row)
            if (static_cast<int32_t>(row->lowest) <= record.board_revision &&
                record.board_revision <= static_cast<int32_t>(row->highest))
                return row->firmware;
        return kEnd; // On purpose: no firmware fits a revision that is in no row.
    }
    return kNone;
}

uint32_t candidate_by_bomrev(const board_record &record)
{
    if (record.system_id != kBomrevBoard)
        return kNone;
    const auto bomrev = static_cast<uint32_t>(static_cast<int32_t>(pluvo_get_bomrev()) >> 8);
    for (const board_fw_bomrev *row = g_fw_bomrev_QX4v2_table; row->firmware != kEnd; ++row)
        if (row->bomrev == bomrev)
            return row->firmware;
    return kNone;
}

} // namespace

void zorv::raise_firmware_minimum(board_record &record)
{
    record.fw_min = std::max({
        record.fw_min,
        candidate_by_oui(record),
        candidate_by_boardrev(record),
        oui_of(record) == OUI_C ? kFirmwareWithOuiC : kNone,
        candidate_by_bomrev(record),
    });
}

int pluvo_board_is_beta_firmware(const board_record *record)
{
    return record && record->fw_min == kBeta;
}

int kbr_is_supported_by_old_wifi(const board_record *record)
{
    return record && is_in(IdSet::old_wifi, record->system_id);
}

int kbr_is_supported_ble_fast_adopt(const board_record *record)
{
    return record && is_in(IdSet::ble_fast_adopt, record->system_id);
}
