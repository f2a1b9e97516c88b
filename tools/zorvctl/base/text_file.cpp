#include "base/text_file.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "base/output.h"

namespace ctl {
namespace {

using zorv::Fd;

constexpr size_t kMost = 64 << 20; // far beyond any device's files; /dev/zero gets there

Fd open_file(const std::string &path)
{
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd)
        throw io_failure(path, errno);
    return fd;
}

} // namespace

std::string read_all(const Fd &fd, const std::string &path)
{
    std::string contents;
    char piece[1 << 14];
    while (const size_t count = read_piece(fd, path, piece, sizeof piece)) {
        contents.append(piece, count);
        if (contents.size() > kMost)
            throw io_failure(path, EFBIG);
    }
    return contents;
}

std::string read_file(const std::string &path)
{
    return read_all(open_file(path), path);
}

std::string read_input(const std::string &path)
{
    static bool is_taken = false; // the standard input
    if (path == "-" && std::exchange(is_taken, true))
        throw Misuse("the standard input can be read once");
    return read_all(open_input(path), path);
}

void write_file(const std::string &path, std::string_view bytes)
{
    zorv::File file(fopen(path.c_str(), "we"));
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
        fclose(file.release()) != 0)
        throw io_failure(path, errno);
}

zorv::Fd open_input(const std::string &path)
{
    if (path != "-")
        return open_file(path);
    Fd fd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!fd)
        throw io_failure("standard input", errno);
    return fd;
}

size_t read_piece(const zorv::Fd &fd, const std::string &path, char *bytes, size_t size)
{
    for (;;) {
        const ssize_t count = read(fd.get(), bytes, size);
        if (count >= 0)
            return static_cast<size_t>(count);
        if (errno != EINTR)
            throw io_failure(path, errno);
    }
}

} // namespace ctl
