#include <algorithm>
#include <string>

#include <zorv/base64.h>

#include "base/cli.h"
#include "base/text_file.h"

namespace ctl {
namespace {

constexpr char kAlphabets[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/-_";

struct Base64Args {
    std::string file = "-";
    bool url = false;
};

void encode(const Base64Args &args, Reply &reply)
{
    const std::string input = read_input(args.file);
    const int length = static_cast<int>(input.size()); // far below what an int holds
    std::string text(static_cast<size_t>(base64_encode_len(length)), '\0');
    const auto *bytes = reinterpret_cast<const unsigned char *>(input.data());
    (args.url ? base64url_encode : base64rfc_encode)(text.data(), bytes, length);
    text.resize(text.find('\0'));
    reply.document.set("file", args.file).set("base64", text);
    reply.line(text);
}

// Without white space: the library's decoder ends at the first line break.
std::string join_lines(const std::string &text)
{
    std::string joined;
    joined.reserve(text.size());
    for (const char c : text)
        if (c != '\n' && c != '\r' && c != ' ' && c != '\t')
            joined += c;
    return joined;
}

void decode(const Base64Args &args, Reply &reply)
{
    const std::string text = join_lines(read_input(args.file));
    const size_t characters = std::min(text.find_first_not_of(kAlphabets), text.size());
    if (text.find_first_not_of('=', characters) != std::string::npos || characters % 4 == 1)
        throw Failure(Exit::failed, "not-base64", args.file + ": not Base64 to its end");
    std::string bytes(static_cast<size_t>(base64_decode_len(text.c_str())), '\0');
    base64_decode(reinterpret_cast<unsigned char *>(bytes.data()), text.c_str());
    bytes.resize(characters / 4 * 3 + characters % 4 * 3 / 4);
    reply.document.set("file", args.file).set("size", bytes.size()).set("hex", hexadecimal(bytes));
    reply.bytes(bytes);
}

constexpr Option kEncode[] = {
    option<&Base64Args::file>("FILE", "The bytes; - or nothing is the standard input"),
    option<&Base64Args::url>("--url", "Use the URL-safe alphabet, without padding"),
};
constexpr Option kDecode[] = {
    option<&Base64Args::file>("FILE", "The text; - or nothing is the standard input"),
    option<&Base64Args::url>("--url", "Changes nothing: both alphabets are read"),
};

constexpr Verb kVerbs[] = {
    verb<encode>("encode", "Print bytes as one line of Base64",
                 "zorvctl base64 encode --url /tmp/token", kEncode),
    verb<decode>("decode",
                 "Write the bytes that a Base64 text stands for, in hexadecimal with --json",
                 "zorvctl base64 decode /tmp/token.txt", kDecode),
};

} // namespace

extern const Family base64_family = {"base64", "Encode and decode Base64", {kVerbs}};

} // namespace ctl
