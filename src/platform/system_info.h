// system_info.h - the lines that the hardware driver writes to /proc/zorvhal/system.info.
#ifndef ZORV_PLATFORM_SYSTEM_INFO_H
#define ZORV_PLATFORM_SYSTEM_INFO_H

#include <zorv/board.h>

#include "core/device_files.h"
#include "core/own.h"

namespace zorv {

constexpr size_t kSystemInfoLine = 256;

// Which ids a file has told so far.
struct FoundIds {
    bool vendor = false;
    bool system = false;
};

File open_system_info();

// Takes an id from a line that has one.
void read_id(const char *line, uint16_t &vendor, uint16_t &system, FoundIds &found);

// Takes the fact of the unit that a line tells, if it does.
void read_unit_fact(const char *line, board_record &record);

} // namespace zorv

#endif
