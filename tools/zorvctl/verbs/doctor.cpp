// doctor.cpp - one page on the unit: what is sent, what is there, what is off.
#include "doctor.h"

#include <ctime>
#include <optional>

#include <unistd.h>

#include "base/cli.h"

namespace ctl {
namespace {

struct DoctorArgs {
    bool all = false;
    std::optional<double> watch;
};

bool has_key(const Thing &thing)
{
    return thing.key[0] != '\0' && thing.check != check_heading;
}

std::string name_of(const Thing &thing)
{
    return has_key(thing) ? format("%s %s", thing.path, thing.key) : thing.path;
}

// "status, ps --fds" as a list.
Value split(std::string_view names)
{
    constexpr std::string_view kBetween = ", ";
    Value list = Value::list();
    for (size_t end; (end = names.find(kBetween)) != names.npos;) {
        list.add(names.substr(0, end));
        names.remove_prefix(end + kBetween.size());
    }
    return list.add(names);
}

Value thing_value(const Thing &thing, const Finding &finding)
{
    return Value::object()
        .set("thing", name_of(thing))
        .set("path", thing.path)
        .set("key", has_key(thing) ? Value(thing.key) : Value())
        .set("required", thing.required)
        .set("state", word(finding.state))
        .set("detail", finding.detail)
        .set("readers", split(thing.readers))
        .set("without", finding.state == State::ok ? Value() : Value(thing.without));
}

void show_things(Summary &summary, Reply &reply)
{
    Value list = Value::list();
    size_t right = 0;
    for (const Thing &thing : kThings) {
        const Finding finding = examine(thing);
        list.add(thing_value(thing, finding));
        if (is_off(finding))
            summary.off.push_back(format("%s: %s (%s): %s; see: %s", name_of(thing).c_str(),
                                         word(finding.state), printable(finding.detail).c_str(),
                                         thing.without, thing.readers));
        else
            ++right;
    }
    summary.right.push_back(format("%zu of %zu things are right", right, kThings.size()));
    reply.line("");
    reply.table("things", list, {"thing", "state", "detail", "without=consequence"});
}

// What is off, a line each, and one line of what is right.
std::string brief(const Summary &summary)
{
    std::string text;
    for (const std::string &line : summary.off)
        text += line + '\n';
    text += summary.off.empty() ? "healthy" : "something is off";
    const char *gap = summary.off.empty() ? ": " : "; but ";
    for (const std::string &words : summary.right) {
        text += gap + words;
        gap = ", ";
    }
    return text + '\n';
}

void show_verdict(const Summary &summary, Reply &reply)
{
    const bool is_healthy = summary.off.empty();
    reply.document.set("healthy", is_healthy);
    reply.exit = is_healthy ? Exit::done : Exit::no;
    reply.line("");
    if (!is_healthy)
        reply.line("Off:");
    for (const std::string &line : summary.off)
        reply.line("  " + line);
    reply.line(is_healthy ? "healthy" : "something is off");
}

void examine_unit(bool all, Reply &reply)
{
    Summary summary;
    show_sending(summary, reply);
    show_things(summary, reply);
    show_verdict(summary, reply);
    if (!all)
        reply.text = brief(summary);
}

// Until a signal ends it.
[[noreturn]] void watch(const DoctorArgs &args, Reply &reply)
{
    const bool is_terminal = isatty(STDOUT_FILENO);
    const auto seconds = static_cast<time_t>(*args.watch);
    const timespec pause{seconds,
                         static_cast<long>((*args.watch - static_cast<double>(seconds)) * 1e9)};
    for (bool is_first = true;; is_first = false) {
        examine_unit(args.all, reply);
        if (is_terminal)
            reply.text.insert(0, "\033[H\033[2J");
        else if (!is_first)
            reply.text.insert(0, "\n");
        reply.next();
        nanosleep(&pause, nullptr);
    }
}

void doctor(const DoctorArgs &args, Reply &reply)
{
    if (args.watch)
        watch(args, reply);
    examine_unit(args.all, reply);
}

constexpr Option kDoctor[] = {
    option<&DoctorArgs::all>("--all", "Show everything that was looked at"),
    option<&DoctorArgs::watch>("--watch", "Do it again each so many seconds, until interrupted; "
                                          "JSON is a line each time")
        .range(0.1, 86400),
};

constexpr Verb kVerbs[] = {
    verb<doctor>("doctor", "Tell what is off on the unit, and why nothing is being sent",
                 "zorvctl doctor", kDoctor),
};

} // namespace

extern const Family doctor_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
