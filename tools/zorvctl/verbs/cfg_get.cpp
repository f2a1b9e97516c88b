// cfg_get.cpp - values of a configuration, as the library's getters read them.
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <optional>
#include <unordered_map>
#include <vector>

#include "cfg.h"

namespace ctl {
namespace {

enum class Type { text, escaped, truth, int32, uint32, decimal, int64 };

struct GetArgs {
    std::string file;
    std::vector<std::string> keys;
    std::optional<std::string> fallback;
    Type type = Type::text;
    bool shell = false;
};

// A value as JSON and, byte for byte, as text.
struct Found {
    Value value;
    std::string text;
};

// What one of the library's getters makes of a key; nothing when it falls back.
template <class Getter>
std::optional<Found> number(Getter getter, const cfg_entry *cfg, const std::string &key)
{
    errno = 0; // a range error left over would count as one of this value
    const int64_t value = getter(cfg, 0, "%s", key.c_str());
    errno = 0;
    if (value != getter(cfg, 1, "%s", key.c_str()))
        return std::nullopt;
    return Found{Value(value), std::to_string(value)};
}

std::optional<Found> truth(const cfg_entry *cfg, const std::string &key)
{
    const int value = get_bool(cfg, -1, "%s", key.c_str());
    if (value < 0)
        return std::nullopt;
    return Found{Value(value == 1), value ? "yes" : "no"};
}

std::optional<Found> look_up(Type type, cfg_entry *cfg, const std::string &key)
{
    switch (type) {
    case Type::truth:
        return truth(cfg, key);
    case Type::int32:
        return number(get_int32, cfg, key);
    case Type::uint32:
        return number(get_uint32, cfg, key);
    case Type::decimal:
        return number(get_int32_dec, cfg, key);
    case Type::int64:
        return number(get_int64, cfg, key);
    case Type::text:
    case Type::escaped:
        break;
    }
    const char *text = type == Type::escaped ? get_esc_value(cfg, nullptr, "%s", key.c_str())
                                             : get_value(cfg, nullptr, "%s", key.c_str());
    if (!text)
        return std::nullopt;
    return Found{Value(text), text};
}

bool has_key(const cfg_entry *cfg, const std::string &key)
{
    const std::string wanted = folded(key);
    while (cfg && folded(cfg->key) != wanted)
        cfg = cfg->next;
    return cfg;
}

// What stands in for a value, read as one.
Found read_default(Type type, const std::string &text)
{
    if (text.find('\n') != text.npos)
        throw Misuse("--default: a value holds no newline: " + text);
    const Config cfg = parse_text("default=" + text + "\n");
    const auto found = look_up(type, cfg.get(), "default");
    if (!found)
        throw Failure(Exit::usage, "--default: not of the type asked for: " + text);
    return *found;
}

// Why there is no value; where the library had no memory to give it, that is thrown.
Failure not_found(Type type, const cfg_entry *cfg, const std::string &key)
{
    if (!has_key(cfg, key))
        return {Exit::no, key + ": no such key"};
    if (type == Type::text || type == Type::escaped)
        throw std::bad_alloc();
    return {Exit::no, key + ": the value is not of the type asked for"};
}

// The name of a shell's variable for a key: wireless_1_ssid.
std::string shell_name(std::string key)
{
    for (char &c : key)
        if (!isalnum(static_cast<unsigned char>(c)))
            c = '_';
    return key.empty() || isdigit(static_cast<unsigned char>(key[0])) ? "_" + key : key;
}

void check_shell_names(const std::vector<std::string> &keys)
{
    std::unordered_map<std::string, std::string_view> names;
    for (const std::string &key : keys) {
        const auto [other, added] = names.emplace(shell_name(key), key);
        if (!added && other->second != key)
            throw Misuse("--shell: " + key + " and " + std::string(other->second) +
                         " have one name");
    }
}

std::string shell_quoted(std::string_view text)
{
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'')
            quoted += "'\\'"; // out of the quotes, an escaped one, and in again
        quoted += c;
    }
    return quoted + "'";
}

// Adds the value of a key to the reply's text; returns what the document says of it.
Value get_one(const GetArgs &args, cfg_entry *cfg, const std::string &key, Reply &reply)
{
    const auto found = look_up(args.type, cfg, key);
    if (!found) {
        const Failure missing = not_found(args.type, cfg, key);
        if (!args.fallback)
            throw Failure(missing);
    }
    const Found value = found ? *found : read_default(args.type, *args.fallback);
    if (args.shell)
        reply.bytes(shell_name(key) + "=" + shell_quoted(value.text));
    else
        reply.bytes(args.keys.size() == 1 ? value.text : key + "=" + value.text);
    reply.line("");
    if (json_is_false(value.value.get()))
        reply.exit = Exit::no;
    return Value::object()
        .set("key", key)
        .set("found", found.has_value())
        .set("value", value.value);
}

void get(const GetArgs &args, Reply &reply)
{
    if (args.shell)
        check_shell_names(args.keys);
    const Config cfg = load(args.file);
    if (args.keys.size() == 1) {
        reply.document = get_one(args, cfg.get(), args.keys[0], reply);
        return;
    }
    Value values = Value::list();
    for (const std::string &key : args.keys)
        values.add(get_one(args, cfg.get(), key, reply));
    reply.document.set("values", values);
}

constexpr char kReadAs[] = "Read as, at most one of";

constexpr Option kGet[] = {
    option<&GetArgs::file>("FILE", "The configuration file").required(),
    option<&GetArgs::keys>("KEY", "A key; case does not matter. Of several, print KEY=VALUE")
        .required(),
    option<&GetArgs::fallback>("--default", "Print this when there is no such value"),
    option<&GetArgs::shell>("--shell", "Print NAME='VALUE' for a shell's eval: the key, with _ for "
                                       "what a name cannot have")
        .excludes("--escaped"),
    choice<&GetArgs::type, Type::escaped>(
        "--escaped", "The value, for use between double quotes in a shell command")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::truth>("--bool", "A switch: exit 0 for on, 1 for off")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::int32>("--int",
                                        "A signed 32-bit number; 0x and a leading 0 tell its base")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::uint32>("--uint", "An unsigned 32-bit number, likewise")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::decimal>("--dec", "A signed 32-bit number in base 10")
        .one_of(kReadAs),
    choice<&GetArgs::type, Type::int64>("--int64",
                                        "A signed 64-bit number; 0x and a leading 0 tell its base")
        .one_of(kReadAs),
};
} // namespace

constexpr Verb kCfgGet[1] = {
    verb<get>("get", "Print the values of keys; exit 1 and none when one is missing",
              "zorvctl cfg get /tmp/system.cfg radio.1.mode\n"
              "  settings=$(zorvctl cfg get /tmp/system.cfg --shell --default '' system.name "
              "radio.1.mode) && eval \"$settings\"",
              kGet),
};

} // namespace ctl
