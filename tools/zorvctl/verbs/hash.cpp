#include <string>
#include <vector>

#include <zorv/sha256.h>
#include <zorv/text.h>

#include "base/cli.h"
#include "base/text_file.h"

namespace ctl {
namespace {

constexpr size_t kDigestLimit = size_t{1} << 29; // from here on the library's digests are its own

struct HashArgs {
    std::vector<std::string> files;
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
    unsigned char digest[32];
    sha256_final(&context, digest);
    char text[2 * sizeof digest + 1];
    uchar2lowerhex(digest, sizeof digest, text, sizeof text);
    return text;
}

void hash(const HashArgs &args, Reply &reply)
{
    Value digests = Value::list();
    for (const std::string &file : args.files) {
        std::string digest = digest_of(file);
        digests.add(Value::object().set("file", file).set("sha256", digest));
        reply.line(digest.append("  ").append(file));
    }
    reply.document.set("digests", digests);
}

constexpr Option kOptions[] = {
    option<&HashArgs::files>("FILE", "The files; - is the standard input").required(),
};

constexpr Verb kVerbs[] = {
    verb<hash>("hash", "Print SHA-256 digests of files", "zorvctl hash /etc/persistent/cfg/mgmt",
               kOptions),
};

} // namespace

extern const Family hash_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
