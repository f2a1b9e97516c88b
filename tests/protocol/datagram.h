// datagram.h - datagrams as bytes.
#ifndef ZORV_TESTS_PROTOCOL_DATAGRAM_H
#define ZORV_TESTS_PROTOCOL_DATAGRAM_H

#include <cstdlib>
#include <cstring>
#include <string_view>

#include <zorv/protocol.h>

#include "crypto/samples.h"

inline constexpr char kKey[] = "000102030405060708090a0b0c0d0e0f";

// A unit of the site; the last byte of its address.
inline zorv_protocol_ctrl_t make_ctrl(uint8_t unit, uint16_t own_sequence)
{
    zorv_protocol_ctrl_t ctrl{};
    memcpy(ctrl.key, from_hex(kKey).data(), sizeof ctrl.key);
    memcpy(ctrl.device, "\x02\xa0\xf1\0\0", sizeof ctrl.device);
    ctrl.device[5] = unit;
    ctrl.own_sequence = own_sequence;
    return ctrl;
}

// What gen_payload() made.
inline Bytes generate(std::string_view message, uint16_t method, uint16_t type, int encrypt,
                      const zorv_protocol_ctrl_t &ctrl)
{
    auto *const datagram = static_cast<uint8_t *>(gen_payload(
        message.data(), static_cast<int>(message.size()), method, type, encrypt, &ctrl));
    Bytes copy(datagram, datagram + 40 + (datagram[6] << 8 | datagram[7]));
    free(datagram);
    return copy;
}

#endif
