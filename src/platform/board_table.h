// board_table.h - what the maker says of the boards, packed: texts and ports are told by where they
// stand, so that nothing is relocated and a process pays for no board but its own.
#ifndef ZORV_PLATFORM_BOARD_TABLE_H
#define ZORV_PLATFORM_BOARD_TABLE_H

#include <span>
#include <type_traits>

#include <zorv/board.h>

namespace zorv {

struct BoardPort {
    uint8_t phy_idx;
    bool is_fibre;
    uint16_t label; // in the texts; 0 is none
};

// What tells one board from another; most fields bear the record's names.
struct Board {
    uint32_t attribute2;
    uint32_t fw_min;
    uint16_t system_id;
    uint16_t poe_total;
    uint16_t poe_reserved;
    uint16_t name; // in the texts
    uint16_t platform;
    uint16_t first_port; // in the ports, where those of all its groups are in a row
    uint8_t port_counts[std::extent_v<decltype(board_record::port_groups)>];
    uint8_t port_group_count;
    uint8_t attribute1;
    uint8_t data; // in the blocks of data
};
static_assert(sizeof(BoardPort) == 4 && sizeof(Board) == 32); // a board is a few hundred bytes

// A board that shares its system id with others and is told apart by its first radio.
struct BoardName {
    char name[32];
    uint16_t system_id;
    uint16_t radio; // PCI subsystem device id
};

constexpr uint16_t kBoardVendor = 0x1F3D; // of every board in the table

// The table: one function each, as an object of all would be relocated.
std::span<const Board> boards();
std::span<const BoardName> board_names();
const BoardPort *board_ports(const Board &board);
const char *board_text(uint16_t place);
const void *board_data(const Board &board);

// Where the board's record is kept, NULL until one is asked for.
board_record *&board_record_place(const Board &board);

} // namespace zorv

#endif
