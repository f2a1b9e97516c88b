#include "cfg.h"

#include <cerrno>

#include "base/text_file.h"

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

extern const Family cfg_family = {"cfg",
                                  "Query, check and change a configuration file",
                                  {kCfgQueries, kCfgDiff, kCfgLint, kCfgApply}};

} // namespace ctl
