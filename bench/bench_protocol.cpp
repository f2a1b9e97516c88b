// A discovery message made into a datagram and taken out of it again, against the same job by
// OpenSSL's EVP interface and zlib. The library seeds its initialisation vectors from /dev/urandom,
// opened anew for each datagram; so does one of the peers, the other has OpenSSL's own generator.
#include "ratio.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unistd.h>
#include <zlib.h>
#include <zorv/protocol.h>

namespace {

constexpr size_t kHeader = sizeof(zorv_protocol_header);
constexpr zorv_protocol_ctrl_t kCtrl = [] {
    zorv_protocol_ctrl_t ctrl{};
    for (uint8_t i = 0; i < 16; ++i)
        ctrl.key[i] = i;
    ctrl.own_sequence = 1;
    return ctrl;
}();

void library_iv(uint8_t *iv)
{
    RAND_bytes(iv, 16);
}

void device_iv(uint8_t *iv)
{
    const int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (read(fd, iv, 16) != 16)
        abort();
    close(fd);
}

// The algorithm is got once, as OpenSSL's manual advises.
int crypt(EVP_CIPHER_CTX *context, bool encrypting, const uint8_t *iv, uint8_t *data, int length)
{
    static EVP_CIPHER *const cipher = EVP_CIPHER_fetch(nullptr, "AES-128-CBC", nullptr);
    int done = 0, rest = 0;
    EVP_CipherInit_ex2(context, cipher, kCtrl.key, iv, encrypting, nullptr);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_CipherUpdate(context, data, &done, data, length);
    EVP_CipherFinal_ex(context, data + done, &rest);
    return done + rest;
}

uint8_t *make_by_peers(EVP_CIPHER_CTX *context, const std::vector<uint8_t> &message,
                       void (*fill_iv)(uint8_t *))
{
    const size_t pad = 16 - message.size() % 16, padded = message.size() + pad;
    auto *const datagram = static_cast<uint8_t *>(calloc(1, kHeader + padded));
    zorv_protocol_header header{};
    header.magic = htonl(0x22334455);
    header.version = header.flags = 2;
    header.length = htons(static_cast<uint16_t>(padded));
    header.sequence = htons(1 << 4);
    memcpy(datagram + kHeader, message.data(), message.size());
    memset(datagram + kHeader + message.size(), static_cast<int>(pad), pad);
    header.crc32 =
        htonl(static_cast<uint32_t>(crc32(0, datagram + kHeader, static_cast<uInt>(padded))));
    fill_iv(header.iv);
    crypt(context, true, header.iv, datagram + kHeader, static_cast<int>(padded));
    memcpy(datagram, &header, sizeof header);
    return datagram;
}

bool take_by_peers(EVP_CIPHER_CTX *context, uint8_t *datagram, size_t size)
{
    zorv_protocol_header header;
    memcpy(&header, datagram, sizeof header);
    const size_t length = ntohs(header.length);
    if (size != kHeader + length || ntohl(header.magic) != 0x22334455)
        return false;
    uint8_t *const payload = datagram + kHeader;
    crypt(context, false, header.iv, payload, static_cast<int>(length));
    if (crc32(0, payload, static_cast<uInt>(length)) != ntohl(header.crc32))
        return false;
    const uint8_t pad = payload[length - 1];
    for (size_t i = 1; i <= pad; ++i)
        if (payload[length - i] != pad)
            return false;
    return true;
}

size_t padded_size(long message)
{
    return kHeader + static_cast<size_t>(message / 16 + 1) * 16;
}

void require(bool holds)
{
    if (!holds)
        abort();
}

void there_and_back(benchmark::State &state, long size)
{
    const std::vector<uint8_t> message(static_cast<size_t>(size), 'm');
    for ([[maybe_unused]] const auto _ : state) {
        void *const datagram = gen_payload(message.data(), static_cast<int>(size), 5, 7, 1, &kCtrl);
        require(dec_payload(static_cast<int>(padded_size(size)), datagram, &kCtrl) == 0);
        free(datagram);
    }
}

auto there_and_back_by_peers(void (*fill_iv)(uint8_t *))
{
    return [fill_iv](benchmark::State &state, long size) {
        EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
        const std::vector<uint8_t> message(static_cast<size_t>(size), 'm');
        for ([[maybe_unused]] const auto _ : state) {
            uint8_t *const datagram = make_by_peers(context, message, fill_iv);
            require(take_by_peers(context, datagram, padded_size(size)));
            free(datagram);
        }
        EVP_CIPHER_CTX_free(context);
    };
}

// Receiving alone: a copy of the same datagram each time.
template <class Take>
void back(benchmark::State &state, long size, Take take)
{
    const std::vector<uint8_t> message(static_cast<size_t>(size), 'm');
    const size_t length = padded_size(size);
    void *const datagram = gen_payload(message.data(), static_cast<int>(size), 5, 7, 1, &kCtrl);
    std::vector<uint8_t> received(length);
    for ([[maybe_unused]] const auto _ : state) {
        memcpy(received.data(), datagram, length);
        require(take(received.data(), length));
    }
    free(datagram);
}

void back_by_library(benchmark::State &state, long size)
{
    back(state, size, [](uint8_t *received, size_t length) {
        return dec_payload(static_cast<int>(length), received, &kCtrl) == 0;
    });
}

void back_by_peers(benchmark::State &state, long size)
{
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    back(state, size, [context](uint8_t *received, size_t length) {
        return take_by_peers(context, received, length);
    });
    EVP_CIPHER_CTX_free(context);
}

} // namespace

void register_benches()
{
    bench::add("gen_payload+dec_payload", {64, 448}, "zorv", there_and_back);
    bench::add("gen_payload+dec_payload", {64, 448}, "evp+zlib+urandom",
               there_and_back_by_peers(device_iv));
    bench::add("gen_payload+dec_payload", {64, 448}, "evp+zlib",
               there_and_back_by_peers(library_iv));
    bench::add("dec_payload", {64, 448}, "zorv", back_by_library);
    bench::add("dec_payload", {64, 448}, "evp+zlib", back_by_peers);
}
