#ifndef ZORV_TESTS_CRYPTO_AES_FORMS_H
#define ZORV_TESTS_CRYPTO_AES_FORMS_H

#include <vector>

#include "crypto/aes_impl.h"

// The forms of AES that this machine can run.
inline std::vector<const zorv::AesForm *> aes_forms()
{
    if (zorv::aes_hardware())
        return {&zorv::aes_portable(), zorv::aes_hardware()};
    return {&zorv::aes_portable()};
}

#endif
