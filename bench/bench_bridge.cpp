// Looking up the last address of a bridge that has learned 10,000, in a network namespace of its
// own, against a read of the whole table in records, as a plain reader would. The kernel begins at
// the front of its table for each read, so many small ones are dear.
#include "ratio.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <strings.h>
#include <sys/mount.h>
#include <unistd.h>
#include <zorv/bridge.h>

namespace {

constexpr char kTable[] = "/sys/class/net/br0/brforward";
constexpr char kAbsent[] = "02:A0:F1:FF:FF:FF"; // so that all is read

void must(bool holds, const char *what)
{
    if (holds)
        return;
    perror(what);
    exit(1);
}

void write_file(const char *path, const std::string &text)
{
    FILE *const file = fopen(path, "we");
    must(file && fputs(text.c_str(), file) >= 0 && fclose(file) == 0, path);
}

// Whoever runs this is root in there; nothing of it outlives the process.
void enter_namespaces()
{
    const std::string user = std::to_string(getuid()), group = std::to_string(getgid());
    must(unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) == 0, "unshare");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + user + " 1");
    write_file("/proc/self/gid_map", "0 " + group + " 1");
    must(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount /");
    must(mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0, "mount /sys");
}

void make_bridge(long addresses)
{
    // NOLINTBEGIN(cert-env33-c): iproute2's programs, with words of our own
    must(system("ip link add br0 type bridge && ip link add eth0 type veth peer name far0 &&"
                "ip link set eth0 master br0 && ip link set eth0 up && "
                "ip link set far0 up && ip link set br0 up &&"
                "until bridge link show dev eth0 | grep -q 'state forwarding'; do :; done") == 0,
         "ip");
    FILE *const batch = popen("bridge -batch -", "w");
    // NOLINTEND(cert-env33-c)
    must(batch, "bridge");
    for (long i = 0; i < addresses; ++i)
        fprintf(batch, "fdb add 02:a0:f1:00:%02lx:%02lx dev eth0 master dynamic\n", i >> 8,
                i & 0xff);
    must(pclose(batch) == 0, "bridge");
}

void look_up(benchmark::State &state, long)
{
    for ([[maybe_unused]] const auto _ : state)
        benchmark::DoNotOptimize(get_mac_brinfo("br0", kAbsent, nullptr, nullptr));
}

void read_records(benchmark::State &state, long)
{
    for ([[maybe_unused]] const auto _ : state) {
        const int table = open(kTable, O_RDONLY | O_CLOEXEC);
        unsigned char record[16];
        while (read(table, record, sizeof record) == sizeof record) {
            char text[18];
            snprintf(text, sizeof text, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", record[0], record[1],
                     record[2], record[3], record[4], record[5]);
            benchmark::DoNotOptimize(strcasecmp(text, kAbsent));
        }
        close(table);
    }
}

} // namespace

void register_benches()
{
    enter_namespaces();
    make_bridge(10000);
    bench::add("lookup in a bridge's table", {10000}, "zorv", look_up);
    bench::add("lookup in a bridge's table", {10000}, "record by record", read_records);
}
