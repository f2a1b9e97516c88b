// cfg_edit.h - a configuration's text with some keys set or gone, and no other line changed.
#ifndef ZORVCTL_CFG_EDIT_H
#define ZORVCTL_CFG_EDIT_H

#include <string>
#include <vector>

#include "base/output.h"
#include "cfg_lines.h"
#include "cfg_settings.h"

namespace ctl {

class Edit {
public:
    // The settings are borrowed.
    Edit(std::string text, const Settings &settings);

    // A last line without a newline has one in both.
    const std::string &before() const { return text_; }
    const std::string &after() const { return result_; }

    // Whether there is anything to write.
    bool is_due() const { return mended_ || result_ != text_; }

    // Tells the changes, and whether they were written.
    void show(bool written, Reply &reply) const;

private:
    // The line that lookups see: the last one of a key in the misc region, or else the first.
    struct Place {
        size_t line = 0; // 0: the file has no such key
        std::string_view value;
    };

    void locate();
    void copy(const CfgLine &line);
    bool is_change(size_t i) const;
    Value change(size_t i) const;

    std::string text_, result_;
    bool mended_;
    const Settings &settings_;
    std::vector<Place> places_; // of settings_.all()
};

} // namespace ctl

#endif
