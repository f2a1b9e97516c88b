// The core when memory runs out or the kernel refuses.

#include "support/torture.h"

using Text = std::unique_ptr<char, decltype([](char *text) { free(text); })>;
constexpr char kState[] = "/tmp/state";

TEST_F(Torture, Core)
{
    file("/dev/kmsg", "");
    const auto texts = [] {
        const Text number(malloc_printf("%d", 1)), path(vq_reduce_path("/a/", nullptr));
        return settled(std::string(number ? "1" : "none") + (path ? " /a" : " none"));
    };
    const auto logged_line = [] {
        libzorv_log_use_syslog = 1;
        libzorv_log(3, "m", "f", "%s", std::string(2000, 'x').c_str());
        settle();
        const std::string text = read("/dev/kmsg"); // as much as came
        return text.substr(std::min(text.size(), text.find('x')));
    };
    torture({
        {"buffer",
         [] {
             const std::unique_ptr<buffer, decltype(&buffer_destroy)> b(buffer_create2(2),
                                                                        buffer_destroy);
             if (!b)
                 return std::string("none");
             std::string text = std::to_string(b->append(b.get(), "abc", 3)) + " ";
             text += std::to_string(b->printf(b.get(), "%4200s", "x"));
             text += b->append_zero(b.get(), 9000) ? " zeros" : " -";
             buffer *const copy = b->clone(b.get());
             text += (copy ? " copied " : " - ") + std::to_string(b->length(b.get()));
             buffer_destroy(copy);
             b->reset(b.get());
             text += " " + std::to_string(b->capacity(b.get()));
             return text + " " + std::to_string(b->init(b.get(), 3));
         },
         {"none", "0 0 - - 0 2 -1", "0 4200 *", "3 0 zeros *", "3 4200 - copied 4203 2 0",
          "3 4200 zeros - 13203 2 0", "3 4200 zeros copied 13203 2 -1",
          "3 *: [warn ] buffer.buffer_reset(): Failed to reallocate buffer"},
         [] { libzorv_log_level = 2; }},
        {"texts", texts, {"none *", "* none: vq_reduce_path: #: malloc(#) failed"}},
        {"libzorv_log", logged_line, {"", "x*", ": f: x*"}},
    });
    int (*const files[])() = {
        [] { return fsreadline(kState, std::string(9, 0).data(), 9); },
        [] { return fwriteline(kState, "%d\n", 6); },
        [] { return faddlong(kState, 1); },
        [] { return faddi64at(AT_FDCWD, kState, 1); },
        [] {
            char pattern[] = "mode";
            const std::unique_ptr<FILE, decltype(&fclose)> stream(fopen(kState, "r+e"), fclose);
            return stream ? comment_out_lines(stream.get(), pattern) : 9;
        },
    };
    // What the disk refuses only when the file is closed does not show, and a counter that cannot
    // be read begins anew.
    for (const auto &call : files) {
        const auto scenario = [&] {
            const int rc = call();
            settle();
            return std::to_string(rc) + " " + read(kState);
        };
        torture({{"files",
                  scenario,
                  {"-* 5\n*ode=ap\n", "9 5\nmode=ap\n", "-1 ", "0 ", "2 ", "0 1\n"},
                  [] { file(kState, "5\nmode=ap\n"); }}});
    }
}
