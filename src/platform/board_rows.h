// board_rows.h - the words that rows of the board table are written in, and how they are packed,
// all of compile time.
#ifndef ZORV_PLATFORM_BOARD_ROWS_H
#define ZORV_PLATFORM_BOARD_ROWS_H

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "platform/board_table.h"

namespace zorv {

struct PortRow {
    uint8_t phy_idx = 0; // which is the switch port id, too
    bool is_fibre = false;
    std::string_view label = {};
};

struct PortGroupRow {
    uint8_t port_count = 0;
    PortRow ports[std::extent_v<decltype(board_port_group::ports)>] = {};
};

// A board as it is known. The fields bear the record's names.
struct BoardRow {
    std::string_view name;
    std::string_view platform;
    uint8_t attribute1 = 0;
    uint32_t attribute2 = 0;
    PortGroupRow port_groups[std::extent_v<decltype(board_record::port_groups)>] = {};
    uint16_t system_id = 0;
    uint16_t poe_total = 0;
    uint16_t poe_reserved = 0;
    uint32_t fw_min = 0;
    uint8_t data = 0; // which block of data
};

consteval PortRow copper(uint8_t phy_idx, std::string_view label)
{
    return {phy_idx, false, label};
}

consteval PortRow fibre(uint8_t phy_idx, std::string_view label)
{
    return {phy_idx, true, label};
}

consteval PortGroupRow ports(std::initializer_list<PortRow> list)
{
    PortGroupRow group;
    for (const PortRow &port : list)
        group.ports[group.port_count++] = port;
    return group;
}

void text_is_too_long(); // no function of compile time: a call of it does not compile

// Puts the ports of all boards into one list, and each text that they have into another one, once.
template <size_t Count>
class BoardPacker {
public:
    struct Sizes {
        size_t ports, texts;
    };

    template <Sizes Used>
    struct Packed {
        Board boards[Count];
        BoardPort ports[Used.ports];
        char texts[Used.texts];
    };

    consteval explicit BoardPacker(const BoardRow (&rows)[Count])
    {
        for (size_t i = 0; i < Count; ++i)
            add(rows[i], boards_[i]);
    }

    consteval Sizes used() const { return used_; }

    template <Sizes Used>
    consteval Packed<Used> cut() const
    {
        static_assert(Used.ports <= 0x10000 && Used.texts <= 0x10000); // places have 16 bits
        Packed<Used> packed = {};
        std::copy_n(boards_, Count, packed.boards);
        std::copy_n(ports_, Used.ports, packed.ports);
        char *text = packed.texts; // of zeros
        for (size_t i = 0; i < text_count_; ++i)
            text = std::copy(texts_[i].begin(), texts_[i].end(), text) + 1;
        return packed;
    }

private:
    static constexpr size_t kRoom = 0x4000;

    consteval void add(const BoardRow &row, Board &board)
    {
        board = {.attribute2 = row.attribute2,
                 .fw_min = row.fw_min,
                 .system_id = row.system_id,
                 .poe_total = row.poe_total,
                 .poe_reserved = row.poe_reserved,
                 .name = add_name<sizeof(board_record::name)>(row.name),
                 .platform = add_name<sizeof(board_record::platform)>(row.platform),
                 .first_port = static_cast<uint16_t>(used_.ports),
                 .port_counts = {},
                 .port_group_count = 0,
                 .attribute1 = row.attribute1,
                 .data = row.data};
        for (const PortGroupRow &group : row.port_groups) {
            if (group.port_count == 0)
                continue;
            board.port_counts[board.port_group_count++] = group.port_count;
            for (size_t i = 0; i < group.port_count; ++i)
                ports_[used_.ports++] = pack(group.ports[i]);
        }
    }

    consteval BoardPort pack(const PortRow &port)
    {
        return {port.phy_idx, port.is_fibre, add_label(port.label)};
    }

    // The places of texts with their NULs; the first one is that of the empty text.
    consteval uint16_t add_text(std::string_view text)
    {
        const size_t place = used_.texts;
        texts_[text_count_++] = text;
        used_.texts += text.size() + 1;
        return static_cast<uint16_t>(place);
    }

    template <size_t Size>
    consteval uint16_t add_name(std::string_view name)
    {
        if (name.size() >= Size)
            text_is_too_long();
        return add_text(name);
    }

    // Boards have most labels in common.
    consteval uint16_t add_label(std::string_view label)
    {
        size_t place = 0;
        for (size_t i = 0; i < text_count_; ++i) {
            if (texts_[i] == label)
                return static_cast<uint16_t>(place);
            place += texts_[i].size() + 1;
        }
        return add_text(label);
    }

    Board boards_[Count] = {};
    BoardPort ports_[kRoom] = {};
    std::string_view texts_[kRoom] = {};
    size_t text_count_ = 1;
    Sizes used_ = {0, 1};
};

} // namespace zorv

#endif
