#include "protocol/appliance.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <arpa/inet.h>
#include <event2/event.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorv/protocol.h>

#include "support/device.h"
#include "support/enter.h"

namespace {

constexpr timeval kPatience{10, 0}; // beyond it something is broken

constexpr char kKernel[] = "/run/kernel"; // where the kernel's own /proc is mounted

int g_orders, g_reports; // the appliance's ends
event_base *g_base;
in_addr_t g_group;

void give_patience(int fd)
{
    check(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience), "SO_RCVTIMEO");
}

void tell(int fd, const std::string &text)
{
    check(send(fd, text.data(), text.size(), MSG_NOSIGNAL), "tell " + text);
}

std::string hear(int fd, const char *what)
{
    char text[1024];
    const long length = check(recv(fd, text, sizeof text, 0), what);
    return {text, static_cast<size_t>(length)};
}

// Waits until an interface can send.
void wait_running(const std::string &name)
{
    Device::must_run("timeout 10 sh -c 'until ip -o link show dev " + name +
                     " | grep -q \"state UP\"; do :; done'");
}

void report_message(char handler, const void *message)
{
    zorv_protocol_header header;
    memcpy(&header, static_cast<const char *>(message) - sizeof header, sizeof header);
    char text[1024];
    const auto *const mac = header.device;
    snprintf(text, sizeof text, "%c %d %d %d %02x%02x%02x%02x%02x%02x %.*s", handler, header.method,
             header.type, header.sequence, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5],
             header.length, static_cast<const char *>(message));
    tell(g_reports, text);
}

void handle_a(const void *message)
{
    report_message('A', message);
}

void handle_b(const void *message)
{
    report_message('B', message);
}

constexpr zorv_protocol_handler kTable[] = {
    {handle_a, 5}, {handle_b, 6}, {handle_b, 5}, {handle_a, 3}, {nullptr, 0}, {handle_a, 7},
};

int count_groups()
{
    std::ifstream table(kKernel + std::string("/net/igmp"));
    char hex[9];
    snprintf(hex, sizeof hex, "%08X", g_group);
    std::string line, device;
    int count = 0;
    while (std::getline(table, line)) {
        if (line[0] != '\t')
            device = line;
        else if (line.find(hex) != std::string::npos && device.find("br0") != std::string::npos)
            ++count;
    }
    return count;
}

long count_descriptors()
{
    const std::filesystem::directory_iterator folder(kKernel + std::string("/self/fd"));
    return std::distance(begin(folder), end(folder));
}

std::string do_order(const std::string &verb, std::istringstream &words)
{
    unsigned first = 0, second = 0;
    if (verb == "run") {
        std::string command;
        std::getline(words, command);
        const auto outcome = Device::run(command);
        return std::to_string(outcome.status);
    }
    words >> first >> second >> std::ws;
    if (verb == "init") {
        const int rc = zorv_protocol_init(static_cast<int>(first));
        if (rc == 0)
            zorv_protocol_init_recv(g_base, kTable);
        return std::to_string(rc);
    }
    if (verb == "send") {
        std::string text;
        std::getline(words, text);
        return std::to_string(zorv_protocol_send(text.data(), static_cast<unsigned>(text.size()),
                                                 static_cast<uint16_t>(first),
                                                 static_cast<uint16_t>(second), 1));
    }
    if (verb == "sequence")
        return std::to_string(zorv_protocol_ctrl.own_sequence = static_cast<uint16_t>(first));
    if (verb == "deinit")
        return zorv_protocol_deinit(), "";
    if (verb == "groups")
        return std::to_string(count_groups());
    if (verb == "last")
        return std::to_string(zorv_protocol_ctrl.last_sequence);
    return std::to_string(count_descriptors()); // "descriptors"
}

void take_order(evutil_socket_t /*fd*/, short /*what*/, void * /*unused*/)
{
    char text[1024];
    const ssize_t length = recv(g_orders, text, sizeof text, 0);
    if (length <= 0) { // the test is over
        event_base_loopbreak(g_base);
        return;
    }
    std::istringstream words(std::string(text, static_cast<size_t>(length)));
    std::string verb;
    words >> verb;
    tell(g_orders, do_order(verb, words) + " ");
}

void report_signal(evutil_socket_t /*signal*/, short /*what*/, void * /*unused*/)
{
    tell(g_reports, "signalled");
}

// In the new namespaces, when the cable is in.
void set_up(const Appliance::Settings &settings)
{
    Device::must_run("ip link set lo up && ip link add br0 type bridge mcast_snooping 0 && "
                     "ip link set eth0 up master br0 && ip link set br0 up && "
                     "ip address add " +
                     settings.address +
                     "/24 dev br0 && "
                     "ip route add default dev br0");
    wait_running("br0");
    mount_at("tmpfs", "/run");
    mount_at("tmpfs", "/proc");
    Device::file("/proc/zorvhal/system.info", "serialno=" + settings.serial + "\n");
    Device::must_run(std::string("mkdir ") + kKernel);
    mount_at("proc", kKernel);
    Device::file("/run/zorv_protocol.info",
                 "pluvo.key=" + settings.key + "\npluvo.mcip=" + settings.group + "\n");
    Device::file("/run/ipready.br0", settings.address + "\n");
}

int run_appliance(const Appliance::Settings &settings)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    check(unshare(CLONE_NEWNET | CLONE_NEWNS), "unshare");
    tell(g_orders, "unshared");
    hear(g_orders, "the cable");
    set_up(settings);
    g_group = inet_addr(settings.group.c_str());
    g_base = event_base_new();
    event_base_priority_init(g_base, 3);
    event *const orders = event_new(g_base, g_orders, EV_READ | EV_PERSIST, take_order, nullptr);
    event *const signal =
        event_new(g_base, SIGUSR1, EV_SIGNAL | EV_PERSIST, report_signal, nullptr);
    event_priority_set(signal, 2); // behind the transport's
    event_add(orders, nullptr);
    event_add(signal, nullptr);
    tell(g_orders, "ready");
    event_base_dispatch(g_base);
    zorv_protocol_deinit();
    event_free(orders);
    event_free(signal);
    event_base_free(g_base);
    return testing::Test::HasFailure() ? 1 : 0;
}

} // namespace

void make_switch()
{
    Device::must_run("ip link add switch type bridge mcast_snooping 0 && ip link set switch up");
}

Appliance::Appliance(const Settings &settings)
{
    int orders[2], reports[2];
    check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, orders), "socketpair");
    check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, reports), "socketpair");
    pid_ = static_cast<pid_t>(check(fork(), "fork"));
    if (pid_ == 0) {
        close(orders[0]);
        close(reports[0]);
        g_orders = orders[1];
        g_reports = reports[1];
        try {
            _exit(run_appliance(settings));
        } catch (const std::exception &failure) {
            fprintf(stderr, "%s: %s\n", settings.name.c_str(), failure.what());
            _exit(1);
        }
    }
    close(orders[1]);
    close(reports[1]);
    orders_ = orders[0];
    reports_ = reports[0];
    give_patience(orders_);
    give_patience(reports_);
    hear(orders_, "unshared");
    Device::must_run("ip link add " + settings.name + " type veth peer name eth0 netns " +
                     std::to_string(pid_) + " && ip link set " + settings.name +
                     " up master switch");
    tell(orders_, "cable");
    hear(orders_, "ready");
    wait_running(settings.name);
}

Appliance::~Appliance()
{
    close(orders_);
    close(reports_);
    int status = 0;
    waitpid(pid_, &status, 0);
    EXPECT_EQ(status, 0) << "an appliance ended badly";
}

std::string Appliance::order(const std::string &words) const
{
    tell(orders_, words);
    std::string answer = hear(orders_, words.c_str());
    answer.pop_back(); // an answer is never empty on the way
    return answer;
}

std::string Appliance::report() const
{
    return hear(reports_, "a report");
}

void Appliance::change_address() const
{
    kill(pid_, SIGUSR1);
    EXPECT_EQ(report(), "signalled");
}
