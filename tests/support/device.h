// device.h - the throw-away device that a test runs in.
//
// main() forks for each TEST and puts the child into a device of its own: new user, mount, network,
// PID, IPC and UTS namespaces, and a root directory that nobody else sees. /etc, /tmp, /run, /var,
// /dev, /root, /usr/etc, /usr/lib and /usr/local are fresh folders, and a test may write anywhere
// in them. The programs and libraries of the build machine are symbolic links into /.host, which is
// read-only, whatever is remounted, as are the source and the build tree at their own paths. The
// loopback interface is up, there is no other. The test is root there, whoever started it, and
// /usr/local/bin comes first in PATH. All of it is gone when the test ends, processes it left
// behind included.
//
// /proc and /sys are empty folders to fill, unless the test asks for the kernel's own.
#ifndef ZORV_TESTS_SUPPORT_DEVICE_H
#define ZORV_TESTS_SUPPORT_DEVICE_H

// What most tests use besides.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorv/zorv.h>

// What most tests compare with.
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Runs work() as a process in a new device. Returns its exit status, or 128 and the number of the
// signal that ended it; 1, with the reason on standard output, when the device cannot be entered.
int run_in_device(const std::function<int()> &work);

// Passes the result of a system call on; throws std::system_error for -1.
template <class Result>
Result check(Result rc, const std::string &what)
{
    return rc != -1 ? rc : throw std::system_error(errno, std::generic_category(), what);
}

// Waits for one child. Returns its exit status, or 128 and the number of a signal.
int wait_for(pid_t child);

// Replaces a file's content.
void write_text(const std::string &path, std::string_view text);

inline void mount_at(const char *type, const std::string &path, const char *options = nullptr)
{
    const unsigned long flags =
        strcmp(type, "tmpfs") ? MS_RDONLY : 0; // the kernel's own is to be read
    check(mount(type, path.c_str(), type, flags, options), path);
}

// Each line of a text, without its newline.
std::vector<std::string> split(const std::string &text);

// A memory file whose writers append.
int memory_file(const char *name);

// The fixture. Its functions throw std::system_error, which fails the test, when the device cannot
// do what they are asked; they are static and public, so that helpers of a test file can call them.
class Device : public testing::Test {
public:
    Device();
    ~Device() override; // NOLINT(bugprone-exception-escape): which ends the test, as it shall

    // Writes a file, with the folders above it; what was there is replaced.
    static void file(const std::string &path, std::string_view text);

    // The same for an executable; the text begins with its "#!" line.
    static void script(const std::string &path, std::string_view text);

    // The whole content of a file.
    static std::string read(const std::string &path);

    // Whether something is there; a dangling link is.
    static bool exists(const std::string &path)
    {
        return std::filesystem::exists(std::filesystem::symlink_status(path));
    }

    // Removes a file or a whole folder, a device node of /dev included.
    static void remove(const std::string &path);

    // The lines that went to the stream stderr since the last call, from this process and from
    // those it forked. Log lines come without their "program[pid]: ", so that a test compares with
    // "[error] cfg.parse_stream(): ...". What a failing test did not ask for is printed.
    static std::vector<std::string> logged();

    struct Outcome {
        int status; // the exit status, or 128 and the number of the signal
        std::string output;
        std::string errors;
    };

    // Has /bin/sh run a command and waits for it. A program built with AddressSanitizer is checked
    // for leaks only where the test has kernel_proc().
    static Outcome run(const std::string &command);

    // The same for a command that prepares the test: any status but 0 throws.
    static void must_run(const std::string &command);

    // Puts the kernel's own /proc, of the device's processes, or /sys in place for the rest of the
    // test.
    static void kernel_proc() { check(umount2("/proc", MNT_DETACH), "/proc"); } // its own is below
    static void kernel_sys() { mount_at("sysfs", "/sys"); }

    // Links the kernel's folders of processes below 2000 into the /proc that the test fills, where
    // it has none of its own: sanitizers look their own process up there.
    static void kernel_processes();

    // Gives up the powers of root, so that file modes and limits hold, for the rest of the test.
    static void unprivileged() { set_powers(false); }

    // Makes a bridge br0 at 192.0.2.1/24 with a port eth0, whose other end is far0: all are up, and
    // the port forwards. Their addresses are 02:a0:f1:00:00:01 and 02:a0:f1:00:00:10.
    static void make_bridge();

    // Makes what a syslog daemon has, its file and its socket, and lets the library use it.
    static void start_syslog();

    // The next datagram at that socket, with the priority, time and tag of the C library; empty
    // when there is none.
    static std::string syslogged();

    // How many descriptors are open.
    static int open_descriptors();

private:
    static void set_powers(bool all);
};

#endif
