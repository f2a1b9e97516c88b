#include "support/device.h"

#include <iterator>
#include <stdexcept>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/un.h>

namespace fs = std::filesystem;

namespace {

// What the log and other writers of the stream stderr have written. The descriptor 2 stays as it
// is, for the reports of sanitizers and for programs.
struct {
    FILE *terminal; // the stream that stderr was
    FILE *stream;   // the stream that it is while a test runs
    off_t read;     // bytes that logged() has returned
} g_log;

int g_syslog = -1; // the socket of start_syslog()

std::string read_from(int fd, off_t offset)
{
    const long size = check(lseek(fd, 0, SEEK_END), "lseek") - offset;
    std::string text(static_cast<size_t>(size), '\0');
    check(pread(fd, text.data(), text.size(), offset), "read");
    return text;
}

} // namespace

std::vector<std::string> split(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

int memory_file(const char *name)
{
    const int fd = check(memfd_create(name, MFD_CLOEXEC), "memfd_create");
    check(fcntl(fd, F_SETFL, O_APPEND), "F_SETFL");
    return fd;
}

// Effective capabilities: all that are permitted, or none.
void Device::set_powers(bool all)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    check(syscall(SYS_capget, &header, data), "capget");
    for (auto &word : data)
        word.effective = all ? word.permitted : 0;
    check(syscall(SYS_capset, &header, data), "capset");
}

Device::Device()
{
    libzorv_log_use_syslog = 0;
    g_log = {stderr, fdopen(memory_file("log"), "w"), 0};
    setvbuf(g_log.stream, nullptr, _IONBF, 0);
    stderr = g_log.stream;
}

Device::~Device() // NOLINT(bugprone-exception-escape)
{
    set_powers(true);
    if (HasFailure())
        for (const auto &line : logged())
            printf("log: %s\n", line.c_str());
    stderr = g_log.terminal;
    fclose(g_log.stream);
}

void Device::file(const std::string &path, std::string_view text)
{
    if (const auto folder = fs::path(path).parent_path(); !folder.empty())
        fs::create_directories(folder);
    write_text(path, text);
}

void Device::script(const std::string &path, std::string_view text)
{
    file(path, text);
    check(chmod(path.c_str(), 0755), path);
}

std::string Device::read(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        throw std::system_error(errno, std::generic_category(), path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void Device::remove(const std::string &path)
{
    umount2(path.c_str(), UMOUNT_NOFOLLOW); // mostly there is no mount
    fs::remove_all(path);
}

std::vector<std::string> Device::logged()
{
    const std::string text = read_from(fileno(g_log.stream), g_log.read);
    g_log.read += static_cast<off_t>(text.size());
    const std::regex program("^" + std::string(program_invocation_short_name) + "\\[[0-9]+\\]: ");
    std::vector<std::string> lines = split(text);
    for (std::string &line : lines)
        line = std::regex_replace(line, program, "", std::regex_constants::format_first_only);
    return lines;
}

Device::Outcome Device::run(const std::string &command)
{
    const int output = memory_file("output");
    const int errors = memory_file("errors");
    const pid_t child = check(fork(), "fork");
    if (child == 0) {
        dup2(output, 1);
        dup2(errors, 2);
        if (!exists("/proc/self")) // then LeakSanitizer gives up at exit
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    Outcome outcome = {wait_for(child), read_from(output, 0), read_from(errors, 0)};
    close(output);
    close(errors);
    return outcome;
}

void Device::must_run(const std::string &command)
{
    const Outcome outcome = run(command);
    if (outcome.status != 0)
        throw std::runtime_error(command + ": status " + std::to_string(outcome.status) + ", " +
                                 outcome.output + outcome.errors);
}

void Device::kernel_processes()
{
    const std::string kernel = "/run/kernel-proc";
    fs::create_directory(kernel);
    mount_at("proc", kernel);
    fs::create_symlink(kernel + "/self", "/proc/self");
    for (int pid = 1; pid < 2000; ++pid) { // more than a test starts
        const std::string name = "/" + std::to_string(pid);
        if (!exists("/proc" + name))
            fs::create_symlink(kernel + name, "/proc" + name);
    }
}

void Device::make_bridge()
{
    must_run("ip link add br0 address 02:a0:f1:00:00:01 type bridge &&"
             "ip addr add 192.0.2.1/24 dev br0 &&"
             "ip link add eth0 address 02:a0:f1:00:00:10 type veth peer name far0 &&"
             "ip link set eth0 master br0 &&"
             "ip link set eth0 up && ip link set far0 up && ip link set br0 up &&"
             "until bridge link show dev eth0 | grep -q 'state forwarding'; do :; done");
}

void Device::start_syslog()
{
    libzorv_log_use_syslog = 1;
    file("/var/log/messages", "");
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    const int type = SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
    g_syslog = check(socket(AF_UNIX, type, 0), "socket");
    check(bind(g_syslog, reinterpret_cast<const sockaddr *>(&address), sizeof address), "/dev/log");
}

std::string Device::syslogged()
{
    char datagram[4096];
    const ssize_t size = recv(g_syslog, datagram, sizeof datagram, 0);
    return {datagram, size > 0 ? static_cast<size_t>(size) : 0};
}

int Device::open_descriptors()
{
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd)
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    return count;
}
