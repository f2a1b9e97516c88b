// json.cpp - members of JSON files.
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <vector>

#include <jansson.h>

#include <zorv/json.h>

#include "base/cli.h"
#include "base/text_file.h"
#include "core/own.h"

namespace ctl {
namespace {

struct GetArgs {
    std::string file;
    std::vector<std::string> keys;
    bool integer = false;
};

std::string joined(const std::vector<std::string> &keys)
{
    std::string path;
    for (const auto &key : keys)
        path += (path.empty() ? "" : " ") + key;
    return path;
}

zorv::Json load(const std::string &path)
{
    const std::string text = read_file(path);
    json_error_t error;
    zorv::Json json(json_loadb(text.data(), text.size(), JSON_DECODE_ANY, &error));
    if (!json)
        throw Failure(Exit::failed, "json",
                      path + ":" + std::to_string(error.line) + ": " + error.text);
    return json;
}

// A member of an object, or of an array by its number from 0; NULL when there is none.
json_t *member(json_t *json, const std::string &key)
{
    if (!json_is_array(json))
        return json_object_get(json, key.c_str());
    size_t index = 0;
    const char *const end = key.data() + key.size();
    const auto [stop, error] = std::from_chars(key.data(), end, index);
    return error == std::errc() && stop == end ? json_array_get(json, index) : nullptr;
}

// Whether the library's int has the number whole: it keeps the lower 32 bits of a larger one.
bool is_kept(const json_t *json, int number)
{
    errno = 0;
    const long long whole = json_is_string(json) ? strtoll(json_string_value(json), nullptr, 0)
                                                 : json_integer_value(json);
    return errno == 0 && whole == number;
}

// As components read settings: a number in a text counts as well.
Value integer_value(json_t *json, const std::string &path)
{
    const zorv::Json holder(json_object());
    if (json_object_set(holder.get(), "value", json) != 0)
        throw std::bad_alloc();
    int number = 0;
    if (zorv_json_integer_value_from_obj(holder.get(), path.c_str(), "value", 1, &number) == 0)
        throw Failure(Exit::no, path + ": not an integer");
    if (!is_kept(json, number))
        throw Failure(Exit::no, path + ": not an integer of 32 bits");
    return Value(number);
}

void get(const GetArgs &args, Reply &reply)
{
    const zorv::Json document = load(args.file);
    const std::string path = joined(args.keys);
    json_t *json = document.get();
    for (const auto &key : args.keys)
        json = json ? member(json, key) : nullptr;
    reply.document.set("file", args.file).set("found", json != nullptr);
    if (!json)
        return reply.miss(args.file + ": no member " + path);
    const Value value = args.integer ? integer_value(json, path) : Value::take(json_incref(json));
    reply.document.set("value", value);
    reply.line(json_is_string(value.get()) ? json_string_value(value.get()) : value.dump());
}

constexpr Option kGet[] = {
    option<&GetArgs::file>("FILE", "The file").required(),
    option<&GetArgs::keys>(
        "KEY", "The keys that lead to it, from the outside in; into an array, numbers from 0"),
    option<&GetArgs::integer>("--int", "An integer, or a text that holds one (\"0x1f\")"),
};

constexpr Verb kVerbs[] = {
    verb<get>("get", "Print a member: a text as it is, any other value as JSON",
              "zorvctl json get /tmp/report.json board ports 0 name", kGet),
};

} // namespace

extern const Family json_family = {"json", "Read JSON files", {kVerbs}};

} // namespace ctl
