#include "base/output.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include <unistd.h>
#include <zorv/text.h>

namespace ctl {
namespace {

using Row = std::vector<std::string>;

constexpr char kNoWords[] = ""; // of a failure that is told by the exit status alone

// A reader that went away is a failed write, not our death; the children of a verb never see this.
class IgnorePipeSignal {
public:
    IgnorePipeSignal() : old_(signal(SIGPIPE, SIG_IGN)) {}
    IgnorePipeSignal(const IgnorePipeSignal &) = delete;
    IgnorePipeSignal &operator=(const IgnorePipeSignal &) = delete;
    ~IgnorePipeSignal() { signal(SIGPIPE, old_); }

private:
    void (*old_)(int);
};

void write_out(std::string_view bytes)
{
    const IgnorePipeSignal quiet;
    while (!bytes.empty()) {
        const ssize_t count = write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count >= 0)
            bytes.remove_prefix(static_cast<size_t>(count));
        else if (errno == EPIPE)
            throw Failure(Exit::failed, kNoWords); // who has read enough knows it
        else if (errno != EINTR)
            throw io_failure("standard output", errno);
    }
}

void complain(const Failure &failure)
{
    const IgnorePipeSignal quiet;
    if (*failure.what())
        fprintf(stderr, "zorvctl: %s\n", printable(failure.what()).c_str());
}

// What a terminal obeys, and what makes a text look like another one.
constexpr struct {
    char32_t first, last;
} kUnseen[] = {
    {0, 0x1f},          {0x7f, 0x9f},     // control characters
    {0x61c, 0x61c},                       // the direction of writing
    {0x200b, 0x200f},   {0x2028, 0x202e}, // no width, directions; line separators, directions
    {0x2060, 0x2069},   {0xfeff, 0xfeff}, // joiners, directions; the byte-order mark
    {0xe0000, 0xe007f},                   // tags
};

// Of a well-formed sequence.
char32_t code_point(std::string_view sequence)
{
    const auto first = static_cast<unsigned char>(sequence[0]);
    if (first < 0x80)
        return first;
    char32_t code = first & (0x7fU >> sequence.size());
    for (const char c : sequence.substr(1))
        code = code << 6 | (static_cast<unsigned char>(c) & 0x3fU);
    return code;
}

bool is_seen(std::string_view sequence)
{
    const char32_t code = code_point(sequence);
    return std::none_of(std::begin(kUnseen), std::end(kUnseen), [code](const auto &range) {
        return range.first <= code && code <= range.last;
    });
}

std::string scalar(const json_t *json)
{
    if (json_is_string(json))
        return printable({json_string_value(json), json_string_length(json)});
    if (json_is_boolean(json))
        return json_is_true(json) ? "yes" : "no";
    if (json_is_integer(json))
        return std::to_string(json_integer_value(json));
    return json_is_real(json) ? format("%g", json_real_value(json)) : "-";
}

std::string cell(const json_t *json)
{
    if (!json_is_array(json))
        return scalar(json);
    std::string joined;
    size_t index;
    const json_t *item;
    json_array_foreach(json, index, item) joined += (index ? "," : "") + scalar(item);
    return joined;
}

// Code points, each taken as one column.
size_t width(const std::string &text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
    }));
}

// Two blanks between columns, none at the end of a line; columns of numbers lean to the right.
std::string align(const std::vector<Row> &rows, const std::vector<bool> &numeric)
{
    std::vector<size_t> widths(numeric.size());
    for (const Row &row : rows)
        for (size_t column = 0; column < row.size(); column++)
            widths[column] = std::max(widths[column], width(row[column]));
    std::string text;
    for (const Row &row : rows) {
        std::string line;
        for (size_t column = 0; column < row.size(); column++) {
            const std::string gap(widths[column] - width(row[column]), ' ');
            line += (column ? "  " : "");
            line += numeric[column] ? gap + row[column] : row[column] + gap;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text;
}

// A column is "member", or "member=title".
std::string member_of(std::string_view column)
{
    return std::string(column.substr(0, column.find('=')));
}

std::string title_of(std::string_view column)
{
    std::string title(column.substr(column.find('=') + 1)); // npos + 1 is 0
    for (char &c : title)
        c = c == '_' ? ' ' : static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return title;
}

const char *word(Exit exit)
{
    switch (exit) {
    case Exit::done:
    case Exit::no:
        return "not-found";
    case Exit::usage:
        return "usage";
    case Exit::unavailable:
        return "unavailable";
    case Exit::refused:
        return "refused";
    case Exit::failed:
        break;
    }
    return "io";
}

} // namespace

Failure::Failure(Exit exit, const std::string &message) : Failure(exit, word(exit), message) {}

Failure io_failure(const std::string &path, int error)
{
    return {Exit::failed, path + ": " + strerror(error)};
}

std::string format(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    char *text = nullptr;
    const int length = vasprintf(&text, pattern, arguments);
    va_end(arguments);
    if (length < 0)
        throw std::bad_alloc();
    std::string result(text, static_cast<size_t>(length));
    free(text);
    return result;
}

std::string hexadecimal(std::string_view bytes)
{
    std::string digits(2 * bytes.size() + 1, '\0');
    uchar2lowerhex(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
                   digits.data(), digits.size());
    digits.pop_back();
    return digits;
}

std::string printable(std::string_view text, std::string_view kept)
{
    std::string shown;
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        if (length > 0 && (is_seen(character) || kept.find(character) != kept.npos))
            shown += character;
        else
            for (const char c : character)
                shown += format("\\x%02x", static_cast<unsigned char>(c));
        text.remove_prefix(character.size());
    }
    return shown;
}

void Reply::bytes(std::string_view content)
{
    if (isatty(STDOUT_FILENO))
        text += printable(content, "\n\t");
    else
        text += content;
}

void Reply::table(const char *name, const Value &list, std::initializer_list<const char *> columns)
{
    document.set(name, list);
    if (json_ || list.size() == 0)
        return;
    std::vector<Row> rows(header_ ? 1 : 0);
    if (header_)
        for (const char *column : columns)
            rows[0].push_back(title_of(column));
    std::vector<bool> numeric(columns.size(), true);
    for (size_t index = 0; index < list.size(); index++) {
        Row row;
        for (const char *column : columns) {
            const json_t *member =
                json_object_get(json_array_get(list.get(), index), member_of(column).c_str());
            numeric[row.size()] =
                numeric[row.size()] && (!member || json_is_null(member) || json_is_number(member));
            row.push_back(cell(member));
        }
        rows.push_back(row);
    }
    text += align(rows, numeric);
}

void Reply::pairs(const Value &object)
{
    std::vector<Row> rows;
    const char *name;
    json_t *member;
    json_object_foreach(const_cast<json_t *>(object.get()), name, member)
    {
        document.set(name, Value::take(json_incref(member)));
        rows.push_back({name, cell(member)});
    }
    text += align(rows, {false, false});
}

void Reply::miss(const std::string &message)
{
    if (!json_)
        throw Failure(Exit::no, message);
    document.set("value", Value());
    exit = Exit::no;
}

void Reply::flush()
{
    if (!json_)
        write_out(text);
    text.clear();
}

void Reply::next()
{
    write_out(json_ ? document.dump() + '\n' : text);
    text.clear();
    document = Value::object();
}

std::string Reply::rest() const
{
    if (!json_)
        return text;
    return in_lines ? "" : document.dump() + '\n';
}

int deliver(const Reply &reply)
{
    try {
        write_out(reply.rest());
        return static_cast<int>(reply.exit);
    } catch (const Failure &failure) {
        complain(failure);
        return static_cast<int>(failure.exit());
    }
}

int deliver(const Failure &failure, bool json)
{
    if (!json) {
        complain(failure);
        return static_cast<int>(failure.exit());
    }
    Reply reply(true);
    reply.exit = failure.exit();
    reply.document.set("error",
                       Value::object().set("code", failure.code()).set("message", failure.what()));
    return deliver(reply);
}

} // namespace ctl
