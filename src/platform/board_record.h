// board_record.h - the record of a board, made from what the table says of it.
#ifndef ZORV_PLATFORM_BOARD_RECORD_H
#define ZORV_PLATFORM_BOARD_RECORD_H

#include "platform/board_table.h"

namespace zorv {

// Turns a record into the board's, of no unit yet. One that is the board's already keeps its texts
// and ports all the while: other threads may be reading them.
void fill_record(const Board &board, board_record &record);

// Turns a record of zeros into that of a unit of no row; the radios are left to the caller.
void fill_unknown_record(board_record &record);

// A record of the caller's own (free()), or NULL without memory.
board_record *make_record(const Board &board);

// The record that all callers share, made by the first call, of whichever thread, and kept for
// good. NULL without memory.
const board_record *record_of(const Board &board);

} // namespace zorv

#endif
