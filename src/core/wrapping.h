// wrapping.h - sums with wrap-around, which plain signed numbers do not promise.
#ifndef ZORV_CORE_WRAPPING_H
#define ZORV_CORE_WRAPPING_H

#include <cstdint>

namespace zorv {

template <class Number>
constexpr Number wrapping_sum(Number a, Number b)
{
    return static_cast<Number>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

} // namespace zorv

#endif
