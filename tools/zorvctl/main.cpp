// zorvctl - the command-line face of libzorv.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>
#include <typeinfo>

#include <cxxabi.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/cli.h"

namespace {

bool g_json = false; // whether JSON is wanted, for an answer when nothing can be parsed any more

bool wants_json(char **words)
{
    for (; *words && strcmp(*words, "--") != 0; words++)
        if (strcmp(*words, "--json") == 0)
            return true;
    return false;
}

// Ends the process when memory has run out, with words that take none.
[[noreturn]] void end_without_memory()
{
    const std::string_view text =
        g_json ? "{\"error\":{\"code\":\"memory\",\"message\":\"out of memory\"}}\n"
               : "zorvctl: out of memory\n";
    [[maybe_unused]] const ssize_t count = // the status tells it, too
        write(g_json ? STDOUT_FILENO : STDERR_FILENO, text.data(), text.size());
    _exit(static_cast<int>(ctl::Exit::failed));
}

// Gets here what no memory was left to throw, or came while a failure was told: the language has no
// other way out. Anything else is a fault of ours.
void end_lost_exception()
{
    const std::type_info *const type = abi::__cxa_current_exception_type();
    if (!type || *type == typeid(std::bad_alloc) || *type == typeid(ctl::Failure) ||
        *type == typeid(ctl::Misuse))
        end_without_memory();
    abort();
}

// A standard descriptor that is closed would be taken by the next file opened, and our words
// written into that file. It is replaced by one that fails, too: an input that cannot be read,
// outputs that cannot be written.
void occupy_standard_descriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++)
        if (fcntl(fd, F_GETFD) < 0) // NOLINTNEXTLINE(android-cloexec-open): the children have it
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
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
    g_json = wants_json(argv);
    std::set_terminate(end_lost_exception);
    occupy_standard_descriptors();
#define FAMILY(name) &ctl::name##_family,
    constexpr const ctl::Family *kFamilies[] = {ZORVCTL_FAMILIES};
#undef FAMILY
    try {
        return ctl::run(kFamilies, argc, argv);
    } catch (const std::bad_alloc &) {
        end_without_memory();
    }
}

// The runtime's own one brings the names of C++ in readable form, and 60 KB for that.
void __gnu_cxx::
    __verbose_terminate_handler() // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
{
    end_lost_exception();
}
