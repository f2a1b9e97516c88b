#include <zorv/protocol.h>

#include <climits>
#include <random>

#include "protocol/datagram.h"
#include "support/device.h"

namespace {

constexpr char kLengthLine[] = "[error] libzorv.dec_payload(): packet length check fail";

zorv_protocol_ctrl_t make_ctrl(uint16_t own_sequence = 0x123)
{
    zorv_protocol_ctrl_t ctrl{};
    memcpy(ctrl.key, from_hex(kKey).data(), sizeof ctrl.key);
    memcpy(ctrl.device, from_hex("02a0f1000007").data(), sizeof ctrl.device);
    ctrl.own_sequence = own_sequence;
    return ctrl;
}

// A datagram with any padded payload, encrypted and with the right check sum.
Bytes seal(const Bytes &payload)
{
    Bytes datagram = part(from_hex(kHello), 0, 40);
    put(datagram, 6, payload.size(), 2);
    put(datagram, 36, check_sum(payload), 4);
    const Bytes sealed = encrypt(payload, from_hex(kKey), part(datagram, 12, 16));
    datagram.insert(datagram.end(), sealed.begin(), sealed.end());
    return datagram;
}

class Codec : public Device {
protected:
    // The status of a datagram that is not needed any more. It stands on the heap, without a byte
    // to spare, so that the sanitizer sees a step beyond it.
    static uint32_t status(Bytes datagram, const zorv_protocol_ctrl_t &ctrl = make_ctrl())
    {
        datagram.shrink_to_fit();
        return dec_payload(static_cast<int>(datagram.size()), datagram.data(), &ctrl);
    }
};

TEST_F(Codec, HeaderAndPaddingOfEachLength)
{
    constexpr struct {
        size_t length, padded;
    } kCases[] = {{0, 0},   {1, 16},  {15, 16},   {16, 32},
                  {17, 32}, {31, 32}, {463, 464}, {65519, 65520}};
    for (const auto &[length, padded] : kCases) {
        SCOPED_TRACE(length);
        const std::string message(length, 'm');
        const Bytes datagram = generate(message, 0x0102, 0x0304, 1, make_ctrl(0xF123));
        ASSERT_EQ(datagram.size(), 40 + padded);
        EXPECT_EQ(part(datagram, 0, 6), from_hex("223344550202"));
        EXPECT_EQ(part(datagram, 8, 4), from_hex("01020304"));
        EXPECT_NE(part(datagram, 12, 16), Bytes(16, 0));
        EXPECT_EQ(part(datagram, 28, 8), from_hex("02a0f10000071230"));
        Bytes payload = to_bytes(message);
        payload.resize(padded, static_cast<uint8_t>(padded - length));
        Bytes sum(4);
        put(sum, 0, check_sum(payload), 4);
        EXPECT_EQ(part(datagram, 36, 4), sum);
        EXPECT_EQ(decrypt(part(datagram, 40, padded), from_hex(kKey), part(datagram, 12, 16)),
                  payload);
    }
    EXPECT_NE(generate("m", 1, 1, 1, make_ctrl()), generate("m", 1, 1, 1, make_ctrl()));
}

TEST_F(Codec, OnlyOneEncryptsAndAnythingButZeroSaysSo)
{
    for (const int encrypt : {0, 2, -1}) {
        SCOPED_TRACE(encrypt);
        Bytes expected = from_hex("223344550202000500050007" + std::string(32, '0') +
                                  "02a0f100000712300000000068656c6c6f");
        expected[5] = encrypt == 0 ? 1 : 2;
        const Bytes datagram = generate("hello", 5, 7, encrypt, make_ctrl());
        EXPECT_EQ(datagram, expected);
        EXPECT_EQ(status(datagram), 1u);
    }
}

TEST_F(Codec, ImpossibleLengthsGiveNothing)
{
    const zorv_protocol_ctrl_t ctrl = make_ctrl();
    for (const int length : {-1, -40, INT_MIN, INT_MAX, INT_MAX - 40}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(gen_payload("", length, 1, 1, 1, &ctrl), nullptr);
        EXPECT_THAT(logged(), ElementsAre("[error] libzorv.gen_payload(): hdr malloc fail"));
    }
    libzorv_log_level = 0;
    EXPECT_EQ(gen_payload("", -1, 1, 1, 1, &ctrl), nullptr);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Codec, AcceptsAnotherImplementationsDatagram)
{
    // At an odd address, as it may stand in a capture.
    Bytes room = from_hex(kHello);
    room.insert(room.begin(), 0xEE);
    const zorv_protocol_ctrl_t ctrl = make_ctrl();
    ASSERT_EQ(dec_payload(56, room.data() + 1, &ctrl), 0u);
    zorv_protocol_header header;
    memcpy(&header, room.data() + 1, sizeof header);
    EXPECT_EQ(header.magic, 0x22334455u);
    EXPECT_EQ(header.length, 5);
    EXPECT_EQ(header.method, 5);
    EXPECT_EQ(header.type, 7);
    EXPECT_EQ(header.sequence, 0x123);
    EXPECT_EQ(header.crc32, 0x0b6b2f9eu);
    EXPECT_EQ(part(room, 41, 5), to_bytes("hello"));
    EXPECT_EQ(memcmp(&ctrl, &static_cast<const zorv_protocol_ctrl_t &>(make_ctrl()), 64), 0);
}

TEST_F(Codec, ChecksInTheirOrder)
{
    // Each row spoils one more thing and keeps what the rows below it spoil: the first failing
    // check decides. A duplicate says 2 whatever else is wrong, except for its length.
    const Bytes good = from_hex(kHello);
    zorv_protocol_ctrl_t ctrl = make_ctrl();
    ctrl.last_sequence = 0x123;
    Bytes datagram = good;
    datagram[0] = datagram[4] = datagram[5] = datagram[55] = 0;
    datagram.push_back(0);
    EXPECT_EQ(status(datagram, ctrl), 1u);
    EXPECT_THAT(logged(), ElementsAre(kLengthLine));
    datagram.pop_back();
    EXPECT_EQ(status(datagram, ctrl), 2u);
    put(datagram, 8, 3, 2); // method 3 may repeat, and goes on to the other checks
    EXPECT_EQ(status(datagram, ctrl), 1u);
    ctrl.last_sequence = 0x124;
    put(datagram, 8, 5, 2);
    EXPECT_EQ(status(datagram, ctrl), 1u); // magic
    datagram[0] = 0x22;
    EXPECT_EQ(status(datagram, ctrl), 1u); // flags
    datagram[5] = 0xFD;
    EXPECT_EQ(status(datagram, ctrl), 1u); // the one bit that counts is missing
    datagram[5] = 0xFE;
    EXPECT_EQ(status(datagram, ctrl), 1u); // version
    datagram[4] = 1;
    EXPECT_EQ(status(datagram, ctrl), 1u);
    EXPECT_THAT(logged(), IsEmpty());
    datagram[4] = 0xFF;
    EXPECT_EQ(status(datagram, ctrl), 1u); // the payload's last byte, so the check sum
    EXPECT_THAT(logged(), ElementsAre(testing::StartsWith(
                              "[error] libzorv.dec_payload(): hdr=191573918, crc32=")));
    datagram[55] = good[55];
    EXPECT_EQ(status(datagram, ctrl), 0u);
    put(datagram, 8, 3, 2);
    ctrl.last_sequence = 0x123;
    EXPECT_EQ(status(datagram, ctrl), 0u);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Codec, Padding)
{
    const Bytes text = to_bytes("0123456789abcde");
    const auto ending = [&text](const Bytes &end) {
        Bytes payload = part(text, 0, 16 - end.size());
        payload.insert(payload.end(), end.begin(), end.end());
        return payload;
    };
    const struct {
        const char *what;
        Bytes payload;
        uint32_t status;
        uint16_t length;
    } kCases[] = {
        {"one", ending({1}), 0, 15},
        {"zero strips nothing", ending({0}), 0, 16},
        {"whole block", Bytes(16, 16), 0, 0},
        {"more than there is", Bytes(16, 17), 1, 16},
        {"the largest", ending({255}), 1, 16},
        {"more than a block, all of it there", Bytes(32, 17), 0, 15},
        {"two, the other is none", ending({1, 2}), 1, 16},
        {"three, the first is none", ending({2, 3, 3}), 1, 16},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.what);
        Bytes datagram = seal(row.payload);
        const zorv_protocol_ctrl_t ctrl = make_ctrl();
        EXPECT_EQ(dec_payload(static_cast<int>(datagram.size()), datagram.data(), &ctrl),
                  row.status);
        zorv_protocol_header header;
        memcpy(&header, datagram.data(), sizeof header);
        EXPECT_EQ(header.length, row.length);
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Codec, AnotherKeyEndsAtTheCheckSum)
{
    zorv_protocol_ctrl_t ctrl = make_ctrl();
    ctrl.key[15] ^= 1;
    EXPECT_EQ(status(from_hex(kHello), ctrl), 1u);
    EXPECT_THAT(logged(), ElementsAre(testing::HasSubstr("hdr=191573918, crc32=")));
}

// Such a payload stays as it came: a damaged one ends at the check sum, one made for it passes
// without the key.
TEST_F(Codec, ALengthOfNoWholeBlocksIsNotDecrypted)
{
    Bytes cut = part(from_hex(kHello), 0, 55);
    put(cut, 6, 15, 2);
    EXPECT_EQ(status(cut), 1u);
    EXPECT_THAT(logged(), ElementsAre(testing::HasSubstr("hdr=191573918, crc32=")));

    const Bytes payload = to_bytes("in the clear\1");
    Bytes forged = part(from_hex(kHello), 0, 40);
    put(forged, 6, payload.size(), 2);
    put(forged, 36, check_sum(payload), 4);
    forged.insert(forged.end(), payload.begin(), payload.end());
    const zorv_protocol_ctrl_t ctrl = make_ctrl();
    EXPECT_EQ(dec_payload(static_cast<int>(forged.size()), forged.data(), &ctrl), 0u);
    EXPECT_EQ(part(forged, 40, payload.size()), payload);
}

// Whatever arrives is answered, touches nothing beside its own bytes and logs one line at most.
TEST_F(Codec, EveryLengthAndEveryFlippedBit)
{
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same datagrams in every run
    std::mt19937 random(1);
    for (size_t length = 0; length <= 2000; ++length) {
        SCOPED_TRACE(length);
        Bytes noise(length);
        for (uint8_t &byte : noise)
            byte = static_cast<uint8_t>(random());
        EXPECT_EQ(status(noise), 1u);
        if (length >= 40) { // past the first checks
            const Bytes start = part(from_hex(kHello), 0, 12);
            std::copy(start.begin(), start.end(), noise.begin());
            put(noise, 6, length - 40, 2);
            put(noise, 34, 0x1230, 2); // no duplicate
            EXPECT_EQ(status(noise), 1u);
        }
        EXPECT_LE(logged().size(), 2u);
    }
    const Bytes good = from_hex(kHello);
    for (size_t bit = 0; bit < good.size() * 8; ++bit) {
        SCOPED_TRACE(bit);
        Bytes datagram = good;
        datagram[bit / 8] = static_cast<uint8_t>(datagram[bit / 8] ^ (1 << bit % 8));
        // These are nobody's to check: version, other flags, method, type, device, sequence, and
        // the first block's IV bits, which the check sum does see.
        const size_t byte = bit / 8;
        const bool free = (byte == 4 && bit % 8 >= 2) || (byte == 5 && bit % 8 != 1) ||
                          (byte >= 8 && byte < 12) || (byte >= 28 && byte < 36) ||
                          (byte == 4 && bit % 8 == 0);
        EXPECT_EQ(status(datagram), free ? 0u : 1u);
    }
}

TEST_F(Codec, WhatOneMakesTheOtherTakes)
{
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same datagrams in every run
    std::mt19937 random(2);
    zorv_protocol_ctrl_t ctrl = make_ctrl();
    for (size_t length = 1; length <= 600; ++length) {
        SCOPED_TRACE(length);
        std::string message(length, '\0');
        for (char &c : message)
            c = static_cast<char>(random());
        ctrl.own_sequence = static_cast<uint16_t>(length);
        Bytes datagram = generate(message, 9, 9, 1, ctrl);
        ASSERT_EQ(dec_payload(static_cast<int>(datagram.size()), datagram.data(), &ctrl), 0u);
        EXPECT_EQ(part(datagram, 40, length), to_bytes(message));
    }
    EXPECT_EQ(status(generate("", 9, 9, 1, ctrl), ctrl), 1u); // nothing inside
}

} // namespace
