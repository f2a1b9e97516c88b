#include <zorv/cfg.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "cfg/index.h"
#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"

using namespace zorv;

// The layout is part of the interface: callers are built against it.
static_assert(sizeof(cfg_entry) == 4 * sizeof(char *));
static_assert(offsetof(cfg_entry, next) == 3 * sizeof(char *));
static_assert(offsetof(cfg_collector, tail) == sizeof(cfg_entry *));

namespace {

constexpr char kModule[] = "cfg";
constexpr std::string_view kMiscMark = "# misc";

// What "malloc failed" lines name, for those who know them by number.
constexpr int kRecordLine = 137;
constexpr int kKeyLine = 143;
constexpr int kValueLine = 149;

// One line of the file, taken apart.
struct CfgLine {
    enum { Nothing, MiscMark, Entry } kind;
    std::string_view key; // into the line, like value
    std::string_view value;
};

void free_entry(cfg_entry *entry)
{
    free(entry->key);
    if (entry->escaped != entry->value)
        free(entry->escaped);
    free(entry->value);
    free(entry);
}

using Entry = std::unique_ptr<cfg_entry, Closer<free_entry>>;

// Takes a line apart; it has its newline, if there is one.
CfgLine parse_line(std::string_view line)
{
    if (begins_with(line, kMiscMark))
        return {CfgLine::MiscMark, {}, {}};
    if (line.empty() || line.front() == '#' || line.front() == '\n' || line.front() == '\r')
        return {CfgLine::Nothing, {}, {}};
    line = {line.data(), strnlen(line.data(), line.size())};
    const size_t equals = line.find('=');
    if (equals == line.npos)
        return {CfgLine::Nothing, {}, {}};
    const std::string_view key(line.data(), equals);
    line.remove_prefix(equals + 1);
    if (!line.empty())
        line.remove_suffix(1); // On purpose any character: the firmware's lines end with a newline.
    return {CfgLine::Entry, strip_blanks(key), line};
}

// Makes the entry of a line; null without memory.
Entry make_entry(const CfgLine &line)
{
    Entry entry(static_cast<cfg_entry *>(calloc(1, sizeof(cfg_entry))));
    if (!entry) {
        log_error_as("parse_stream", "%d: calloc(%zu, %zu) failed", kRecordLine, size_t{1},
                     sizeof(cfg_entry));
        return nullptr;
    }
    entry->key = duplicate(line.key).release();
    if (!entry->key) {
        log_error_as("parse_stream", "%d: malloc(%zu) failed", kKeyLine, line.key.size() + 1);
        return nullptr;
    }
    entry->value = duplicate(line.value).release();
    if (!entry->value) {
        log_error_as("parse_stream", "%d: malloc(%zu) failed", kValueLine, line.value.size() + 1);
        return nullptr;
    }
    return entry;
}

// The list that a file becomes, line by line.
class Configuration {
public:
    // False when there is no memory for the line.
    bool add(const CfgLine &line)
    {
        if (line.kind == CfgLine::MiscMark)
            misc_ = true;
        if (line.kind != CfgLine::Entry)
            return true;
        Entry entry = make_entry(line);
        if (!entry)
            return false;
        cfg_entry *earlier = misc_ && head_ ? find_or_index(entry.get()) : nullptr;
        if (earlier)
            std::swap(earlier->value, entry->value); // its escaped value was never asked for
        else
            append(entry.release());
        return true;
    }

    cfg_entry *head() const { return head_; }

private:
    // The index is there from the first entry on that needs it. What it finds is ours to change.
    cfg_entry *find_or_index(const cfg_entry *entry)
    {
        if (!index_)
            index_.emplace(head_);
        return const_cast<cfg_entry *>(index_->find_or_add(entry));
    }

    void append(cfg_entry *entry)
    {
        (tail_ ? tail_->next : head_) = entry;
        tail_ = entry;
    }

    cfg_entry *head_ = nullptr;
    cfg_entry *tail_ = nullptr;
    bool misc_ = false;
    std::optional<KeyIndex> index_;
};

// One writer for both destinations; the caller has the stream to itself.
void write_entries(const cfg_entry *cfg, FILE *stream)
{
    for (; cfg; cfg = cfg->next) {
        fputs_unlocked(cfg->key, stream);
        fputc_unlocked('=', stream);
        fputs_unlocked(cfg->value, stream);
        fputc_unlocked('\n', stream);
    }
}

} // namespace

cfg_entry *parse_stream(FILE *stream)
{
    if (!stream)
        return nullptr;
    Configuration configuration;
    char *line = nullptr;
    size_t size = 0;
    ssize_t length;
    do {
        length = getline(&line, &size, stream);
    } while (length > 0 && configuration.add(parse_line({line, static_cast<size_t>(length)})));
    if (length < 0 && !feof(stream))
        log_error("Couldn't read all lines: %s", strerror(errno));
    const Text owner(line);
    return configuration.head();
}

cfg_entry *parse(const char *path)
{
    const File file(fopen(path, "re"));
    return parse_stream(file.get());
}

void free_cfg(cfg_entry *cfg)
{
    while (cfg)
        free_entry(std::exchange(cfg, cfg->next));
}

void print_cfg(const cfg_entry *cfg)
{
    flockfile(stdout);
    write_entries(cfg, stdout);
    funlockfile(stdout);
}

int save_cfg(const cfg_entry *cfg, const char *path)
{
    const File file(fopen(path, "we"));
    if (!file)
        return -1;
    fputs_unlocked("# CFG Start\n", file.get());
    write_entries(cfg, file.get());
    return 0;
}
