// file.cpp - state files: one value, set or counted on.
#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zorv/file.h>

#include "base/ask.h"
#include "base/cli.h"
#include "base/numbers.h"
#include "base/text_file.h"
#include "base/words.h"
#include "core/own.h"

namespace ctl {
namespace {

constexpr size_t kMost = 64 << 20; // bytes of a line; far beyond any device's
constexpr size_t kSeen = 15;       // characters of a number that the library reads
constexpr int kPatience = 1000;    // times 10 ms at a counter's lock

struct GetArgs {
    std::string file;
    std::optional<std::string> key, fallback;
};

struct SetArgs {
    std::string file, value;
};

struct AddArgs {
    std::string file;
    long delta = 0;
};

// The first line, up to its first NUL.
std::string first_line(const std::string &path)
{
    const zorv::Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        throw io_failure(path, errno);
    std::string line;
    char piece[4096];
    while (const size_t count = read_piece(file, path, piece, sizeof piece)) {
        const std::string_view text(piece, count), part = text.substr(0, text.find('\n'));
        line += part;
        if (part.size() < count)
            break;
        if (line.size() > kMost)
            throw io_failure(path, EFBIG);
    }
    return line.c_str();
}

// The second word of the first line that has two, the first of which is the key. The library takes
// a long line for several.
std::optional<std::string> keyed_value(const std::string &path, const std::string &key)
{
    constexpr char kSeparators[] = " \t\r\n=";
    const std::string text = read_file(path);
    std::string_view lines = text;
    for (std::string_view line; !(line = take_word(lines, "\n")).empty();)
        if (take_word(line, kSeparators) == key)
            if (const std::string_view value = take_word(line, kSeparators); !value.empty())
                return std::string(value);
    return {};
}

std::optional<std::string> find(const GetArgs &args)
{
    if (args.fallback && access(args.file.c_str(), F_OK) != 0) {
        expect_answer(args.file, errno);
        return {};
    }
    return args.key ? keyed_value(args.file, *args.key) : first_line(args.file);
}

void get(const GetArgs &args, Reply &reply)
{
    const auto value = find(args);
    reply.document.set("file", args.file).set("found", value.has_value());
    if (!value && !args.fallback)
        return reply.miss(args.file + ": no value for " + args.key.value_or(""));
    reply.document.set("value", value ? *value : *args.fallback);
    reply.line(value ? *value : *args.fallback);
}

// The library's writer does not see a disk fill up. A device or a file of the kernel need not give
// back what it was given.
void check_written(const std::string &path, const std::string &expected)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        throw io_failure(path, errno);
    if (S_ISREG(status.st_mode) && first_line(path) != expected)
        throw Failure(Exit::failed, path + ": the value does not read back: " + expected);
}

void set(const SetArgs &args, Reply &reply)
{
    if (args.value.find('\n') != std::string::npos)
        throw Misuse("VALUE: more than one line");
    if (fwriteline(args.file.c_str(), "%s\n", args.value.c_str()) < 0)
        throw io_failure(args.file, errno);
    check_written(args.file, args.value);
    reply.document.set("file", args.file).set("value", args.value);
}

// A file that holds one number, under a lock: of those who add to it at once each has its turn.
class Counter {
public:
    explicit Counter(const std::string &path)
        : path_(path), file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    {
        struct stat info;
        if (!file_ || fstat(file_.get(), &info) != 0)
            throw io_failure(path, errno);
        if (!S_ISREG(info.st_mode)) // a pipe would have to be waited for
            throw Failure(Exit::failed, path + ": not a regular file");
        for (int left = kPatience; flock(file_.get(), LOCK_EX | LOCK_NB) != 0; --left) {
            if (errno != EWOULDBLOCK && errno != EINTR)
                throw io_failure(path, errno);
            if (left == 0)
                throw Failure(Exit::refused, path + ": locked by another process");
            usleep(10'000);
        }
    }

    // Only what the library reads as the same number.
    long read() const
    {
        char piece[kSeen + 2]; // a newline, and what is too much
        const size_t count = read_piece(file_, path_, piece, sizeof piece);
        std::string_view text(piece, count);
        if (text.ends_with('\n'))
            text.remove_suffix(1);
        long number = 0;
        const bool is_decimal = text.find_first_not_of("+-0123456789") == text.npos;
        if (text.size() > kSeen || !(text.empty() || (is_decimal && parse_number(text, number))))
            throw Failure(Exit::failed, path_ + ": not one number of at most 15 characters");
        return number;
    }

    // The first line is the old number or the new one at any time.
    void write(long number) const
    {
        const std::string text = std::to_string(number) + '\n';
        if (text.size() > kSeen + 1)
            throw Failure(Exit::failed, path_ + ": the sum has more than 15 characters");
        const ssize_t count = TEMP_FAILURE_RETRY(pwrite(file_.get(), text.data(), text.size(), 0));
        if (count != static_cast<ssize_t>(text.size()))
            throw io_failure(path_, count < 0 ? errno : ENOSPC);
        if (ftruncate(file_.get(), count) != 0)
            throw io_failure(path_, errno);
    }

private:
    std::string path_;
    zorv::Fd file_;
};

void add(const AddArgs &args, Reply &reply)
{
    const Counter counter(args.file);
    long sum;
    if (__builtin_add_overflow(counter.read(), args.delta, &sum))
        throw Failure(Exit::failed, args.file + ": the sum is out of range");
    counter.write(sum);
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
