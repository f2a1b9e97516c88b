// The path functions of format.h: reduction by text, and directories with their parents.
#include <zorv/format.h>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_util";
constexpr size_t kPath = 4096; // the kernel's own limit of a path, its NUL included

// What stands in front of the position in the path that is looked at.
struct Reduced {
    char *text; // kPath bytes, without a NUL yet
    size_t length;
    bool relative;
};

bool is_unstarted(const Reduced &out)
{
    return out.length == 0 && out.relative;
}

bool ends_component(char c)
{
    return c == '/' || c == '\0';
}

bool is_dot(const char *at)
{
    return at[0] == '.' && ends_component(at[1]);
}

bool is_dot_dot(const char *at)
{
    return at[0] == '.' && at[1] == '.' && ends_component(at[2]);
}

// Takes the last component off, with the slash in front of it.
void drop_component(Reduced &out)
{
    while (out.length > 0 && out.text[--out.length] != '/') {
    }
}

// Makes the text the directory above the working directory; false when there is none.
bool climb_from_cwd(Reduced &out)
{
    if (!getcwd(out.text, kPath))
        return false;
    out.length = strlen(out.text);
    out.relative = false;
    drop_component(out);
    return true;
}

// How many characters at `at` add nothing to the path: "." components, slashes that collapse.
size_t count_idle(const char *at, const Reduced &out)
{
    if (is_unstarted(out) && is_dot(at))
        return at[1] == '/' ? 2 : 1;
    if (at[0] != '/')
        return 0;
    if (is_dot(at + 1))
        return 2;
    return ends_component(at[1]) || is_unstarted(out) ? 1 : 0;
}

// Copies the path by these rules; false when the working directory is needed and cannot be had, or
// the text grows too long.
bool reduce(const char *at, Reduced &out)
{
    while (*at != '\0') {
        if (is_unstarted(out) && is_dot_dot(at)) {
            if (!climb_from_cwd(out))
                return false;
            at += 2;
        } else if (!is_unstarted(out) && at[0] == '/' && is_dot_dot(at + 1)) {
            drop_component(out);
            at += 3;
        } else if (const size_t idle = count_idle(at, out)) {
            at += idle;
        } else {
            out.text[out.length++] = *at++;
            if (out.length == kPath) {
                errno = ENAMETOOLONG;
                return false;
            }
        }
    }
    if (out.length == 0)
        out.text[out.length++] = out.relative ? '.' : '/';
    out.text[out.length] = '\0';
    return true;
}

// Cuts missing components off the end of the path, each at its slash, until what is left exists.
// Returns where that ends, the text's first character when nothing of it is there; NULL with errno
// when it is no directory or cannot be told.
char *cut_missing(char *path)
{
    char *end = path + strlen(path);
    while (--end > path) {
        if (*end != '/')
            continue;
        *end = '\0';
        struct stat info;
        if (stat(path, &info) == 0) {
            if (S_ISDIR(info.st_mode))
                return end;
            errno = ENOTDIR;
        }
        if (errno != ENOENT)
            return nullptr;
    }
    return path;
}

} // namespace

char *vq_reduce_path(const char *path, char *output)
{
    Text allocated(output ? nullptr : static_cast<char *>(malloc(kPath)));
    if (!output && !allocated) {
        log_malloc_failed(kPath);
        errno = ENOMEM;
        return nullptr;
    }
    Reduced out{output ? output : allocated.get(), 0, path[0] != '/'};
    if (!reduce(path, out)) {
        if (errno != ENAMETOOLONG) // getcwd() says ERANGE when its text is too long
            log_error("Couldn't getcwd for path %s, %s", path, strerror(errno));
        return nullptr;
    }
    if (output)
        return output;
    char *const whole = allocated.release();
    char *const shrunk = static_cast<char *>(realloc(whole, out.length + 1));
    return shrunk ? shrunk : whole;
}

int vq_mkdir_p(const char *path, mode_t mode)
{
    struct stat info;
    if (stat(path, &info) == 0) {
        errno = S_ISDIR(info.st_mode) ? 0 : ENOTDIR;
        return errno == 0 ? 0 : -1;
    }
    char text[kPath];
    if (!vq_reduce_path(path, text))
        return -1;
    const char *const last = text + strlen(text);
    char *end = cut_missing(text);
    if (!end)
        return -1;
    while (end != last) {
        if (*end == '\0')
            *end = '/';
        end += strlen(end); // the next cut, or the end
        if (mkdir(text, mode) != 0)
            return -1;
    }
    errno = 0;
    return 0;
}
