// aes.cpp - AES-128 in CBC mode over whole files, padded as other tools pad them (PKCS #7).
#include <zorv/aes.h>

#include <array>
#include <optional>

#include <zorv/text.h>

#include "base/cli.h"
#include "base/text_file.h"

namespace ctl {
namespace {

constexpr size_t kBlock = 16; // bytes; a key has as many

using Block = std::array<uint8_t, kBlock>;

struct AesArgs {
    std::string file = "-", key_file;
    std::optional<std::string> iv;
    bool no_padding = false;
};

// False for what is not exactly the digits of a block.
bool parse_block(const std::string &digits, Block &block)
{
    return digits.size() == 2 * kBlock &&
           digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos &&
           hex2uchar(digits.c_str(), block.data(), kBlock) == kBlock;
}

// Sixteen bytes, or their hexadecimal digits in a line.
Block read_key(const std::string &path)
{
    std::string text = read_input(path);
    Block key;
    if (text.size() == kBlock) {
        text.copy(reinterpret_cast<char *>(key.data()), kBlock);
        return key;
    }
    if (text.ends_with('\n'))
        text.pop_back();
    if (!parse_block(text, key))
        throw Failure(Exit::failed, "not-a-key",
                      path + ": not a key of 16 bytes or 32 hexadecimal digits");
    return key;
}

Block parse_iv(const std::string &text)
{
    Block iv;
    if (!parse_block(text, iv))
        throw Misuse("--iv: not 32 hexadecimal digits");
    return iv;
}

// The first block of bytes, off them.
Block take_block(std::string &bytes)
{
    Block block = {};
    bytes.copy(reinterpret_cast<char *>(block.data()), kBlock);
    bytes.erase(0, kBlock);
    return block;
}

std::string_view view_of(const Block &block)
{
    return {reinterpret_cast<const char *>(block.data()), kBlock};
}

// What both directions begin with.
Block read_both(const AesArgs &args, std::string &bytes)
{
    if (args.file == "-" && args.key_file == "-")
        throw Misuse("--key-file: the standard input is the FILE already");
    const Block key = read_key(args.key_file);
    bytes = read_input(args.file);
    return key;
}

// In place, by the library, which takes whole blocks only.
void run_cipher(decltype(aes_cbc_encrypt_128) cipher, const AesArgs &args, const Block &key,
                const Block &iv, std::string &bytes)
{
    auto *const data = reinterpret_cast<uint8_t *>(bytes.data());
    if (cipher(key.data(), iv.data(), data, bytes.size()) != 0)
        throw Failure(Exit::failed, "not-blocks", args.file + ": not whole blocks of 16 bytes");
}

void answer(const AesArgs &args, const Block &iv, const std::string &bytes, Reply &reply)
{
    reply.document.set("file", args.file)
        .set("iv", hexadecimal(view_of(iv)))
        .set("size", bytes.size());
    if (reply.json())
        reply.document.set("hex", hexadecimal(bytes));
    else
        reply.bytes(bytes);
}

void encrypt(const AesArgs &args, Reply &reply)
{
    std::string bytes;
    const Block key = read_both(args, bytes);
    Block iv;
    if (args.iv)
        iv = parse_iv(*args.iv);
    else
        aes_cbc_generate_iv(iv.data(), iv.size());
    const size_t more = args.no_padding ? 0 : kBlock - bytes.size() % kBlock;
    bytes.append(more, static_cast<char>(more));
    run_cipher(aes_cbc_encrypt_128, args, key, iv, bytes);
    if (!args.iv)
        bytes.insert(0, view_of(iv));
    answer(args, iv, bytes, reply);
}

void decrypt(const AesArgs &args, Reply &reply)
{
    std::string bytes;
    const Block key = read_both(args, bytes);
    const Block iv = args.iv ? parse_iv(*args.iv) : take_block(bytes);
    run_cipher(aes_cbc_decrypt_128, args, key, iv, bytes);
    if (!args.no_padding) {
        const size_t more = static_cast<unsigned char>(bytes.back());
        if (more == 0 || more > kBlock || !bytes.ends_with(std::string(more, bytes.back())))
            throw Failure(Exit::failed, "padding", args.file + ": no padding: another key or IV?");
        bytes.resize(bytes.size() - more);
    }
    answer(args, iv, bytes, reply);
}

constexpr Option kFile = option<&AesArgs::file>("FILE", "- or nothing is the standard input");
constexpr Option kKey =
    option<&AesArgs::key_file>("--key-file", "With the key: 16 bytes, or 32 hexadecimal digits")
        .required();
constexpr Option kEncrypt[] = {
    kFile,
    kKey,
    option<&AesArgs::iv>("--iv",
                         "Begin with these 32 digits; a random block, put in front, unless given"),
    option<&AesArgs::no_padding>("--no-padding", "Take whole blocks of 16 bytes, and add nothing"),
};
constexpr Option kDecrypt[] = {
    kFile,
    kKey,
    option<&AesArgs::iv>("--iv", "Begin with these 32 digits; the first block unless given"),
    option<&AesArgs::no_padding>("--no-padding", "Leave the end as it is"),
};

constexpr Verb kVerbs[] = {
    verb<encrypt>("encrypt", "Write the bytes of a file encrypted, in hexadecimal with --json",
                  "zorvctl aes encrypt --key-file /tmp/key plain >secret", kEncrypt),
    verb<decrypt>("decrypt", "Write the bytes that were encrypted, in the same way",
                  "zorvctl aes decrypt --key-file /tmp/key secret", kDecrypt),
};

} // namespace

extern const Family aes_family = {"aes", "Encrypt and decrypt with AES-128 in CBC mode", {kVerbs}};

} // namespace ctl
