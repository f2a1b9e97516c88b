// crash_report.cpp - the report of the kernel's oops, and those of binary dumps.
#include <zorv/crash.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

#include "base/cli.h"
#include "base/text_file.h"
#include "crash.h"
#include "environment.h"
#include "exec/shell.h"
#include "telemetry/crash_report.h"
#include "telemetry/report_gate.h"

namespace ctl {
namespace {

constexpr char kNameCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
constexpr char kCopy[] = "/var/run/last-crashlog.txt"; // as oops_clear() leaves it
constexpr int kRamDump = 3;

struct ReportArgs {
    bool dry_run = false;
};

struct DumpArgs {
    std::string name, file;
    std::optional<int> pid, signal;
    int crashes = 1, uptime = 0, type = 0;
};

bool is_reported()
{
    return exists(zorv::kKernelCrashSent);
}

std::string report_url()
{
    return ask_environment([] {
        char url[zorv::kReportUrl];
        if (zorv::build_crash_report_url(url, "kernel-crash") != 0)
            throw Failure(Exit::failed, "url-too-long", "the service's URL is too long");
        return std::string(url);
    });
}

// The service would get this text without the white space.
void preview(Reply &reply)
{
    zorv::Json payload(zorv::generate_kernel_crash_payload());
    const zorv::Text text(json_dumps(payload.get(), JSON_INDENT(2)));
    if (!text)
        throw std::bad_alloc();
    const std::vector<Gate> gates = list_gates();
    const bool is_open =
        std::all_of(gates.begin(), gates.end(), [](const Gate &gate) { return gate.open; });
    reply.line(text.get());
    reply.document.set("url", report_url())
        .set("gate_open", is_open)
        .set("already_reported", is_reported())
        .set("payload", Value::take(payload.release()));
    if (!is_open)
        reply.exit = Exit::refused;
}

void send(Reply &reply)
{
    const std::string url = report_url();
    const bool was_reported = is_reported();
    const int result = send_kernel_crash();
    if (result == -2) {
        expect_open_gates();
        throw Failure(Exit::refused, "the gate was shut");
    }
    if (result == -5)
        throw Failure(Exit::failed, "network", url + ": the report was not taken; -v tells why");
    if (result != 0)
        throw Failure(Exit::failed, "no-report", "the report could not be made");
    const char *const state = was_reported ? "already-reported" : "reported";
    reply.document.set("url", url).set("state", state);
    reply.line(was_reported ? "reported already since the last reboot" : "reported to " + url);
}

void expect_oops()
{
    if (!is_on_path("oopsdump"))
        throw Failure(Exit::unavailable, "oopsdump: this device has none");
    if (!holds_oops())
        throw Failure(Exit::no, "the kernel holds no oops");
}

void report(const ReportArgs &args, Reply &reply)
{
    const CommandsToStderr aside;
    expect_oops();
    if (args.dry_run)
        preview(reply);
    else
        send(reply);
}

// The library does not tell what came of it.
void clear(const NoArgs &, Reply &reply)
{
    const CommandsToStderr aside;
    expect_oops();
    oops_clear();
    struct stat copy;
    if (stat(kCopy, &copy) != 0)
        throw io_failure(kCopy, errno);
    if (copy.st_size == 0)
        throw Failure(Exit::failed, std::string(kCopy) + ": nothing was kept");
    if (zorv::run_shell("! oopsdump -e || exit 1") != 0)
        throw Failure(Exit::failed, "oopsdump: the kernel still holds the oops");
    reply.document.set("file", kCopy).set("size", copy.st_size);
    reply.line(std::string("cleared; kept in ") + kCopy);
}

// It becomes part of a shell's command line.
void check_name(const std::string &name)
{
    if (name.empty() || name.find_first_not_of(kNameCharacters) != name.npos)
        throw Misuse("--name: only A-Z a-z 0-9 . _ - may be in it");
}

void dump(const DumpArgs &args, Reply &reply)
{
    check_name(args.name);
    if (args.type != kRamDump && (!args.pid || !args.signal))
        throw Misuse("a dump of a process needs --pid and --signal");
    expect_open_gates();
    const std::string bytes = args.file.empty() ? "" : read_input(args.file);
    const CommandsToStderr aside;
    const auto length = static_cast<int>(bytes.size()); // read_input() gives far fewer than INT_MAX
    const bool may_upload = zorv::is_upload_allowed();
    const int result =
        args.type == kRamDump
            ? send_ram_dump(args.name.c_str(), bytes.data(), length)
            : send_crash_binary_data(args.name.c_str(), *args.pid, *args.signal, args.crashes,
                                     args.uptime, bytes.data(), length, args.type);
    if (result != 0)
        throw Failure(Exit::failed, "network", args.name + ": not reported; -v tells why");
    const bool sent_bytes = length > 0 && may_upload;
    reply.document.set("name", args.name).set("size", length).set("upload", sent_bytes);
    if (length == 0)
        reply.line("reported");
    else if (sent_bytes)
        reply.line(format("reported, %d bytes were offered to the service", length));
    else
        reply.line(format("reported without the bytes: no 1 in %s", zorv::kUploadAllowed));
}

constexpr Option kReport[] = {
    option<&ReportArgs::dry_run>("--dry-run", "Show the report, and send nothing"),
};
constexpr Option kDump[] = {
    option<&DumpArgs::file>("FILE", "The bytes; - is the standard input"),
    option<&DumpArgs::name>("--name", "Of the process, or of the RAM dump; A-Za-z0-9._-")
        .required(),
    option<&DumpArgs::type>("--type", "core unless given; a ram dump has no process")
        .words("core|app|oom|ram"),
    option<&DumpArgs::pid>("--pid", "Of the process"),
    option<&DumpArgs::signal>("--signal", "That ended it"),
    option<&DumpArgs::crashes>("--crashes", "Of that program so far, 1 unless given"),
    option<&DumpArgs::uptime>("--uptime", "Seconds that it ran, 0 unless given"),
};

} // namespace

constexpr Verb kCrashReport[3] = {
    verb<report>("report", "Report the kernel's oops, once until the next reboot",
                 "zorvctl crash report --dry-run", kReport),
    verb<dump>("dump", "Report a binary dump, and upload its bytes",
               "zorvctl crash dump --name hostapd --pid 812 --signal 11 /tmp/core.812", kDump),
    verb<clear>("clear", "Clear the kernel's oops; a copy stays until the next reboot",
                "zorvctl crash clear"),
};

} // namespace ctl
