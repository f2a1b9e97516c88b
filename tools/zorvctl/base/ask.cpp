#include "base/ask.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/text_file.h"
#include "core/own.h"

namespace ctl {

bool exists(const std::string &path)
{
    if (faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0)
        return true;
    expect_answer(path, errno);
    return false;
}

std::optional<std::string> read_if_there(const std::string &path)
{
    const zorv::Fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        expect_answer(path, errno);
        return {};
    }
    std::string contents;
    char piece[4096];
    while (const size_t count = read_piece(file, path, piece, sizeof piece))
        contents.append(piece, count);
    return contents;
}

std::vector<std::string> names_in(const std::string &folder)
{
    const zorv::Dir entries(opendir(folder.c_str()));
    if (!entries)
        throw io_failure(folder, errno);
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *const entry = readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0)
        throw io_failure(folder, errno);
    return names;
}

void expect_answer(const std::string &source, int error)
{
    switch (error) {
    case 0:
    case ENOENT:
    case ENOTDIR:
    case ENODEV:        // of an interface
    case ENXIO:         // the same, by its index
    case EADDRNOTAVAIL: // of its address
        return;
    default:
        throw io_failure(source, error);
    }
}

} // namespace ctl
