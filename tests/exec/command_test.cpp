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

TEST_F(Commands, AreMadeAndCopied)
{
    const std::string text(5000, 'x');
    const exec_command cleared = {};
    EXPECT_EQ(exec_copy(&cleared), nullptr);
    EXPECT_EQ(make(""), nullptr);
    const Command bare = make("/bin/true"), full = make("/bin/echo", "", "a b"),
                  lengthy = make(text.c_str(), text.c_str());
    const Command holed = make("/bin/a", "x", "y");
    free(std::exchange(holed->argv[1], nullptr)); // as when memory ran out for it
    const std::pair<const exec_command *, std::string> rows[] = {
        {nullptr, "none"},
        {bare.get(), "[/bin/true]"},
        {full.get(), "[/bin/echo][][a b]"},
        {lengthy.get(), "[" + text.substr(0, 4095) + "][" + text.substr(0, 4096) + "]"},
        {holed.get(), "[/bin/a]-[y]"},
    };
    for (const auto &[command, want] : rows) {
        EXPECT_EQ(shown(command), want);
        const Command copy(exec_copy(command), exec_destroy);
        EXPECT_EQ(shown(copy.get()), want);
        EXPECT_EQ(exec_cmp(command, copy.get()), copy ? 0 : -1);
    }
    EXPECT_EQ(bare->argv[1], nullptr);
    EXPECT_EQ(full->argv[3], nullptr);
    exec_destroy(nullptr);
}

TEST_F(Commands, CompareByCountThenPathThenArguments)
{
    const Command base = make("/bin/a", "x", "y"), holed = make("/bin/a", "x", "y");
    free(std::exchange(holed->argv[1], nullptr));
    const std::pair<Command, int> rows[] = {
        {make(nullptr), -1},           {make("/bin/a", "x", "y"), 0},
        {make("/bin/b", "x"), -2},     {make("/bin/b", "z", "y"), -3},
        {make("/bin/a", "z", "z"), 1}, {make("/bin/a", "x", "z"), 2},
    };
    for (const auto &[other, want] : rows) {
        EXPECT_EQ(exec_cmp(base.get(), other.get()), want) << shown(other.get());
        EXPECT_EQ(exec_cmp(other.get(), base.get()), want) << shown(other.get());
    }
    EXPECT_EQ(exec_cmp(base.get(), base.get()), 0);
    EXPECT_EQ(exec_cmp(base.get(), holed.get()), 1);
    EXPECT_EQ(exec_cmp(holed.get(), base.get()), 1);
}

} // namespace
