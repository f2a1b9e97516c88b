#include <zorv/status.h>

#include <cerrno>
#include <cstring>

#include <zorv/file.h>

#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr char kUnknown[] = "unknown.0";

constinit struct {
    char text[64];
    bool good; // for good
} g_version = {};

// Reads a first line; an empty file is no failure, and gives "".
template <int Size>
int read_first_line(const char *path, char (&line)[Size])
{
    const int saved = errno;
    line[0] = '\0';
    errno = 0; // what an empty file gives is the errno of before
    const int rc = fsreadline(path, line, Size);
    errno = saved;
    return rc;
}

// Reads the two files and puts the version together.
int read_version()
{
    char build[32];
    const int version_rc = read_first_line("/usr/etc/.version", g_version.text);
    const int build_rc = read_first_line("/usr/etc/.build", build);
    if (version_rc != 0 || build_rc != 0)
        return version_rc != 0 ? version_rc : build_rc;
    const size_t length = strlen(g_version.text);
    if (length == 0 || *build == '\0')
        return -EINVAL;
    snprintf(g_version.text + length, sizeof g_version.text - length, ".%s", build);
    return 0;
}

} // namespace

int get_version(const char **out)
{
    int rc = 0;
    if (!g_version.good) {
        rc = read_version();
        g_version.good = rc == 0;
    }
    if (!g_version.good)
        copy_text(g_version.text, sizeof g_version.text, kUnknown);
    if (out)
        *out = g_version.text;
    return rc;
}
