// zorv-wire - a poor cable between two interfaces: zorv-wire ONE OTHER MILLISECONDS PERCENT
//
// Each frame that one of them receives leaves by the other, so many milliseconds later; so many of
// a hundred are lost. It says "ready" when it is laid, and ends when one of the interfaces is gone.
//
// The kernel's own means (tc-netem(8)) is an option that many kernels are built without.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr size_t kFrameSize = 65536 + 256; // as large as offloading makes them, and their header
constexpr size_t kMostFrames = 4096;       // on their way; what comes on top is lost

int64_t now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

// A socket for all frames that an interface receives. They bring a header that tells what is left
// for the hardware to do (checksums, cutting to size), and go out with the same, see packet(7).
int open_end(const char *interface)
{
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    const int on = 1;
    if (fd < 0 || address.sll_ifindex == 0 ||
        setsockopt(fd, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0 ||
        setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        perror(interface);
        exit(1);
    }
    return fd;
}

struct Frame {
    int64_t due;
    int to;
    std::vector<char> bytes;
};

class Wire {
public:
    Wire(int one, int other, int64_t delay, unsigned percent)
        : ends_{{one, POLLIN, 0}, {other, POLLIN, 0}}, delay_(delay), percent_(percent)
    {
    }

    // Until an interface is gone.
    void run()
    {
        for (;;) {
            const int64_t wait = frames_.empty() ? -1 : frames_.front().due - now();
            if (poll(ends_, 2, frames_.empty() ? -1 : static_cast<int>(wait < 0 ? 0 : wait)) < 0)
                continue; // a signal
            for (int i = 0; i < 2; ++i) {
                if (ends_[i].revents & (POLLERR | POLLHUP))
                    return;
                if (ends_[i].revents & POLLIN)
                    take(ends_[i].fd, ends_[1 - i].fd);
            }
            for (; !frames_.empty() && frames_.front().due <= now(); frames_.pop_front()) {
                const Frame &frame = frames_.front(); // what cannot be sent is lost
                static_cast<void>(!write(frame.to, frame.bytes.data(), frame.bytes.size()));
            }
        }
    }

private:
    void take(int from, int to)
    {
        for (;;) {
            const ssize_t size = read(from, buffer_, sizeof buffer_);
            if (size <= 0)
                return;
            // The same losses each time: nothing seeds them.
            if (drand48() * 100 < percent_ || frames_.size() == kMostFrames)
                continue;
            frames_.push_back({now() + delay_, to, {buffer_, buffer_ + size}});
        }
    }

    pollfd ends_[2];
    int64_t delay_;
    unsigned percent_;
    std::deque<Frame> frames_; // by the time they are due: the delay is one for all
    char buffer_[kFrameSize];
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5)
        return 2;
    const int one = open_end(argv[1]);
    const int other = open_end(argv[2]);
    static Wire wire(one, other, atoi(argv[3]), static_cast<unsigned>(atoi(argv[4])));
    puts("ready");
    if (!freopen("/dev/null", "w", stdout) || dup2(STDOUT_FILENO, STDERR_FILENO) < 0)
        return 1; // who waits for the end of what is said here would wait for the site's
    wire.run();
}
