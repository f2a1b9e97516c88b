#include "support/enter.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <linux/magic.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// Folders of the device's own, in the order of their making.
const char *const kFolders[] = {
    "/dev",     "/dev/shm", "/etc",     "/etc/ssl", "/etc/ssl/certs", "/proc",
    "/root",    "/run",     "/sys",     "/tmp",     "/var",           "/var/log",
    "/var/tmp", "/usr",     "/usr/etc", "/usr/lib", "/usr/local",     "/usr/local/bin",
};

// Folders whose other entries are those of the build machine.
const char *const kMerged[] = {"/", "/usr", "/usr/lib"};

const char *const kNodes[] = {"null", "zero", "full", "random", "urandom", "tty"};

// What programs need of the build machine's /etc, where it has it.
const char *const kShared[] = {
    "/etc/alternatives", "/etc/ld.so.cache", "/etc/ld.so.conf",      "/etc/ld.so.conf.d",
    "/etc/protocols",    "/etc/services",    "/etc/ssl/openssl.cnf",
};

constexpr struct {
    const char *path;
    const char *text;
} kFiles[] = {
    {"/etc/passwd", "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/false\n"},
    {"/etc/group", "root:x:0:\nnogroup:x:65534:\n"},
    {"/etc/hosts", "127.0.0.1 localhost\n::1 localhost\n127.0.1.1 device\n"},
    {"/etc/nsswitch.conf", "passwd: files\ngroup: files\nhosts: files dns\nservices: files\n"},
    {"/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n"},
};

// The folder that a build for coverage counts in: the only one outside that a device may write.
constexpr char kProfile[] = "GCOV_PREFIX";

// What a test keeps of the environment it was started in.
const char *const kVariables[] = {
    "ASAN_OPTIONS", "LSAN_OPTIONS",   "UBSAN_OPTIONS", "LD_LIBRARY_PATH",
    "GTEST_COLOR",  "QEMU_LD_PREFIX", kProfile,
};

constexpr char kHost[] = "/.host"; // the build machine's root

std::string on_host(const std::string &path)
{
    return kHost + path;
}

void unshare_all()
{
    const auto uid = std::to_string(getuid()), gid = std::to_string(getgid());
    const int flags = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;
    if (unshare(flags | CLONE_NEWUSER) == 0) {
        write_text("/proc/self/setgroups", "deny");
        write_text("/proc/self/uid_map", "0 " + uid + " 1");
        write_text("/proc/self/gid_map", "0 " + gid + " 1");
        check(prctl(PR_SET_DUMPABLE, 1), "PR_SET_DUMPABLE"); // LeakSanitizer traces the process
    } else {
        // Root does without. In a user-mode emulator it has to: that has a thread of its own, and a
        // process with threads gets no user namespace.
        check(unshare(flags), "unshare");
    }
}

// Makes a path of the build machine valid in the device, where it is not yet.
void expose(const fs::path &path)
{
    if (fs::exists(fs::symlink_status(path)))
        return;
    fs::create_directories(path.parent_path());
    fs::create_symlink(on_host(path), path);
}

void make_root()
{
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "MS_PRIVATE");
    mount_at("tmpfs", "/tmp", "mode=755");
    check(chdir("/tmp"), "/tmp");
    check(mkdir(kHost + 1, 0755), kHost); // relative, for now
    check(syscall(SYS_pivot_root, ".", kHost + 1), "pivot_root");
    check(chdir("/"), "/");
}

void make_read_only()
{
    mount_attr attributes = {};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    if (syscall(SYS_mount_setattr, -1, kHost, AT_RECURSIVE, &attributes, sizeof attributes) == 0)
        return;
    // An emulator that lacks the call: then the one file system that the links lead into.
    check(mount(nullptr, kHost, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | MS_RELATIME, nullptr),
          kHost);
}

void make_nodes()
{
    for (const std::string node : kNodes) {
        const std::string path = "/dev/" + node;
        write_text(path, "");
        check(mount(on_host(path).c_str(), path.c_str(), nullptr, MS_BIND, nullptr), path);
    }
}

void expose_profile()
{
    const char *const path = getenv(kProfile);
    if (!path)
        return;
    fs::create_directories(path);
    check(mount(on_host(path).c_str(), path, nullptr, MS_BIND, nullptr), path);
    mount_attr attributes = {}; // it may lie in what is read-only
    attributes.attr_clr = MOUNT_ATTR_RDONLY;
    syscall(SYS_mount_setattr, AT_FDCWD, path, 0, &attributes, sizeof attributes);
}

void make_folders()
{
    for (const auto folder : kFolders)
        check(mkdir(folder, 0755), folder);
    for (const auto folder : {"/tmp", "/var/tmp", "/dev/shm"})
        check(chmod(folder, 01777), folder);
    fs::create_symlink("/run", "/var/run");
    for (const fs::path folder : kMerged)
        for (const auto &entry : fs::directory_iterator(on_host(folder)))
            expose(folder / entry.path().filename());
    for (const auto path : kShared)
        expose(path);
    for (const auto &[path, text] : kFiles)
        write_text(path, text);
    expose(ZORV_SOURCE_DIR);
    expose(ZORV_BUILD_DIR);
}

void raise_loopback()
{
    ifreq request = {};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const int fd = static_cast<int>(check(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    check(ioctl(fd, SIOCSIFFLAGS, &request), "lo");
    close(fd);
}

void clean_environment()
{
    std::vector<std::pair<const char *, std::string>> kept = {
        {"PATH", "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"},
        {"HOME", "/root"},
        {"LC_ALL", "C.UTF-8"},
        {"TZ", "UTC"},
    };
    for (const auto name : kVariables)
        if (const char *value = getenv(name))
            kept.emplace_back(name, value);
    clearenv();
    for (const auto &[name, value] : kept)
        setenv(name, value.c_str(), 1);
}

// In the first process of the new PID namespace.
void make_device()
{
    umask(022);
    make_root();
    make_folders();
    make_nodes();
    make_read_only();
    expose_profile();
    mount_at("proc", "/proc");
    mount_at("tmpfs", "/proc", "mode=755");
    mount_at("tmpfs", "/sys", "mode=755");
    raise_loopback();
    check(sethostname("device", 6), "sethostname");
    clean_environment();
}

// The kernel's own /proc again, which sanitizers look into at exit.
void uncover_proc()
{
    struct statfs info;
    while (statfs("/proc", &info) == 0 && info.f_type != PROC_SUPER_MAGIC &&
           umount2("/proc", MNT_DETACH) == 0)
        ;
}

} // namespace

// AddressSanitizer calls this before it writes a report, whose symbols it looks up by /proc.
extern "C" void __asan_on_error() // NOLINT(bugprone-reserved-identifier,cert-dcl*): its name
{
    uncover_proc();
}

namespace {

[[noreturn]] void be_init(const std::function<int()> &work)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // takes the whole device along
    make_device();
    const auto child = static_cast<pid_t>(check(fork(), "fork"));
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int status = work();
        uncover_proc();
        exit(status);
    }
    for (;;) { // orphans of the test come here to be reaped
        int status = 0;
        if (check(wait(&status), "wait") == child)
            _exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
    }
}

[[noreturn]] void enter(const std::function<int()> &work)
{
    try {
        unshare_all();
        prctl(PR_SET_PDEATHSIG, SIGKILL); // behind it, for a change of credentials forgets it
        const auto init = static_cast<pid_t>(check(fork(), "fork"));
        if (init == 0)
            be_init(work);
        _exit(wait_for(init));
    } catch (const std::exception &error) {
        printf("cannot enter the device: %s\n", error.what());
        fflush(stdout);
        _exit(1);
    }
}

} // namespace

long check(long rc, const std::string &what)
{
    if (rc == -1)
        throw std::system_error(errno, std::generic_category(), what);
    return rc;
}

int wait_for(pid_t child)
{
    int status = 0;
    check(waitpid(child, &status, 0), "waitpid");
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void write_text(const std::string &path, std::string_view text)
{
    std::ofstream stream(path, std::ios::binary);
    stream << text << std::flush;
    check(stream ? 0 : -1, path);
}

void mount_at(const char *type, const std::string &path, const char *options)
{
    check(mount(type, path.c_str(), type, 0, options), path);
}

int run_in_device(const std::function<int()> &work)
{
    fflush(nullptr);
    const auto outer = static_cast<pid_t>(check(fork(), "fork"));
    if (outer == 0)
        enter(work);
    return wait_for(outer);
}
