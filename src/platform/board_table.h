// board_table.h - what the maker says of the boards.
#ifndef ZORV_PLATFORM_BOARD_TABLE_H
#define ZORV_PLATFORM_BOARD_TABLE_H

#include <span>

#include <zorv/board.h>

namespace zorv {

// A board that shares its system id with others and is told apart by its first radio.
struct BoardName {
    char name[32];
    uint16_t system_id;
    uint16_t radio; // PCI subsystem device id
};

constexpr uint16_t kBoardVendor = 0x1F3D; // of every board in the table

extern const std::span<const board_record> kBoards;
extern const std::span<const BoardName> kBoardNames;

} // namespace zorv

#endif
