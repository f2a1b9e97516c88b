// board_rows.h - the words that rows of the board table are written in, all of compile time.
#ifndef ZORV_PLATFORM_BOARD_ROWS_H
#define ZORV_PLATFORM_BOARD_ROWS_H

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string_view>

#include <zorv/board.h>

namespace zorv {

// What tells one board from another. The fields bear the record's names.
struct BoardRow {
    std::string_view name;
    std::string_view platform;
    uint8_t attribute1 = 0;
    uint32_t attribute2 = 0;
    board_port_group port_groups[9] = {};
    uint16_t system_id = 0;
    uint16_t poe_total = 0;
    uint16_t poe_reserved = 0;
    uint32_t fw_min = 0;
    const void *data = nullptr;
};

// A port whose switch port id is its PHY index.
consteval board_port copper(uint8_t phy_idx, const char *label)
{
    return {.phy_idx = phy_idx,
            .port_id = phy_idx,
            .attribute1 = 2,
            .attribute2 = 0x2F,
            .attribute3 = 0x10,
            .attribute4 = -1,
            .label = label};
}

consteval board_port fibre(uint8_t phy_idx, const char *label)
{
    board_port port = copper(phy_idx, label);
    port.attribute1 = 8;
    port.attribute2 = 0x20;
    return port;
}

consteval board_port_group ports(std::initializer_list<board_port> list)
{
    board_port_group group{};
    for (const board_port &port : list)
        group.ports[group.port_count++] = port;
    return group;
}

// A text with its NUL; one that is too long does not compile.
template <size_t Size>
consteval void put(char (&field)[Size], std::string_view text)
{
    field[text.size()] = '\0';
    std::copy(text.begin(), text.end(), field);
}

consteval board_iface ethernet(unsigned number)
{
    board_iface iface{"eth", 16, 16};
    char *end = iface.name + 3;
    if (number >= 10)
        *end++ = static_cast<char>('0' + number / 10);
    *end = static_cast<char>('0' + number % 10);
    if (number == 8 || number == 9) // not behind the switch
        iface.attribute1 = iface.attribute2 = number - 7;
    return iface;
}

// The record of a row, with what all boards have alike.
consteval board_record board(const BoardRow &row)
{
    board_record record{};
    put(record.name, row.name);
    put(record.platform, row.platform);
    record.attribute1 = row.attribute1;
    record.attribute2 = row.attribute2;
    record.attribute3 = 30;
    record.attribute4 = 150;
    std::copy(std::begin(row.port_groups), std::end(row.port_groups), record.port_groups);
    for (const board_port_group &group : record.port_groups)
        if (group.port_count != 0)
            ++record.port_group_count;
    for (unsigned number = 0; number <= 12; ++number)
        record.ifaces[number] = ethernet(number);
    record.system_id = row.system_id;
    record.poe_total = row.poe_total;
    record.poe_reserved = row.poe_reserved;
    record.fw_min = row.fw_min;
    record.cpuid = UINT32_MAX;
    record.board_revision = -1;
    record.data = row.data;
    return record;
}

} // namespace zorv

#endif
