// board.h - what the files of "zorvctl board" share.
#ifndef ZORVCTL_BOARD_H
#define ZORVCTL_BOARD_H

#include <zorv/board.h>

#include "base/output.h"

namespace ctl {

// "2.4.4" for 0x020404.
std::string version_text(uint32_t version);

// Each rule for the oldest firmware as {"rule", "version", "raised", "reason"}, in the order in
// which they are applied; "version" is null where the rule does not apply.
Value firmware_rules(const board_record &record);

} // namespace ctl

#endif
