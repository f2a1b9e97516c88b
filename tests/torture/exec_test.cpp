// Commands and scripts when memory runs out or the kernel refuses.
#include <zorv/exec.h>

#include <cstring>
#include <memory>

#include "support/torture.h"

namespace {

using Command = std::unique_ptr<exec_command, decltype(&exec_destroy)>;

std::string shown(const Command &command)
{
    const auto word = [&](int slot) { return command->argv[slot] ? command->argv[slot] : "-"; };
    return command ? std::string(word(0)) + " " + word(1) + " " + word(2) : "none";
}

std::string made_and_copied()
{
    const Command made(exec_create("/bin/a", "x", "y", nullptr), exec_destroy);
    const Command copy(exec_copy(made.get()), exec_destroy);
    return Torture::settled(shown(made) + ", " + shown(copy));
}

std::string stored()
{
    char text[100] = "kept";
    const int length = popen_get_output("cat /tmp/output", text, 6);
    return std::to_string(length) + " " + text;
}

std::string allocated()
{
    const std::unique_ptr<char, decltype(&free)> text(popen_alloc_output("cat /tmp/output", 5000),
                                                      free);
    return Torture::settled(text ? std::to_string(strlen(text.get())) : "none");
}

std::string ran()
{
    Torture::settle();
    return Device::read("/tmp/ran");
}

void install()
{
    Device::script("/etc/syswrapper.sh", "#!/bin/sh\necho $1 >>/tmp/ran\n");
    Device::file("/tmp/ran", "");
    Device::file("/tmp/output", std::string(4000, 'x'));
    libzorv_log_level = 8;
}

constexpr char kNoFork[] = ": Fork Failed!!; : *: [ERROR] fork failed";
constexpr char kNoScript[] = "*unable to locate syswrapper.sh, 'reload' skipped!";

} // namespace

TEST_F(Torture, Exec)
{
    torture({
        {"exec_create and exec_copy",
         made_and_copied,
         // An argument for which memory runs out is missing in what is made, without a message.
         {"/bin/a - y, /bin/a - y", "/bin/a x -, /bin/a x -", "/bin/a x y, none",
          "*, none: make_command: #: calloc(#, #) failed"},
         install},
        {.name = "popen_get_output",
         .scenario = stored,
         .outcomes = {"-1 kept: popen_get_output: get_output: popen[cat /tmp/output] -> NULL"},
         .prepare = install,
         // A read that fails, or that a signal cuts, counts as the end without a message of its
         // own.
         .known = {"0 : popen_get_output: [cat /tmp/output] -> [#]"}},
        {"popen_alloc_output",
         allocated,
         {"none: popen_alloc_output: Failed to allocate buffer",
          "none: popen_alloc_output: open failed on 'cat /tmp/output': *",
          "1023: popen_alloc_output: Failed to reallocate buffer, output truncated*",
          "2047: popen_alloc_output: Failed to reallocate buffer, output truncated*",
          "*: popen_alloc_output: Failed to read from stream, command='cat /tmp/output'*"},
         install},
        // A script that cannot be started looks like one that succeeded.
        {"syswrapper_impl",
         [] { return syswrapper_impl(1, "reload", nullptr), ran(); },
         {"", kNoFork, kNoScript},
         install},
        {"syswrapper_impl, detached", // when the second fork fails, the call waits
         [] { return syswrapper_impl(0, "reload", nullptr), settled(""); },
         {kNoFork, kNoScript},
         install},
        {"forkexec",
         [] {
             char script[] = "/etc/syswrapper.sh", word[] = "x", *words[] = {script, word, {}};
             return forkexec(words), ran();
         },
         {"", kNoFork},
         install},
    });
}
