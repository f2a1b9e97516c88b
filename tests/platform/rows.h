// rows.h - cases as rows of texts, so that a failure shows the whole of one.
#ifndef ZORV_TESTS_PLATFORM_ROWS_H
#define ZORV_TESTS_PLATFORM_ROWS_H

#include <netinet/ether.h>

#include "support/device.h"

// Values with a blank between two.
template <class First, class... Rest>
std::string shown(const First &first, const Rest &...rest)
{
    std::ostringstream text;
    text << first;
    ((text << ' ' << rest), ...);
    return text.str();
}

inline std::string hex(uint64_t number)
{
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

// "2:a0:f1:0:0:7"
inline std::string shown_mac(const uint8_t *mac)
{
    return ether_ntoa(reinterpret_cast<const ether_addr *>(mac));
}

// A text and the lines logged since, a blank before each.
inline std::string with_log(std::string text)
{
    for (const std::string &line : Device::logged())
        text += " " + line;
    return text;
}

// Each row is "content => answer": what is in the file, and what comes of it. "(none)" stands for
// no file, "(folder)" for a folder in its place.
template <class Ask>
void expect_rows(const std::string &path, const Ask &ask, const std::vector<std::string> &rows)
{
    for (const std::string &row : rows) {
        const std::string content = row.substr(0, row.rfind(" => "));
        Device::remove(path);
        if (content == "(folder)")
            Device::must_run("mkdir -p " + path);
        else if (content != "(none)")
            Device::file(path, content);
        EXPECT_EQ(content + " => " + shown(ask()), row) << path;
    }
}

#endif
