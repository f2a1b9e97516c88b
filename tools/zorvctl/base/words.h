// words.h - a text, word by word, and how much two words are alike.
#ifndef ZORVCTL_WORDS_H
#define ZORVCTL_WORDS_H

#include <algorithm>
#include <string_view>

namespace ctl {

// Takes the next word off a text, with the separators before it; empty when there is none left.
inline std::string_view take_word(std::string_view &text,
                                  std::string_view separators = " \t\n\v\f\r")
{
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(word.size());
    return word;
}

// How many letters have to be added, taken away or replaced to get from one word to the other.
size_t distance(std::string_view from, std::string_view to);

} // namespace ctl

#endif
