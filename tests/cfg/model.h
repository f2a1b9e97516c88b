// model.h - the configuration as a page of plain code: slow, and easy to check against the prose.
#ifndef ZORV_TESTS_CFG_MODEL_H
#define ZORV_TESTS_CFG_MODEL_H

#include <string>
#include <utility>
#include <vector>

#include <zorv/cfg.h>

namespace model {

using List = std::vector<std::pair<std::string, std::string>>;

inline List of(const cfg_entry *list)
{
    List result;
    for (; list; list = list->next)
        result.emplace_back(list->key, list->value);
    return result;
}

// Natural order, character by character; for runs of at most 19 digits.
inline unsigned long long rank(const char *text)
{
    if (*text >= '0' && *text <= '9')
        return 256 + strtoull(text, nullptr, 10);
    return static_cast<unsigned char>(*text >= 'A' && *text <= 'Z' ? *text + 32 : *text);
}

inline int compare(const std::string &left, const std::string &right)
{
    for (size_t i = 0;; ++i) {
        if (i == left.size())
            return i == right.size() ? 0 : -1;
        if (i == right.size())
            return 1;
        const auto a = rank(&left[i]), b = rank(&right[i]);
        if (a != b)
            return a < b ? -1 : 1;
    }
}

// The parser, for texts without NUL bytes.
inline List parse(const std::string &text)
{
    List list;
    bool misc = false;
    for (size_t start = 0, end; start < text.size(); start = end) {
        end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(start, end - start);
        misc = misc || line.rfind("# misc", 0) == 0;
        const size_t equals = line.find('=');
        if (std::string("#\n\r").find(line[0]) != std::string::npos || equals == std::string::npos)
            continue;
        std::string key = line.substr(0, equals), value = line.substr(equals + 1);
        key.erase(0, key.find_first_not_of(" \t"));
        key.erase(key.find_last_not_of(" \t") + 1);
        if (!value.empty())
            value.pop_back();
        auto earlier = list.begin();
        while (earlier != list.end() && compare(earlier->first, key) != 0)
            ++earlier;
        if (misc && earlier != list.end())
            earlier->second = value;
        else
            list.emplace_back(key, value);
    }
    return list;
}

inline const std::string *find(const List &list, const std::string &key)
{
    for (const auto &[name, value] : list)
        if (compare(name, key) == 0)
            return &value;
    return nullptr;
}

inline bool is_comment(const std::string &key)
{
    return key.size() >= 8 && key.compare(key.size() - 8, 8, ".comment") == 0;
}

inline List difference(const List &old_list, const List &new_list)
{
    List result;
    for (const auto &entry : new_list) {
        const std::string *old_value = find(old_list, entry.first);
        if (!is_comment(entry.first) && (!old_value || *old_value != entry.second))
            result.push_back(entry);
    }
    for (const auto &entry : old_list)
        if (!is_comment(entry.first) && !find(new_list, entry.first))
            result.push_back(entry);
    return result;
}

} // namespace model

#endif
