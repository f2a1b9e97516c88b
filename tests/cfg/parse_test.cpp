#include <cstdio>
#include <memory>

#include <zorv/cfg.h>

#include "cfg/model.h"
#include "support/device.h"

using model::List;

namespace {

constexpr char kPath[] = "/tmp/system.cfg";

struct Release {
    void operator()(cfg_entry *list) const { free_cfg(list); }
};
using Cfg = std::unique_ptr<cfg_entry, Release>;

Cfg parse_text(std::string_view text)
{
    Device::file(kPath, text);
    return Cfg(parse(kPath));
}

} // namespace

using CfgFile = Device;

TEST_F(CfgFile, LinesBecomeEntriesAsTheFirmwareWroteThem)
{
    const std::string wide(100000, 'w');
    const struct {
        const char *name;
        std::string text;
        List expected;
    } rows[] = {
        {"empty", "", {}},
        {"comments only", "# CFG Start\n#a=1\n\n\r\n", {}},
        {"blanks around the key", " \t radio.1.mode\t = ap \n", {{"radio.1.mode", " ap "}}},
        {"other white space stays", "\va\v=1\n", {{"\va\v", "1"}}},
        {"later equal signs", "a=b=c\n", {{"a", "b=c"}}},
        {"no newline at the end", "x=10", {{"x", "1"}}},
        {"neither value nor newline", "a=1\nx=", {{"a", "1"}, {"x", ""}}},
        {"no value", "key=\n", {{"key", ""}}},
        {"no key", "=1\n  =2\n", {{"", "1"}, {"", "2"}}},
        {"carriage return", "a=1\r\n", {{"a", "1\r"}}},
        {"no equal sign", "just words\na=1\n", {{"a", "1"}}},
        {"a comment begins in the first column", " #a=1\n", {{"#a", "1"}}},
        {"NUL in the value", {"a=bc\0d\nb=\0\nc=1\n", 15}, {{"a", "b"}, {"b", ""}, {"c", "1"}}},
        {"NUL before the equal sign", {"a\0=1\nb=2\n", 9}, {{"b", "2"}}},
        {"a long line", wide + "=" + wide + "\n", {{wide, wide}}},
        {"duplicates stay", "a=1\nA=2\n", {{"a", "1"}, {"A", "2"}}},
        {"duplicates in misc", "# misc\na=1\nb=1\nA=2\n", {{"a", "2"}, {"b", "1"}}},
        {"misc replaces the first",
         "a=1\na=2\nb=3\n# miscellany\na=4\nc=5\n",
         {{"a", "4"}, {"a", "2"}, {"b", "3"}, {"c", "5"}}},
        {"misc keys are numbers", "# misc\nv.1=a\nv.01=b\n", {{"v.1", "a"}, {"v.01", "b"}}},
        {"no misc mark", "a=1\n#misc\n # misc\na=2\n", {{"a", "1"}, {"a", "2"}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(model::of(parse_text(row.text).get()), row.expected);
    }
    EXPECT_EQ(parse_stream(nullptr), nullptr);
    EXPECT_EQ(parse("/tmp/none.cfg"), nullptr);
    EXPECT_EQ(parse("/tmp"), nullptr); // opens, and cannot be read
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(CfgFile, SavedConfigurationIsReadBackTheSame)
{
    const Cfg cfg = parse_text("# mine\nb=1\n\n a = x y \nb=2\nc=\n");
    ASSERT_EQ(save_cfg(cfg.get(), "/tmp/saved"), 0);
    EXPECT_EQ(read("/tmp/saved"), "# CFG Start\nb=1\na= x y \nb=2\nc=\n");
    const Cfg again(parse("/tmp/saved"));
    EXPECT_EQ(model::of(again.get()), model::of(cfg.get()));

    ASSERT_EQ(save_cfg(nullptr, "/tmp/saved"), 0);
    EXPECT_EQ(read("/tmp/saved"), "# CFG Start\n");
    EXPECT_EQ(save_cfg(cfg.get(), "/tmp/none/saved"), -1);
}

// The documented limit that callers who must know work around.
TEST_F(CfgFile, SavingToAFullDiskIsNotNoticed)
{
    const Cfg cfg = parse_text("a=" + std::string(20000, 'x') + "\n");
    small_disk("/etc/persistent", 4096);
    EXPECT_EQ(save_cfg(cfg.get(), "/etc/persistent/cfg"), 0);
    EXPECT_LE(read("/etc/persistent/cfg").size(), 4096U);
}

TEST_F(CfgFile, PrintsItsLines)
{
    const Cfg cfg = parse_text("# c\nb = 1\na=\n");
    testing::internal::CaptureStdout();
    print_cfg(cfg.get());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "b= 1\na=\n");
}
