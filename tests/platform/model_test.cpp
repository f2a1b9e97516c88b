

#include "platform/rows.h"

using Model = Device;

// The classes of the running board, after it has become one of this id.
static std::string classes_of(int system_id)
{
    static constexpr const char *kNames[] = {"gen1 ",     "gen2 ",   "gen3_HT ",   "single_5ghz ",
                                             "gen3 ",     "kbr5 ",   "kbr6 ",      "enterprise ",
                                             "birch_lt ", "qca_ap ", "wifi_only ", "loop ",
                                             "qm ",       "mesh ",   "old_wifi ",  "ble "};
    static board_record record;
    record.system_id = static_cast<uint16_t>(system_id);
    update_cached_board(system_id < 0 ? nullptr : &record);
    std::string names;
    const char *const *name = kNames;
    for (const int holds : {is_gen1(), is_gen2(), is_gen3_HT(), is_single_5ghz_gen3(), is_gen3(),
                            is_kbr5(), is_kbr6(), is_kbr6_enterprise(), is_kbr6_birch_lt(),
                            is_qca_ap(), is_wifi_only(), is_force_detect_loop(), is_qm(),
                            is_router_to_mesh(), kbr_is_supported_by_old_wifi(board_identify()),
                            kbr_is_supported_ble_fast_adopt(board_identify())}) {
        names += holds == 1 ? *name : holds == 0 ? "" : "neither ";
        ++name;
    }
    return names;
}

TEST_F(Model, ExactlyTheseIdsAreInAnyClass)
{
    std::map<std::string, std::string> ids;
    for (int id = 0; id <= 0xFFFF; ++id)
        if (const std::string names = classes_of(id); !names.empty())
            ids[names] += " " + hex(static_cast<uint64_t>(id));
    std::string text;
    for (const auto &[names, list] : ids)
        text += names + "=" + list + "; ";
    EXPECT_EQ(text, "ble = 5255; gen1 = 3328 3383 3393 33a3 33b3 3721 3731 3741; "
                    "gen1 old_wifi = 3123 3323 3333 3336 3353; "
                    "gen2 qca_ap = 3338 3348 3358 3368 3378 3388 33a8 33b8; "
                    "gen3_HT gen3 qca_ap = 3381 33a1 33a6; kbr5 = 5231 5232 5235; "
                    "kbr5 ble = 5233 5241 5261; kbr5 wifi_only = 5234; "
                    "kbr6 birch_lt qca_ap = 5273; kbr6 enterprise birch_lt qca_ap = 5277; "
                    "kbr6 enterprise qca_ap = 5275; kbr6 qca_ap = 5272 5276 5278 5296; "
                    "kbr6 qca_ap ble = 5271; kbr6 qca_ap mesh = 5295; kbr6 qca_ap qm = 5288; "
                    "kbr6 qca_ap wifi_only = 5274; single_5ghz gen3 qca_ap = 3351 3361 33b1; "
                    "wifi_only = 3a46; wifi_only loop = 6cd5 6cd6; ");
    EXPECT_EQ(classes_of(-1), "");  // a unit that nobody knows
    file("/etc/meshmode.conf", ""); // only one board heeds it
    EXPECT_EQ(classes_of(0x5288) + classes_of(0x5296), "kbr6 qca_ap qm mesh kbr6 qca_ap ");
}
