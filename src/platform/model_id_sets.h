// model_id_sets.h - the classes of boards: fixed sets of system ids.
#ifndef ZORV_PLATFORM_MODEL_ID_SETS_H
#define ZORV_PLATFORM_MODEL_ID_SETS_H

#include <cstdint>

namespace zorv {

enum class IdSet : uint8_t {
    gen1,
    gen2,
    gen3_ht,
    single_5ghz_gen3,
    kbr5,
    kbr6,
    kbr6_enterprise,
    kbr6_birch_lt,
    wifi_only,
    force_detect_loop,
    old_wifi,
    ble_fast_adopt,
};

bool is_in(IdSet set, uint16_t system_id);

} // namespace zorv

#endif
