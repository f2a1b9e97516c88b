// What cannot be had from outside: answers that this kernel does not give, time that is not waited
// for, allocations that fail.
#include <array>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorv/guest_portal.h>
#include <zorv/lock.h>

#include "platform/dev_rows.h"
#include "platform/item_list.h"
#include "platform/netlink.h"
#include "support/allocation.h"
#include "support/device.h"

using namespace zorv;

namespace {

using PlatformInside = Device;

int g_sleeps = 0;        // seconds asked for
int g_release_after = 0; // how many until the other holder lets go
int g_other = -1;        // the other holder's descriptor

// A datagram of messages.
struct Datagram {
    std::string bytes; // NOLINT(misc-non-private-member-variables-in-classes): a plain record

    Datagram &message(uint16_t type, uint16_t flags, uint32_t port, const std::string &body)
    {
        const nlmsghdr header = {static_cast<uint32_t>(sizeof header + body.size()), type, flags, 1,
                                 port};
        return append(&header, sizeof header).append(body.data(), body.size());
    }
    Datagram &append(const void *part, size_t size)
    {
        bytes.append(static_cast<const char *>(part), size);
        bytes.resize((bytes.size() + 3) & ~size_t{3});
        return *this;
    }
    Bytes view() const { return {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()}; }
};

} // namespace

// The locks' own sleep.
extern "C" unsigned sleep(unsigned seconds)
{
    g_sleeps += static_cast<int>(seconds);
    if (g_sleeps == g_release_after)
        flock(g_other, LOCK_UN);
    return 0;
}

TEST_F(PlatformInside, ALockIsTriedElevenTimes)
{
    g_other = open("/var/run/inform-profile.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(g_other, LOCK_EX), 0);
    const int before = open_descriptors();
    EXPECT_EQ(inform_profile_lock(), -1);
    EXPECT_EQ(g_sleeps, 11); // the last failure has its sleep, too
    EXPECT_THAT(logged(), ElementsAre("[error] statistics.inform_profile_lock(): couldn't lock "
                                      "/var/run/inform-profile.lock"));
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(inform_profile_unlock(), -1);
    logged();

    g_sleeps = 0;
    g_release_after = 11; // too late by one try
    EXPECT_EQ(inform_profile_lock(), -1);
    ASSERT_EQ(flock(g_other, LOCK_EX), 0);
    g_sleeps = 0;
    g_release_after = 10; // in time for the last try
    EXPECT_EQ(inform_profile_lock(), 0);
    EXPECT_EQ(g_sleeps, 10);
    EXPECT_EQ(inform_profile_unlock(), 0);
}

// The full count of turns, without the seconds in between.
TEST_F(PlatformInside, ThreeProcessesTakeTwoHundredTurnsEach)
{
    must_run("mkdir /var/run/report");
    int (*const take[])() = {report_lock, inform_profile_lock};
    int (*const release[])() = {report_unlock, inform_profile_unlock};
    libzorv_log_level = 0; // eleven tries without a wait may all fail
    for (const size_t lock : {0U, 1U}) {
        for (int child = 0; child < 3; ++child) {
            if (fork() != 0)
                continue;
            for (int turn = 0; turn < 200; ++turn) {
                while (take[lock]() != 0)
                    usleep(50);
                const int alone = open("/tmp/alone", O_CREAT | O_EXCL | O_CLOEXEC, 0600);
                usleep(50);
                if (alone < 0 || unlink("/tmp/alone") != 0 || release[lock]() != 0)
                    _exit(1);
                close(alone);
            }
            _exit(0);
        }
        for (int child = 0; child < 3; ++child) {
            int status;
            wait(&status);
            EXPECT_EQ(status, 0);
        }
    }
}

TEST_F(PlatformInside, TheBetterLinkComesFirst)
{
    const struct {
        std::array<uint32_t, 4> given, ordered; // speed, duplex, second speed, second duplex
    } rows[] = {
        {{1000, 1, 100, 1}, {1000, 1, 100, 1}}, {{10, 1, 1000, 1}, {1000, 1, 10, 1}},
        {{10, 0, 10, 0}, {10, 0, 10, 0}},       {{10, 1, 0, 0xFF}, {0, 1, 10, 0xFF}},
        {{100, 0, 10, 1}, {100, 1, 10, 0}},     {{10, 0, 0, 0xFF}, {0, 0xFF, 10, 0}},
        {{100, 1, 10, 0}, {100, 1, 10, 0}},
    };
    for (const auto &row : rows) {
        dev_status s = {};
        s.speed = row.given[0], s.duplex = row.given[1];
        s.speed_2 = row.given[2], s.duplex_2 = row.given[3];
        order_links(s);
        EXPECT_EQ((std::array{s.speed, s.duplex, s.speed_2, s.duplex_2}), row.ordered);
    }
}

TEST_F(PlatformInside, AnAnswerEndsAsTheKernelEndsIt)
{
    constexpr uint32_t kPort = 77, kOther = 78;
    const std::string body(12, '\0');
    Datagram cut_header, cut_body, short_length;
    cut_header.message(RTM_NEWROUTE, NLM_F_MULTI, kOther, body).append("x", 1);
    cut_body.message(RTM_NEWROUTE, NLM_F_MULTI, kOther, body).bytes.resize(27);
    short_length.message(RTM_NEWROUTE, NLM_F_MULTI, kOther, body).bytes[0] = 15;
    const struct {
        Datagram datagram;
        Answer answer;
    } rows[] = {
        {Datagram(), Answer::is_broken},
        {Datagram().message(RTM_NEWROUTE, NLM_F_MULTI, kOther, body), Answer::goes_on},
        {Datagram().message(RTM_NEWROUTE, NLM_F_MULTI, kPort, body), Answer::is_complete},
        {Datagram().message(RTM_NEWROUTE, 0, kOther, body), Answer::is_complete},
        {Datagram().message(NLMSG_DONE, NLM_F_MULTI, kOther, ""), Answer::is_complete},
        {Datagram()
             .message(RTM_NEWROUTE, NLM_F_MULTI, kOther, body)
             .message(NLMSG_DONE, NLM_F_MULTI, kOther, "0000"),
         Answer::is_complete},
        {Datagram()
             .message(RTM_NEWROUTE, NLM_F_MULTI, kOther, body)
             .message(NLMSG_ERROR, NLM_F_MULTI, kOther, body),
         Answer::is_broken},
        {cut_header, Answer::is_broken},
        {cut_body, Answer::is_broken},
        {short_length, Answer::is_broken},
    };
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(judge_answer(rows[i].datagram.view(), kPort), rows[i].answer) << i;
}

TEST_F(PlatformInside, RoutesAreTakenByTheirAttributes)
{
    rtmsg fixed = {};
    fixed.rtm_family = AF_INET;
    fixed.rtm_table = RT_TABLE_MAIN;
    const auto body = [&](std::initializer_list<std::pair<uint16_t, std::string>> attributes) {
        Datagram made;
        made.append(&fixed, sizeof fixed);
        for (const auto &[type, value] : attributes) {
            const rtattr header = {static_cast<uint16_t>(sizeof header + value.size()), type};
            made.append(&header, sizeof header).append(value.data(), value.size());
        }
        return made.bytes;
    };
    const std::string address = "\xc0\xa8\x01\x01", index("\x05\0\0\0", 4);
    Datagram all;
    all.message(RTM_NEWNEIGH, 0, 0, body({{RTA_GATEWAY, address}}));
    all.message(RTM_NEWROUTE, 0, 0, body({{RTA_GATEWAY, address}, {RTA_OIF, index}}));
    all.message(RTM_NEWROUTE, 0, 0, body({{RTA_DST, ""}, {RTA_OIF, index}}));
    all.message(RTM_NEWROUTE, 0, 0, body({{RTA_GATEWAY, "abc"}, {RTA_OIF, ""}})); // too short
    all.message(RTM_NEWROUTE, 0, 0, "cut");
    fixed.rtm_family = AF_INET6;
    all.message(RTM_NEWROUTE, 0, 0, body({}));

    Bytes rest = all.view();
    Route route;
    ASSERT_TRUE(take_route(rest, route));
    EXPECT_TRUE(route.is_default && route.has_gateway);
    EXPECT_EQ(route.oif, 5U);
    EXPECT_EQ(memcmp(&route.gateway, address.data(), 4), 0);
    ASSERT_TRUE(take_route(rest, route));
    EXPECT_FALSE(route.is_default || route.has_gateway);
    ASSERT_TRUE(take_route(rest, route));
    EXPECT_TRUE(route.is_default && !route.has_gateway && route.oif == 0);
    EXPECT_FALSE(take_route(rest, route));
}

TEST_F(PlatformInside, PortalsWithoutMemory)
{
    file("/var/run/guest/portal/hotel/vlans",
         std::string(4095, '1') + "\n" + std::string(300, '2'));
    guest_portal_set set;
    guest_portal_set_init(&set);
    const std::string module = "[error] guest_portals.";
    const std::string vlans = "/var/run/guest/portal/hotel/vlans";
    const std::pair<int, std::string> rows[] = {
        {1, "guest_portal_set_read(): Couldn't allocate portal for hotel"},
        {2, "fill_portal_buffer_file(): Not enough memory for buffer: " + vlans},
        {4, "fill_portal_buffer_file(): Not enough memory for buffer: " + vlans},
        {5, "fill_portal_buffer_file(): Couldn't read all of " + vlans + ". Only have 4096 bytes"},
    };
    for (const auto &[allocation, text] : rows) {
        fail_allocation(allocation);
        guest_portal_set_read(&set);
        fail_allocations_off();
        EXPECT_THAT(logged(), ElementsAre(module + text)) << allocation;
        EXPECT_EQ(guest_portal_set_count(&set), allocation == 1 ? 0U : 1U);
        EXPECT_EQ(guest_portal_from_vlan(&set, 2), nullptr);
        guest_portal_set_clear(&set);
    }
}

// Texts made to have the search begin again at every character.
TEST_F(PlatformInside, ASearchIsNotQuadratic)
{
    const std::string same(4 << 20, 'a'), item(1 << 20, 'a');
    EXPECT_FALSE(has_item(same, item));
    std::string words;
    while (words.size() < 1 << 18)
        words += "aaaaaaaab,";
    EXPECT_FALSE(has_item(words, "aaaaaaaa"));
    EXPECT_TRUE(has_item(words + "aaaaaaaa", "aaaaaaaa"));
}
