// text_tools.h - small operations on texts that every folder needs.
#ifndef ZORV_CORE_TEXT_TOOLS_H
#define ZORV_CORE_TEXT_TOOLS_H

#include <cstring>
#include <string_view>

#include "core/own.h"

namespace zorv {

// White space of the "C" locale, whatever locale the program has set.
constexpr bool is_white(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r'); // tab, newline, vertical tab, form feed, return
}

// Copies as much of source as fits before a NUL; a size of 0 writes nothing.
inline void copy_text(char *destination, size_t size, const char *source)
{
    if (size == 0)
        return;
    const size_t length = strnlen(source, size - 1);
    memmove(destination, source, length);
    destination[length] = '\0';
}

// As starts_with(), which calls substr(), whose exception is left in at -O0 and -Os.
constexpr bool begins_with(std::string_view text, std::string_view prefix)
{
    return text.size() >= prefix.size() && std::string_view(text.data(), prefix.size()) == prefix;
}

// A malloc'd copy; empty when memory is short, which the caller logs.
inline Text duplicate(std::string_view source)
{
    Text copy(static_cast<char *>(malloc(source.size() + 1)));
    if (copy) {
        memcpy(copy.get(), source.data(), source.size());
        copy.get()[source.size()] = '\0';
    }
    return copy;
}

// The text without the characters at its ends that the test is true of.
template <class Test>
constexpr std::string_view strip(std::string_view text, Test is_blank)
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Blanks are space and tab, no other white space.
constexpr std::string_view strip_blanks(std::string_view text)
{
    return strip(text, [](char c) { return c == ' ' || c == '\t'; });
}

} // namespace zorv

#endif
