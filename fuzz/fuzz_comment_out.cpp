// Commenting lines out in place: the file keeps its length and its newlines' places but for those
// that a "#" stands on. The first line of the input is the list of patterns, the rest the file.
#include <zorv/text.h>

#include <cstring>

#include "temporary_file.h"

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto *const newline = static_cast<const uint8_t *>(memchr(data, '\n', size));
    const size_t length = newline ? static_cast<size_t>(newline - data) + 1 : 0;
    std::string patterns(reinterpret_cast<const char *>(data), length);
    if (!patterns.empty())
        patterns.pop_back();
    const uint8_t *const before = data + length;
    const size_t bytes = size - length;

    const TemporaryFile file(before, bytes);
    FILE *const stream = fopen(file.path(), "r+e");
    const int rc = comment_out_lines(stream, patterns.data());
    require(rc == 0 || (rc == -1 && bytes >= 255));
    require(file.size() == bytes);
    rewind(stream);
    for (size_t i = 0; i < bytes; ++i) {
        const int c = getc(stream);
        require(c == before[i] || (c == '#' && (i == 0 || before[i - 1] == '\n')));
    }
    fclose(stream);
    return 0;
}
