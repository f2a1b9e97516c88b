// zorvctl - the command-line face of libzorv.
#include <fcntl.h>
#include <unistd.h>

#include "base/cli.h"

namespace {

// A standard descriptor that is closed would be taken by the next file opened, and our words
// written into that file. Standard output is replaced by one that cannot be written: a failure.
void occupy_standard_descriptors()
{
    int fd;
    do // NOLINTNEXTLINE(android-cloexec-open,android-cloexec-dup): the children have these, too
        fd = open("/dev/null", O_RDONLY);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

} // namespace

// ZORVCTL_FAMILIES is what the build was told to put in, in the order of --help: FAMILY(cfg) ...
namespace ctl {
#define FAMILY(name) extern const Family name##_family;
ZORVCTL_FAMILIES
#undef FAMILY
} // namespace ctl

int main(int argc, char **argv)
{
    occupy_standard_descriptors();
#define FAMILY(name) &ctl::name##_family,
    constexpr const ctl::Family *kFamilies[] = {ZORVCTL_FAMILIES};
#undef FAMILY
    return ctl::run(kFamilies, argc, argv);
}
