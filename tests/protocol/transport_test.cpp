#include <zorv/protocol.h>

#include <csignal>
#include <random>
#include <tuple>

#include <event2/event.h>
#include <fcntl.h>

#include "protocol/peer.h"

namespace {

constexpr char kSite[] = "/var/run/zorv_protocol.info";
constexpr char kAddress[] = "/var/run/ipready.br0";

// What has been logged since the last call, without the module and the functions' prefix. Why a
// group cannot be left is the kernel's.
std::string said()
{
    const std::string head = "zorv_protocol.zorv_", left = "drop membership, ";
    std::string text;
    for (std::string line : Device::logged()) {
        if (line.compare(8, head.size(), head) == 0)
            line.erase(8, head.size());
        if (line.find(left) != line.npos)
            line.erase(line.find(left) + left.size());
        text += line + "\n";
    }
    return text;
}

constexpr char kLeaving[] = "[error] multicast_socket_deinit(): unable to drop membership, \n";

bool is_reset()
{
    zorv_protocol_ctrl_t reset{};
    reset.fd = -1;
    return memcmp(&zorv_protocol_ctrl, &reset, sizeof reset) == 0;
}

class Transport : public Device {
protected:
    Transport() { file("/proc/zorvhal/system.info", "serialno=02A0F1000007 and more\n"); }
};

TEST_F(Transport, InitSaysWhatItLacks)
{
    const std::string digits = kKey, key = "pluvo.key=" + digits + "\n", mcip = "pluvo.mcip=";
    const std::string good = key + mcip + "239.255.90.90\n";
    const std::string info = "[info ] protocol_init(): ", error = "[error] protocol_init(): ";
    const std::string group = info + "mcast_ip is 239.255.90.90\n";
    const std::string done = info + "zorv_protocol init done\n";
    const struct {
        int with_socket;
        std::string site, address; // an empty file is none
        std::string says;
    } kRows[] = {
        {1, "", "", error + "Unable to access " + kSite + ": No such file or directory\n"},
        {1, "# pluvo\n", "", error + "Unable to parse " + kSite + "\n"},
        {1, "a=b\n", "", error + "no pluvo.key\n"},
        {1, key, "", error + "no pluvo.mcip\n"},
        {1, "pluvo.key=" + digits.substr(1) + "\n" + mcip, "",
         error + "pluvo.key invalid len 31\n"},
        {1, "pluvo.key=0" + digits + "\n" + mcip, "", error + "pluvo.key invalid len 33\n"},
        {1, key + mcip + "site\n", "", error + "pluvo.mcip=site is not valid\n"},
        {0, key, "", info + "no pluvo.mcip\n" + done},
        {0, good, "192.0.2.1\n", done},
        {1, good, "", group + done},
        {1, good, "\n", group + done},
        {1, good, "0.0.0.0\n", group + done},
        {1, good, "soon\n", group + done},
    };
    const int open_before = open_descriptors();
    EXPECT_TRUE(is_reset());
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.site + row.address);
        file(kSite, row.site);
        file(kAddress, row.address);
        must_run("find /run -empty -type f -delete");
        const bool works = row.says.ends_with(done);
        EXPECT_EQ(zorv_protocol_init(row.with_socket), works ? 0 : -1);
        EXPECT_EQ(said(),
                  info + "ZORV_DEVICE[02:a0:f1:00:00:07]\n" + row.says +
                      (works ? "" : "[error] protocol_init(): could not start zorv-protocol\n"));
        const auto &ctrl = zorv_protocol_ctrl;
        EXPECT_TRUE(works ? ctrl.ready_a == 1 && ctrl.ready_b == 1 && ctrl.own_address == 0
                          : is_reset());
        EXPECT_EQ(ctrl.fd >= 0, works && row.with_socket);
        zorv_protocol_deinit();
        EXPECT_EQ(said(), works && row.with_socket ? kLeaving : "");
        EXPECT_TRUE(is_reset());
        EXPECT_EQ(open_descriptors(), open_before);
    }
    file(kSite, good);
    const int other = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in any = {AF_INET, htons(48000), {}, {}};
    check(bind(other, reinterpret_cast<const sockaddr *>(&any), sizeof any), "bind");
    EXPECT_EQ(zorv_protocol_init(1), -1);
    EXPECT_THAT(said(), HasSubstr(error + "unable to bind zorv socket, Address already in use\n"));
    close(other);
}

TEST_F(Transport, WithoutASocketNothingIsSent)
{
    file(kSite, std::string("pluvo.key=") + kKey + "\n");
    ASSERT_EQ(zorv_protocol_init(0), 0);
    EXPECT_EQ(to_hex(zorv_protocol_ctrl.device, 6), "02a0f1000007");
    EXPECT_EQ(to_hex(zorv_protocol_ctrl.key, 16), kKey);
    said();
    EXPECT_EQ(zorv_protocol_send("x", 1, 1, 2, 1), -1);
    EXPECT_EQ(zorv_protocol_send("", UINT32_MAX, 1, 1, 1), -1);
    EXPECT_EQ(said(),
              "[error] protocol_send(): failed to send message (method: 1, type: 2, len: 56), "
              "Bad file descriptor\n"
              "[error] libzorv.gen_payload(): hdr malloc fail\n"
              "[error] protocol_send(): fill_zorv_payload fail\n");
    remove("/proc/zorvhal/system.info");
    ASSERT_EQ(zorv_protocol_init(0), 0);
    EXPECT_THAT(said(), HasSubstr("ZORV_DEVICE[00:00:00:00:00:00]\n"));
}

// What the handlers heard: a letter for the handler, the message, and its length as a text of C.
std::vector<std::string> g_heard;

template <char Letter>
void hear(const void *message)
{
    g_heard.push_back(Letter + (" " + shown(message)) + " " +
                      std::to_string(strlen(static_cast<const char *>(message))));
}

void stop_within(const void * /*message*/)
{
    zorv_protocol_deinit();
}

constexpr zorv_protocol_handler kTable[] = {{hear<'A'>, 5}, {hear<'B'>, 6},   {hear<'B'>, 5},
                                            {hear<'A'>, 3}, {stop_within, 4}, {hear<'A'>, 4},
                                            {nullptr, 0},   {hear<'A'>, 7}};

event_base *g_base;

void start()
{
    check(zorv_protocol_init(1), "init");
    zorv_protocol_init_recv(g_base, kTable);
    said();
}

// What is sent to the transport is there when the loop turns.
class Receive : public Device {
protected:
    explicit Receive(void (*start_a_peer)() = start_near_peer)
    {
        start_a_peer();
        g_base = event_base_new();
        start();
    }

    static void turn() { event_base_loop(g_base, EVLOOP_ONCE | EVLOOP_NONBLOCK); }

    // What the handlers hear of a datagram.
    static std::vector<std::string> heard(const Bytes &datagram)
    {
        send_to_site(datagram);
        turn();
        return std::exchange(g_heard, {});
    }
};

TEST_F(Receive, HandlersHearWhatIsTheirs)
{
    libzorv_log_level = 8;
    const std::string x(463, 'x'), id = " 02a0f1000011 ", got = "[debug] protocol_recv(): [";
    const std::string rejected = "[error] protocol_recv(): failed to decrypt the message: 1\n";
    const std::string too_long = "[error] libzorv.dec_payload(): packet length check fail\n";
    const struct {
        std::string text;
        uint16_t method, sequence;
        std::vector<std::string> heard;
        std::string says;
    } kRows[] = {
        {x, 6, 65535, {"B 6 9 4095" + id + x + " 464"}, got + x + "]\n"},
        {x + 'x', 6, 1, {}, too_long + rejected},
        {"hi", 5, 99, {"A 5 9 99" + id + "hi 16", "B 5 9 99" + id + "hi 16"}, got + "hi]\n"},
        {"again", 6, 99, {}, ""},
        {"again", 3, 99, {"A 3 9 99" + id + "again 16"}, got + "again]\n"}, // this method may
        {"nobody listens", 7, 101, {}, got + "nobody listens]\n"},
        {{"NUL\0", 4}, 6, 102, {"B 6 9 102" + id + std::string("NUL\0 3", 6)}, got + "NUL]\n"},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(heard(peer_message(row.text, row.method, row.sequence)), row.heard);
        EXPECT_EQ(said(), row.says);
    }
    zorv_protocol_ctrl.key[0] ^= 1;
    EXPECT_THAT(heard(peer_message("a stranger's", 6, 200)), IsEmpty());
    EXPECT_THAT(said(), testing::EndsWith(rejected));
    EXPECT_EQ(zorv_protocol_ctrl.last_sequence, 102);
}

TEST_F(Receive, StopsAndStartsWithoutLeavingAnything)
{
    zorv_protocol_deinit();
    const int before = open_descriptors();
    for (uint16_t round = 1; round <= 3; ++round) {
        start();
        EXPECT_EQ(heard(peer_message("hello", 6, round)).size(), 1U);
        EXPECT_EQ(heard(peer_message("enough", 4, 9)).size(), 1U); // of the handler behind it
        EXPECT_TRUE(is_reset());
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(said(), kLeaving); // it was in no group
    }
}

TEST_F(Receive, AnErrorOfTheSocketIsLoggedAndSpuriousWakeUpsAreNot)
{
    const int socket = zorv_protocol_ctrl.fd, null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int kept = fcntl(socket, F_DUPFD_CLOEXEC, 0); // so that the loop sees datagrams go on
    const Bytes lost = peer_message("lost", 6, 1);
    send_to_site(lost);
    char room[100];
    ASSERT_EQ(recv(socket, room, sizeof room, 0), 56); // another reader was faster
    turn();
    EXPECT_EQ(said(), "");
    check(dup2(null, socket), "dup2");
    heard(lost);
    EXPECT_EQ(said(), "[error] protocol_recv(): recvfrom failed: Socket operation on non-socket\n");
    check(dup2(kept, socket), "dup2");
    close(kept);
    close(null);
}

long resident_pages()
{
    const std::string text = Device::read("/proc/self/statm");
    return atol(text.c_str() + text.find(' '));
}

TEST_F(Receive, AFloodHidesNoGoodMessage)
{
    kernel_proc();
    libzorv_log_level = 0;
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same datagrams in every run
    std::mt19937 random(3);
    const int descriptors = open_descriptors();
    long pages = 0;
    for (uint16_t round = 1; round <= 100; ++round) {
        const Bytes good = peer_message("good", 6, round);
        ASSERT_EQ(heard(good).size(), 1U);
        for (size_t hostile = 0; hostile < 100; ++hostile) {
            Bytes bad = good; // the same again
            if (hostile % 4 > 0) {
                bad[34] ^= 0x80; // no duplicate
                bad[36 + random() % 20] ^= static_cast<uint8_t>(1 << random() % 8);
            }
            if (hostile % 4 > 1)
                bad.resize(random() % 2000, static_cast<uint8_t>(random()));
            ASSERT_THAT(heard(bad), IsEmpty());
        }
        pages = round == 20 ? resident_pages() : pages;
    }
    EXPECT_LE(resident_pages() - pages, 256);
    EXPECT_EQ(open_descriptors(), descriptors);
}

// At the bridge, in the group.
class Site : public Receive {
protected:
    Site() : Receive(start_peer) {}

    // What is logged about a change of the address.
    static std::string follows(const std::string &command)
    {
        must_run(command);
        raise(SIGUSR1);
        turn();
        turn(); // the signal has become an event
        return said();
    }
};

TEST_F(Site, TheDatagramOnTheWire)
{
    zorv_protocol_ctrl.own_sequence = 0x123;
    ASSERT_EQ(zorv_protocol_send("hello", 5, 5, 7, 1), 56);
    const Bytes frame = next_frame();
    EXPECT_EQ(to_hex(&frame[0], 6), "01005e7f5a5a"); // the group's at Ethernet
    EXPECT_EQ(frame[22], 64);
    EXPECT_EQ(to_hex(&frame[26], 14), "c0000201efff5a5abb80bb800040"); // addresses, ports, length
    EXPECT_EQ(to_hex(&frame[42], 12), "223344550202001000050007");
    EXPECT_EQ(to_hex(&frame[70], 12), "02a0f100000712300b6b2f9e");
    zorv_protocol_ctrl.own_sequence = 65535;
    zorv_protocol_send("hello", 5, 6, 7, 1);
    EXPECT_EQ(next_message(), "6 7 4095 02a0f1000007 hello");
    turn();
    EXPECT_THAT(g_heard, IsEmpty()); // nobody hears himself
    EXPECT_EQ(said(), "");
}

TEST_F(Site, FollowsTheAddress)
{
    const std::string asks = "[info ] usr1_handler(): Get DHCP IP\n";
    const std::string mine = asks + "[info ] usr1_handler(): my_ip is ";
    zorv_protocol_deinit();
    file(kAddress, "0.0.0.0\n");
    start();
    EXPECT_THAT(heard(peer_message("outside", 6, 1)), IsEmpty());
    // The first one: there is nothing to leave.
    EXPECT_EQ(follows("echo 192.0.2.1 >/run/ipready.br0"), mine + "192.0.2.1\n" + kLeaving);
    EXPECT_EQ(heard(peer_message("inside", 6, 2)).size(), 1U);
    EXPECT_EQ(follows("true"), asks);
    EXPECT_EQ(follows("rm /run/ipready.br0"), asks);
    EXPECT_EQ(heard(peer_message("still inside", 6, 3)).size(), 1U);
    EXPECT_EQ(follows("ip address del 192.0.2.1/24 dev br0; ip address add 192.0.2.99/24 dev br0;"
                      "ip route add default dev br0; echo 192.0.2.99 >/run/ipready.br0"),
              mine + "192.0.2.99\n");
    EXPECT_EQ(heard(peer_message("inside again", 6, 4)).size(), 1U);
    zorv_protocol_send("from elsewhere", 14, 6, 1, 1);
    EXPECT_EQ(to_hex(&next_frame()[26], 4), "c0000263");
    // Nobody's, and not tried twice.
    const std::string none = "Cannot assign requested address\n";
    EXPECT_EQ(follows("echo 192.0.2.77 >/run/ipready.br0"),
              mine + "192.0.2.77\n[error] multicast_socket_init(): unable to set mcast local ip, " +
                  none + "[error] usr1_handler(): set multicast socket fail, " + none);
    EXPECT_EQ(follows("true"), asks);
    EXPECT_THAT(heard(peer_message("gone", 6, 5)), IsEmpty());
}

TEST_F(Site, AGroupThatCannotBeJoinedFailsInit)
{
    zorv_protocol_deinit();
    const int before = open_descriptors();
    const std::tuple<const char *, const char *, const char *> kRows[] = {
        {"239.255.90.90", "192.0.2.77", "set mcast local ip, Cannot assign requested address\n"},
        {"192.0.2.9", "192.0.2.1", "add membership, Invalid argument\n"},
    };
    for (const auto &[group, address, why] : kRows) {
        file(kSite, std::string("pluvo.key=") + kKey + "\npluvo.mcip=" + group + "\n");
        file(kAddress, address + std::string("\n"));
        EXPECT_EQ(zorv_protocol_init(1), -1);
        const std::string info = "[info ] protocol_init(): ", error = "[error] protocol_init(): ";
        EXPECT_EQ(said(), info + "ZORV_DEVICE[02:a0:f1:00:00:07]\n" + info + "mcast_ip is " +
                              group + "\n" + info + "my_ip is " + address +
                              "\n[error] multicast_socket_init(): unable to " + why + error +
                              "set multicast socket fail" + strchr(why, ',') + kLeaving + error +
                              "could not start zorv-protocol\n");
        EXPECT_TRUE(is_reset());
        EXPECT_EQ(open_descriptors(), before);
    }
}

} // namespace
