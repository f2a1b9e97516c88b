// What comes of processes, statistics, crash reports and traces when memory or the kernel fails.

#include <netdb.h>

#include "support/torture.h"
#include "telemetry/crash_unit.h"

namespace {

Json g_json; // made by the row's prepare()

std::string taken(json_t *json)
{
    Torture::settle();
    return json ? steady(dumped(Json(json).get())) : "none";
}

std::string statistics()
{
    meminfo_t numbers = {};
    conntrack_hosts_t *const found = get_top_conntrack_hosts();
    std::string text = found ? std::to_string(HASH_COUNT(found->hosts)) : "none";
    free_conntrack_hosts(found);
    return text + (meminfo(&numbers) == 0 ? taken(zorv_meminfo_to_obj(&numbers)) : "-1");
}

// What an answer has left in the store.
std::string stored(int rc)
{
    Torture::settle();
    return std::to_string(rc) + " " + (Device::exists(kMetas + "a.tgz") ? known("a.tgz") : "none") +
           (Device::exists(kMarkers + "a.tgz") ? " marked" : "");
}

void make_log()
{
    make_crash_unit();
    libzorv_log_level = 2;
    Device::must_run("rm -rf /etc/persistent /var/run/last-crashlog.sent");
    Device::file(kLogs + "a.tgz", "x");
    Device::file("/run/oops", "Oops");
}

std::string send_batch()
{
    return Torture::settled(std::to_string(send_traces(g_json.get(), nullptr)));
}

} // namespace

extern "C" int clock_nanosleep(clockid_t, int, const timespec *, timespec *) // for a lock
{
    return 0;
}

TEST_F(Torture, Processes)
{
    must_run("mkdir -p /proc/net /proc/7/fd && cd /proc/net && touch tcp6 udp udp6 &&"
             "echo '0: 2 0 0 1 3 41 /a' >unix && echo '0: 0:1 0:2 1 0:0 0:0 0 0 0 41' >tcp &&"
             "echo 'ipv4 src=a dst=b ' >nf_conntrack && echo 'MemTotal: 200 kB' >../meminfo &&"
             "cd ../7 && ln -s /a fd/0 && ln -s 'socket:[41]' fd/1 && echo xyz >cmdline &&"
             "echo '7 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0' >stat");
    const auto prepare = [] { libzorv_log_level = 2; };
    torture({
        {.name = "zorv_ps_list_to_array",
         .scenario =
             [] { return taken(zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr))); },
         .outcomes = {"none: *", "[]: *",
                      "[{\"pid\":7,*,\"fd_count\":*,\"comm\":\"a\",\"fds\":[*]}]: *"},
         .prepare = prepare,
         .most = 80,
         .messages =
             {"read_process: #: malloc(#) failed", "fread_cmdline: Failed to open '/proc/#/",
              "zorv_ps_list_init: Failed to allocate memory for zorv_ps_list",
              "/unix': Input/output error; [warn ] libzorv_proc.zorv_ps_filter(): Failed to cache ",
              "init_socket_inode: Failed to init socket inode"}},
        {.name = "statistics",
         .scenario = statistics,
         .outcomes = {"none*: *", "*-1: *", "*none: *",
                      "*: add_conntrack_host: Failed to alloc host"},
         .prepare = prepare,
         .messages = {"add_conntrack_host: Failed to alloc host",
                      "get_top_conntrack_hosts: Failed to alloc hash table"}},
    });
}

TEST_F(Torture, Reports)
{
    const CloudHost host({.sites = {{"crash.dev.zorv.example"}, {"trace.dev.zorv.example"}},
                          .answers = {{.path = "/v1/*"}, {.path = "/traces", .status = 202}}});
    gethostbyname("crash.dev.zorv.example");  // the C library loads its own, or aborts without
    curl_simple_get("", 0, nullptr, nullptr); // loads libcurl
    file("/var/run/system.analytics.mode", "1\n");
    torture({
        {.name = "send_kernel_crash",
         .scenario = [] { return stored(send_kernel_crash()); },
         .outcomes = {"-* none: *"},
         .prepare = make_log,
         .most = 2},
        {.name = "check_vwire_disconnect_logs",
         .scenario = [] { return stored(check_vwire_disconnect_logs(nullptr, 1)); },
         .outcomes = {"0 none: *", "0 : *", "0 {*\"unknown\"}}: *", "0 {*\"send_attempts\":1}: *"},
         .prepare = make_log,
         .most = 2,
         .messages = {"send_vwire_disconnect_log: Capturing vwire_disconnect log a.tgz failed"}},
        {.name = "send_traces",
         .scenario = send_batch,
         .outcomes = {"-1: *", "1: *", "4: *cannot be read"},
         .prepare =
             [] {
                 g_json = loaded("[{}]");
                 libzorv_log_level = 16;
             },
         .most = 4,
         .messages = {"[debug] trace.trace_envelope_object(): Failed to init envelope",
                      "[debug] trace.trace_envelope_object(): Failed to create outer meta; "
                      "[debug] trace.send_traces(): Failed to create envelope"}},
        {.name = "send_trace_simple, without debugging",
         .scenario =
             [] { return settled(std::to_string(send_trace_simple("a", "b", g_json.release()))); },
         .outcomes = {"-1", "4", "-1: curl_simple_response_init: *; put_trace: *"},
         .prepare =
             [] { // nobody listens there, and the warning of that is not shown
                 file("/etc/hosts", "127.0.0.9 trace.dev.zorv.example\n");
                 g_json = loaded("{}");
                 libzorv_log_level = 1;
             },
         .most = 60,
         .messages = {"put_trace: Failed to allocate curl response"}},
    });
}

TEST_F(Torture, CrashStore)
{
    torture({{.name = "logs",
              .scenario =
                  [] {
                      const int rc = check_vwire_disconnect_logs(nullptr, 0);
                      const Json next(get_next_crash_log());
                      const int marked = mark_crash_log_finished("a.tgz");
                      settle(); // what was not marked is marked by the next call
                      return std::to_string(rc) + (next ? " next " : " none ") +
                             stored(marked + mark_crash_log_finished("a.tgz"));
                  },
              .outcomes =
                  {R"(0 * 1 {"payload":{},"sent_to_analytics":true,"sent_to_net":true} marked*)"},
              .prepare =
                  [] {
                      make_log();
                      file(kMetas + "a.tgz", R"({"payload":{},"sent_to_analytics":true})");
                  },
              .most = 60,
              .messages = {"finish_crash_meta: Cannot save vwire_disconnect /etc/"}}});
}
