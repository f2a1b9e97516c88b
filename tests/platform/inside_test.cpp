// What cannot be had from outside: rules that no board of the table shows, answers that this
// kernel does not give, a processor's architecture, which no record keeps.
#include "platform/board_cpu_arch.h"
#include "platform/board_firmware.h"
#include "platform/bridge_fdb_table.h"
#include "platform/item_list.h"
#include "platform/netlink.h"
#include "platform/rows.h"
#include "platform/status_dev_rows.h"

using namespace zorv;
using namespace std::string_literals;

using PlatformInside = Device;

static Bytes view(const std::string &bytes)
{
    return {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()};
}

// A header before a body, and what fills the last word.
template <class Header>
static std::string framed(const Header &header, const std::string &body)
{
    std::string bytes(reinterpret_cast<const char *>(&header), sizeof header);
    bytes += body;
    return bytes + std::string((4 - body.size() % 4) % 4, '\0');
}

static std::string message(uint16_t type, const std::string &body, uint16_t flags = NLM_F_MULTI,
                           uint32_t port = 78)
{
    const auto length = static_cast<uint32_t>(sizeof(nlmsghdr) + body.size());
    return framed(nlmsghdr{length, type, flags, 1, port}, body);
}

static std::string attribute(uint16_t type, const std::string &value)
{
    return framed(rtattr{static_cast<uint16_t>(sizeof(rtattr) + value.size()), type}, value);
}

static std::string route(const std::string &attributes, uint8_t family = AF_INET,
                         uint8_t table = RT_TABLE_MAIN)
{
    rtmsg fixed = {};
    fixed.rtm_family = family;
    fixed.rtm_table = table;
    return message(RTM_NEWROUTE, framed(fixed, attributes));
}

TEST_F(PlatformInside, FirmwareArchitectureAndLinksGoByTheirRules)
{
    const auto minimum = [](uint16_t system_id, uint8_t block, int revision) {
        board_record record = {};
        record.system_id = system_id;
        record.board_revision = revision;
        record.fw_min = 5;
        std::copy_n(std::to_array<uint8_t>({0x02, 0xA0, block}).begin(), 3, record.cpu_mac);
        raise_firmware_minimum(record);
        return hex(record.fw_min);
    };
    // System id, last byte of the address block, revision, the minimum: boards of the first
    // wireless firmware by the block, the next by the revision, others only by one block.
    const std::tuple<uint16_t, uint8_t, int, uint32_t> kRows[] = {
        {0x3123, 0xF1, 0, 0x010000},   {0x3353, 0xF2, 0, 0x010201},   {0x3336, 0xF3, 0, 0x020306},
        {0x3323, 0xF4, 0, 0x020404},   {0x3361, 0xF1, -1, 0x03092A},  {0x3361, 0xF1, 12, 0x03092A},
        {0x3361, 0xF1, 13, 0x030900},  {0x3351, 0xF1, 29, 0x03092A},  {0x3351, 0xF1, 30, 0x030900},
        {0x3328, 0xF3, 23, 0x020306},  {0x3328, 0xF1, 23, 0x020300},  {0x3328, 0xF1, 24, 0x020404},
        {0x3328, 0xF1, 255, 0x020404}, {0x3328, 0xF1, 256, 0xFFFFFF}, {0x3328, 0xF1, -2, 0xFFFFFF}};
    file("/proc/zorvhal/board", "bomrev=2e8ff\n");
    for (const auto &[system_id, block, revision, want] : kRows)
        EXPECT_EQ(minimum(system_id, block, revision), hex(want)) << hex(system_id);
    // And one board by its bill of materials.
    expect_rows("/proc/zorvhal/board", [&] { return minimum(0x5241, 0xF1, 0); },
                {"(none) => 5", "bomrev=2e8ff\n => 52a00", "bomrev=0x43600\n => 52b25",
                 "bomrev=43700\n => 5", "bomrev=ff0002e8\n => 5"});

    expect_rows("/proc/cpuinfo", detect_cpu_arch,
                {"system type\t\t: Atheros AR7240 rev 2\ncpu model\t\t: MIPS 24Kc V7.4\n => 3",
                 "system type : Atheros AR5315\ncpu model : MIPS 4KEc\n => 1",
                 "system type : Atheros AR5312\ncpu model : MIPS 4Kc V0.8\n => 0",
                 "system type :  Atheros AR7240\n => 43", // one blank stands before the value
                 "system type : Atheros AR7161\nsystem type : Other\n => 43",
                 "system type :\nsystem type :x\n:\n => 43"});
    // Links' speed, duplex, second speed, second duplex: the better one comes first.
    const uint32_t kLinks[][2][4] = {{{10, 1, 1000, 1}, {1000, 1, 10, 1}},
                                     {{100, 0, 10, 1}, {100, 1, 10, 0}},
                                     {{10, 0, 0, 0xFF}, {0, 0xFF, 10, 0}},
                                     {{1000, 1, 100, 0xFF}, {1000, 1, 100, 0xFF}}};
    for (const auto &[given, want] : kLinks) {
        dev_status s = {};
        std::tie(s.speed, s.duplex, s.speed_2, s.duplex_2) = std::tuple_cat(std::to_array(given));
        order_links(s);
        EXPECT_THAT(std::to_array({s.speed, s.duplex, s.speed_2, s.duplex_2}),
                    testing::ElementsAreArray(want));
    }
}

TEST_F(PlatformInside, AnswersAddressesAndListsAreTakenApart)
{
    const std::string body(12, '\0'), one = message(RTM_NEWROUTE, body);
    // Goes on, is complete, is broken.
    std::string answers;
    for (const std::string &datagram :
         {one, message(RTM_NEWROUTE, body, NLM_F_MULTI, 77), message(RTM_NEWROUTE, body, 0),
          one + message(NLMSG_DONE, "0000"), one + message(NLMSG_ERROR, body), one + "x",
          one.substr(0, one.size() - 1), "\xf" + one.substr(1)})
        answers += shown(static_cast<int>(judge_answer(view(datagram), 77)), "");
    EXPECT_EQ(answers, "0 1 1 1 2 2 2 2 ");

    const std::string gateway = attribute(RTA_GATEWAY, "\xc0\xa8\x01\x01"),
                      oif = attribute(RTA_OIF, "\5\0\0\0"s);
    const std::string all = message(RTM_NEWNEIGH, route(gateway).substr(16)) +
                            route(gateway + oif) + route(attribute(RTA_DST, "") + oif) +
                            route(attribute(RTA_GATEWAY, "abc") + attribute(RTA_OIF, "")) +
                            route(oif + "cut") + route(oif + "\3\0\5\0"s) +
                            route(oif + "\x9\0\5\0abcd"s) + message(RTM_NEWROUTE, "cut") +
                            route(oif, AF_INET6) + route(oif, AF_INET, RT_TABLE_LOCAL);
    std::string text;
    Bytes rest = view(all);
    Route r;
    while (take_route(rest, r))
        text += shown(r.is_default, r.has_gateway ? hex(r.gateway) : "-", r.oif, "");
    EXPECT_EQ(text, "1 101a8c0 5 0 - 5 1 - 0 1 - 5 1 - 5 1 - 5 ");

    uint8_t mac[6];
    EXPECT_TRUE(read_mac("02:A0:f1:99:0a:Ff", mac));
    EXPECT_EQ(shown_mac(mac), "2:a0:f1:99:a:ff");
    for (const char *form :
         {"2:a0:f1:00:00:07", "02:a0:f1:00:00:07 ", "02:a0:f1:00:00", "02:a0:f1:00:00:0g",
          "02:a0:f1:00:00:/0", "02:a0:f1:00:00::0", "02:a0:f1:00:00:0`"})
        EXPECT_FALSE(read_mac(form, mac)) << form;
    // The search is not quadratic.
    EXPECT_FALSE(has_item(std::string(4 << 20, 'a'), std::string(1 << 20, 'a')));
}
