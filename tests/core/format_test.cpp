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

bool is_directory(const char *path, mode_t mode)
{
    struct stat info;
    return stat(path, &info) == 0 && info.st_mode == (S_IFDIR | mode);
}

} // namespace

TEST_F(Format, HeapTextsHoldTheWholeResult)
{
    const Owned text(malloc_printf("%s-%d", "ab", 7), free);
    EXPECT_STREQ(text.get(), "ab-7");
    const std::string large(100000, 'x');
    const Owned copy(malloc_printf("%s", large.c_str()), free);
    EXPECT_EQ(copy.get(), large);
    EXPECT_EQ(malloc_printf("%lc", static_cast<wint_t>(0xD800)), nullptr); // no such character
}

TEST_F(Format, BoundedFormattingReportsWhatIsCut)
{
    char text[4];
    EXPECT_EQ(zorv_snprintf("cfg", "key truncated", text, sizeof text, "%s", "abc"), 3);
    EXPECT_STREQ(text, "abc");
    EXPECT_THAT(logged(), ElementsAre());
    EXPECT_EQ(zorv_snprintf("cfg", "key truncated", text, sizeof text, "%s", "0123456789"), 3);
    EXPECT_STREQ(text, "012");
    EXPECT_EQ(zorv_snprintf("cfg", "no room", text, 0, "%s", "abc"), 0);
    // The message's own newline, then the line's.
    EXPECT_THAT(logged(), ElementsAre("[error] cfg.zorv_snprintf(): key truncated", "",
                                      "[error] cfg.zorv_snprintf(): no room", ""));
    EXPECT_EQ(zorv_snprintf("cfg", nullptr, text, sizeof text, "%s", "0123456789"), 10);
    EXPECT_EQ(zorv_snprintf("cfg", nullptr, text, 0, "%s", "0123456789"), 0);
    EXPECT_THAT(logged(), ElementsAre());
    EXPECT_EQ(zorv_snprintf("cfg", nullptr, text, sizeof text, "%lc", static_cast<wint_t>(0xD800)),
              0);
    EXPECT_THAT(logged(),
                ElementsAre("[error] cfg.zorv_snprintf(): zorv_snprintf failure: -1", ""));
}

TEST_F(Format, HexDumpLeavesTheLastByteOut)
{
    const unsigned char bytes[] = {0x0a, 0xff, 0x00, 0x7b};
    const struct {
        int count, size, written;
        const char *text;
    } rows[] = {
        {4, 16, 6, "0aff00"}, {4, 7, 6, "0aff00"}, {4, 6, 4, "0aff"},        {4, 3, 2, "0a"},
        {4, 2, 0, "kept"},    {1, 16, 0, "kept"},  {0, 16, 0, "kept"},       {-1, 16, 0, "kept"},
        {4, 0, 0, "kept"},    {4, -16, 0, "kept"}, {INT_MIN, 16, 0, "kept"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.count << " into " << row.size);
        char text[16] = "kept";
        EXPECT_EQ(bin2hex(bytes, row.count, text, row.size), row.written);
        EXPECT_STREQ(text, row.text);
    }
}

TEST_F(Format, PathsReduceByTheirText)
{
    must_run("mkdir -p /tmp/a/b");
    ASSERT_EQ(chdir("/tmp/a/b"), 0);
    const std::pair<const char *, const char *> rows[] = {
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
    };
    for (const auto &[path, reduced] : rows) {
        SCOPED_TRACE(path);
        EXPECT_EQ(reduce(path), reduced);
        char output[4096];
        EXPECT_EQ(vq_reduce_path(path, output), output);
        EXPECT_STREQ(output, reduced);
    }
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(reduce(".."), "/");
    EXPECT_EQ(reduce("../x"), "/x");
}

TEST_F(Format, PathsOf4096CharactersAreTooLong)
{
    EXPECT_EQ(reduce("/" + std::string(4094, 'x')).size(), 4095U);
    EXPECT_EQ(reduce("/a/.." + std::string(5000, '/') + "b"),
              "/b"); // what is dropped is not counted
    errno = 0;
    EXPECT_EQ(reduce("/" + std::string(4095, 'x') + "/.."), "failed");
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_THAT(logged(), ElementsAre());
}

TEST_F(Format, ALostWorkingDirectoryIsReported)
{
    must_run("mkdir /tmp/gone");
    ASSERT_EQ(chdir("/tmp/gone"), 0);
    ASSERT_EQ(rmdir("/tmp/gone"), 0);
    EXPECT_EQ(reduce("../x"), "failed");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.vq_reduce_path(): Couldn't getcwd for "
                                      "path ../x, No such file or directory"));
    EXPECT_EQ(reduce("x/.."), ".");
}

TEST_F(Format, DirectoriesAreMadeWithTheirParents)
{
    umask(0);
    errno = EIO;
    EXPECT_EQ(vq_mkdir_p("/tmp/x//y/./z/", 0750), 0);
    EXPECT_EQ(errno, 0);
    for (const auto path : {"/tmp/x", "/tmp/x/y", "/tmp/x/y/z"})
        EXPECT_TRUE(is_directory(path, 0750)) << path;
    errno = EIO;
    EXPECT_EQ(vq_mkdir_p("/tmp/x/y", 0700), 0); // is there
    EXPECT_EQ(errno, 0);
    ASSERT_EQ(chdir("/tmp/x"), 0);
    EXPECT_EQ(vq_mkdir_p("p", 0700), 0);
    EXPECT_EQ(vq_mkdir_p("q/r", 0700), 0);
    EXPECT_EQ(vq_mkdir_p("/new", 0700), 0);
    for (const auto path : {"/tmp/x/p", "/tmp/x/q/r", "/new"})
        EXPECT_TRUE(is_directory(path, 0700)) << path;
}

TEST_F(Format, DirectoriesThatCannotBeMadeSayWhy)
{
    file("/tmp/file", "");
    must_run("ln -s /nowhere /tmp/dangling; mkdir -m 0 /tmp/closed");
    unprivileged();
    const std::pair<std::string, int> rows[] = {
        {"/tmp/file", ENOTDIR},
        {"/tmp/file/x/y", ENOTDIR},
        {"/tmp/dangling", EEXIST},
        {"/tmp/closed/x/y", EACCES},
        {"/tmp/new/..", EEXIST},
        {"", EEXIST},
        {std::string(5000, 'x'), ENAMETOOLONG},
    };
    for (const auto &[path, error] : rows) {
        SCOPED_TRACE(path);
        EXPECT_EQ(vq_mkdir_p(path.c_str(), 0777), -1);
        EXPECT_EQ(errno, error);
    }
}
