// board.h - what the files of "zorvctl board" share.
#ifndef ZORVCTL_BOARD_H
#define ZORVCTL_BOARD_H

#include <zorv/board.h>

#include "base/ask.h"
#include "core/device_files.h"

namespace ctl {

constexpr char kBoardFile[] = "/proc/zorvhal/board"; // tells the bill of materials

// The unit's record. The library takes a file that it cannot read for one that is not there.
inline const board_record &identify_board()
{
    for (const char *const path : {zorv::kSystemInfo, kBoardFile, "/proc/bus/pci/devices"})
        expect_readable(path);
    ask(zorv::kSystemInfo, pluvo_identify); // the next call hides that this one has failed
    return *board_identify();
}

// "2.4.4" for 0x020404.
std::string version_text(uint32_t version);

// Each rule for the oldest firmware as {"rule", "version", "raised", "reason"}, in the order in
// which they are applied; "version" is null where the rule does not apply.
Value firmware_rules(const board_record &record);

} // namespace ctl

#endif
