// LibTomCrypt exports names that this library has too, sha256_init among them: it is loaded with a
// scope of its own, so that each calls its own functions.
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <tomcrypt.h>

#include "crypto_peer.h"

namespace {

void *symbol(const char *name)
{
    static void *const library = dlopen("libtomcrypt.so.1", RTLD_NOW | RTLD_DEEPBIND);
    void *const found = library ? dlsym(library, name) : nullptr;
    if (!found) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    return found;
}

#define TOMCRYPT(name) static auto *const name = reinterpret_cast<decltype(&::name)>(symbol(#name))

int aes_number()
{
    TOMCRYPT(register_cipher);
    return register_cipher(static_cast<ltc_cipher_descriptor *>(symbol("aes_desc")));
}

} // namespace

constexpr CryptoPeer kTomCrypt = {
    "libtomcrypt",
    [](const uint8_t *message, size_t length, uint8_t *digest) {
        TOMCRYPT(sha256_init);
        TOMCRYPT(sha256_process);
        TOMCRYPT(sha256_done);
        hash_state context;
        sha256_init(&context);
        sha256_process(&context, message, length);
        sha256_done(&context, digest);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        TOMCRYPT(cbc_start);
        TOMCRYPT(cbc_encrypt);
        TOMCRYPT(cbc_done);
        static const int aes = aes_number();
        symmetric_CBC context;
        cbc_start(aes, iv, key, 16, 0, &context);
        cbc_encrypt(data, data, length, &context);
        cbc_done(&context);
    },
    [](const uint8_t *key, const uint8_t *iv, uint8_t *data, size_t length) {
        TOMCRYPT(cbc_start);
        TOMCRYPT(cbc_decrypt);
        TOMCRYPT(cbc_done);
        static const int aes = aes_number();
        symmetric_CBC context;
        cbc_start(aes, iv, key, 16, 0, &context);
        cbc_decrypt(data, data, length, &context);
        cbc_done(&context);
    },
    [](char *text, const uint8_t *bytes, size_t length) {
        TOMCRYPT(base64_encode);
        unsigned long size = (length + 2) / 3 * 4 + 1;
        base64_encode(bytes, length, reinterpret_cast<uint8_t *>(text), &size);
    },
    [](uint8_t *bytes, const char *text, size_t length) {
        TOMCRYPT(base64_decode);
        unsigned long size = length;
        base64_decode(reinterpret_cast<const uint8_t *>(text), length, bytes, &size);
    },
};
