#include <zorv/exec.h>

#include <memory>
#include <string>

#include "support/device.h"

namespace {

using Commands = Device;
using Command = std::unique_ptr<exec_command, decltype(&exec_destroy)>;

template <class... Words>
Command make(const char *path, Words... arguments)
{
    return {exec_create(path, arguments..., nullptr), exec_destroy};
}

// The path and the arguments, in brackets.
std::string shown(const exec_command *command)
{
    if (!command)
        return "none";
    EXPECT_EQ(command->argv[0], command->path);
    std::string text;
    for (int slot = 0; slot < command->argc; ++slot)
        text += command->argv[slot] ? "[" + std::string(command->argv[slot]) + "]" : "-";
    return text;
}

TEST_F(Commands, AreMadeCopiedAndCompared)
{
    const std::string text(5000, 'x');
    const Command base = make("/bin/a", "x", "y");
    Command holed = make("/bin/a", "x", "y");
    free(std::exchange(holed->argv[1], nullptr)); // as when memory ran out for it
    const struct {
        Command command;
        std::string want;
        int result; // of the comparison: by count, path, arguments
    } rows[] = {
        {make(nullptr), "none", -1},
        {make(""), "none", -1},
        {make("/bin/a", "x", "y"), "[/bin/a][x][y]", 0},
        {make("/bin/b"), "[/bin/b]", -2},
        {make("/bin/b", "z", "y"), "[/bin/b][z][y]", -3},
        {make("/bin/a", "", "z z"), "[/bin/a][][z z]", 1},
        {std::move(holed), "[/bin/a]-[y]", 1},
        {make("/bin/a", "x", "z"), "[/bin/a][x][z]", 2},
        {make(text.c_str(), text.c_str(), "y"),
         "[" + text.substr(0, 4095) + "][" + text.substr(0, 4096) + "][y]", -3},
    };
    for (const auto &[command, want, result] : rows) {
        EXPECT_EQ(shown(command.get()), want);
        EXPECT_EQ(exec_cmp(base.get(), command.get()), result) << want;
        EXPECT_EQ(exec_cmp(command.get(), base.get()), result) << want;
        EXPECT_TRUE(!command || !command->argv[command->argc]); // ready to be run
        const Command copy(exec_copy(command.get()), exec_destroy);
        EXPECT_EQ(shown(copy.get()), want);
        EXPECT_EQ(exec_cmp(command.get(), copy.get()), command ? 0 : -1);
    }
    EXPECT_EQ(exec_cmp(base.get(), base.get()), 0);
    const exec_command cleared = {};
    EXPECT_EQ(exec_copy(&cleared), nullptr);
    exec_destroy(nullptr);
}

} // namespace
