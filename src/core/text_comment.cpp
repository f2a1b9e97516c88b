#include <zorv/text.h>

#include <cstring>
#include <string_view>

namespace {

constexpr size_t kLine = 255; // characters of a line, its newline included

// A line of a file, which may hold NULs.
struct Line {
    char text[kLine];
    size_t length;
};

bool is_whole(const Line &line)
{
    return line.length < kLine || line.text[kLine - 1] == '\n';
}

bool contains(const Line &line, std::string_view pattern)
{
    return std::string_view(line.text, line.length).find(pattern) != std::string_view::npos;
}

// Reads a line, or as much of it as fits; false at the end of the file.
bool read_piece(FILE *stream, Line &line)
{
    line.length = 0;
    int c = EOF;
    while (line.length < kLine && c != '\n' && (c = getc_unlocked(stream)) != EOF)
        line.text[line.length++] = static_cast<char>(c);
    return line.length > 0;
}

void skip_line(FILE *stream)
{
    int c = 0;
    while (c != '\n' && c != EOF)
        c = getc_unlocked(stream);
}

// Writes over the first character of the line that was just read; false when the stream cannot be
// written or positioned. Between reading and writing a stream wants to be positioned anyway.
bool comment_out(FILE *stream, const Line &line)
{
    const long length = static_cast<long>(line.length);
    return fseek(stream, -length, SEEK_CUR) == 0 && fputc('#', stream) != EOF &&
           fseek(stream, length - 1, SEEK_CUR) == 0;
}

// One pass over the file for one pattern; -1 when a line was too long or the stream fails.
int comment_out_pattern(FILE *stream, const char *pattern)
{
    if (fseek(stream, 0, SEEK_SET) != 0)
        return -1;
    int rc = 0;
    Line line;
    while (read_piece(stream, line)) {
        if (!is_whole(line)) {
            skip_line(stream);
            rc = -1;
        } else if (contains(line, pattern) && !comment_out(stream, line)) {
            return -1;
        }
    }
    return feof(stream) && fflush(stream) == 0 ? rc : -1;
}

} // namespace

int comment_out_lines(FILE *stream, char *patterns)
{
    int rc = 0;
    char *rest = patterns;
    while (const char *const pattern = strtok_r(rest, "|", &rest)) {
        if (comment_out_pattern(stream, pattern) != 0)
            rc = -1;
    }
    return rc;
}
