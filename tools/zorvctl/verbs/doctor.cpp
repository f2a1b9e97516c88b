// doctor.cpp - one page on the unit: what is sent, what is there, what is off.
#include "doctor.h"

#include <vector>

#include "base/cli.h"

namespace ctl {
namespace {

bool has_key(const Thing &thing)
{
    return thing.key[0] != '\0' && thing.check != check_heading;
}

std::string name_of(const Thing &thing)
{
    return has_key(thing) ? format("%s %s", thing.path, thing.key) : thing.path;
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
        .set("readers", thing.readers)
        .set("without", finding.state == State::ok ? Value() : Value(thing.without));
}

// Returns the lines on what is off.
std::vector<std::string> show_things(Reply &reply)
{
    Value list = Value::list();
    std::vector<std::string> off;
    for (const Thing &thing : kThings) {
        const Finding finding = examine(thing);
        list.add(thing_value(thing, finding));
        if (is_off(finding))
            off.push_back(format("%s: %s (%s): %s; see: %s", name_of(thing).c_str(),
                                 word(finding.state), printable(finding.detail).c_str(),
                                 thing.without, thing.readers));
    }
    reply.line("");
    reply.table("things", list, {"thing", "state", "detail", "without"});
    return off;
}

void show_verdict(const std::vector<std::string> &off, bool all_is_sent, Reply &reply)
{
    const bool is_healthy = off.empty() && all_is_sent;
    reply.document.set("healthy", is_healthy);
    reply.exit = is_healthy ? Exit::done : Exit::no;
    reply.line("");
    if (!off.empty())
        reply.line("Off:");
    for (const std::string &line : off)
        reply.line("  " + line);
    reply.line(is_healthy ? "healthy" : "something is off");
}

void doctor(const NoArgs & /*none*/, Reply &reply)
{
    const bool all_is_sent = show_sending(reply);
    const std::vector<std::string> off = show_things(reply);
    show_verdict(off, all_is_sent, reply);
}

constexpr Verb kVerbs[] = {
    verb<doctor>("doctor", "Tell what is off on the unit, and why nothing is being sent",
                 "zorvctl doctor"),
};

} // namespace

extern const Family doctor_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
