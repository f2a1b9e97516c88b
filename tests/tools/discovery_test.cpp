#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/datagram.h"
#include "tools/zorvctl.h"

namespace {

class ZorvctlDiscovery : public Zorvctl {
protected:
    ZorvctlDiscovery()
    {
        file("/var/run/zorv_protocol.info",
             "pluvo.key=" + std::string(kKey) + "\npluvo.mcip=239.255.90.90\n");
    }
};

zorv_protocol_ctrl_t keyed_ctrl()
{
    zorv_protocol_ctrl_t ctrl{};
    memcpy(ctrl.key, from_hex(kKey).data(), sizeof ctrl.key);
    ctrl.own_sequence = 1;
    return ctrl;
}

TEST_F(ZorvctlDiscovery, DecodeNamesTheCheckThatFailed)
{
    const auto changed = [](size_t at, const char *digits) {
        return std::string(kHello).replace(at * 2, strlen(digits), digits);
    };
    Bytes padding = part(from_hex(kHello), 0, 40);
    const Bytes plain(16, 17), key = from_hex(kKey), iv = part(padding, 12, 16);
    put(padding, 36, check_sum(plain), 4);
    for (const uint8_t byte : encrypt(plain, key, iv))
        padding.push_back(byte);
    file("/tmp/padding", std::string(padding.begin(), padding.end()));
    const std::string hex = "discovery decode --hex ";
    const std::pair<std::string, const char *> kCases[] = {
        {hex + "2233", "1: rejected: length (2 bytes are less than a header of 40)"},
        {hex + kHello + "00", "length (57 bytes, not the 56 of header and length field)"},
        {hex + kHello + " --last 0x123", "duplicate (sequence 291 is that of the last one)"},
        {hex + changed(0, "ff"), "magic (0xff334455, not 0x22334455)"},
        {hex + changed(5, "01"), "flag (0x01, not marked as encrypted)"},
        {hex + changed(6, "0000").substr(0, 80), "length (there is no payload)"},
        {hex + changed(4, "01"), "version (1, not 2 or more)"},
        {hex + changed(36, "00"), "CRC (0x0b6b2f9e, the header says 0x006b2f9e: "},
        {hex + kHello + " --key " + std::string(32, '0'), "CRC ("},
        {"discovery decode /tmp/padding", "padding (malformed, its last byte is 17)"},
    };
    for (const auto &[arguments, says] : kCases)
        expect(1, says, arguments);
    expect(0, "1: 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello\n", hex + kHello);
    expect(2, "", hex + "223");
    expect(2, "", hex + kHello + " --key 0001");
    expect(5, "", "discovery decode /tmp/missing");
}

TEST_F(ZorvctlDiscovery, AMessageIsShownWithoutWhatTerminalsObey)
{
    const Bytes datagram = generate("a\x1b[2J\x9b\xc2\x9b \xc3\xa9\xc2\xa0\xe2\x82\xac\xe2\x82", 5,
                                    1, 1, keyed_ctrl());
    file("/tmp/odd", std::string(datagram.begin(), datagram.end()));
    EXPECT_EQ(ctl("discovery decode /tmp/odd").output,
              "1: 00:00:00:00:00:00 method 5 type 1 sequence 1: "
              "a\\x1b[2J\\x9b\\xc2\\x9b \xc3\xa9\xc2\xa0\xe2\x82\xac\\xe2\\x82\n");
}

TEST_F(ZorvctlDiscovery, DecodeReadsCaptures)
{
    // The second frame is ARP, then come other ports and a fragment; a replay is a duplicate.
    const std::string seeds = ZORV_SOURCE_DIR "/fuzz/seeds/datagram_files/";
    const std::string hello = "192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 291: hello\n";
    const struct {
        const char *file;
        int status;
        std::string output;
    } kCases[] = {
        {"ethernet.pcap", 0,
         "1: " + hello +
             "3: 192.0.2.11 02:a0:f1:00:00:07 method 5 type 7 sequence 292: with options\n"},
        {"vlan_swapped.pcap", 0, "1: " + hello},
        {"any.pcap", 0, "1: " + hello},
        {"any2.pcap", 0, "1: " + hello},
        {"ip.pcap", 0, "1: " + hello},
        {"cut.pcap", 5, ""},
        {"unknown_link.pcap", 5, ""},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.file);
        const Outcome outcome = ctl("discovery decode " + seeds + row.file);
        EXPECT_EQ(outcome.output, row.output);
        EXPECT_EQ(outcome.status, row.status);
    }
}

TEST_F(ZorvctlDiscovery, ListenAnswersInOneDocument)
{
    const Outcome start = run("cd /tmp; mkfifo says status; "
                              "{ " ZORVCTL " -v discovery listen --json --count 2 --method 5 "
                              ">heard 2>says; echo $? >status; } >/dev/null 2>&1 & "
                              "exec 3<says; while read -r line; do case $line in *'init done') "
                              "cat <&3 >/dev/null 2>&1 & exit 0;; esac; done <&3; exit 1");
    ASSERT_EQ(start.status, 0);
    zorv_protocol_ctrl_t ctrl = keyed_ctrl();
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_port = htons(48000);
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    constexpr struct {
        std::string_view text;
        uint16_t method;
    } kMessages[] = {{"other method", 6}, {{"with a NUL\0", 11}, 5}, {"\xff\n", 5}};
    for (const auto &[text, method] : kMessages) {
        const Bytes datagram = generate(text, method, 1, 1, ctrl);
        ctrl.own_sequence++;
        sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&here),
               sizeof here);
    }
    close(fd);
    EXPECT_EQ(read("/tmp/status"), "0\n");
    EXPECT_EQ(read("/tmp/heard"),
              "{\"messages\":[{\"sender\":\"00:00:00:00:00:00\",\"method\":5,\"type\":1,"
              "\"sequence\":2,\"length\":11,\"text\":\"with a NUL\"},"
              "{\"sender\":\"00:00:00:00:00:00\",\"method\":5,\"type\":1,\"sequence\":3,"
              "\"length\":2,\"text\":\"\xEF\xBF\xBD\\n\",\"invalid_utf8\":true}]}\n");
}

TEST_F(ZorvctlDiscovery, ListenAndSendSayWhenThereIsNothing)
{
    expect(0, "", "discovery listen --timeout 0.01");
    expect(1, "{\"messages\":[]}\n", "discovery listen --timeout 0.01 --count 1 --json");
    const std::string send = "discovery send --method 1 ";
    expect(5, "Network is unreachable", send + "hello"); // no route to the group
    expect(4, "", send + std::string(463, 'x') + " --nul");
    expect(2, "", "discovery send --method 70000 hello");
    expect(1, "", "discovery init-check");
    remove("/var/run/zorv_protocol.info");
    expect(3, "", "discovery init-check");
}

} // namespace
