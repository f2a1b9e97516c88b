// cfg_settings.h - what keys of a configuration shall become, as the command line or a file has it.
#ifndef ZORVCTL_CFG_SETTINGS_H
#define ZORVCTL_CFG_SETTINGS_H

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/output.h"

namespace ctl {

struct Setting {
    std::string key;
    std::optional<std::string> value; // none: the key shall go
};

// Each key once, in the order in which they came first.
class Settings {
public:
    // The last one of a key wins.
    void add(Setting setting);

    // Takes KEY=VALUE apart. What could not be read back as it was written throws a failure of that
    // exit, which blames `source`.
    void add(const std::string &text, const std::string &source, Exit exit);

    // Takes lines KEY=VALUE and comments; "-" is the standard input.
    void add_file(const std::string &path);

    const std::vector<Setting> &all() const { return settings_; }

    // The place in all(); none of a key that is not set.
    std::optional<size_t> find(std::string_view key) const;

private:
    std::vector<Setting> settings_;
    std::unordered_map<std::string, size_t> places_; // by folded key
};

} // namespace ctl

#endif
