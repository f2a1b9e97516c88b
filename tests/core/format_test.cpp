

#include "support/device.h"

using Format = Device;
using Owned = std::unique_ptr<char, decltype(&free)>;
constexpr wint_t kNone = 0xD800; // no character: printf fails

static std::string reduce(const std::string &path)
{
    const Owned reduced(vq_reduce_path(path.c_str(), nullptr), free);
    return reduced ? reduced.get() : "failed: " + std::to_string(errno);
}

TEST_F(Format, TextsAreWholeOrSayThatTheyAreCut)
{
    EXPECT_EQ(malloc_printf("%lc", kNone), nullptr);

    const std::tuple<size_t, const char *, const char *, const char *> texts[] = {
        {4, "kept", "abc", "3 abc"}, {4, nullptr, "0123456789", "10 012"},
        {1, "kept", "", "0 "},       {0, nullptr, "0123456789", "0 kept"},
        {4, "cut", "0123", "3 012"}, {0, "no room", "abc", "0 kept"},
    };
    for (const auto &[size, message, whole, want] : texts) {
        char text[8] = "kept";
        const int length = zorv_snprintf("cfg", message, text, size, "%s", whole);
        EXPECT_EQ(std::to_string(length) + " " + text, want);
    }
    EXPECT_EQ(zorv_snprintf("cfg", nullptr, std::string(8, 0).data(), 8, "%lc", kNone), 0);
    // The message's own newline, then the line's.
    const std::string at = "[error] cfg.zorv_snprintf(): ";
    EXPECT_THAT(logged(), ElementsAre(at + "cut", "", at + "no room", "",
                                      at + "zorv_snprintf failure: -1", ""));

    const unsigned char bytes[] = {0x0a, 0xff, 0x00, 0x7b}; // the last one is left out
    const std::tuple<int, int, const char *> rows[] = {
        {4, 7, "6 0aff00"}, {4, 6, "4 0aff"},        {0, 16, "0 kept"},
        {4, -16, "0 kept"}, {INT_MIN, 16, "0 kept"},
    };
    for (const auto &[count, size, want] : rows) {
        char text[16] = "kept";
        const int written = bin2hex(bytes, count, text, size);
        EXPECT_EQ(std::to_string(written) + " " + text, want) << count << " into " << size;
    }
}

TEST_F(Format, PathsReduceByTheirTextAndAreMadeWithTheirParents)
{
    must_run("mkdir -p /tmp/a/b /tmp/gone; touch /tmp/file; ln -s /nowhere /tmp/dangling");
    ASSERT_EQ(chdir("/tmp/a/b"), 0);
    const std::pair<std::string, std::string> rows[] = {
        {"/a//b/./c/../d/", "/a/b/d"},
        {"/a/..b/.c/...", "/a/..b/.c/..."},
        {".", "."},
        {"a/..", "."},
        {"a/..//./b/", "b"},
        {"a/../../x", "/tmp/a/x"},
        {"/" + std::string(4094, 'x'), "/" + std::string(4094, 'x')},
        {"/a/.." + std::string(5000, '/') + "b", "/b"}, // what is dropped is not counted
    };
    for (const auto &[path, reduced] : rows) {
        EXPECT_EQ(reduce(path), reduced) << path;
        char output[4096];
        EXPECT_EQ(vq_reduce_path(path.c_str(), output), output);
        EXPECT_EQ(output, reduced);
    }
    EXPECT_EQ(reduce("/" + std::string(4095, 'x') + "/.."), "failed: 36");
    ASSERT_EQ(chdir("/tmp/gone"), 0);
    ASSERT_EQ(rmdir("/tmp/gone"), 0);
    EXPECT_EQ(reduce("../x"), "failed: 2");
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.vq_reduce_path(): Couldn't getcwd for "
                                      "path ../x, No such file or directory"));

    ASSERT_EQ(chdir("/tmp/a"), 0);
    const std::pair<std::string, int> folders[] = {
        {"/tmp/a//y/./z/", 0},     {"q/r", 0},   {"/tmp/file/x/y", ENOTDIR},
        {"/tmp/dangling", EEXIST}, {"", EEXIST}, {std::string(5000, 'x'), ENAMETOOLONG},
    };
    for (const auto &[path, error] : folders) {
        errno = EIO;
        EXPECT_EQ(vq_mkdir_p(path.c_str(), 0750), error == 0 ? 0 : -1) << path;
        EXPECT_EQ(errno, error) << path;
    }
    EXPECT_EQ(run("stat -c '%a %n' y y/z q q/r").output, "750 y\n750 y/z\n750 q\n750 q/r\n");
}
