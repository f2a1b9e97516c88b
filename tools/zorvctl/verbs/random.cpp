#include <string>

#include <zorv/text.h>

#include "base/cli.h"

namespace ctl {
namespace {

constexpr size_t kMost = 1 << 20;

struct RandomArgs {
    size_t count = 16;
    bool bytes = false, text = false;
};

void make_text(size_t count, Reply &reply)
{
    std::string text(count + 1, '\0');
    gen_rand_string(text.data(), count);
    text.pop_back();
    reply.document.set("text", text);
    reply.line(text);
}

void make_bytes(const RandomArgs &args, Reply &reply)
{
    std::string bytes(args.count, '\0');
    gen_rand_bytes(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size());
    const std::string digits = hexadecimal(bytes);
    reply.document.set("hex", digits);
    if (args.bytes)
        reply.bytes(bytes);
    else
        reply.line(digits);
}

void make_random(const RandomArgs &args, Reply &reply)
{
    if (args.count == 0 || args.count > kMost)
        throw Misuse(format("COUNT: \"%zu\" is not from 1 to %zu", args.count, kMost));
    if (args.text)
        make_text(args.count, reply);
    else
        make_bytes(args, reply);
}

constexpr Option kOptions[] = {
    option<&RandomArgs::count>("COUNT", "How many bytes or characters, 16 unless given"),
    option<&RandomArgs::bytes>("--bytes", "The bytes themselves, not their hexadecimal digits"),
    option<&RandomArgs::text>("--text", "Characters instead, digits and letters")
        .excludes("--bytes"),
};

constexpr Verb kVerbs[] = {
    verb<make_random>("random", "Print random bytes to tell things apart, too few for a key",
                      "zorvctl random --text 12", kOptions),
};

} // namespace

extern const Family random_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
