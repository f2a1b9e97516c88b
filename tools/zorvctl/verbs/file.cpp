// file.cpp - state files: one value, set or counted on.
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

#include <zorv/file.h>

#include "base/cli.h"

namespace ctl {
namespace {

constexpr size_t kValue = 64 << 10; // bytes of a line or value that are shown

struct GetArgs {
    std::string file, key;
    std::optional<std::string> fallback;
};

struct SetArgs {
    std::string file, value;
};

struct AddArgs {
    std::string file;
    long delta = 0;
};

// The first line; nothing when the file cannot be read, with the reason in errno.
std::optional<std::string> first_line(const std::string &path)
{
    std::string line(kValue, '\0');
    errno = 0; // what an empty file gives is the errno of before
    const int rc = fsreadline(path.c_str(), line.data(), static_cast<int>(line.size()));
    errno = -rc;
    return rc == 0 ? std::optional(std::string(line.c_str())) : std::nullopt;
}

// The value of a key: what the library finds whatever the default.
std::optional<std::string> keyed_value(const GetArgs &args)
{
    std::string once(kValue, '\0'), again(kValue, '\0');
    freadvalue(args.file.c_str(), args.key.c_str(), once.data(), once.size(), "0");
    freadvalue(args.file.c_str(), args.key.c_str(), again.data(), again.size(), "1");
    return once == again ? std::optional(std::string(once.c_str())) : std::nullopt;
}

void get(const GetArgs &args, Reply &reply)
{
    auto value = first_line(args.file);
    if (!value && !args.fallback)
        throw io_failure(args.file, errno);
    if (value && !args.key.empty())
        value = keyed_value(args);
    if (!value && !args.fallback)
        throw Failure(Exit::no, args.file + ": no value for " + args.key);
    reply.document.set("file", args.file).set("found", value.has_value());
    value = value ? value : args.fallback;
    reply.document.set("value", *value);
    reply.line(*value);
}

// The library's writers do not see a disk fill up. A device or a file of the kernel need not give
// back what it was given.
void check_written(const std::string &path, const std::string &expected)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return;
    if (first_line(path) != expected)
        throw Failure(Exit::failed, path + ": the value does not read back: " + expected);
}

void set(const SetArgs &args, Reply &reply)
{
    if (args.value.find('\n') != std::string::npos)
        throw Failure(Exit::usage, "VALUE: more than one line");
    if (fwriteline(args.file.c_str(), "%s\n", args.value.c_str()) < 0)
        throw io_failure(args.file, errno);
    check_written(args.file, args.value.substr(0, kValue - 1));
    reply.document.set("file", args.file).set("value", args.value);
}

void add(const AddArgs &args, Reply &reply)
{
    long sum;
    const long before = freadlong(args.file.c_str(), 0);
    if (__builtin_add_overflow(before, args.delta, &sum))
        throw Failure(Exit::failed, args.file + ": the sum is out of range");
    if (faddlong(args.file.c_str(), args.delta) != 0)
        throw io_failure(args.file, errno);
    check_written(args.file, std::to_string(sum));
    reply.document.set("file", args.file).set("value", sum);
    reply.line(std::to_string(sum));
}

constexpr Option kGet[] = {
    option<&GetArgs::file>("FILE", "The file").required(),
    option<&GetArgs::key>("KEY", "The first word of its line, whole and in its case"),
    option<&GetArgs::fallback>("--default", "Print this when there is no such value"),
};
constexpr Option kSet[] = {
    option<&SetArgs::file>("FILE", "The file; created if it is missing").required(),
    option<&SetArgs::value>("VALUE", "The line").required(),
};
constexpr Option kAdd[] = {
    option<&AddArgs::file>("FILE", "The file; created if it is missing").required(),
    option<&AddArgs::delta>("DELTA", "What to add; may be negative").required(),
};

constexpr Verb kVerbs[] = {
    verb<get>("get",
              "Print the first line, or the value of a key in lines \"key value\" or key=value",
              "zorvctl file get /proc/meminfo MemTotal:", kGet),
    verb<set>("set", "Replace the content by one line, in place",
              "zorvctl file set /var/run/ntp.ready 1", kSet),
    verb<add>("add", "Add to the number in a file, and print the sum; no file counts as 0",
              "zorvctl file add /var/run/reboots 1", kAdd),
};

} // namespace

extern const Family file_family = {
    "file", "Read and change state files of one value or of keyed lines", {kVerbs}};

} // namespace ctl
