// crash.h - what the verbs of crash reports share: the gate, and the store of logs as it stands.
#ifndef ZORVCTL_CRASH_H
#define ZORVCTL_CRASH_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "base/cli.h"
#include "core/own.h"

namespace ctl {

// One of the files that hold reports back.
struct Gate {
    const char *name;
    const char *file;
    bool open;
    std::string detail; // in words
};

std::vector<Gate> list_gates();

// Throws a refusal that names every gate that is shut.
void expect_open_gates();

// What has become of a log.
enum class LogState {
    fresh,      // no meta, or one that is made anew
    prepared,   // to be delivered
    delivered,  // the service has it
    given_up,   // nor will it get it
    no_payload, // its meta has no report, and every walk passes it over
};

struct CrashLog {
    std::string name;
    off_t size;
    time_t modified;
    bool marked; // no walk looks at it again
    LogState state;
    long attempts; // at delivering it that failed
    bool to_net;   // the local management has it
};

// Nothing more will come of it at the service.
inline bool is_settled(const CrashLog &log)
{
    return log.state == LogState::delivered || log.state == LogState::given_up;
}

// A walk tries to deliver it, which wants a payload.
inline bool awaits_delivery(const CrashLog &log)
{
    return !log.marked && !is_settled(log);
}

const char *word(LogState state);

// Those of the store, by name; none without a store. Metas are read without a lock.
std::vector<CrashLog> list_logs();

// Reads anew what its meta says.
void update(CrashLog &log);

// The logs as a list of "name", "size", "state", "attempts", "sent_to_net" and "marker".
Value logs_value(const std::vector<CrashLog> &logs);

off_t total_size(const std::vector<CrashLog> &logs);

// While it is there, what commands of the library print goes to standard error: standard output is
// the verb's alone.
class CommandsToStderr {
public:
    CommandsToStderr();
    CommandsToStderr(const CommandsToStderr &) = delete;
    CommandsToStderr &operator=(const CommandsToStderr &) = delete;
    ~CommandsToStderr();

private:
    zorv::Fd output_;
};

// Whether the kernel holds an oops; throws when oopsdump, which tells, cannot be run.
bool holds_oops();

bool is_on_path(const char *program);

// One source file each.
extern const Verb kCrashStatus[1];
extern const Verb kCrashReport[3]; // report, dump, clear
extern const Verb kCrashLogs[3];   // logs, next, finish
extern const Verb kCrashDeliver[1];
extern const Verb kCrashPrune[1];

} // namespace ctl

#endif
