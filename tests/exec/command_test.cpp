

#include "support/device.h"

using Commands = Device;
using Command = std::unique_ptr<exec_command, decltype(&exec_destroy)>;

// The path and the arguments, in brackets.
static std::string shown(const Command &command)
{
    std::string text = command ? "" : "none";
    for (int slot = 0; command && slot < command->argc; ++slot)
        text += command->argv[slot] ? "[" + std::string(command->argv[slot]) + "]" : "-";
    return text;
}

TEST_F(Commands, AreMadeCopiedAndCompared)
{
    const std::string text(5000, 'x');
    const char *const path = "/bin/a", *const none = nullptr;
    exec_command *const holed = exec_create(path, "x", "y", nullptr);
    free(std::exchange(holed->argv[1], nullptr)); // as when memory ran out for it
    const std::tuple<exec_command *, std::string, int> rows[] = {
        // The result of comparing with the fourth: by count, path, arguments.
        {exec_create(none, nullptr), "none", -1},
        {exec_create("", nullptr), "none", -1},
        {exec_create(path, "x", "y", nullptr), "[/bin/a][x][y]", 0},
        {exec_create("/bin/b", nullptr), "[/bin/b]", -2},
        {exec_create("/bin/b", "z", "y", nullptr), "[/bin/b][z][y]", -3},
        {holed, "[/bin/a]-[y]", 1},
        {exec_create(path, "x", "z", nullptr), "[/bin/a][x][z]", 2},
        {exec_create(text.c_str(), text.c_str(), "y", nullptr),
         "[" + text.substr(0, 4095) + "][" + text.substr(0, 4096) + "][y]", -3},
    };
    for (const auto &[made, want, result] : rows) {
        const Command base(exec_create(path, "x", "y", nullptr), exec_destroy);
        const Command command(made, exec_destroy), copy(exec_copy(made), exec_destroy);
        EXPECT_EQ(shown(command), want);
        EXPECT_EQ(exec_cmp(base.get(), made), result) << want;
        EXPECT_TRUE(!command || !command->argv[command->argc]); // ready to be run
        EXPECT_EQ(shown(copy), want);
        EXPECT_EQ(exec_cmp(made, copy.get()), command ? 0 : -1);
        EXPECT_EQ(exec_cmp(made, made), command ? 0 : -1);
    }
    const exec_command cleared = {};
    EXPECT_EQ(exec_copy(&cleared), nullptr);
}
