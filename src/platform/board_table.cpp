#include "platform/board_table.h"

#include "platform/board_rows.h"

namespace zorv {

namespace {

// A board is one entry; docs/boards.md says what each field decides. Fields left out are 0.
constexpr BoardRow kBoardRows[] = {
    {
        .name = "Tarn Console",
        .platform = "TARN-Console",
        .port_groups =
            {
                ports({copper(1, "LAN 1"), copper(2, "LAN 2"), copper(3, "LAN 3"),
                       copper(4, "LAN 4"), copper(5, "LAN 5"), copper(6, "LAN 6"),
                       copper(7, "LAN 7"), copper(8, "LAN 8")}),
                ports({copper(9, "Main")}),
                ports({fibre(10, "SFP+ 1")}),
                ports({fibre(11, "SFP+ 2")}),
            },
        .system_id = 0x7E8B,
        .poe_total = 180,
        .poe_reserved = 10,
        .fw_min = 0x020000,
    },
    {
        .name = "Tarn Router",
        .platform = "TARN-R",
        .port_groups =
            {
                ports({copper(1, "LAN 1"), copper(2, "LAN 2"), copper(3, "LAN 3"),
                       copper(4, "LAN 4"), copper(5, "LAN 5"), copper(6, "LAN 6"),
                       copper(7, "LAN 7"), copper(8, "LAN 8")}),
                ports({copper(9, "Main")}),
                ports({copper(10, "WAN 2")}),
                ports({copper(11, "WAN 3")}),
                ports({fibre(12, "SFP+ 1")}),
                ports({fibre(13, "SFP+ 2")}),
            },
        .system_id = 0x7E8E,
        .poe_total = 45,
        .poe_reserved = 5,
        .fw_min = 0x020100,
    },
};

// What rows point to by their data. The first is no block at all.
constexpr const void *kDataBlocks[] = {nullptr};

static_assert(std::ranges::all_of(kBoardRows, [](const BoardRow &row) {
    return row.data < std::size(kDataBlocks);
}));

constexpr BoardName kBoardNameRows[] = {
    {"Tarn Station A", 1, 0x51C2},
    {"Tarn Station B", 1, 0x51C6},
};

constexpr BoardPacker kPacker(kBoardRows);
constexpr auto kPacked = kPacker.cut<kPacker.used()>();

constinit board_record *g_records[std::size(kBoardRows)] = {}; // board_record.cpp makes them

} // namespace

std::span<const Board> boards()
{
    return kPacked.boards;
}

std::span<const BoardName> board_names()
{
    return kBoardNameRows;
}

const BoardPort *board_ports(const Board &board)
{
    return kPacked.ports + board.first_port;
}

const char *board_text(uint16_t place)
{
    return kPacked.texts + place;
}

const void *board_data(const Board &board)
{
    return kDataBlocks[board.data];
}

board_record *&board_record_place(const Board &board)
{
    return g_records[&board - kPacked.boards];
}

} // namespace zorv
