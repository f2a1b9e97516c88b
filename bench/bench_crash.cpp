// What a delivery costs by itself, apart from the service and the commands: a report with a log of
// 96 KiB, which makes a text of 100 KiB, is made, dumped as it is posted, and kept, against jansson
// by hand with texts at hand. And a walk over a store whose logs are all finished, against the two
// system calls that it needs for each. In a mount namespace of its own.
#include "ratio.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <jansson.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorv/crash.h>
#include <zorv/log.h>

#include "core/json_text.h"
#include "core/own.h"
#include "telemetry/crash_report.h"

namespace {

constexpr char kStore[] = "/etc/persistent/isolation_logs/";
constexpr char kMetas[] = "/etc/persistent/isolation_logs/meta/";
constexpr char kMarkers[] = "/etc/persistent/isolation_logs_sent/";

void must(bool holds, const char *what)
{
    if (holds)
        return;
    perror(what);
    exit(1);
}

void write_file(const std::string &path, const std::string &text)
{
    FILE *const file = fopen(path.c_str(), "we");
    must(file && fputs(text.c_str(), file) >= 0 && fclose(file) == 0, path.c_str());
}

// A unit: its configuration has 400 lines, and the keys of reports are the last ones.
void make_unit()
{
    must(unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) == 0, "unshare");
    must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount /");
    for (const char *folder : {"/etc", "/tmp", "/var/run"})
        must(mount("tmpfs", folder, "tmpfs", 0, nullptr) == 0, folder);
    std::string cfg;
    for (int i = 0; i < 400; ++i)
        cfg += "wireless." + std::to_string(i) + ".ssid=a network\n";
    write_file("/tmp/system.cfg", cfg + "pluvo.anonymous_controller_id=c-1\n"
                                        "pluvo.anonymous_site_id=s-1\npluvo.version=9.1.120\n");
}

std::string log_text(long size)
{
    std::string text;
    while (text.size() < static_cast<size_t>(size))
        text += "Nov 21 09:05:00 unit kernel: wlan0: uplink lost\n";
    text.resize(static_cast<size_t>(size));
    return text;
}

// As post_crash() does it, without the request.
void deliver(json_t *report)
{
    const zorv::Text posted = zorv::dump_json(report, JSON_COMPACT);
    benchmark::DoNotOptimize(strlen(posted.get()));
    save_crash_payload(report);
}

void report(benchmark::State &state, long size)
{
    const std::string text = log_text(size);
    for ([[maybe_unused]] const auto _ : state) {
        const zorv::Json payload(zorv::generate_common_payload(nullptr, false));
        json_object_set_new(payload.get(), "crash_log", json_string(text.c_str()));
        deliver(payload.get());
    }
    if (access("/var/run/report_payload.txt", R_OK) != 0)
        state.SkipWithError("not kept");
}

void report_by_hand(benchmark::State &state, long size)
{
    const std::string text = log_text(size);
    for ([[maybe_unused]] const auto _ : state) {
        const zorv::Json payload(json_pack("{s:s, s:s, s:s, s:i, s:s}", "product_line", "network",
                                           "kernel_version", "6.1", "version", "6.6.55", "uptime",
                                           5, "crash_log", text.c_str()));
        const zorv::Text posted(json_dumps(payload.get(), JSON_COMPACT));
        benchmark::DoNotOptimize(strlen(posted.get()));
        FILE *const file = fopen("/var/run/by_hand.txt", "we");
        json_dumpf(payload.get(), file, JSON_INDENT(2));
        must(fclose(file) == 0, "by_hand.txt");
    }
}

// Metas are folders, which no walk could open.
void fill_store(long count)
{
    umount2("/etc/persistent", MNT_DETACH); // of the size before
    mkdir("/etc/persistent", 0755);
    must(mount("tmpfs", "/etc/persistent", "tmpfs", 0, nullptr) == 0, "mount /etc/persistent");
    for (const char *folder : {kStore, kMetas, kMarkers})
        mkdir(folder, 0755);
    for (long i = 0; i < count; ++i) {
        const std::string name = "log-" + std::to_string(i) + ".tgz";
        write_file(kStore + name, "");
        write_file(kMarkers + name, "");
        mkdir((kMetas + name).c_str(), 0755);
    }
}

void walk(benchmark::State &state, long count)
{
    fill_store(count);
    for ([[maybe_unused]] const auto _ : state)
        if (has_crash_logs())
            state.SkipWithError("a log is left");
}

void walk_by_hand(benchmark::State &state, long count)
{
    fill_store(count);
    for ([[maybe_unused]] const auto _ : state) {
        const zorv::Dir logs(opendir(kStore));
        const zorv::Fd markers(open(kMarkers, O_PATH | O_CLOEXEC));
        while (const dirent *const entry = readdir(logs.get()))
            benchmark::DoNotOptimize(faccessat(markers.get(), entry->d_name, F_OK, 0));
    }
}

} // namespace

void register_benches()
{
    libzorv_log_level = 0;
    make_unit();
    bench::add("report", {1024, 98304}, "zorv", report);
    bench::add("report", {1024, 98304}, "jansson by hand", report_by_hand);
    bench::add("finished logs", {10, 100, 1000}, "zorv", walk);
    bench::add("finished logs", {10, 100, 1000}, "system calls", walk_by_hand);
}
