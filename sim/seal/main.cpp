// zorv-seal - narrows what mounts allow: zorv-seal [--bind] OPTION,... PATH...
//
// The options are ro, nodev and nosuid. All mounts at and below the paths get them, those that are
// covered by others too: who leaves a cover behind finds no way around it. With --bind each path is
// made a mount before.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <linux/mount.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Option {
    const char *name;
    unsigned long flag; // of mount(2); those that are offered are MOUNT_ATTR_... as well
};

constexpr Option kOptions[] = {
    {"ro", MS_RDONLY},         {"nosuid", MS_NOSUID},   {"nodev", MS_NODEV},
    {"noexec", MS_NOEXEC},     {"noatime", MS_NOATIME}, {"nodiratime", MS_NODIRATIME},
    {"relatime", MS_RELATIME},
};
constexpr unsigned long kOffered = MS_RDONLY | MS_NOSUID | MS_NODEV;
static_assert(MS_RDONLY == MOUNT_ATTR_RDONLY && MS_NOSUID == MOUNT_ATTR_NOSUID &&
              MS_NODEV == MOUNT_ATTR_NODEV);

unsigned long parse_options(const std::string &text)
{
    unsigned long flags = 0;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');)
        for (const auto &option : kOptions)
            flags |= word == option.name ? option.flag : 0;
    return flags;
}

// A place as /proc/self/mountinfo has it: octal numbers for what would end a word.
std::string parse_place(const std::string &text)
{
    std::string place;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\\' && i + 3 < text.size()) {
            place += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            place += text[i];
        }
    return place;
}

// For kernels before Linux 5.12, one mount at a time. Covered ones are out of reach: of several at
// a place the last is meant, and what is no mount is in a folder of one that covers it.
bool restrict_each(const std::string &folder, unsigned long flags)
{
    const std::string path = std::filesystem::canonical(folder);
    std::map<std::string, unsigned long> mounts;
    std::ifstream lines("/proc/self/mountinfo");
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string skipped, place, options;
        words >> skipped >> skipped >> skipped >> skipped >> place >> options;
        place = parse_place(place);
        if ((place + "/").starts_with(path + "/"))
            mounts[place] = parse_options(options);
    }
    for (const auto &[place, present] : mounts)
        if (mount(nullptr, place.c_str(), nullptr, MS_REMOUNT | MS_BIND | present | flags,
                  nullptr) != 0 &&
            errno != EINVAL && errno != ENOENT)
            return false;
    return !mounts.empty();
}

bool restrict_all(const char *path, unsigned long flags)
{
    mount_attr attributes = {};
    attributes.attr_set = flags;
    if (syscall(SYS_mount_setattr, AT_FDCWD, path, AT_RECURSIVE, &attributes, sizeof attributes) ==
        0)
        return true;
    return errno == ENOSYS && restrict_each(path, flags);
}

} // namespace

int main(int argc, char **argv)
{
    const bool binds = argc > 1 && strcmp(argv[1], "--bind") == 0;
    int next = binds ? 2 : 1;
    const unsigned long flags = next < argc ? parse_options(argv[next++]) : 0;
    if (flags == 0 || (flags | kOffered) != kOffered) {
        fprintf(stderr, "usage: zorv-seal [--bind] ro|nodev|nosuid,... PATH...\n");
        return 2;
    }
    for (; next < argc; ++next) {
        const char *path = argv[next];
        if ((binds && mount(path, path, nullptr, MS_BIND | MS_REC, nullptr) != 0) ||
            !restrict_all(path, flags)) {
            fprintf(stderr, "zorv-seal: %s cannot be sealed: %s\n", path, strerror(errno));
            return 1;
        }
    }
}
