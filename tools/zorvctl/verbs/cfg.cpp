#include "cfg.h"

#include <cerrno>

#include "base/text_file.h"
#include "families.h"

namespace ctl {

Config parse_text(std::string text)
{
    if (text.empty())
        return {};
    const zorv::File stream(fmemopen(text.data(), text.size(), "r"));
    if (!stream)
        throw io_failure("configuration", errno);
    return Config(parse_stream(stream.get()));
}

Config load(const std::string &path)
{
    return parse_text(read_file(path));
}

std::string folded(std::string_view key)
{
    std::string lowered(key);
    for (char &c : lowered)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lowered;
}

void add_cfg(Cli &cli)
{
    Family cfg = cli.family("cfg", "Query, check and change a configuration file");
    add_cfg_queries(cfg);
    add_cfg_diff(cfg);
    add_cfg_lint(cfg);
    add_cfg_apply(cfg);
}

} // namespace ctl
