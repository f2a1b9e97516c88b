// Line, value and number readers. The first line of the input is the key, the rest the file.
#include <zorv/file.h>
#include <zorv/log.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>

#include "core/lines.h"
#include "temporary_file.h"

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

// Buffers of the exact size, so that the sanitizer sees a byte too many.
void read_texts(const char *path, const char *key, size_t size)
{
    auto *const text = static_cast<char *>(malloc(size));
    const auto ends = [&] { return strnlen(text, size) < size; };
    require(freadvalue(path, key, text, size, "default") == text && ends());
    require(!strpbrk(text, " \t\r\n="));
    if (fsreadlinebykey(path, key, text, size) == 0)
        require(ends());
    text[0] = '\0';
    errno = 0;
    require(freadline(path, text, static_cast<int>(size), "default") == text && ends());
    require(!strchr(text, '\n'));
    require(freadlineat(AT_FDCWD, path, text, static_cast<int>(size), "default") == text && ends());
    free(text);
}

void read_numbers(const char *path)
{
    freadlong(path, 1);
    freadulong(path, 1);
    freaddouble(path, 1);
    require(freadlongat(AT_FDCWD, path, 1) == freadi64at(AT_FDCWD, path, 1));
}

void read_keyed(const char *path, const char *key)
{
    const zorv::File stream(fopen(path, "re"));
    char value[zorv::kLineBuffer];
    if (zorv::read_last_value(stream.get(), key, value))
        require(value[0] != '\0' && !strpbrk(value, "=\r\n"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const auto *const newline = static_cast<const uint8_t *>(memchr(data, '\n', size));
    const size_t length = newline ? static_cast<size_t>(newline - data) : 0;
    const std::string key(reinterpret_cast<const char *>(data), length);
    const TemporaryFile file(data + length, size - length);
    for (const size_t room : {1U, 2U, 16U, 255U, 400U})
        read_texts(file.path(), key.c_str(), room);
    read_numbers(file.path());
    read_keyed(file.path(), key.c_str());
    const int64_t before = freadi64at(AT_FDCWD, file.path(), 0);
    require(faddi64at(AT_FDCWD, file.path(), 1) == 0);
    require(faddlong(file.path(), -1) == 0 || before != freadlong(file.path(), before));
    return 0;
}
