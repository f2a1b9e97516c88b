#include <zorv/status.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/lines.h"

using namespace zorv;

namespace {

File open_board_file(const char *path)
{
    return File(path ? fopen(path, "re") : nullptr);
}

} // namespace

int get_boardrevision(const char *path)
{
    const File file = open_board_file(path);
    char value[kLineBuffer] = "";
    if (!file)
        return -1;
    read_last_value(file.get(), "boardrevision", value);
    return static_cast<int>(strtol(value, nullptr, 10));
}

int get_boardsn(const char *path, char *buf, int size)
{
    if (!buf)
        return -1;
    File file = open_board_file(path);
    if (!file)
        return -1;
    char value[kLineBuffer] = "";
    read_last_value(file.get(), "serialno", value);
    char text[sizeof value + 1];
    const int length = snprintf(text, sizeof text, "%s\n", value);
    if (length > size) {
        // On purpose: the file stays open; kept for callers built against it.
        [[maybe_unused]] const FILE *const left_open = file.release();
        return -1;
    }
    memcpy(buf, text, static_cast<size_t>(length)); // without its NUL
    return 0;
}
