#include "cfg_edit.h"

#include <utility>

namespace ctl {
namespace {

// Gives a last line its newline, without which the parser takes its last byte off; false when there
// was nothing to mend.
bool mend_last_line(std::string &text)
{
    if (text.empty() || text.back() == '\n')
        return false;
    text += '\n';
    return true;
}

} // namespace

Edit::Edit(std::string text, const Settings &settings)
    : text_(std::move(text)), mended_(mend_last_line(text_)), settings_(settings),
      places_(settings.all().size())
{
    locate();
    for (CfgLines lines(text_); lines.next();)
        copy(lines.line());
    for (size_t i = 0; i < places_.size(); i++)
        if (const Setting &setting = settings_.all()[i]; setting.value && places_[i].line == 0)
            result_ += setting.key + "=" + *setting.value + "\n";
}

void Edit::locate()
{
    for (CfgLines lines(text_); lines.next();) {
        const CfgLine &line = lines.line();
        const auto i = line.entry ? settings_.find(line.key) : std::nullopt;
        if (i && (line.misc || places_[*i].line == 0))
            places_[*i] = {line.number, line.value};
    }
}

bool Edit::is_change(size_t i) const
{
    const auto &value = settings_.all()[i].value;
    return places_[i].line ? value != places_[i].value : value.has_value();
}

void Edit::copy(const CfgLine &line)
{
    const auto i = line.entry ? settings_.find(line.key) : std::nullopt;
    if (i && !settings_.all()[*i].value)
        return;
    if (i && line.number == places_[*i].line && is_change(*i))
        result_.append(line.text, 0, line.text.find('=') + 1) += *settings_.all()[*i].value;
    else
        result_ += line.text;
    result_ += '\n';
}

Value Edit::change(size_t i) const
{
    const Setting &setting = settings_.all()[i];
    const bool added = places_[i].line == 0;
    return Value::object()
        .set("key", setting.key)
        .set("change", added           ? "added"
                       : setting.value ? "changed"
                                       : "removed")
        .set("old", added ? Value() : Value(places_[i].value))
        .set("new", setting.value ? Value(*setting.value) : Value());
}

void Edit::show(bool written, Reply &reply) const
{
    Value changes = Value::list();
    for (size_t i = 0; i < places_.size(); i++)
        if (is_change(i))
            changes.add(change(i));
    reply.table("changes", changes, {"change", "key", "old", "new"});
    reply.document.set("written", written).set("newline_added", mended_);
    if (changes.size() == 0)
        reply.line("nothing to change");
    if (mended_)
        reply.line("the last line had no newline, and has one");
}

} // namespace ctl
