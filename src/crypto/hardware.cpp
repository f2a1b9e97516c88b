// hardware.cpp - asks the processor for its cryptographic instructions. The forms in instructions
// are compiled for processors that have them; this file, which decides, is compiled for all.
#include "crypto/aes_impl.h"
#include "crypto/sha256_impl.h"

#if defined(ZORV_CRYPTO_X86)
#include <cpuid.h>
#elif defined(ZORV_CRYPTO_ARMV8)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace zorv {

#if defined(ZORV_CRYPTO_X86)

namespace {

constexpr unsigned kSha = 1U << 29; // of leaf 7; compilers do not agree on a name

// Feature bits: c of leaf 1, b of leaf 7. Asking directly spares libgcc's processor model.
bool has_features(unsigned leaf1_c, unsigned leaf7_b)
{
    unsigned a, b, c, d;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & leaf1_c) != leaf1_c)
        return false;
    return leaf7_b == 0 ||
           (__get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & leaf7_b) == leaf7_b);
}

} // namespace

bool has_aes_instructions()
{
    return has_features(bit_AES | bit_SSSE3, 0);
}

Sha256Compress *sha256_hardware()
{
    return has_features(bit_SSSE3 | bit_SSE4_1, kSha) ? sha256_compress_instructions : nullptr;
}

#elif defined(ZORV_CRYPTO_ARMV8)

bool has_aes_instructions()
{
    return (getauxval(AT_HWCAP) & HWCAP_AES) != 0;
}

Sha256Compress *sha256_hardware()
{
    return (getauxval(AT_HWCAP) & HWCAP_SHA2) != 0 ? sha256_compress_instructions : nullptr;
}

#else

bool has_aes_instructions()
{
    return false;
}

Sha256Compress *sha256_hardware()
{
    return nullptr;
}

#endif

} // namespace zorv
