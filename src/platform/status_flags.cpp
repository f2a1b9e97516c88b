#include <zorv/status.h>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>
#include <zorv/file.h>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_status";

bool is_kernel_file(const char *path)
{
    return strncmp(path, "/proc", 5) == 0;
}

// Makes the file if it is missing, and closes it again.
bool create(const char *path)
{
    return File(fopen(path, "ae")) != nullptr;
}

} // namespace

int system_is_xxx(const char *path, int fallback)
{
    if (!path || access(path, R_OK) != 0)
        return fallback;
    if (!is_kernel_file(path))
        return 1;
    const char *const word = fallback ? "true" : "false";
    char line[16];
    snprintf(line, sizeof line, "%s", word); // stays when the file is empty
    return strcmp(freadline(path, line, sizeof line, word), "true") == 0;
}

int system_set_xxx(const char *path, int value)
{
    if (path && !value && !is_kernel_file(path))
        return unlink(path);
    return system_set_value(path, value ? "true" : "false");
}

int system_set_value(const char *path, const char *value)
{
    if (!path || !value)
        return -1;
    File file(fopen(path, "we"));
    if (!file)
        return -1;
    if (fprintf(file.get(), "%s\n", value) < 0) // a long one does not wait for fclose()
        return -1;
    return fclose(file.release());
}

int touch_file(const char *path, mode_t mode)
{
    if (path && create(path) && chmod(path, mode) == 0)
        return 0;
    const int error = path ? errno : EFAULT;
    log_error("%s - %i/%s", path ? path : "", error, strerror(error));
    return -1;
}
