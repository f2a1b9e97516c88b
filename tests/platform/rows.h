// rows.h - cases as rows of texts, so that a failure shows the whole of one.
#ifndef ZORV_TESTS_PLATFORM_ROWS_H
#define ZORV_TESTS_PLATFORM_ROWS_H

#include <functional>
#include <sstream>

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

// Puts a text into a file; "(none)" removes it, "(folder)" makes a folder of it.
inline void put(const std::string &path, const std::string &content)
{
    Device::remove(path);
    if (content == "(folder)")
        Device::must_run("mkdir -p " + path);
    else if (content != "(none)")
        Device::file(path, content);
}

// Each row is "content => answer": what is in the file, and what comes of it.
inline void expect_rows(const char *path, const std::function<std::string()> &ask,
                        const std::vector<std::string> &rows)
{
    for (const std::string &row : rows) {
        const std::string content = row.substr(0, row.rfind(" => "));
        put(path, content);
        EXPECT_EQ(content + " => " + ask(), row) << path;
    }
}

#endif
