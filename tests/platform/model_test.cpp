#include <zorv/model.h>

#include <map>
#include <vector>

#include <zorv/board.h>

#include "support/device.h"

using Model = Device;

namespace {

// The classes of the running board, after it has become one of this id.
std::string classes_of(int system_id)
{
    constexpr struct {
        const char *name;
        int (*holds)();
    } kPredicates[] = {{" gen1", is_gen1},
                       {" gen2", is_gen2},
                       {" gen3_HT", is_gen3_HT},
                       {" single_5ghz", is_single_5ghz_gen3},
                       {" gen3", is_gen3},
                       {" kbr5", is_kbr5},
                       {" kbr6", is_kbr6},
                       {" enterprise", is_kbr6_enterprise},
                       {" birch_lt", is_kbr6_birch_lt},
                       {" qca_ap", is_qca_ap},
                       {" wifi_only", is_wifi_only},
                       {" loop", is_force_detect_loop},
                       {" qm", is_qm},
                       {" mesh", is_router_to_mesh},
                       {" old_wifi", [] { return kbr_is_supported_by_old_wifi(board_identify()); }},
                       {" ble", [] { return kbr_is_supported_ble_fast_adopt(board_identify()); }}};
    static board_record record;
    record.system_id = static_cast<uint16_t>(system_id);
    update_cached_board(system_id < 0 ? nullptr : &record);
    std::string names;
    for (const auto &predicate : kPredicates) {
        const int answer = predicate.holds();
        EXPECT_TRUE(answer == 0 || answer == 1) << predicate.name;
        names += answer ? predicate.name : "";
    }
    return names;
}

} // namespace

TEST_F(Model, ExactlyTheseIdsAreInAnyClass)
{
    const std::map<std::string, std::vector<int>> kClasses = {
        {" gen1", {0x3328, 0x3383, 0x3393, 0x33A3, 0x33B3, 0x3721, 0x3731, 0x3741}},
        {" gen1 old_wifi", {0x3123, 0x3323, 0x3333, 0x3336, 0x3353}},
        {" gen2 qca_ap", {0x3338, 0x3348, 0x3358, 0x3368, 0x3378, 0x3388, 0x33A8, 0x33B8}},
        {" gen3_HT gen3 qca_ap", {0x3381, 0x33A1, 0x33A6}},
        {" single_5ghz gen3 qca_ap", {0x3351, 0x3361, 0x33B1}},
        {" kbr5", {0x5231, 0x5232, 0x5235}},
        {" kbr5 ble", {0x5233, 0x5241, 0x5261}},
        {" kbr5 wifi_only", {0x5234}},
        {" ble", {0x5255}},
        {" kbr6 qca_ap", {0x5272, 0x5276, 0x5278, 0x5296}},
        {" kbr6 qca_ap ble", {0x5271}},
        {" kbr6 birch_lt qca_ap", {0x5273}},
        {" kbr6 qca_ap wifi_only", {0x5274}},
        {" kbr6 enterprise qca_ap", {0x5275}},
        {" kbr6 enterprise birch_lt qca_ap", {0x5277}},
        {" kbr6 qca_ap qm", {0x5288}},
        {" kbr6 qca_ap mesh", {0x5295}},
        {" wifi_only", {0x3A46}},
        {" wifi_only loop", {0x6CD5, 0x6CD6}}};
    std::map<std::string, std::vector<int>> found;
    for (int id = 0; id <= 0xFFFF; ++id)
        if (const std::string names = classes_of(id); !names.empty())
            found[names].push_back(id);
    EXPECT_EQ(found, kClasses);
    EXPECT_EQ(classes_of(-1), ""); // a unit that nobody knows

    file("/etc/meshmode.conf", ""); // only one board heeds it
    EXPECT_EQ(classes_of(0x5288), " kbr6 qca_ap qm mesh");
    EXPECT_EQ(classes_of(0x5295), " kbr6 qca_ap mesh");
    EXPECT_EQ(classes_of(0x5296), " kbr6 qca_ap");
}
