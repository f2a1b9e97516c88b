// hash.cpp - SHA-256 digests, in the form of checksum tools.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <zorv/sha256.h>

#include "base/cli.h"
#include "base/text_file.h"

namespace ctl {
namespace {

constexpr size_t kDigest = 32;                   // bytes
constexpr size_t kDigestLimit = size_t{1} << 29; // from here on the library's digests are its own

struct HashArgs {
    std::vector<std::string> files;
    bool check = false;
};

// A line as checksum tools write it: a digest, a blank, a blank or "*", a name.
struct Sum {
    std::string digest, name;
};

// In pieces, so that a file may be larger than the memory of a device.
std::string digest_of(const std::string &path)
{
    const zorv::Fd input = open_input(path);
    std::vector<char> piece(1 << 16);
    sha256_ctx context;
    sha256_init(&context);
    size_t total = 0;
    while (const size_t count = read_piece(input, path, piece.data(), piece.size())) {
        total += count;
        if (total >= kDigestLimit)
            throw Failure(Exit::failed, "too-large", path + ": 512 MiB or more have no digest");
        sha256_update(&context, reinterpret_cast<const unsigned char *>(piece.data()),
                      static_cast<unsigned>(count));
    }
    unsigned char digest[kDigest];
    sha256_final(&context, digest);
    return hexadecimal({reinterpret_cast<const char *>(digest), sizeof digest});
}

// A name that would break its line has these escaped, each as a backslash and its letter.
constexpr std::string_view kEscaped = "\\\n\r", kLetters = "\\nr";

std::string escape(const std::string &name)
{
    std::string escaped;
    for (const char c : name) {
        const size_t place = kEscaped.find(c);
        if (place == kEscaped.npos)
            escaped += c;
        else
            (escaped += '\\') += kLetters[place];
    }
    return escaped;
}

// False where a backslash stands before anything else.
bool unescape(std::string_view escaped, std::string &name)
{
    for (size_t at = 0; at < escaped.size(); at++) {
        if (escaped[at] != '\\') {
            name += escaped[at];
            continue;
        }
        const size_t place = ++at < escaped.size() ? kLetters.find(escaped[at]) : kLetters.npos;
        if (place == kLetters.npos)
            return false;
        name += kEscaped[place];
    }
    return true;
}

// A name between two texts; a line with an escaped one begins with a backslash.
std::string line_of(const std::string &before, const std::string &name, const char *behind = "")
{
    const std::string escaped = escape(name);
    return (escaped == name ? "" : "\\") + before + escaped + behind;
}

bool parse_sum(std::string_view line, Sum &sum)
{
    const bool escaped = line.starts_with('\\');
    line.remove_prefix(escaped ? 1 : 0);
    const size_t digits = std::min(line.find_first_not_of("0123456789abcdef"), line.size());
    sum = {std::string(line.substr(0, digits)), ""};
    line.remove_prefix(digits);
    if (digits != 2 * kDigest || !(line.starts_with("  ") || line.starts_with(" *")))
        return false;
    line.remove_prefix(2);
    if (escaped)
        return unescape(line, sum.name);
    sum.name = line;
    return true;
}

std::vector<Sum> read_sums(const std::string &path)
{
    const std::string text = read_input(path);
    std::vector<Sum> sums;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        if (!parse_sum(std::string_view(text).substr(begin, end - begin), sums.emplace_back()))
            throw Failure(Exit::failed, "not-sums",
                          format("%s:%zu: not a digest and a name", path.c_str(), sums.size()));
        begin = end + 1;
    }
    if (sums.empty())
        throw Failure(Exit::failed, "not-sums", path + ": no digest to compare with");
    return sums;
}

// The result of one; that a file cannot be read outweighs that another one differs.
const char *check_sum(const Sum &sum, Reply &reply)
{
    try {
        const bool same = digest_of(sum.name) == sum.digest;
        reply.line(line_of("", sum.name, same ? ": OK" : ": FAILED"));
        if (!same && reply.exit == Exit::done)
            reply.exit = Exit::no;
        return same ? "ok" : "differs";
    } catch (const Failure &failure) {
        reply.line(printable(failure.what()));
        reply.exit = Exit::failed;
        return "unreadable";
    }
}

void check(const HashArgs &args, Reply &reply)
{
    Value checks = Value::list();
    for (const std::string &file : args.files)
        for (const Sum &sum : read_sums(file))
            checks.add(Value::object().set("file", sum.name).set("result", check_sum(sum, reply)));
    reply.document.set("checks", checks);
}

void hash(const HashArgs &args, Reply &reply)
{
    if (args.check)
        return check(args, reply);
    Value digests = Value::list();
    for (const std::string &file : args.files) {
        const std::string digest = digest_of(file);
        digests.add(Value::object().set("file", file).set("sha256", digest));
        reply.line(line_of(digest + "  ", file));
    }
    reply.document.set("digests", digests);
}

constexpr Option kOptions[] = {
    option<&HashArgs::files>("FILE", "The files; - is the standard input").required(),
    option<&HashArgs::check>("-c,--check", "Compare with the digests that the files list"),
};

constexpr Verb kVerbs[] = {
    verb<hash>("hash", "Print SHA-256 digests of files, or check them",
               "zorvctl hash /etc/persistent/cfg/mgmt >sums; zorvctl hash --check sums", kOptions),
};

} // namespace

extern const Family hash_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
