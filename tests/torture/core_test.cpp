// The core when memory runs out or the kernel refuses.
#include <zorv/buffer.h>
#include <zorv/file.h>
#include <zorv/format.h>
#include <zorv/text.h>

#include <algorithm>
#include <memory>

#include <fcntl.h>

#include "support/torture.h"

namespace {

constexpr char kState[] = "/tmp/state";

// What a function answers, and what its file holds afterwards.
std::string answer(int rc)
{
    Torture::settle();
    return std::to_string(rc) + " " + Device::read(kState);
}

std::string taken(char *text)
{
    const std::unique_ptr<char, decltype(&free)> owner(text, free);
    return Torture::settled(text ? text : "none");
}

std::string filled()
{
    const std::unique_ptr<buffer, decltype(&buffer_destroy)> b(buffer_create2(2), buffer_destroy);
    if (!b)
        return "none";
    std::string text = std::to_string(b->append(b.get(), "abc", 3)) + " ";
    text += std::to_string(b->printf(b.get(), "%4200s", "x"));
    text += b->append_zero(b.get(), 9000) ? " zeros" : " -";
    buffer *const copy = b->clone(b.get());
    text += (copy ? " copied " : " - ") + std::to_string(b->length(b.get()));
    buffer_destroy(copy);
    b->reset(b.get());
    text += " " + std::to_string(b->capacity(b.get()));
    return text + " " + std::to_string(b->init(b.get(), 3));
}

std::string commented_out()
{
    char pattern[] = "mode";
    FILE *const stream = fopen(kState, "r+e");
    const int rc = stream ? comment_out_lines(stream, pattern) + ferror(stream) : 9;
    if (stream)
        fclose(stream);
    return answer(rc);
}

// How much of a line came to the kernel's log.
template <size_t Length>
std::string logged_line()
{
    libzorv_log_use_syslog = 1;
    libzorv_log(3, "m", "f", "%s", std::string(Length, 'x').c_str());
    Torture::settle();
    const std::string text = Device::exists("/dev/kmsg") ? Device::read("/dev/kmsg") : "";
    return std::to_string(std::count(text.begin(), text.end(), 'x'));
}

} // namespace

TEST_F(Torture, Core)
{
    torture({
        {"buffer",
         filled,
         {"none", "0 0 - - 0 2 -1", "0 4200 zeros copied 13200 2 0", "3 0 zeros copied 9003 2 0",
          "3 4200 - copied 4203 2 0", "3 4200 zeros - 13203 2 0", "3 4200 zeros copied 13203 2 -1",
          "3 0 - - 3 4098 -1: buffer_reset: Failed to reallocate buffer",
          "3 4200 - - 4203 12290 -1: buffer_reset: Failed to reallocate buffer",
          "3 4200 zeros * 13203 24578 *: buffer_reset: Failed to reallocate buffer"},
         [] { libzorv_log_level = 2; }},
        {"malloc_printf", [] { return taken(malloc_printf("%d", 1)); }, {"none"}},
        {"vq_reduce_path",
         [] { return taken(vq_reduce_path("/a/", nullptr)); },
         {"none: vq_reduce_path: #: malloc(#) failed"}},
        {"gen_rand_hex", [] { return std::to_string(gen_rand_hex(std::string(9, 0).data(), 9)); }},
        {"libzorv_log, which allocates nothing", logged_line<900>, {"0", "0: f: x*"}},
        {"libzorv_log, a long line", logged_line<2000>, {"0", "10*", "19*", "0: f: x*"}},
    });
    const std::pair<const char *, std::string (*)()> files[] = {
        {"fsreadline", [] { return answer(fsreadline(kState, std::string(9, 0).data(), 9)); }},
        {"freadlong", [] { return answer(static_cast<int>(freadlong(kState, -1))); }},
        {"fwriteline", [] { return answer(fwriteline(kState, "%d\n", 6)); }},
        {"fwritelineat", [] { return answer(fwritelineat(AT_FDCWD, kState, "%d\n", 6)); }},
        {"faddlong", [] { return answer(faddlong(kState, 1)); }},
        {"faddi64at", [] { return answer(faddi64at(AT_FDCWD, kState, 1)); }},
        {"comment_out_lines", commented_out},
    };
    // What the disk refuses only when the file is closed does not show, and a counter that cannot
    // be read begins anew.
    for (const auto &[name, scenario] : files)
        torture(
            {{name,
              scenario,
              {"-* 5\nmode=ap\n", "9 5\nmode=ap\n", "1 5\n*ode=ap\n", "-1 ", "0 ", "2 ", "0 1\n"},
              [] { file(kState, "5\nmode=ap\n"); }}});
}
