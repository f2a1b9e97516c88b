#include <zorv/status.h>

#include <cstring>
#include <ctime>
#include <iterator>

#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr size_t kCell = 8;

// The words of "Sat Nov 21 09:05:00 2026\n" by what ends each.
constexpr char kWordEnds[7][2] = {" ", " ", " ", ":", ":", " ", " "};

} // namespace

void get_system_time(char cells[7][kCell])
{
    tzset(); // ctime() would, ctime_r() need not: the zone may have changed
    const time_t now = time(nullptr);
    char text[64]; // ctime_r() asks for 26
    char *rest = ctime_r(&now, text);
    for (size_t i = 0; cells && i < std::size(kWordEnds); ++i) {
        const char *const word = rest ? strtok_r(rest, kWordEnds[i], &rest) : nullptr;
        copy_text(cells[i], kCell, word ? word : "");
    }
}
