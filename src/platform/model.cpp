#include <zorv/model.h>

#include <unistd.h>

#include <zorv/board.h>

#include "platform/model_id_sets.h"

using namespace zorv;

namespace {

constexpr char kMeshMode[] = "/etc/meshmode.conf";
constexpr uint16_t kQm = 0x5288;
constexpr uint16_t kRouter = 0x5295;

int board_is(IdSet set)
{
    return is_in(set, board_identify()->system_id);
}

bool mesh_mode_is_set()
{
    return access(kMeshMode, F_OK) == 0;
}

} // namespace

int is_gen1()
{
    return board_is(IdSet::gen1);
}

int is_gen2()
{
    return board_is(IdSet::gen2);
}

int is_gen3_HT()
{
    return board_is(IdSet::gen3_ht);
}

int is_single_5ghz_gen3()
{
    return board_is(IdSet::single_5ghz_gen3);
}

int is_gen3()
{
    return is_single_5ghz_gen3() || is_gen3_HT();
}

int is_kbr5()
{
    return board_is(IdSet::kbr5);
}

int is_kbr6()
{
    return board_is(IdSet::kbr6);
}

int is_kbr6_enterprise()
{
    return board_is(IdSet::kbr6_enterprise);
}

int is_kbr6_birch_lt()
{
    return board_is(IdSet::kbr6_birch_lt);
}

int is_qca_ap()
{
    return is_gen2() || is_gen3() || is_kbr6();
}

int is_wifi_only()
{
    return board_is(IdSet::wifi_only);
}

int is_force_detect_loop()
{
    return board_is(IdSet::force_detect_loop);
}

int is_qm()
{
    if (board_identify()->system_id != kQm)
        return 0;
    mesh_mode_is_set(); // On purpose read and not looked at; kept for callers built against it.
    return 1;
}

int is_router_to_mesh()
{
    const uint16_t id = board_identify()->system_id;
    return id == kQm ? mesh_mode_is_set() : id == kRouter;
}
