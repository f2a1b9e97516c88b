#include <zorv/iface.h>

#include <algorithm>
#include <cstring>

#include "core/log_gate.h"

namespace {

constexpr char kModule[] = "libzorv_util";
constexpr unsigned kV4Bits = 32;
constexpr unsigned kV6Bits = 128;

} // namespace

uint32_t ipv4_netmask_from_prefix_len(unsigned prefix)
{
    if (prefix > kV4Bits) {
        log_error("invalid subnet mask size of %u", prefix);
        return 0;
    }
    // On purpose: 0 shifts by nothing, so the mask of no bits has all of them.
    return UINT32_MAX << ((kV4Bits - prefix) % kV4Bits);
}

void ipv6_netmask_from_prefix_len(uint8_t mask[16], unsigned prefix)
{
    prefix = std::min(prefix, kV6Bits);
    const unsigned whole = prefix / 8;
    memset(mask, 0, kV6Bits / 8);
    memset(mask, 0xFF, whole);
    if (prefix % 8 != 0)
        mask[whole] = static_cast<uint8_t>(0xFF00U >> (prefix % 8));
}

int net_equals_v6(const uint8_t a[16], const uint8_t b[16], unsigned prefix)
{
    if (!a || !b) {
        log_error("NULL pointer passed");
        return 0;
    }
    uint8_t mask[kV6Bits / 8];
    ipv6_netmask_from_prefix_len(mask, prefix);
    for (size_t i = 0; i < sizeof mask; ++i)
        if (((a[i] ^ b[i]) & mask[i]) != 0)
            return 0;
    return 1;
}
