// lines.h - reading text files line by line through a buffer of fixed size.
#ifndef ZORV_CORE_LINES_H
#define ZORV_CORE_LINES_H

#include <cstdint>
#include <cstring>
#include <string_view>

#include <sys/stat.h>

#include "core/own.h"
#include "core/text_tools.h"

namespace zorv {

constexpr size_t kLineBuffer = 255; // what the line and value helpers read at a time

// Of a device or a pipe, which may have no end. A regular file, as all of /proc is, has one.
constexpr size_t kMostPieces = 1u << 20;

// Whether a piece may be read when there were so many; asked at every one, and the kernel but once.
inline bool goes_on(int fd, size_t pieces)
{
    struct stat info;
    return pieces != kMostPieces || (fstat(fd, &info) == 0 && S_ISREG(info.st_mode));
}

[[gnu::noinline]] inline bool goes_on(FILE *stream, size_t pieces)
{
    return stream && goes_on(fileno(stream), pieces);
}

// The lines of a stream with their newlines. A line of Size bytes or more comes in pieces of
// Size - 1, each of which stands for a line.
template <size_t Size = kLineBuffer>
class Lines {
public:
    explicit Lines(FILE *stream) : stream_(stream) {}

    // The next piece, borrowed until the next call; NULL at the end and for a null stream.
    char *next() { return goes_on(stream_, read_++) ? fgets(piece_, Size, stream_) : nullptr; }

private:
    FILE *stream_;
    size_t read_ = 0; // pieces
    char piece_[Size];
};

// Cuts a text at the first of these characters.
inline void cut_at(char *text, const char *ends)
{
    text[strcspn(text, ends)] = '\0';
}

// Finds the last line that begins with `key`, and in it the last piece between "=" signs, empty
// pieces aside: "serialno=a=b" has the value "b", and "serialno=" the value "serialno". Lines end
// at a carriage return as well. False when no line begins with key; value is left alone then.
inline bool read_last_value(FILE *stream, std::string_view key, char (&value)[kLineBuffer])
{
    bool found = false;
    Lines lines(stream);
    while (char *const line = lines.next()) {
        cut_at(line, "\r\n");
        if (strncmp(line, key.data(), key.size()) != 0)
            continue;
        char *rest = line;
        while (const char *const piece = strtok_r(rest, "=", &rest)) {
            copy_text(value, sizeof value, piece);
            found = true;
        }
    }
    return found;
}

} // namespace zorv

#endif
