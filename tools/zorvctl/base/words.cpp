#include "base/words.h"

#include <numeric>
#include <utility>
#include <vector>

namespace ctl {

size_t distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < from.size(); i++) {
        size_t corner = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); j++) {
            const size_t replaced = corner + (from[i] == to[j] ? 0 : 1);
            corner = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, corner + 1});
        }
    }
    return row.back();
}

} // namespace ctl
