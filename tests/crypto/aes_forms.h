// aes_forms.h - the forms of AES that this machine can run.
#ifndef ZORV_TESTS_CRYPTO_AES_FORMS_H
#define ZORV_TESTS_CRYPTO_AES_FORMS_H

#include <vector>

#include "crypto/aes_impl.h"

struct NamedAesForm {
    const char *name;
    const zorv::AesForm *form;
};

inline std::vector<NamedAesForm> aes_forms()
{
    std::vector<NamedAesForm> forms = {{"portable", &zorv::aes_portable()}};
    if (zorv::aes_hardware())
        forms.push_back({"instructions", zorv::aes_hardware()});
    return forms;
}

#endif
