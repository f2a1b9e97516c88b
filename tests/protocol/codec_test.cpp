

#include <zlib.h>

#include "protocol/peer.h"

// "hello", method 5, type 7, sequence 0x123, made by another implementation of AES and CRC-32.
constexpr char kHello[] =
    "223344550202001000050007f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff02a0f100000712300b6b2f9e"
    "c5fc2cbc3f0f1ad4f003707aa67b4c7f";

// The same with other bytes: "8:0003" puts two at 8, and a ":" without any ends it there.
static Bytes edited(const std::string &edits)
{
    std::string hex = kHello, edit;
    for (std::istringstream words(edits); words >> edit;) {
        const std::string digits = edit.substr(edit.find(':') + 1);
        hex.replace(2 * std::stoul(edit), digits.empty() ? hex.npos : digits.size(), digits);
    }
    return from_hex(hex);
}

// A datagram of any payload with the right check sum, encrypted where it can be.
static Bytes seal(const std::string &payload)
{
    const Bytes clear(payload.begin(), payload.end());
    char edits[100];
    snprintf(edits, sizeof edits, "6:%04zx 36:%08lx 40:", clear.size(),
             crc32(0, clear.data(), static_cast<uInt>(clear.size())));
    Bytes datagram = edited(edits);
    datagram.insert(datagram.end(), clear.begin(), clear.end());
    aes_cbc_encrypt_128(from_hex(kKey).data(), &datagram[12], &datagram[40], clear.size());
    return datagram;
}

// What comes of a datagram: the status, length, method, type, sequence, the message if it is
// accepted, and what is logged. It stands at an odd address, as in a capture, and on the heap
// without a byte to spare, so that the sanitizer sees a step beyond it.
static std::string taken(const Bytes &datagram, const zorv_protocol_ctrl_t &ctrl = make_ctrl(7, 1))
{
    const auto room = std::make_unique<uint8_t[]>(1 + datagram.size());
    std::copy(datagram.begin(), datagram.end(), &room[1]);
    const uint32_t status = dec_payload(static_cast<int>(datagram.size()), &room[1], &ctrl);
    std::ostringstream text;
    text << status;
    if (datagram.size() >= 40) {
        zorv_protocol_header header;
        memcpy(&header, &room[1], sizeof header);
        text << ' ' << header.length << ' ' << header.method << ' ' << header.type << ' '
             << header.sequence << ' ' << std::hex << header.magic << ' ' << header.crc32;
        if (status == 0)
            text << ' ' << std::string(&room[41], &room[41] + header.length);
    }
    for (const std::string &line : Device::logged())
        text << '\n' << line;
    return text.str();
}

using Codec = Device;

// Each row spoils one thing less than the one above: the first check that fails decides. A
// duplicate is never anything worse, except for its length.
TEST_F(Codec, ChecksInTheirOrder)
{
    const std::string length = "\n[error] libzorv.dec_payload(): packet length check fail";
    const std::string sum = "\n[error] libzorv.dec_payload(): hdr=191573918, crc32=";
    // Bytes, the last sequence and what comes of it.
    const std::tuple<const char *, uint16_t, std::string> kRows[] = {
        {"39:", 0x124, "1" + length},
        {"0:00 4:00 5:00 55:00 56:00", 0x123, "1 4096 1280 1792 12306 55443300 9e2f6b0b" + length},
        {"0:00 4:00 5:00 55:00", 0x123, "2 16 5 7 291 334455 b6b2f9e"},
        {"0:00 4:00 5:00 8:0003 55:00", 0x123, "1 16 3 7 291 334455 b6b2f9e"}, // 3 may repeat
        {"0:00 4:00 5:00 55:00", 0x124, "1 16 5 7 291 334455 b6b2f9e"},
        {"4:02 5:fd 55:00", 0x124, "1 16 5 7 291 22334455 b6b2f9e"},
        {"4:01 5:fe 55:00", 0x124, "1 16 5 7 291 22334455 b6b2f9e"},
        {"4:ff 5:fe 55:00", 0x124, "1 16 5 7 291 22334455 b6b2f9e" + sum + "1824151828"},
        {"4:ff 5:fe", 0x124, "0 5 5 7 291 22334455 b6b2f9e hello"},
        {"8:0003", 0x123, "0 5 3 7 291 22334455 b6b2f9e hello"},
        {"12:00", 0, "1 16 5 7 291 22334455 b6b2f9e" + sum + "-1997508237"},
        {"6:000f 55:", 0,
         "1 15 5 7 291 22334455 b6b2f9e" + sum + "-80794367"}, // no whole block: left as it came
        {"6:0000 40:", 0, "1 0 5 7 291 22334455 b6b2f9e"},
    };
    zorv_protocol_ctrl_t ctrl = make_ctrl(7, 1);
    for (const auto &[edits, last, want] : kRows) {
        ctrl.last_sequence = last;
        EXPECT_EQ(taken(edited(edits), ctrl), want) << edits;
    }
    ctrl.key[15] ^= 1;
    EXPECT_THAT(taken(edited(""), ctrl), StartsWith("1 16 5 7 291 22334455 b6b2f9e" + sum));
}

TEST_F(Codec, Padding)
{
    const std::string text = "0123456789abcdef";
    const std::pair<std::string, std::string> kRows[] = {
        {text.substr(0, 15) + '\1', "0 15"},
        {text.substr(0, 15) + '\0', "0 16"}, // strips nothing
        {std::string(16, 16), "0 0"},
        {std::string(16, 17), "1 16"}, // more than there is
        {text.substr(0, 15) + '\377', "1 16"},
        {std::string(32, 17), "0 15"}, // more than a block, all of it there
        {text.substr(0, 13) + "\2\3\3", "1 16"},
        {"in the clear\1", "1 13"}, // made without the key
    };
    for (const auto &[payload, want] : kRows)
        EXPECT_THAT(taken(seal(payload)), StartsWith(want + " 5 7 291 22334455 ")) << payload;
}

TEST_F(Codec, WhatOneMakesTheOtherTakes)
{
    for (const size_t length : {1U, 15U, 16U, 17U, 463U, 464U, 65519U}) {
        const Bytes bytes = random_bytes(length);
        const std::string message(bytes.begin(), bytes.end());
        const auto sequence = static_cast<uint16_t>(0xF100 + length);
        const std::string got = taken(generate(message, 9, 0x0304, 1, make_ctrl(7, sequence)));
        char want[60];
        snprintf(want, sizeof want, "0 %zu 9 772 %d 22334455 ", length, sequence & 0xFFF);
        EXPECT_THAT(got, StartsWith(want));
        EXPECT_TRUE(got.ends_with(" " + message));
    }
    EXPECT_NE(generate("m", 1, 1, 1, make_ctrl(7, 1)), generate("m", 1, 1, 1, make_ctrl(7, 1)));
    EXPECT_EQ(generate("", 1, 1, 1, make_ctrl(7, 1)).size(), 40U);
    for (const int encrypt : {0, 2, -1}) // only 1 encrypts, and anything but 0 says so
        EXPECT_EQ(to_hex(generate("hello", 5, 7, encrypt, make_ctrl(7, 0x123))),
                  (encrypt == 0 ? "223344550201" : "223344550202") + std::string("000500050007") +
                      std::string(32, '0') + "02a0f100000712300000000068656c6c6f");
    const zorv_protocol_ctrl_t ctrl = make_ctrl(7, 1);
    for (const int length : {-1, INT_MIN, INT_MAX, INT_MAX - 40}) {
        EXPECT_EQ(gen_payload("", length, 1, 1, 1, &ctrl), nullptr);
        EXPECT_THAT(logged(), ElementsAre("[error] libzorv.gen_payload(): hdr malloc fail"));
    }
}
