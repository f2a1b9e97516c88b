// words.h - the words of a switch.
#ifndef ZORV_CFG_WORDS_H
#define ZORV_CFG_WORDS_H

#include <string_view>

namespace zorv {

// Returns 1 for a word of true, 0 for one of false, -1 for any other; case does not matter.
int switch_of(std::string_view word);

} // namespace zorv

#endif
