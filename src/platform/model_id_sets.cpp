#include "platform/model_id_sets.h"

#include <algorithm>
#include <iterator>

namespace zorv {

namespace {

constexpr size_t kMostIds = 13;

// One row a set, in the order of IdSet. Unused places hold 0, which is no board's id.
constexpr uint16_t kSets[][kMostIds] = {
    {0x3123, 0x3323, 0x3328, 0x3333, 0x3336, 0x3353, 0x3383, // gen1
     0x3393, 0x33A3, 0x33B3, 0x3721, 0x3731, 0x3741},
    {0x3338, 0x3348, 0x3358, 0x3368, 0x3378, 0x3388, 0x33A8, 0x33B8}, // gen2
    {0x3381, 0x33A1, 0x33A6},                                         // gen3_ht
    {0x3351, 0x3361, 0x33B1},                                         // single_5ghz_gen3
    {0x5231, 0x5232, 0x5233, 0x5234, 0x5235, 0x5241, 0x5261},         // kbr5
    {0x5271, 0x5272, 0x5273, 0x5274, 0x5275, 0x5276, 0x5277, 0x5278,  // kbr6
     0x5288, 0x5295, 0x5296},
    {0x5275, 0x5277},                         // kbr6_enterprise
    {0x5273, 0x5277},                         // kbr6_birch_lt
    {0x5234, 0x5274, 0x3A46, 0x6CD5, 0x6CD6}, // wifi_only
    {0x6CD5, 0x6CD6},                         // force_detect_loop
    {0x3123, 0x3323, 0x3333, 0x3336, 0x3353}, // old_wifi
    {0x5233, 0x5241, 0x5255, 0x5261, 0x5271}, // ble_fast_adopt
};
static_assert(std::size(kSets) == static_cast<size_t>(IdSet::ble_fast_adopt) + 1);

} // namespace

bool is_in(IdSet set, uint16_t system_id)
{
    const auto &ids = kSets[static_cast<size_t>(set)];
    return system_id != 0 && std::find(std::begin(ids), std::end(ids), system_id) != std::end(ids);
}

} // namespace zorv
