// crash_status.cpp - why nothing is being sent.
#include <algorithm>

#include <zorv/status.h>

#include "base/cli.h"
#include "crash.h"
#include "environment.h"
#include "telemetry/cloud_service.h"
#include "telemetry/crash_report.h"
#include "telemetry/crash_store.h"
#include "telemetry/report_gate.h"

namespace ctl {
namespace {

const char *environment()
{
    switch (ask_environment(get_kelo_env_limit_prod)) {
    case 1:
        return "stage";
    case 2:
        return "dev";
    default:
        return "production";
    }
}

// What is known of the kernel's oops; null where nobody can be asked.
Value find_oops()
{
    const CommandsToStderr aside;
    return is_on_path("oopsdump") ? Value(holds_oops()) : Value();
}

class Reasons {
public:
    explicit Reasons(const std::vector<CrashLog> &logs) : logs_(logs) {}

    void add(const std::string &reason) { list_.push_back(reason); }

    // Adds the reason for those logs, if there are any.
    template <class Predicate>
    void add_logs(Predicate fits, const char *reason)
    {
        const auto count = std::count_if(logs_.begin(), logs_.end(), fits);
        if (count > 0)
            add(format("%td %s: %s", count, count == 1 ? "log" : "logs", reason));
    }

    void show(Reply &reply) const
    {
        Value list = Value::list();
        reply.line("");
        for (const std::string &reason : list_) {
            list.add(reason);
            reply.line(reason);
        }
        reply.document.set("reasons", list);
    }

private:
    const std::vector<CrashLog> &logs_;
    std::vector<std::string> list_;
};

void show_gates(Reply &reply, Reasons &reasons)
{
    Value list = Value::list();
    for (const Gate &gate : list_gates()) {
        list.add(Value::object()
                     .set("gate", gate.name)
                     .set("open", gate.open)
                     .set("file", gate.file)
                     .set("detail", gate.detail));
        if (gate.open)
            continue;
        reasons.add("nothing is sent: " + gate.detail);
        reply.exit = Exit::refused;
    }
    reply.table("gates", list, {"gate", "open", "file", "detail"});
    reply.line("");
}

void show_unit(const std::vector<CrashLog> &logs, Reply &reply, Reasons &reasons)
{
    const Value oops = find_oops();
    const char *const service = ask_environment([] { return zorv::kCrashService.origin(); });
    const bool is_reported = exists(zorv::kKernelCrashSent);
    if (json_is_null(oops.get()))
        reasons.add("kernel crash: this device has no oopsdump to tell");
    else if (!json_is_true(oops.get()))
        reasons.add("kernel crash: none to report");
    else
        reasons.add(is_reported ? "kernel crash: reported since the last reboot"
                                : "kernel crash: to be reported");
    reply.pairs(Value::object()
                    .set("environment", environment())
                    .set("service", service)
                    .set("oops", oops)
                    .set("oops_reported", is_reported)
                    .set("oops_marker", zorv::kKernelCrashSent)
                    .set("dump_upload", zorv::is_upload_allowed())
                    .set("store", zorv::kLogs)
                    .set("store_logs", logs.size())
                    .set("store_size", total_size(logs)));
}

void show_logs(const std::vector<CrashLog> &logs, Reply &reply, Reasons &reasons)
{
    if (!logs.empty())
        reply.line("");
    reply.table("logs", logs_value(logs),
                {"name", "size", "state", "attempts", "sent_to_net", "marker"});
    const auto waits = [](const CrashLog &log) {
        return awaits_delivery(log) && log.state != LogState::no_payload;
    };
    reasons.add_logs(waits, "to be delivered");
    reasons.add_logs([](const CrashLog &log) { return log.state == LogState::delivered; },
                     "delivered to the service");
    reasons.add_logs([](const CrashLog &log) { return log.state == LogState::given_up; },
                     "given up after five attempts");
    reasons.add_logs(
        [](const CrashLog &log) {
            return awaits_delivery(log) && log.state == LogState::no_payload;
        },
        "passed over, the meta has no payload");
    reasons.add_logs([](const CrashLog &log) { return log.marked && !is_settled(log); },
                     "finished undelivered, never to be sent");
    if (logs.empty())
        reasons.add("logs: none");
}

void status(const NoArgs &, Reply &reply)
{
    const std::vector<CrashLog> logs = list_logs();
    Reasons reasons(logs);
    show_gates(reply, reasons);
    show_unit(logs, reply, reasons);
    show_logs(logs, reply, reasons);
    reasons.show(reply);
}

} // namespace

constexpr Verb kCrashStatus[1] = {
    verb<status>("status", "Tell what may be sent, where to, and why nothing is being sent",
                 "zorvctl crash status"),
};

} // namespace ctl
