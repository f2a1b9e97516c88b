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

Command copy(const Command &source)
{
    return {exec_copy(source.get()), exec_destroy};
}

TEST_F(Commands, HaveTheirPathInSlotZeroAndATerminator)
{
    EXPECT_EQ(make(nullptr), nullptr);
    EXPECT_EQ(make(""), nullptr);
    EXPECT_EQ(exec_copy(nullptr), nullptr);
    const exec_command cleared = {};
    EXPECT_EQ(exec_copy(&cleared), nullptr);
    exec_destroy(nullptr);

    const Command bare = make("/bin/true");
    EXPECT_EQ(bare->argc, 1);
    EXPECT_EQ(bare->argv[0], bare->path);
    EXPECT_EQ(bare->argv[1], nullptr);

    const Command full = make("/bin/echo", "", "a b");
    ASSERT_EQ(full->argc, 3);
    EXPECT_STREQ(full->argv[1], "");
    EXPECT_STREQ(full->argv[2], "a b");
    EXPECT_EQ(full->argv[3], nullptr);
}

TEST_F(Commands, CutLongPathsAndArguments)
{
    const std::string text(5000, 'x');
    const Command made = make(text.c_str(), text.c_str());
    for (const Command &command : {make(text.c_str(), text.c_str()), copy(made)}) {
        EXPECT_EQ(std::string(command->path), text.substr(0, 4095));
        EXPECT_EQ(std::string(command->argv[1]), text.substr(0, 4096));
    }
}

TEST_F(Commands, CompareByCountThenPathThenArguments)
{
    const Command base = make("/bin/a", "x", "y");
    EXPECT_EQ(exec_cmp(nullptr, base.get()), -1);
    EXPECT_EQ(exec_cmp(base.get(), nullptr), -1);
    EXPECT_EQ(exec_cmp(base.get(), base.get()), 0);
    EXPECT_EQ(exec_cmp(base.get(), make("/bin/a", "x", "y").get()), 0);
    EXPECT_EQ(exec_cmp(base.get(), make("/bin/b", "x").get()), -2);
    EXPECT_EQ(exec_cmp(base.get(), make("/bin/b", "z", "y").get()), -3);
    EXPECT_EQ(exec_cmp(base.get(), make("/bin/a", "z", "z").get()), 1);
    EXPECT_EQ(exec_cmp(base.get(), make("/bin/a", "x", "z").get()), 2);
}

TEST_F(Commands, MayLackAnArgument)
{
    const Command whole = make("/bin/a", "x", "y");
    const Command holed = make("/bin/a", "x", "y");
    free(std::exchange(holed->argv[1], nullptr)); // as when memory ran out for it
    const Command copied = copy(holed);
    EXPECT_EQ(copied->argv[1], nullptr);
    EXPECT_STREQ(copied->argv[2], "y");
    EXPECT_EQ(exec_cmp(holed.get(), copied.get()), 0);
    EXPECT_EQ(exec_cmp(holed.get(), whole.get()), 1);
    EXPECT_EQ(exec_cmp(whole.get(), holed.get()), 1);
}

} // namespace
