// Any text as the tables of /proc/net, in the pieces that are read: states and types stay within
// their tables, paths within the line. Also the targets of descriptor links.
#include <zorv/ps.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/lines.h"
#include "telemetry/ps_fds.h"
#include "telemetry/ps_sockets.h"

using namespace zorv;

namespace {

void must(bool holds)
{
    if (!holds)
        abort();
}

void check_line(const char *line)
{
    for (const uint32_t kind : {ZORV_SOCKET_TCP, ZORV_SOCKET_UDP6}) {
        InetLine inet;
        if (!parse_inet_line(line, kind, inet))
            continue;
        const uint32_t state = inet.socket.state;
        must(kind == ZORV_SOCKET_TCP ? state < 13 : state == 0 || state == 1 || state == 7);
    }
    UnixLine local;
    if (parse_unix_line(line, local))
        must(local.socket.type < 6 && local.socket.state < 7 && local.socket.state != 1 &&
             strstr(line, local.path));
    if (classify_target(line) == ZORV_FD_FILE)
        must(target_inode(line) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File stream(size > 0 ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr);
    Lines<kSocketLine> lines(stream.get());
    while (const char *const line = lines.next())
        check_line(line);
    return 0;
}
