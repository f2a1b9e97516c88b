// zorvctl - the command-line face of libzorv.
#include <fcntl.h>
#include <unistd.h>

#include "base/cli.h"
#include "families.h"

namespace {

// A standard descriptor that is closed would be taken by the next file opened, and our words
// written into that file. Standard output is replaced by one that cannot be written: a failure.
void occupy_standard_descriptors()
{
    int fd;
    do // NOLINTNEXTLINE(android-cloexec-open,android-cloexec-dup): the children have these, too
        fd = open("/dev/null", O_RDONLY);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

// In the order of --help, one a line.
// clang-format off
constexpr void (*kFamilies[])(ctl::Cli &) = {
    ctl::add_cfg,
    ctl::add_file,
    ctl::add_board,
    ctl::add_model,
    ctl::add_status,
    ctl::add_doctor,
    ctl::add_hw,
    ctl::add_bridge,
    ctl::add_portal,
    ctl::add_lock,
    ctl::add_avg,
    ctl::add_exec,
    ctl::add_capture,
    ctl::add_discovery,
    ctl::add_url,
    ctl::add_http,
    ctl::add_json,
    ctl::add_analytics,
    ctl::add_trace,
    ctl::add_crash,
    ctl::add_iface,
    ctl::add_ps,
    ctl::add_top,
    ctl::add_hash,
    ctl::add_base64,
    ctl::add_stats,
};
// clang-format on

} // namespace

int main(int argc, char **argv)
{
    occupy_standard_descriptors();
    ctl::Cli cli;
    for (const auto add : kFamilies)
        add(cli);
    return cli.run(argc, argv);
}
