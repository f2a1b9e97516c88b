

#include <event2/event.h>

#include "protocol/peer.h"

constexpr char kSite[] = "/var/run/zorv_protocol.info";
constexpr char kAddress[] = "/var/run/ipready.br0";

// What has been logged since the last call, without the module and the functions' prefix. Why a
// group cannot be left is the kernel's.
static std::string said()
{
    static const std::regex head("zorv_protocol\\.zorv_"), left("(drop membership, ).*");
    std::string text;
    for (const std::string &line : Device::logged())
        text += std::regex_replace(std::regex_replace(line, head, ""), left, "$1") + "\n";
    return text;
}

constexpr char kNone[] = "Cannot assign requested address\n";
constexpr char kLeaving[] = "[error] multicast_socket_deinit(): unable to drop membership, \n";

static bool is_reset()
{
    zorv_protocol_ctrl_t reset{};
    reset.fd = -1;
    return memcmp(&zorv_protocol_ctrl, &reset, sizeof reset) == 0;
}

// A transport's start without a bridge.
using Init = Device;

TEST_F(Init, SaysWhatItLacks)
{
    const std::string digits = kKey, key = "pluvo.key=" + digits + "\n", mcip = "pluvo.mcip=";
    const std::string good = key + mcip + "239.255.90.90\n";
    const std::string info = "[info ] protocol_init(): ", error = "[error] protocol_init(): ";
    const std::string group = info + "mcast_ip is 239.255.90.90\n";
    const std::string done = info + "zorv_protocol init done\n";
    // With a socket or without, the two files (an empty one is none), and what is said.
    const std::tuple<int, std::string, std::string, std::string> kRows[] = {
        {1, "", "", error + "Unable to access " + kSite + ": No such file or directory\n"},
        {1, "# pluvo\n", "", error + "Unable to parse " + kSite + "\n"},
        {1, "a=b\n", "", error + "no pluvo.key\n"},
        {1, key, "", error + "no pluvo.mcip\n"},
        {1, "pluvo.key=0" + digits + "\n" + mcip, "", error + "pluvo.key invalid len 33\n"},
        {1, key + mcip + "site\n", "", error + "pluvo.mcip=site is not valid\n"},
        {0, "pluvo.key=x" + digits.substr(1) + "\n", "",
         info + "no pluvo.mcip\n" + error +
             "pluvo.key holds characters that are no hexadecimal digits\n" + done},
        {0, key, "", info + "no pluvo.mcip\n" + done},
        {0, good, "192.0.2.1\n", done},
        {1, good, "", group + done},
        {1, good, "0.0.0.0\n", group + done},
        {1, good, "soon\n", group + done},
    };
    const int open_before = open_descriptors();
    EXPECT_TRUE(is_reset());
    for (const auto &[with_socket, site, address, says] : kRows) {
        SCOPED_TRACE(site + address);
        write_site();
        file(kSite, site);
        file(kAddress, address);
        must_run("find /run -empty -type f -delete");
        const bool works = says.ends_with(done);
        EXPECT_EQ(zorv_protocol_init(with_socket), works ? 0 : -1);
        EXPECT_EQ(said(),
                  info + "ZORV_DEVICE[02:a0:f1:00:00:07]\n" + says +
                      (works ? "" : "[error] protocol_init(): could not start zorv-protocol\n"));
        const auto &ctrl = zorv_protocol_ctrl;
        EXPECT_TRUE(works ? ctrl.ready_a == 1 && ctrl.ready_b == 1 && ctrl.own_address == 0
                          : is_reset());
        EXPECT_EQ(ctrl.fd >= 0, works && with_socket);
        zorv_protocol_deinit();
        EXPECT_EQ(said(), works && with_socket ? kLeaving : "");
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

    ASSERT_EQ(zorv_protocol_init(0), 0);
    said();
    EXPECT_EQ(zorv_protocol_send("x", 1, 1, 2, 1), -1);
    EXPECT_EQ(zorv_protocol_send("", UINT32_MAX, 1, 1, 1), -1);
    EXPECT_EQ(said(),
              "[error] protocol_send(): failed to send message (method: 1, type: 2, len: 56), "
              "Bad file descriptor\n"
              "[error] libzorv.gen_payload(): hdr malloc fail\n"
              "[error] protocol_send(): fill_zorv_payload fail\n");
}

// What the handlers heard: a letter for the handler, the message, and its length as a text of C.
static std::vector<std::string> g_heard;

template <char Letter>
static void hear(const void *message)
{
    g_heard.push_back(Letter + (" " + shown(message)) + " " +
                      std::to_string(strlen(static_cast<const char *>(message))));
}

constexpr zorv_protocol_handler kTable[] = {{hear<'A'>, 5},
                                            {hear<'B'>, 6},
                                            {hear<'B'>, 5},
                                            {hear<'A'>, 3},
                                            {[](const void *) { zorv_protocol_deinit(); }, 4},
                                            {hear<'A'>, 4},
                                            {nullptr, 0},
                                            {hear<'A'>, 7}};

// A transport at the bridge, in the group. What is sent to it is there when the loop turns.
struct Site : Device {
    Site()
    {
        start_peer();
        start();
    }

    void start()
    {
        check(zorv_protocol_init(1), "init");
        zorv_protocol_init_recv(base, kTable);
        said();
    }

    void turn() { event_base_loop(base, EVLOOP_ONCE | EVLOOP_NONBLOCK); }

    // What the handlers hear of a datagram.
    std::vector<std::string> heard(const Bytes &datagram)
    {
        send_to_site(datagram);
        turn();
        return std::exchange(g_heard, {});
    }

    // What is logged about a change of the address.
    std::string follows(const std::string &command)
    {
        must_run(command);
        raise(SIGUSR1);
        turn();
        turn(); // the signal has become an event
        return said();
    }

    // NOLINTNEXTLINE(misc-non-private-member-variables-in-classes): the tests'
    event_base *const base = event_base_new();
};

TEST_F(Site, HandlersHearWhatIsTheirs)
{
    libzorv_log_level = 8;
    const std::string x(463, 'x'), id = " 02a0f1000011 ", got = "[debug] protocol_recv(): [";
    const std::string rejected = "[error] protocol_recv(): failed to decrypt the message: 1\n";
    const std::string too_long = "[error] libzorv.dec_payload(): packet length check fail\n";
    // A text, its method and sequence, what the handlers hear of it and what is logged.
    const std::tuple<std::string, uint16_t, uint16_t, std::vector<std::string>, std::string>
        kRows[] = {
            {x, 6, 65535, {"B 6 9 4095" + id + x + " 464"}, got + x + "]\n"},
            {x + 'x', 6, 1, {}, too_long + rejected},
            {"hi", 5, 99, {"A 5 9 99" + id + "hi 16", "B 5 9 99" + id + "hi 16"}, got + "hi]\n"},
            {"again", 6, 99, {}, ""},
            {"again", 3, 99, {"A 3 9 99" + id + "again 16"}, got + "again]\n"}, // this method may
            {"nobody listens", 7, 101, {}, got + "nobody listens]\n"},
            {{"NUL\0", 4}, 6, 102, {"B 6 9 102" + id + std::string("NUL\0 3", 6)}, got + "NUL]\n"},
        };
    for (const auto &[text, method, sequence, hears, says] : kRows) {
        EXPECT_EQ(heard(peer_message(text, method, sequence)), hears);
        EXPECT_EQ(said(), says);
    }
    zorv_protocol_ctrl.key[0] ^= 1;
    EXPECT_THAT(heard(peer_message("a stranger's", 6, 200)), IsEmpty());
    EXPECT_THAT(said(), testing::EndsWith(rejected));
    EXPECT_EQ(zorv_protocol_ctrl.last_sequence, 102);
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
    EXPECT_EQ(follows("rm /run/ipready.br0"), asks);
    EXPECT_EQ(follows("ip address del 192.0.2.1/24 dev br0; ip address add 192.0.2.99/24 dev br0;"
                      "ip route add default dev br0; echo 192.0.2.99 >/run/ipready.br0"),
              mine + "192.0.2.99\n");
    EXPECT_EQ(heard(peer_message("inside again", 6, 4)).size(), 1U);
    zorv_protocol_ctrl.own_sequence = 0x123;
    ASSERT_EQ(zorv_protocol_send("hello", 5, 5, 7, 1), 56);
    const Bytes frame = next_frame(); // addresses, ports, lengths; the header
    EXPECT_EQ(to_hex(&frame[0], 6) + to_hex(&frame[26], 14) + to_hex(&frame[42], 12),
              "01005e7f5a5ac0000263efff5a5abb80bb800040223344550202001000050007");
    EXPECT_EQ(frame[22], 64);
    turn();
    EXPECT_THAT(g_heard, IsEmpty()); // nobody hears himself
    // Nobody's, and not tried twice.
    EXPECT_EQ(follows("echo 192.0.2.77 >/run/ipready.br0"),
              mine + "192.0.2.77\n[error] multicast_socket_init(): unable to set mcast local ip, " +
                  kNone + "[error] usr1_handler(): set multicast socket fail, " + kNone);
    EXPECT_EQ(follows("true"), asks);
    EXPECT_THAT(heard(peer_message("gone", 6, 5)), IsEmpty());
}

TEST_F(Site, LeavesNothingBehindWhenItStopsOrItsGroupCannotBeJoined)
{
    zorv_protocol_deinit();
    const int before = open_descriptors();
    for (uint16_t round = 1; round <= 3; ++round) {
        start();
        EXPECT_EQ(heard(peer_message("hello", 6, round)).size(), 1U);
        EXPECT_EQ(heard(peer_message("enough", 4, 9)).size(), 1U); // of the handler behind it
        EXPECT_TRUE(is_reset());
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(said(), "");
    }
    file(kSite, std::string("pluvo.key=") + kKey + "\npluvo.mcip=192.0.2.9\n");
    const std::pair<const char *, const char *> kRows[] = {
        {"192.0.2.77\n", "set mcast local ip, Cannot assign requested address\n"},
        {"192.0.2.1\n", "add membership, Invalid argument\n"},
    };
    for (const auto &[address, why] : kRows) {
        file(kAddress, address);
        EXPECT_EQ(zorv_protocol_init(1), -1);
        const std::string fail = std::string(why) +
                                 "[error] protocol_init(): set multicast socket fail" +
                                 strchr(why, ',') + kLeaving;
        EXPECT_THAT(said(), HasSubstr(fail));
        EXPECT_TRUE(is_reset());
        EXPECT_EQ(open_descriptors(), before);
    }
}
