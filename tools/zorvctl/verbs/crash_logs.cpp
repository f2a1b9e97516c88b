// crash_logs.cpp - the store's logs, listed and handed to the local management.
#include <zorv/crash.h>

#include <algorithm>

#include <unistd.h>
#include <zorv/base64.h>

#include "base/ask.h"
#include "base/cli.h"
#include "base/text_file.h"
#include "crash.h"
#include "telemetry/crash_store.h"

namespace ctl {
namespace {

struct NextArgs {
    std::string file;
};

struct FinishArgs {
    std::string name;
};

void logs(const NoArgs &, Reply &reply)
{
    const std::vector<CrashLog> logs = list_logs();
    reply.document.set("store", zorv::kLogs).set("size", total_size(logs));
    reply.table("logs", logs_value(logs),
                {"name", "size", "state", "attempts", "sent_to_net", "marker"});
}

std::string decode(const json_t *base64)
{
    if (!json_is_string(base64))
        throw Failure(Exit::failed, "no bytes came with the log");
    const std::string text(json_string_value(base64), json_string_length(base64));
    const size_t characters = std::min(text.find('='), text.size());
    std::string bytes(static_cast<size_t>(base64_decode_len(text.c_str())), '\0');
    base64_decode(reinterpret_cast<unsigned char *>(bytes.data()), text.c_str());
    bytes.resize(characters / 4 * 3 + characters % 4 * 3 / 4);
    return bytes;
}

zorv::Json take_next()
{
    const CommandsToStderr aside;
    zorv::Json log(get_next_crash_log());
    if (log)
        return log;
    const std::vector<CrashLog> logs = list_logs();
    if (std::any_of(logs.begin(), logs.end(), [](const CrashLog &next) {
            return !next.marked && !next.to_net && next.state != LogState::no_payload;
        }))
        throw Failure(Exit::failed, "the first log cannot be read, and hides those behind it");
    throw Failure(Exit::no, "no log for the local management");
}

void next(const NextArgs &args, Reply &reply)
{
    zorv::Json log = take_next();
    const std::string bytes = decode(json_object_get(log.get(), "file_data"));
    json_object_del(log.get(), "file_data");
    if (!args.file.empty()) {
        write_file(args.file, bytes);
        reply.document.set("file", args.file);
    }
    const zorv::Text text(json_dumps(log.get(), JSON_INDENT(2)));
    if (!text)
        throw std::bad_alloc();
    reply.line(text.get());
    reply.document.set("size", bytes.size()).set("log", Value::take(log.release()));
}

void finish(const FinishArgs &args, Reply &reply)
{
    if (args.name == "." || args.name == ".." || args.name.find('/') != args.name.npos)
        throw Misuse("NAME: no name of a log: " + args.name);
    const std::vector<CrashLog> logs = list_logs();
    const auto log = std::find_if(logs.begin(), logs.end(),
                                  [&](const CrashLog &row) { return row.name == args.name; });
    if (log == logs.end())
        throw Failure(Exit::no, args.name + ": no such log");
    if (log->marked)
        throw Failure(Exit::no, args.name + ": finished before");
    const CommandsToStderr aside;
    if (mark_crash_log_finished(args.name.c_str()) == 0)
        throw Failure(Exit::failed, args.name + ": cannot be marked");
    reply.document.set("name", args.name).set("finished", true);
    reply.line("finished " + printable(args.name));
}

constexpr Option kNext[] = {
    option<&NextArgs::file>("--file", "Put the log itself into this file"),
};
constexpr Option kFinish[] = {
    option<&FinishArgs::name>("NAME", "The log, as `next` names it").required(),
};

} // namespace

constexpr Verb kCrashLogs[3] = {
    verb<logs>("logs", "List the store of crash logs", "zorvctl crash logs"),
    verb<next>("next", "Print what is known of the first log for the local management",
               "zorvctl crash next --file /tmp/log.tgz", kNext),
    verb<finish>("finish", "Mark a log as known to the local management",
                 "zorvctl crash finish log-17.tgz", kFinish),
};

} // namespace ctl
