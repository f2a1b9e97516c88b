// board_firmware.cpp - why a unit needs the firmware that it needs, from the library's tables.
#include <algorithm>
#include <optional>

#include "board.h"

namespace ctl {
namespace {

constexpr uint32_t kEnd = 0xFFFFFF;
constexpr uint32_t kNewestOui = 0x020306; // what the newest address block asks for on every board
constexpr uint32_t kOtherOuis = 0x020404; // what the first wireless boards need outside of any

struct Rule {
    const char *name;
    std::optional<uint32_t> version; // nothing when the rule does not apply
    std::string reason;
};

uint32_t oui_of(const board_record &record)
{
    return static_cast<uint32_t>(record.cpu_mac[0] << 16 | record.cpu_mac[1] << 8 |
                                 record.cpu_mac[2]);
}

std::string oui_text(uint32_t oui)
{
    return format("%02x:%02x:%02x", oui >> 16, oui >> 8 & 0xFF, oui & 0xFF);
}

bool lists(const uint32_t *ouis, uint32_t oui)
{
    while (*ouis != 0 && *ouis != oui)
        ++ouis;
    return *ouis != 0;
}

uint32_t last_of(const uint32_t *ouis)
{
    while (ouis[1] != 0)
        ++ouis;
    return *ouis;
}

Rule by_row(const board_record &record)
{
    if (const board_record *row = pluvo_get_board(record.system_id))
        return {"table row", row->fw_min, std::string("the row of ") + row->name};
    return {"table row", {}, "no row of the board table"};
}

Rule by_oui(const board_record &record)
{
    static constexpr char kName[] = "address block";
    if (!kbr_is_supported_by_old_wifi(&record))
        return {kName, {}, "not a board of the first wireless firmware"};
    const std::string oui = oui_text(oui_of(record));
    for (const board_fw_oui *row = g_fw_oui_table; row->firmware != kEnd; ++row)
        if (lists(row->ouis, oui_of(record)))
            return {kName, row->firmware, oui + " is known since this version"};
    return {kName, kOtherOuis, oui + " is in no table"};
}

Rule by_boardrev(const board_record &record)
{
    static constexpr char kName[] = "board revision";
    const struct {
        uint16_t system_id;
        const board_fw_boardrev *rows;
    } kTables[] = {
        {0x3361, g_fw_boardrev_kbracshd_table},
        {0x3351, g_fw_boardrev_kbrachd_table},
        {0x3328, g_fw_boardrev_kbrpro_table},
    };
    const auto *table = std::find_if(std::begin(kTables), std::end(kTables), [&](const auto &t) {
        return t.system_id == record.system_id;
    });
    if (table == std::end(kTables))
        return {kName, {}, "no table for this board"};
    for (const board_fw_boardrev *row = table->rows; row->firmware != kEnd; ++row) {
        const auto lowest = static_cast<int32_t>(row->lowest);
        const auto highest = static_cast<int32_t>(row->highest);
        if (lowest <= record.board_revision && record.board_revision <= highest)
            return {kName, row->firmware,
                    format("revision %d is in %d to %d", record.board_revision, lowest, highest)};
    }
    return {kName, kEnd,
            format("revision %d is in no row: no firmware will do", record.board_revision)};
}

Rule by_newest_oui(const board_record &record)
{
    static constexpr char kName[] = "newest address block";
    const std::string newest = oui_text(last_of(OUI_2_2_3));
    if (oui_of(record) != last_of(OUI_2_2_3))
        return {kName, {}, "the unit's is not " + newest};
    return {kName, kNewestOui, "the unit's is " + newest};
}

Rule by_bomrev(const board_record &record)
{
    static constexpr char kName[] = "bill of materials";
    if (record.system_id != 0x5241)
        return {kName, {}, "no table for this board"};
    const auto bomrev = static_cast<uint32_t>(static_cast<int32_t>(pluvo_get_bomrev()) >> 8);
    for (const board_fw_bomrev *row = g_fw_bomrev_QX4v2_table; row->firmware != kEnd; ++row)
        if (row->bomrev == bomrev)
            return {kName, row->firmware, format("revision 0x%x is in the table", bomrev)};
    return {kName, {}, format("revision 0x%x is in no row", bomrev)};
}

} // namespace

std::string version_text(uint32_t version)
{
    if (version == kEnd)
        return "none will do";
    return format("%u.%u.%u", version >> 16 & 0xFF, version >> 8 & 0xFF, version & 0xFF);
}

Value firmware_rules(const board_record &record)
{
    Value list = Value::list();
    uint32_t minimum = 0;
    for (const auto rule_of : {by_row, by_oui, by_boardrev, by_newest_oui, by_bomrev}) {
        const Rule rule = rule_of(record);
        const bool raised = rule.version > minimum;
        if (raised)
            minimum = *rule.version;
        list.add(Value::object()
                     .set("rule", rule.name)
                     .set("version", rule.version ? Value(version_text(*rule.version)) : Value())
                     .set("raised", raised)
                     .set("reason", rule.reason));
    }
    return list;
}

} // namespace ctl
