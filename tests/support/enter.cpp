// The way into a throw-away device.

#include "support/device.h"

#include <linux/magic.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/vfs.h>

namespace fs = std::filesystem;

namespace {

// Folders of the device's own.
const char *const kFolders[] = {
    "/.dev", "/dev/shm", "/etc/ssl/certs", "/proc",    "/root",    "/run",           "/sys",
    "/tmp",  "/var/log", "/var/tmp",       "/usr/etc", "/usr/lib", "/usr/local/bin",
};

// What programs need of the build machine's /etc, where it has it.
const char *const kShared[] = {
    "/etc/alternatives", "/etc/ld.so.cache", "/etc/ld.so.conf",      "/etc/ld.so.conf.d",
    "/etc/protocols",    "/etc/services",    "/etc/ssl/openssl.cnf",
};

const std::pair<const char *, const char *> kFiles[] = {
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

const std::string kHost = "/.host"; // the build machine's root

// Makes a path of the build machine valid in the device, where it is not yet.
void expose(const fs::path &path)
{
    if (fs::exists(fs::symlink_status(path)))
        return;
    fs::create_directories(path.parent_path());
    fs::create_symlink(kHost + path.string(), path);
}

// Shows a path of the build machine's at another, without some of the limits of make_root().
void show(const std::string &path, const std::string &place, unsigned long allowed)
{
    mount_attr without = {0, allowed, 0, 0};
    check(mount((kHost + path).c_str(), place.c_str(), nullptr, MS_BIND, nullptr), path);
    syscall(SYS_mount_setattr, AT_FDCWD, place.c_str(), 0, &without, sizeof without);
}

void make_files()
{
    for (const auto folder : kFolders)
        fs::create_directories(folder);
    for (const auto folder : {"/tmp", "/var/tmp", "/dev/shm"})
        check(chmod(folder, 01777), folder);
    fs::create_symlink("/run", "/var/run");
    for (const fs::path folder :
         {"/", "/usr", "/usr/lib"}) // others of theirs are as they are there
        for (const auto &entry : fs::directory_iterator(kHost + folder.string()))
            expose(folder / entry.path().filename());
    for (const auto path : kShared)
        expose(path);
    for (const auto &[path, text] : kFiles)
        write_text(path, text);
    expose(ZORV_SOURCE_DIR);
    expose(ZORV_BUILD_DIR);
    for (const std::string node : {"null", "zero", "full", "random", "urandom", "tty"}) {
        write_text("/.dev/" + node, "");
        show("/dev/" + node, "/.dev/" + node, MOUNT_ATTR_NODEV);
        fs::create_symlink("/.dev/" + node, "/dev/" + node);
    }
    if (const char *const path = getenv(kProfile)) {
        fs::create_directories(path);
        show(path, path, MOUNT_ATTR_RDONLY);
    }
}

// The root. Nothing of the build machine can be written, nor its devices opened. The device gets
// but a copy of these mounts, in a user namespace below: there the kernel holds on to their limits.
void make_root()
{
    umask(022);
    mount_attr limits = {MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV, 0, 0, 0};
    const unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY | MS_RELATIME;
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "MS_PRIVATE");
    if (syscall(SYS_mount_setattr, -1, "/", AT_RECURSIVE, &limits, sizeof limits) != 0)
        // An emulator that lacks the call: then the one file system that the links lead into.
        check(mount(nullptr, "/", nullptr, flags, nullptr), "/");
    mount_at("tmpfs", "/tmp", "mode=755");
    fs::create_directory("/tmp" + kHost);
    check(syscall(SYS_pivot_root, "/tmp", ("/tmp" + kHost).c_str()), "pivot_root");
    check(chdir("/"), "/");
    make_files();
}

// In the first process of the new PID namespace.
void make_device()
{
    mount_at("proc", "/proc");
    mount_at("tmpfs", "/proc", "mode=755");
    mount_at("tmpfs", "/sys", "mode=755");
    check(sethostname("device", 6), "sethostname");
    std::map<std::string, std::string> kept = {
        {"PATH", "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"},
        {"HOME", "/root"},
        {"LC_ALL", "C.UTF-8"},
        {"TZ", "UTC"},
    };
    for (const auto name : kVariables)
        if (const char *value = getenv(name))
            kept[name] = value;
    clearenv();
    for (const auto &[name, value] : kept)
        setenv(name.c_str(), value.c_str(), 1);
    check(system("ip link set lo up") == 0 ? 0 : -1, "lo"); // NOLINT(cert-env33-c)
}

// The kernel's own /proc again, which sanitizers look into at exit.
void uncover_proc()
{
    struct statfs info;
    while (statfs("/proc", &info) == 0 && info.f_type != PROC_SUPER_MAGIC &&
           umount2("/proc", MNT_DETACH) == 0)
        ;
}

int shown_status(int status)
{
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

[[noreturn]] void be_init(const std::function<int()> &work)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // takes the whole device along
    make_device();
    const pid_t child = check(fork(), "fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int status = work();
        uncover_proc();
        exit(status);
    }
    int status = 0;
    while (check(wait(&status), "wait") != child)
        ; // orphans of the test come here to be reaped
    _exit(shown_status(status));
}

// Into new namespaces, as root of one for users; self is this process in a /proc that can be
// written.
void unshare_as_root(int flags, int self)
{
    const auto uid = std::to_string(geteuid()), gid = std::to_string(getegid());
    if (unshare(flags | CLONE_NEWUSER) == 0) {
        for (const auto &[name, text] : {std::pair{"setgroups", std::string("deny")},
                                         {"uid_map", "0 " + uid + " 1"},
                                         {"gid_map", "0 " + gid + " 1"}}) {
            const int fd = check(openat(self, name, O_WRONLY | O_CLOEXEC), name);
            check(write(fd, text.data(), text.size()), name);
            close(fd);
        }
        check(prctl(PR_SET_DUMPABLE, 1), "PR_SET_DUMPABLE"); // LeakSanitizer traces the process
    } else {
        // Root does without. In a user-mode emulator it has to: that has a thread of its own, and a
        // process with threads gets no user namespace.
        check(unshare(flags), "unshare");
    }
}

[[noreturn]] void enter(const std::function<int()> &work)
{
    try {
        const int self = check(open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC), "/proc");
        unshare_as_root(CLONE_NEWNS, self);
        make_root();
        unshare_as_root(CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS,
                        self);
        close(self);                      // it is of a mount without limits
        prctl(PR_SET_PDEATHSIG, SIGKILL); // behind it, for a change of credentials forgets it
        const pid_t init = check(fork(), "fork");
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

// AddressSanitizer calls this before it writes a report, whose symbols it looks up by /proc.
extern "C" void __asan_on_error() // NOLINT(bugprone-reserved-identifier,cert-dcl*): its name
{
    uncover_proc();
}

int wait_for(pid_t child)
{
    int status = 0;
    check(waitpid(child, &status, 0), "waitpid");
    return shown_status(status);
}

void write_text(const std::string &path, std::string_view text)
{
    std::ofstream stream(path, std::ios::binary);
    stream << text << std::flush;
    check(stream ? 0 : -1, path);
}

int run_in_device(const std::function<int()> &work)
{
    fflush(nullptr);
    const pid_t outer = check(fork(), "fork");
    if (outer == 0)
        enter(work);
    return wait_for(outer);
}
