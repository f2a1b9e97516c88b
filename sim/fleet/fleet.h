// fleet.h - what a million units ask of a cloud service, second by second, by the library's own
// rules.
#ifndef ZORV_SIM_FLEET_FLEET_H
#define ZORV_SIM_FLEET_FLEET_H

#include <cstdint>
#include <vector>

namespace fleet {

enum class Kind {
    kernel_report, // send_kernel_crash(): again by each call until it is delivered
    crash_log,     // check_vwire_disconnect_logs(): one log, given up after some failures
    trace,         // send_traces(): every call, but for its back-off
};

// What the daemon on each unit does about its calls; seconds.
struct Daemon {
    int first;              // the first call comes at random within so long after the unit is ready
    int period;             // between two calls
    bool at_random = false; // each pause is half to one and a half of the period
    bool doubles = false;   // the pause doubles with each failure, up to an hour
};

struct Scenario {
    Kind kind;
    int units;                         // each stands for kStandsFor
    int seconds;                       // of the simulation
    int ready_from = 0, ready_for = 0; // when the units become ready, evenly
    int down_from = 0, down_to = 0;    // the service is not reached
    int capacity = 0; // requests a second that are answered, others time out; 0 is no limit
};

constexpr int kStandsFor = 10;

struct Result {
    std::vector<int64_t> requests; // for each second, those that fail included
    int64_t delivered = 0;         // reports, logs or batches
    int64_t given_up = 0;          // logs
    int last_delivered = 0; // second of the last report or log; of a trace the last unit's first
                            // batch behind the outage
};

Result simulate(const Scenario &scenario, const Daemon &daemon);

} // namespace fleet

#endif
