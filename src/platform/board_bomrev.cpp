#include <zorv/board.h>

#include <cstdlib>

#include "core/lines.h"

using namespace zorv;

uint32_t pluvo_get_bomrev()
{
    const File board(fopen("/proc/zorvhal/board", "re"));
    if (!board)
        return UINT32_MAX;
    char value[kLineBuffer];
    if (!read_last_value(board.get(), "bomrev", value))
        return 0;
    return static_cast<uint32_t>(strtoul(value, nullptr, 16));
}

uint32_t pluvo_get_hw_board_id()
{
    return pluvo_get_bomrev() & ~UINT32_C(0xFF);
}
