// What comes of processes, statistics, crash reports and traces when memory or the kernel fails.
#include <zorv/crash.h>
#include <zorv/ps.h>
#include <zorv/stats.h>
#include <zorv/trace.h>

#include "support/torture.h"
#include "telemetry/crash_unit.h"

namespace {

std::string taken(json_t *json)
{
    Torture::settle();
    return json ? steady(dumped(Json(json).get())) : "none";
}

std::string hosts()
{
    conntrack_hosts_t *const found = get_top_conntrack_hosts();
    Torture::settle();
    std::string text = found ? "" : "none";
    for (auto *host = found ? found->hosts : nullptr; host;
         host = static_cast<conntrack_host *>(host->hh.next))
        text += host->host + std::to_string(host->count);
    free_conntrack_hosts(found);
    return text;
}

std::string memory()
{
    meminfo_t numbers = {};
    return meminfo(&numbers) == 0 ? taken(zorv_meminfo_to_obj(&numbers)) : "-1";
}

// What an answer has left in the store.
std::string stored(int rc)
{
    Torture::settle();
    return std::to_string(rc) + " " + (Device::exists(meta_of("a.tgz")) ? known("a.tgz") : "none") +
           (Device::exists(marker_of("a.tgz")) ? " marked" : "") +
           (Device::exists("/run/saves") ? " saved" : "");
}

void make_process()
{
    for (const char *kind : {"tcp6", "udp", "udp6"})
        Device::file(std::string("/proc/net/") + kind, "");
    Device::file("/proc/net/unix", "0000000000000000: 00000002 00000000 00000000 0001 03 41 /a\n");
    Device::file("/proc/net/tcp", "0: 0:1 0:2 1 0:0 0:0 0 0 0 41\n");
    Device::file("/proc/net/nf_conntrack", "ipv4 src=a dst=b \nipv4 src=a dst=c \n");
    Device::file("/proc/meminfo", "MemTotal: 200 kB\n");
    Device::file("/proc/7/stat",
                 "7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0");
    Device::file("/proc/7/cmdline", "xyz");
    Device::must_run("mkdir -p /proc/7/fd && ln -sf /a /proc/7/fd/0 &&"
                     "ln -sf 'socket:[41]' /proc/7/fd/1");
}

void make_log()
{
    make_crash_unit();
    libzorv_log_level = 2;
    for (const char *path : {"/etc/persistent", "/run/saves", "/var/run/last-crashlog.sent"})
        Device::remove(path);
    Device::file(log_of("a.tgz"), "x");
    Device::file("/run/oops", "Oops");
    Device::file("/var/run/system.analytics.coredump", "1");
}

void make_meta()
{
    make_log();
    check_vwire_disconnect_logs(nullptr, 0);
    Device::remove("/run/saves");
}

} // namespace

extern "C" unsigned sleep(unsigned) // between two tries to have a lock
{
    return 0;
}

TEST_F(Torture, Processes)
{
    make_process();
    const auto prepare = [] { libzorv_log_level = 1; }; // errors are enough
    torture({
        {.name = "zorv_ps_list_to_array",
         .scenario =
             [] { return taken(zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr))); },
         .outcomes = {"none: *", "[]: *", "[{*}]: add_socket: *", "[{*}]: init_socket_inode: *",
                      "[{*}]: parse_sockets: *", "[{*}]: fread_cmdline: *",
                      "[{*}]: walk_process_fds: *", "[{*}]: zorv_fds_to_array: *",
                      "[{*}]: cache_sockets: *; zorv_ps_filter: Failed to cache sockets"},
         .prepare = [] { libzorv_log_level = 2; },
         .most = 80,
         // A stat that cannot be opened; members without memory; an EINTR that ends a table.
         .known = {"[]", "[{*}]"}},
        {.name = "get_top_conntrack_hosts",
         .scenario = hosts,
         .outcomes = {"none: *", "*: add_conntrack_host: Failed to alloc host"},
         .prepare = prepare,
         .known = {""}}, // EINTR ends the table
        {.name = "meminfo",
         .scenario = memory,
         .outcomes = {"none: *", "-1: *"},
         .prepare = prepare,
         .known = {"{\"MemTotal\":0,*", "{*}"}}, // the same, and members without memory
    });
}

TEST_F(Torture, CrashReports)
{
    const CloudHost host(
        {.sites = {{"crash.dev.zorv.example"}},
         .answers = {
             {.path = "/put"},
             {.path = "/v1/*", .body = R"({"upload_url":"https://crash.dev.zorv.example/put"})"}}});
    torture({
        {.name = "send_kernel_crash",
         .scenario = [] { return stored(send_kernel_crash()); },
         .outcomes = {"-* none: *", " ENDS with status 6",
                      ": *nss_database* ENDS with status 6"}, // of the C library
         .prepare = make_log,
         .most = 2},
        {.name = "send_ram_dump",
         .scenario = [] { return stored(send_ram_dump("wifi0", "bytes", 5)); },
         .outcomes = {"-1 none: *", " ENDS with status 6", ": *nss_database* ENDS with status 6"},
         .prepare = make_log,
         .most = 2},
    });
}

TEST_F(Torture, CrashStore)
{
    torture({
        {.name = "check_vwire_disconnect_logs",
         .scenario = [] { return stored(check_vwire_disconnect_logs(nullptr, 0)); },
         .outcomes = {"0 : *", "0 none: *"},
         .prepare = make_log,
         .most = 16,
         .known = {"0 none", "0 {*"}}, // a lock that fails, and a report without some members
        {.name = "get_next_crash_log",
         .scenario = [] { return taken(get_next_crash_log()); },
         .outcomes = {"none: *"},
         .prepare = make_meta,
         .most = 8,
         .known = {"none"}},
        {.name = "mark_crash_log_finished",
         .scenario = [] { return stored(mark_crash_log_finished("a.tgz")); },
         .outcomes = {"0 *: *"},
         .prepare = make_meta,
         .most = 8,
         .known = {"0 {*}", "1 *"}}, // is marked although the meta does not have it
    });
}

TEST_F(Torture, Trace)
{
    const CloudHost host(
        {.sites = {{"trace.dev.zorv.example"}}, .answers = {{.path = "/traces", .status = 202}}});
    make_crash_unit();
    file("/var/run/system.analytics.mode", "1\n");
    const auto send = [] {
        const Json traces = loaded("[{}]");
        return settled(std::to_string(send_traces(traces.get(), nullptr)));
    };
    torture({
        {.name = "send_traces",
         .scenario = send,
         .outcomes = {"-1: *", "1: *"},
         .prepare = [] { libzorv_log_level = 16; },
         .most = 4},
        {.name = "send_traces, without debugging",
         .scenario = send,
         .outcomes = {"-1", "-1: *put_trace: *", "1: *"},
         .prepare = [] { libzorv_log_level = 15; },
         .most = 4},
        {.name = "send_trace_simple",
         .scenario =
             [] { return settled(std::to_string(send_trace_simple("a", "b", json_object()))); },
         .outcomes = {"-1"},
         .prepare = [] { file("/var/run/system.analytics.mode", "0\n"); },
         .known = {"0"}}, // the mode cannot be read: a unit that is not to report does
        {.name = "trace_object_set_payload_new",
         .scenario =
             [] {
                 json_t *const trace = trace_object();
                 const int rc = trace_object_set_payload_new(trace, loaded("{}").release());
                 return std::to_string(rc) + taken(trace);
             },
         .outcomes = {"-1none*", "-1{}*"}},
    });
}
