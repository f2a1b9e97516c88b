// One line, one number and one value of a file, against stdio, against GLib's whole files and
// against what a program writes for itself with open(), read() and close().
#include "ratio.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>
#include <zorv/file.h>

namespace {

// A file of the bench, gone with the process: so many lines "Key0:  0 kB", "Key1:  1 kB" ...
class BenchFile {
public:
    explicit BenchFile(long lines) : path_("/tmp/bench_file." + std::to_string(getpid()))
    {
        std::ofstream out(path_);
        for (long i = 0; i < lines; ++i)
            out << "Key" << i << ":  " << i << " kB\n";
        if (lines == 0)
            out << "1048576\n";
    }
    BenchFile(const BenchFile &) = delete;
    BenchFile &operator=(const BenchFile &) = delete;
    ~BenchFile() { unlink(path_.c_str()); }
    const char *path() const { return path_.c_str(); }

private:
    std::string path_;
};

struct Free {
    void operator()(char *text) const { g_free(text); }
    void operator()(FILE *stream) const { fclose(stream); }
};
using GlibText = std::unique_ptr<char, Free>;
using Stream = std::unique_ptr<FILE, Free>;

// The beginning of a file, as much as fits.
template <size_t Size>
const char *read_file(const char *path, char (&text)[Size])
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t count = fd >= 0 ? read(fd, text, Size - 1) : 0;
    close(fd);
    text[count > 0 ? count : 0] = '\0';
    return text;
}

GlibText load(const char *path)
{
    char *text = nullptr;
    g_file_get_contents(path, &text, nullptr, nullptr);
    return GlibText(text);
}

long line_zorv(const char *path)
{
    char line[64];
    return *freadline(path, line, sizeof line, "");
}

long line_stdio(const char *path)
{
    const Stream stream(fopen(path, "re"));
    char line[64];
    if (!stream || !fgets(line, sizeof line, stream.get()))
        return 0;
    line[strcspn(line, "\n")] = '\0';
    return *line;
}

long line_glib(const char *path)
{
    const GlibText text = load(path);
    if (char *const end = strchr(text.get(), '\n'))
        *end = '\0';
    return *text;
}

long line_read(const char *path)
{
    char line[64];
    read_file(path, line);
    line[strcspn(line, "\n")] = '\0';
    return *line;
}

long number_zorv(const char *path)
{
    return freadlong(path, 0);
}

long number_stdio(const char *path)
{
    const Stream stream(fopen(path, "re"));
    long number = 0;
    return stream && fscanf(stream.get(), "%ld", &number) == 1 ? number : 0;
}

long number_glib(const char *path)
{
    return strtol(load(path).get(), nullptr, 10);
}

long number_read(const char *path)
{
    char text[16];
    return strtol(read_file(path, text), nullptr, 10);
}

// The value of the last of 50 keys.
constexpr char kKey[] = "Key49:";

long value_zorv(const char *path)
{
    char value[16];
    return atol(freadvalue(path, kKey, value, sizeof value, "0"));
}

long value_stdio(const char *path)
{
    const Stream stream(fopen(path, "re"));
    char line[255], key[64], value[64];
    while (stream && fgets(line, sizeof line, stream.get()))
        if (sscanf(line, "%63s %63s", key, value) == 2 && strcmp(key, kKey) == 0)
            return atol(value);
    return 0;
}

long value_in(const char *text)
{
    for (const char *line = text; line; line = strchr(line, '\n')) {
        line += *line == '\n' ? 1 : 0;
        if (strncmp(line, kKey, sizeof kKey - 1) == 0)
            return atol(line + sizeof kKey - 1);
    }
    return 0;
}

long value_glib(const char *path)
{
    return value_in(load(path).get());
}

long value_read(const char *path)
{
    char text[4096];
    return value_in(read_file(path, text));
}

template <class Work>
void add(const char *family, long lines, long want, const char *who, Work work)
{
    bench::add(family, {lines}, who, [work, want](benchmark::State &state, long size) {
        const BenchFile file(size);
        for ([[maybe_unused]] const auto _ : state)
            if (work(file.path()) != want)
                state.SkipWithError("something else was read");
    });
}

} // namespace

void register_benches()
{
    add("line", 0, '1', "zorv", line_zorv);
    add("line", 0, '1', "stdio", line_stdio);
    add("line", 0, '1', "GLib", line_glib);
    add("line", 0, '1', "read()", line_read);
    add("number", 0, 1048576, "zorv", number_zorv);
    add("number", 0, 1048576, "stdio", number_stdio);
    add("number", 0, 1048576, "GLib", number_glib);
    add("number", 0, 1048576, "read()", number_read);
    add("value", 50, 49, "zorv", value_zorv);
    add("value", 50, 49, "stdio", value_stdio);
    add("value", 50, 49, "GLib", value_glib);
    add("value", 50, 49, "read()", value_read);
}
