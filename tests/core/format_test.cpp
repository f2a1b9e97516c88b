#include <zorv/format.h>

#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include "support/device.h"

using Format = Device;

namespace {

using Owned = std::unique_ptr<char, decltype(&free)>;

std::string reduce(const std::string &path)
{
    const Owned reduced(vq_reduce_path(path.c_str(), nullptr), free);
    return reduced ? reduced.get() : "failed";
}

} // namespace

TEST_F(Format, TextsAreWholeOrSayThatTheyAreCut)
{
    const std::string large(100000, 'x');
    EXPECT_EQ(Owned(malloc_printf("%s-%d", large.c_str(), 7), free).get(), large + "-7");
    EXPECT_EQ(malloc_printf("%lc", static_cast<wint_t>(0xD800)), nullptr); // no such character

    const auto cut = [](size_t size, const char *message, const char *whole) {
        char text[8] = "kept";
        const int length = zorv_snprintf("cfg", message, text, size, "%s", whole);
        return std::to_string(length) + " " + text;
    };
    EXPECT_EQ(cut(4, "cut", "abc"), "3 abc");
    EXPECT_EQ(cut(4, nullptr, "0123456789"), "10 012");
    EXPECT_EQ(cut(0, nullptr, "0123456789"), "0 kept");
    EXPECT_EQ(cut(1, "cut", ""), "0 ");
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(cut(4, "cut", "0123"), "3 012");
    for (libzorv_log_level = 1; libzorv_log_level >= 0; --libzorv_log_level) {
        EXPECT_EQ(cut(0, "no room", "abc"), "0 kept");
        char text[4];
        const wint_t none = 0xD800;
        EXPECT_EQ(zorv_snprintf("cfg", nullptr, text, sizeof text, "%lc", none), 0);
    }
    // The message's own newline, then the line's.
    EXPECT_THAT(logged(),
                ElementsAre("[error] cfg.zorv_snprintf(): cut", "",
                            "[error] cfg.zorv_snprintf(): no room", "",
                            "[error] cfg.zorv_snprintf(): zorv_snprintf failure: -1", ""));
    const unsigned char bytes[] = {0x0a, 0xff, 0x00, 0x7b}; // the last one is left out
    const std::tuple<int, int, const char *> rows[] = {
        {4, 16, "6 0aff00"}, {4, 7, "6 0aff00"}, {4, 6, "4 0aff"},        {4, 3, "2 0a"},
        {4, 2, "0 kept"},    {1, 16, "0 kept"},  {0, 16, "0 kept"},       {-1, 16, "0 kept"},
        {4, 0, "0 kept"},    {4, -16, "0 kept"}, {INT_MIN, 16, "0 kept"},
    };
    for (const auto &[count, size, want] : rows) {
        char text[16] = "kept";
        const int written = bin2hex(bytes, count, text, size);
        EXPECT_EQ(std::to_string(written) + " " + text, want) << count << " into " << size;
    }
}

TEST_F(Format, PathsReduceByTheirText)
{
    must_run("mkdir -p /tmp/a/b /tmp/gone");
    ASSERT_EQ(chdir("/tmp/a/b"), 0);
    const std::pair<std::string, std::string> rows[] = {
        {"/a//b/./c/../d/", "/a/b/d"},
        {"/..", "/"},
        {"/../../a", "/a"},
        {"/a/../..", "/"},
        {"/", "/"},
        {"/a/...", "/a/..."},
        {"/a/..b/.c", "/a/..b/.c"},
        {".", "."},
        {"", "."},
        {"a/..", "."},
        {"a/b/..", "a"},
        {"././/a", "a"},
        {"a/../b", "b"},
        {"a/..//./b/", "b"},
        {".hidden", ".hidden"},
        {"..", "/tmp/a"},
        {"../x", "/tmp/a/x"},
        {"a/../../x", "/tmp/a/x"},
        {"../..", "/tmp"},
        {"../../../../../x", "/x"},
        {"../../..", "/"},
        {"/" + std::string(4094, 'x'), "/" + std::string(4094, 'x')},
        {"/a/.." + std::string(5000, '/') + "b", "/b"}, // what is dropped is not counted
    };
    for (const auto &[path, reduced] : rows) {
        EXPECT_EQ(reduce(path), reduced) << path;
        char output[4096];
        EXPECT_EQ(vq_reduce_path(path.c_str(), output), output);
        EXPECT_EQ(output, reduced);
    }
    EXPECT_EQ(reduce("/" + std::string(4095, 'x') + "/.."), "failed");
    EXPECT_EQ(errno, ENAMETOOLONG);
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(reduce(".."), "/");
    EXPECT_EQ(reduce("../x"), "/x");
    EXPECT_THAT(logged(), IsEmpty());

    ASSERT_EQ(chdir("/tmp/gone"), 0);
    ASSERT_EQ(rmdir("/tmp/gone"), 0);
    EXPECT_EQ(reduce("x/.."), ".");
    EXPECT_EQ(reduce("../x"), "failed");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.vq_reduce_path(): Couldn't getcwd for "
                                      "path ../x, No such file or directory"));
}

TEST_F(Format, DirectoriesAreMadeWithTheirParents)
{
    umask(0);
    file("/tmp/file", "");
    must_run("ln -s /nowhere /tmp/dangling; mkdir /tmp/x; mkdir -m 0 /tmp/closed; cd /tmp/x");
    ASSERT_EQ(chdir("/tmp/x"), 0);
    unprivileged();
    const std::pair<std::string, int> rows[] = {
        {"/tmp/x//y/./z/", 0},
        {"/tmp/x/y", 0}, // is there
        {"p", 0},
        {"q/r", 0},
        {"/tmp/new", 0},
        {"/tmp/file", ENOTDIR},
        {"/tmp/file/x/y", ENOTDIR},
        {"/tmp/dangling", EEXIST},
        {"/tmp/closed/x/y", EACCES},
        {"/tmp/none/..", EEXIST},
        {"", EEXIST},
        {std::string(5000, 'x'), ENAMETOOLONG},
    };
    for (const auto &[path, error] : rows) {
        errno = EIO;
        EXPECT_EQ(vq_mkdir_p(path.c_str(), 0750), error == 0 ? 0 : -1) << path;
        EXPECT_EQ(errno, error) << path;
    }
    EXPECT_EQ(run("cd /tmp; stat -c '%a %n' x/y x/y/z x/p x/q x/q/r new; ls -d none").output,
              "750 x/y\n750 x/y/z\n750 x/p\n750 x/q\n750 x/q/r\n750 new\n");
}
