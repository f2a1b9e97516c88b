#include "cfg_lines.h"

#include "core/text_tools.h"

namespace ctl {
namespace {

// Of a line that is no comment.
const char *kind_of_loss(const CfgLine &line)
{
    if (line.read.size() != line.text.size())
        return "nul-byte";
    if (line.text.starts_with('\r'))
        return line.text.find_first_not_of(" \t\r") != line.text.npos ? "carriage-return" : nullptr;
    return !line.entry && !zorv::strip_blanks(line.text).empty() ? "no-equals" : nullptr;
}

} // namespace

bool CfgLines::next()
{
    if (rest_.empty())
        return false;
    const size_t end = rest_.find('\n');
    line_.complete = end != rest_.npos;
    line_.text = rest_.substr(0, end);
    rest_.remove_prefix(line_.complete ? end + 1 : rest_.size());
    line_.read = line_.text.substr(0, line_.text.find('\0'));
    line_.number++;
    take_apart();
    return true;
}

void CfgLines::take_apart()
{
    line_.entry = false;
    line_.lost = nullptr;
    if (line_.text.starts_with("# misc") && misc_line_ == 0)
        misc_line_ = line_.number;
    line_.misc = misc_line_ != 0;
    if (line_.text.starts_with('#'))
        return;
    const size_t equals = line_.read.find('=');
    line_.entry = equals != line_.read.npos && !line_.read.starts_with('\r');
    if (line_.entry) {
        line_.key = zorv::strip_blanks(line_.read.substr(0, equals));
        line_.value = line_.read.substr(equals + 1);
        if (line_.read.size() != line_.text.size() && !line_.value.empty())
            line_.value.remove_suffix(1);
    }
    line_.lost = kind_of_loss(line_);
}

Value list_lost(std::string_view text)
{
    Value list = Value::list();
    for (CfgLines lines(text); lines.next();)
        if (lines.line().lost)
            list.add(
                Value::object().set("line", lines.line().number).set("kind", lines.line().lost));
    return list;
}

} // namespace ctl
