#include <cerrno>
#include <string>

#include <zorv/exec.h>

#include "base/cli.h"
#include "core/own.h"

namespace ctl {
namespace {

struct CaptureArgs {
    std::string command;
    size_t max = size_t{1} << 20;
};

void capture(const CaptureArgs &args, Reply &reply)
{
    errno = 0;
    const zorv::Text output(popen_alloc_output(args.command.c_str(), args.max));
    if (!output)
        throw Failure(Exit::failed, args.command + ": cannot be started");
    if (errno == EIO || errno == ENOMEM) // while it was read or kept, which cuts it
        throw io_failure(args.command + ": the output", errno);
    reply.text = output.get();
    // A full buffer may have cut the output, or just have held it.
    reply.document.set("command", args.command)
        .set("output", reply.text)
        .set("length", reply.text.size())
        .set("full", reply.text.size() + 1 >= args.max);
}

constexpr Option kOptions[] = {
    option<&CaptureArgs::command>("COMMAND", "The shell's command line").required(),
    option<&CaptureArgs::max>(
        "--max", "Bytes of memory for the output, its NUL included; 1048576 unless given"),
};

constexpr Verb kVerbs[] = {
    verb<capture>("capture", "Print what a shell command prints, up to a limit or its first NUL",
                  "zorvctl capture --max 4096 'logread | tail -n 20'", kOptions),
};

} // namespace

extern const Family capture_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
