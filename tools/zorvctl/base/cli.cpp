#include "base/cli.h"

#include <algorithm>
#include <iterator>
#include <string>

#include <zorv/log.h>
#include <zorv/version.h>

#include "base/command_line.h"

namespace ctl {
namespace {

// The value between the angle brackets of a build string.
std::string build_value(const char *text)
{
    const std::string whole(text);
    const size_t begin = whole.find('<') + 1;
    return whole.substr(begin, whole.find('>') - begin);
}

void show_version(Reply &reply)
{
    reply.document.set("version", ZORVCTL_VERSION)
        .set("git_hash", build_value(zorv_git_hash))
        .set("git_tag", build_value(zorv_git_tag));
    reply.line("zorvctl " ZORVCTL_VERSION);
    reply.line(zorv_git_hash);
    reply.line(zorv_git_tag);
}

void set_log_level(size_t verbosity)
{
    constexpr int kLevels[] = {1, 4, 8, 16}; // errors; warnings and news; debug; everything
    libzorv_log_level = kLevels[std::min(verbosity, std::size(kLevels) - 1)];
    libzorv_log_use_syslog = 0;
}

Reply answer(Families families, const CommandLine &line)
{
    Reply reply(line.json, !line.no_header);
    if (line.version) {
        show_version(reply);
    } else if (line.help && line.lost.empty()) {
        reply.text = help_text(families, line);
        reply.document.set("help", reply.text);
    } else if (!line.fault.empty()) {
        throw Misuse(line.fault);
    } else {
        line.verb->run(line.given, reply);
    }
    return reply;
}

} // namespace

bool Given::has(const Option &option) const
{
    return std::any_of(values_.begin(), values_.end(),
                       [&option](const auto &value) { return value.first == &option; });
}

void Given::store(void *arguments) const
{
    for (const auto &[option, text] : values_)
        option->store(*option, arguments, text);
}

int run(std::span<const Family *const> families, int argc, char **argv)
{
    const CommandLine line = parse_command_line(families, argc, argv);
    set_log_level(line.verbosity);
    try {
        return deliver(answer(families, line));
    } catch (const Failure &failure) {
        if (failure.exit() != Exit::usage)
            return deliver(failure, line.json);
        const std::string hint = " (see: " + command_of(line) + " --help)";
        return deliver(Misuse(failure.what() + hint), line.json);
    }
}

} // namespace ctl
