// doctor_sending.cpp - why nothing is being sent.
#include "doctor.h"

#include <algorithm>
#include <iterator>

#include <unistd.h>
#include <zorv/crash.h>
#include <zorv/status.h>

#include "base/text_file.h"
#include "crash.h"
#include "net/libcurl.h"
#include "telemetry/cloud_service.h"
#include "telemetry/crash_report.h"
#include "telemetry/crash_store.h"

namespace ctl {
namespace {

// What may hold something back: where one looks, how it stands, and whether that is a fault.
struct Row {
    const char *what;
    std::string where;
    const char *state;
    std::string detail;
    bool is_fault;
};

Row gate_row(const Gate &gate)
{
    return {gate.name, gate.file, gate.open ? "open" : "shut", gate.detail, !gate.open};
}

// Not a fault: a build that is no release is not meant to reach production.
Row service_row()
{
    constexpr const char *kEnvironments[] = {"production", "stage", "dev"};
    const int configured = get_kelo_env(), used = get_kelo_env_limit_prod();
    const char *const reason = configured == used ? "as configured" : "the build is no release";
    return {"service", zorv::kCrashService.origin(), kEnvironments[used], reason, false};
}

// Those that the HTTP client trusts. A library that keeps them elsewhere names no file.
Row certificates_row()
{
    const char *path = nullptr;
    const zorv::Libcurl *const curl = zorv::libcurl();
    if (const zorv::Easy handle(curl ? curl->easy_init() : nullptr); handle)
        curl->easy_getinfo(handle.get(), CURLINFO_CAINFO, &path);
    if (!path)
        return {"certificates", "", "unknown", "the HTTP client names no file", false};
    try {
        const bool are_there =
            read_file(path).find("-----BEGIN CERTIFICATE-----") != std::string::npos;
        return {"certificates", path, are_there ? "ok" : "unfit",
                are_there ? "there are some" : "none in it: no service is trusted", !are_there};
    } catch (const Failure &failure) {
        return {"certificates", path, "missing", failure.what(), true};
    }
}

Row oops_row()
{
    const CommandsToStderr aside;
    const bool was_reported = access(zorv::kKernelCrashSent, F_OK) == 0;
    if (!is_on_path("oopsdump"))
        return {"kernel crash", "oopsdump", "unknown", "no oopsdump to tell", true};
    if (has_oops() == 0)
        return {"kernel crash", zorv::kKernelCrashSent, "none",
                was_reported ? "marked as reported: no other is reported before the next reboot"
                             : "none to report",
                false};
    return {"kernel crash", zorv::kKernelCrashSent, was_reported ? "reported" : "pending",
            was_reported ? "marked as reported: not again before the next reboot"
                         : "to be reported",
            false};
}

template <class Predicate>
void count_logs(const std::vector<CrashLog> &logs, Predicate fits, const char *words,
                std::string &detail)
{
    const auto count = std::count_if(logs.begin(), logs.end(), fits);
    if (count > 0)
        detail += format("%s%td %s", detail.empty() ? "" : ", ", count, words);
}

bool is_given_up(const CrashLog &log)
{
    return log.state == LogState::given_up;
}

bool has_no_payload(const CrashLog &log)
{
    return awaits_delivery(log) && log.state == LogState::no_payload;
}

bool is_held_back(const CrashLog &log)
{
    return awaits_delivery(log) && !has_no_payload(log) && log.attempts > 0;
}

// Finished for the local management before the service had it.
bool is_lost(const CrashLog &log)
{
    return log.marked && !is_settled(log);
}

Row logs_row()
{
    std::vector<CrashLog> logs;
    try {
        logs = list_logs();
    } catch (const Failure &failure) {
        return {"crash logs", zorv::kLogs, "unfit", failure.what(), true};
    }
    std::string faults, news;
    count_logs(logs, is_given_up, "given up after five failed attempts", faults);
    count_logs(logs, is_held_back, "failed, to be tried again", faults);
    count_logs(logs, has_no_payload, "passed over, the meta has no payload", faults);
    count_logs(logs, is_lost, "finished before the service had it", faults);
    if (!faults.empty())
        return {"crash logs", zorv::kLogs, "failed", faults, true};
    count_logs(
        logs, [](const CrashLog &log) { return awaits_delivery(log); }, "to be delivered", news);
    count_logs(
        logs, [](const CrashLog &log) { return log.state == LogState::delivered; }, "delivered",
        news);
    return {"crash logs", zorv::kLogs, logs.empty() ? "none" : "ok",
            news.empty() ? "none in the store" : news, false};
}

// Which of the gates are shut, in words; traces have the last one alone.
std::string shut_gates(const std::vector<Gate> &gates, bool for_traces)
{
    std::string reasons;
    for (const Gate &gate : gates)
        if (!gate.open && (!for_traces || gate.name == std::string_view("mode")))
            reasons += (reasons.empty() ? "" : "; ") + gate.detail;
    return reasons;
}

void show_destination(const char *name, const char *words, const char *origin,
                      const std::string &shut, Summary &summary, Reply &reply)
{
    reply.document.set(name, Value::object()
                                 .set("sent", shut.empty())
                                 .set("service", origin)
                                 .set("reason", shut.empty() ? Value() : Value(shut)));
    std::vector<std::string> &lines = shut.empty() ? summary.right : summary.off;
    lines.push_back(shut.empty() ? format("%s go to %s", words, origin)
                                 : format("%s: nothing is sent: %s", words, shut.c_str()));
    reply.line(lines.back());
}

} // namespace

void show_sending(Summary &summary, Reply &reply)
{
    const std::vector<Gate> gates = list_gates();
    show_destination("reports", "crash reports", zorv::kCrashService.origin(),
                     shut_gates(gates, false), summary, reply);
    show_destination("traces", "traces", zorv::kTraceService.origin(), shut_gates(gates, true),
                     summary, reply);
    std::vector<Row> rows;
    std::transform(gates.begin(), gates.end(), std::back_inserter(rows), gate_row);
    for (const auto &make : {service_row, certificates_row, oops_row, logs_row}) {
        const Row &row = rows.emplace_back(make());
        if (row.is_fault)
            summary.off.push_back(
                format("%s: %s (%s)", row.what, row.state, printable(row.detail).c_str()));
    }
    Value list = Value::list();
    for (const Row &row : rows)
        list.add(Value::object()
                     .set("what", row.what)
                     .set("state", row.state)
                     .set("where", row.where)
                     .set("detail", row.detail)
                     .set("fault", row.is_fault));
    reply.line("");
    reply.table("sending", list, {"what", "state", "where", "detail"});
}

} // namespace ctl
