// board_firmware.h - the oldest firmware that may run on a unit.
#ifndef ZORV_PLATFORM_BOARD_FIRMWARE_H
#define ZORV_PLATFORM_BOARD_FIRMWARE_H

#include <zorv/board.h>

namespace zorv {

// Raises fw_min by the rules for the board and the unit; never lowers it.
void raise_firmware_minimum(board_record &record);

} // namespace zorv

#endif
