#include <zorv/protocol.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include <arpa/inet.h>
#include <event2/event.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/allocation.h"
#include "support/device.h"
#include "support/enter.h"

namespace {

// Datagrams of the flood; one good one comes after each hundred of them.
const long kHostile = getenv("ZORV_HOSTILE") ? atol(getenv("ZORV_HOSTILE")) : 100'000;

std::vector<std::string> g_heard; // with room, so that hearing allocates nothing
long g_next;                      // the number of the next good message
long g_wrong;                     // messages other than that one

void hear(const void *message)
{
    g_heard.emplace_back(static_cast<const char *>(message));
}

void hear_number(const void *message)
{
    (atol(static_cast<const char *>(message)) == g_next ? g_next : g_wrong)++;
}

void stop_within(const void * /*message*/)
{
    zorv_protocol_deinit();
}

constexpr zorv_protocol_handler kTable[] = {
    {hear, 1}, {hear_number, 2}, {stop_within, 4}, {hear, 4}, {nullptr, 0}};

// The transport on the loopback interface: what is sent is there when the loop turns.
class Receive : public Device {
protected:
    Receive() : base_(event_base_new()), fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        file("/var/run/zorv_protocol.info",
             "pluvo.key=000102030405060708090a0b0c0d0e0f\npluvo.mcip=239.255.90.90\n");
        check(zorv_protocol_init(1), "zorv_protocol_init");
        zorv_protocol_init_recv(base_, kTable);
        sockaddr_in here{};
        here.sin_family = AF_INET;
        here.sin_port = htons(48000);
        here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        check(connect(fd_, reinterpret_cast<const sockaddr *>(&here), sizeof here), "connect");
        g_heard.reserve(8);
        logged();
    }
    ~Receive() override
    {
        zorv_protocol_deinit();
        event_base_free(base_);
        close(fd_);
    }

    void turn() const { event_base_loop(base_, EVLOOP_ONCE | EVLOOP_NONBLOCK); }

    void deliver(const void *datagram, size_t length) const
    {
        send_here(datagram, length);
        turn();
    }

    // Delivers a message, without anything left behind.
    static size_t make(const std::string &message, uint16_t method, uint16_t sequence,
                       uint8_t (&datagram)[2000])
    {
        zorv_protocol_ctrl_t sender = zorv_protocol_ctrl;
        sender.own_sequence = sequence;
        void *const made =
            gen_payload(message.data(), static_cast<int>(message.size()), method, 0, 1, &sender);
        const auto *const bytes = static_cast<const uint8_t *>(made);
        const size_t length = 40u + static_cast<size_t>(bytes[6] << 8 | bytes[7]);
        memcpy(datagram, made, length);
        free(made);
        return length;
    }

    // Sends without turning the loop.
    void send_here(const void *datagram, size_t length) const
    {
        check(send(fd_, datagram, length, 0), "send");
    }

private:
    event_base *base_;
    int fd_;
};

TEST_F(Receive, ATextEndsWhateverTheSenderDoes)
{
    libzorv_log_level = 8;
    uint8_t datagram[2000];
    const std::string longest(463, 'x');
    deliver(datagram, make(longest, 1, 1, datagram)); // fills the room before
    deliver(datagram, make("hello", 1, 2, datagram));
    deliver(datagram, make(std::string("with a NUL") + '\0', 1, 3, datagram));
    EXPECT_THAT(g_heard, ElementsAre(longest + '\1', "hello" + std::string(11, 11), "with a NUL"));
    EXPECT_THAT(logged(),
                ElementsAre("[debug] zorv_protocol.zorv_protocol_recv(): [" + longest + "]",
                            "[debug] zorv_protocol.zorv_protocol_recv(): [hello]",
                            "[debug] zorv_protocol.zorv_protocol_recv(): [with a NUL]"));
}

TEST_F(Receive, AHandlerMayShutTheTransportDown)
{
    uint8_t datagram[2000];
    deliver(datagram, make("enough", 4, 1, datagram));
    EXPECT_EQ(g_heard.size(), 1u); // the handler behind it in the table
    EXPECT_EQ(zorv_protocol_ctrl.fd, -1);
    EXPECT_EQ(zorv_protocol_ctrl.last_sequence, 0);
}

TEST_F(Receive, AnErrorOfTheSocketIsLoggedAndSpuriousWakeUpsAreNot)
{
    const int socket = zorv_protocol_ctrl.fd;
    const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
    uint8_t datagram[2000];
    send_here(datagram, make("lost", 1, 1, datagram));
    ASSERT_EQ(recv(socket, datagram, sizeof datagram, 0), 56); // another reader was faster
    turn();
    EXPECT_THAT(logged(), testing::IsEmpty());
    send_here(datagram, 1);
    const int kept = fcntl(socket, F_DUPFD_CLOEXEC, 0); // so that the loop still sees the datagram
    check(dup2(file, socket), "dup2");
    turn();
    EXPECT_THAT(logged(),
                ElementsAre("[error] zorv_protocol.zorv_protocol_recv(): recvfrom failed: "
                            "Socket operation on non-socket"));
    check(dup2(kept, socket), "dup2");
    close(kept);
    close(file);
}

long resident_pages()
{
    const std::string text = Device::read("/proc/self/statm");
    return atol(text.c_str() + text.find(' '));
}

// Noise of any length, a good datagram with a bit flipped or under another key, or the last one
// again.
size_t make_hostile(std::mt19937 &random, long number, const uint8_t *good, size_t good_length,
                    uint8_t (&datagram)[2000])
{
    memcpy(datagram, good, good_length);
    switch (number % 4) {
    case 0:
        for (uint8_t &byte : datagram)
            byte = static_cast<uint8_t>(random());
        return random() % (sizeof datagram + 1);
    case 1: {
        const size_t bit = size_t{40} * 8 + random() % ((good_length - 40) * 8);
        datagram[bit / 8] = static_cast<uint8_t>(datagram[bit / 8] ^ 1 << bit % 8);
        datagram[34] = static_cast<uint8_t>(datagram[34] ^ 0x80); // no duplicate
        return good_length;
    }
    case 2:
        datagram[34] = static_cast<uint8_t>(datagram[34] ^ 0x80);
        datagram[12] ^= 1;
        return good_length;
    default:
        return good_length;
    }
}

TEST_F(Receive, AFloodHidesNoGoodMessage)
{
    kernel_proc();
    libzorv_log_level = 0;
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same datagrams in every run
    std::mt19937 random(3);
    uint8_t good[2000], datagram[2000];
    size_t length = make("0", 2, 1, good);
    deliver(good, length);
    const int descriptors = open_descriptors();
    long pages = 0;
    for (long number = 1; number <= kHostile; ++number) {
        const long before = allocations();
        deliver(datagram, make_hostile(random, number, good, length, datagram));
        if (number % 100 == 0) {
            length = make(std::to_string(number / 100), 2,
                          static_cast<uint16_t>(number / 100 % 0xfff + 1), good);
            const long made = allocations();
            deliver(good, length);
            ASSERT_EQ(allocations(), made);
        } else {
            ASSERT_EQ(allocations(), before);
        }
        if (number == kHostile / 10)
            pages = resident_pages();
    }
    EXPECT_EQ(g_next, kHostile / 100 + 1);
    EXPECT_EQ(g_wrong, 0);
    EXPECT_LE(resident_pages() - pages, 256);
    EXPECT_EQ(open_descriptors(), descriptors);
}

} // namespace
