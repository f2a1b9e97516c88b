// crash.cpp - the family, and what its verbs share.
#include "crash.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorv/json.h>

#include "base/ask.h"
#include "base/cli.h"
#include "exec/shell.h"
#include "telemetry/crash_store.h"
#include "telemetry/report_gate.h"

namespace ctl {
namespace {

constexpr int kNotRun = 126; // what a shell says of a program that it cannot run
constexpr int kReads = 3;    // of a meta; another process may be rewriting it

Gate ready_gate(const char *name, const char *file, const char *shut)
{
    if (zorv::is_ready(file))
        return {name, file, true, "ready"};
    // That there is no such file is how it is said.
    return {name, file, false, errno == ENOENT ? shut : format("%s: %s", shut, strerror(errno))};
}

Gate mode_gate()
{
    const long mode = ask(zorv::kAnalyticsMode, [] { return zorv::analytics_mode("zorvctl"); });
    const char *const detail = mode == zorv::kOff              ? "reporting is off"
                               : mode == zorv::kWithIdentities ? "on, with identities"
                                                               : "on, anonymous";
    return {"mode", zorv::kAnalyticsMode, mode != zorv::kOff, detail};
}

// Nothing, unless there is such a file. The library takes no other thing, and a pipe would have to
// be waited for.
std::optional<struct stat> file_at(const std::string &path)
{
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0)
        expect_answer(path, errno);
    return S_ISREG(info.st_mode) ? std::optional(info) : std::nullopt;
}

zorv::Json read_meta(const std::string &name)
{
    const std::string path = zorv::kMetas + name;
    for (int read = 0; read < kReads && file_at(path); ++read) {
        const std::string text = read_if_there(path).value_or("");
        json_error_t error;
        zorv::Json meta(json_loadb(text.data(), text.size(), 0, &error));
        if (meta)
            return meta;
        if (json_error_code(&error) == json_error_out_of_memory)
            throw std::bad_alloc();
        usleep(1000);
    }
    return nullptr;
}

bool stands_before(const CrashLog &a, const CrashLog &b)
{
    return a.name < b.name;
}

bool is_true(const zorv::Json &meta, const char *member)
{
    return json_is_true(json_object_get(meta.get(), member));
}

} // namespace

std::vector<Gate> list_gates()
{
    return {ready_gate("clock", zorv::kClockIsSet, "the clock is not set"),
            ready_gate("address", zorv::kBridgeHasAddress, "the bridge has no address"),
            mode_gate()};
}

void expect_open_gates()
{
    std::string shut;
    for (const Gate &gate : list_gates())
        if (!gate.open)
            shut += (shut.empty() ? "" : "; ") + (gate.file + (": " + gate.detail));
    if (!shut.empty())
        throw Failure(Exit::refused, shut);
}

const char *word(LogState state)
{
    switch (state) {
    case LogState::fresh:
        return "new";
    case LogState::prepared:
        return "prepared";
    case LogState::delivered:
        return "delivered";
    case LogState::given_up:
        return "given-up";
    case LogState::no_payload:
        break;
    }
    return "no-payload";
}

void update(CrashLog &log)
{
    const zorv::Json meta = read_meta(log.name);
    log.marked = exists(zorv::kMarkers + log.name);
    log.attempts = zorv_json_read_long(meta.get(), zorv::kAttemptCount, 0);
    log.to_net = is_true(meta, zorv::kToNet);
    if (!meta)
        log.state = LogState::fresh;
    else if (!json_object_get(meta.get(), "payload"))
        log.state = LogState::no_payload;
    else if (!is_true(meta, zorv::kToService))
        log.state = LogState::prepared;
    else // by the fifth failure, or by a success after four at most
        log.state = log.attempts < zorv::kMostAttempts ? LogState::delivered : LogState::given_up;
}

std::vector<CrashLog> list_logs()
{
    std::vector<CrashLog> logs;
    if (!exists(zorv::kLogs))
        return logs;
    for (const std::string &name : names_in(zorv::kLogs)) {
        const auto info = file_at(zorv::kLogs + name);
        if (!info)
            continue;
        CrashLog log = {name, info->st_size, info->st_mtime, false, LogState::fresh, 0, false};
        update(log);
        logs.push_back(log);
    }
    std::sort(logs.begin(), logs.end(), stands_before);
    return logs;
}

Value logs_value(const std::vector<CrashLog> &logs)
{
    Value list = Value::list();
    for (const CrashLog &log : logs)
        list.add(Value::object()
                     .set("name", log.name)
                     .set("size", log.size)
                     .set("state", word(log.state))
                     .set("attempts", log.attempts)
                     .set("sent_to_net", log.to_net)
                     .set("marker", log.marked));
    return list;
}

off_t total_size(const std::vector<CrashLog> &logs)
{
    off_t size = 0;
    for (const CrashLog &log : logs)
        size += log.size;
    return size;
}

CommandsToStderr::CommandsToStderr() : output_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0))
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

CommandsToStderr::~CommandsToStderr()
{
    dup2(output_.get(), STDOUT_FILENO);
}

bool holds_oops()
{
    const int status = zorv::run_shell("oopsdump -e");
    if (status < 0 || status == kNotRun)
        throw Failure(Exit::failed, "oopsdump: cannot be run");
    return status == 0;
}

bool is_on_path(const char *program)
{
    const char *const path = getenv("PATH");
    std::string rest = path ? path : "";
    while (!rest.empty()) {
        const size_t end = std::min(rest.find(':'), rest.size());
        if (access((rest.substr(0, end) + '/' + program).c_str(), X_OK) == 0)
            return true;
        rest.erase(0, end + 1);
    }
    return false;
}

extern const Family crash_family = {
    "crash",
    "Crash reports, crash logs and dumps",
    {kCrashStatus, kCrashReport, kCrashLogs, kCrashDeliver, kCrashPrune}};

} // namespace ctl
