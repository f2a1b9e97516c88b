// device_facts.h - what reports and traces tell alike of the unit that they come from.
#ifndef ZORV_TELEMETRY_DEVICE_FACTS_H
#define ZORV_TELEMETRY_DEVICE_FACTS_H

#include "telemetry/json_members.h"

namespace zorv {

// "model" and "version"; a version that cannot be had is logged, and is "unknown.0".
void set_model(Members &members);
void set_version(Members &members);

// These have names of their own in either.
void set_board_revision(Members &members, const char *name);
void set_controller_version(Members &members, const char *name);

void set_manufacturer(Members &members);

// The ids that the controller chose, of fewer than `size` characters, which is 65 at most; a unit
// that has none yet does not tell it.
void set_controller_ids(Members &members, size_t size);

// Whether the unit is as it left the factory.
bool is_default();

} // namespace zorv

#endif
