// cfg_types.h - the types of values that a schema knows.
#ifndef ZORVCTL_CFG_TYPES_H
#define ZORVCTL_CFG_TYPES_H

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

struct Range {
    int64_t least = std::numeric_limits<int64_t>::min();
    int64_t most = std::numeric_limits<int64_t>::max();
};

struct ValueType {
    std::string text; // as the schema has it: "number 1..13", "one of ap sta"
    bool (*takes)(const ValueType &type, const std::string &value); // it holds no NUL
    bool is_secret;                      // a value may be a password, and is not to be shown
    Range range = {};                    // of the number, or of the text's bytes
    std::vector<std::string> words = {}; // of "one of"
};

// Throws std::invalid_argument, of which only the line is to be told.
[[noreturn]] void refuse(std::string_view what, std::string_view why);

// Refuses what is none.
ValueType parse_type(std::string_view text);

} // namespace ctl

#endif
