#include <zorv/status.h>

#include <cstring>

#include <zorv/file.h>

#include "core/device_files.h"
#include "core/lines.h"

using namespace zorv;

namespace {

constinit char g_main_mac[sizeof "00:11:22:33:44:55"] = ""; // of the last call

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

const char *get_main_mac_str()
{
    freadvalue(kSystemInfo, "eth0.macaddr", g_main_mac, sizeof g_main_mac, "");
    if (*g_main_mac == '\0')
        freadvalue(kSystemInfo, "wifi0.macaddr", g_main_mac, sizeof g_main_mac,
                   "00:11:22:33:44:55");
    return g_main_mac;
}

long get_manufid()
{
    char text[5];
    return strtol(freadvalue(kSystemInfo, "manufid", text, sizeof text, "0000"), nullptr, 16);
}
