#include <cerrno>
#include <climits>
#include <memory>

#include <zorv/cfg.h>

#include "cfg/model.h"
#include "support/device.h"

using model::List;

namespace {

template <auto Free>
struct Release {
    void operator()(cfg_entry *list) const { Free(list); }
};
using Cfg = std::unique_ptr<cfg_entry, Release<free_cfg>>;
using CfgIt = std::unique_ptr<cfg_entry, Release<free_cfg_it>>;

Cfg parse_text(std::string_view text)
{
    Device::file("/tmp/system.cfg", text);
    return Cfg(parse("/tmp/system.cfg"));
}

List taken(cfg_entry *list)
{
    return model::of(CfgIt(list).get());
}

} // namespace

using CfgQuery = Device;

TEST_F(CfgQuery, LookupFindsTheFirstKeyWhateverItsCase)
{
    const Cfg cfg = parse_text("Wireless.1.SSID=one\nwireless.1.ssid=two\nv.01=z\n");
    EXPECT_STREQ(get_value(cfg.get(), nullptr, "wireless.%d.ssid", 1), "one");
    EXPECT_STREQ(get_value(cfg.get(), "none", "wireless.%d.ssid", 2), "none");
    EXPECT_STREQ(get_value(cfg.get(), "none", "v.1"), "none");
    EXPECT_STREQ(get_value(cfg.get(), "none", "wireless.1.ssi"), "none");
    EXPECT_EQ(get_value(nullptr, nullptr, "a"), nullptr);
    const Cfg longer =
        parse_text(std::string(127, 'a') + "=127\n" + std::string(128, 'a') + "=128\n");
    EXPECT_STREQ(get_value(longer.get(), "none", "%0127d", 0), "none");
    EXPECT_STREQ(get_value(longer.get(), "none", "%s", std::string(127, 'A').c_str()), "127");
    EXPECT_STREQ(get_value(longer.get(), "none", "%s", std::string(128, 'A').c_str()), "128");
}

TEST_F(CfgQuery, EscapesWhatAShellSeesBetweenDoubleQuotes)
{
    const Cfg cfg = parse_text("a=`id` \"$HOME\" \\\nplain=it's <fine>; #!\nempty=\n");
    EXPECT_STREQ(get_esc_value(cfg.get(), "none", "a"), "\\`id\\` \\\"\\$HOME\\\" \\\\");
    EXPECT_EQ(get_esc_value(cfg.get(), "none", "a"), cfg->escaped);
    EXPECT_EQ(get_esc_value(cfg.get(), "none", "plain"), get_value(cfg.get(), "other", "plain"));
    EXPECT_STREQ(get_esc_value(cfg.get(), "none", "empty"), "");
    EXPECT_STREQ(get_esc_value(cfg.get(), "none", "b"), "none");
    EXPECT_EQ(esc_value(nullptr), nullptr);

    // A record of an iterator list has its own, and gives it back.
    const CfgIt list(get_cfg_it(cfg.get(), 0, "%s", ""));
    EXPECT_EQ(list->escaped, nullptr);
    EXPECT_STREQ(esc_value(list.get()), esc_value(cfg.get()));
    EXPECT_NE(esc_value(list.get()), esc_value(cfg.get()));
    EXPECT_EQ(esc_value(list->next), cfg->next->value);
}

TEST_F(CfgQuery, NumbersAreReadAsStrtolReadsThem)
{
    const struct {
        const char *value;
        int32_t i32;
        uint32_t u32;
        int32_t dec;
        int64_t i64;
    } rows[] = {
        {"0x1F", 31, 31, 0, 31},
        {"010", 8, 8, 10, 8},
        {"12ms", 12, 12, 12, 12},
        {" -1", -1, 4294967295U, -1, -1},
        {"4294967298", 2, 2, 2, 4294967298},
        {"abc", 7, 7, 7, 7},
        {"", 7, 7, 7, 7},
        {"9223372036854775808", 7, 0, 7, 7},
        {"99999999999999999999", 7, 7, 7, 7},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.value);
        const Cfg cfg = parse_text(std::string("n=") + row.value + "\n");
        const auto fresh = [&](auto get) {
            errno = 0;
            return get(cfg.get(), 7, "%s", "n");
        };
        EXPECT_EQ(fresh(get_int32), row.i32);
        EXPECT_EQ(fresh(get_uint32), row.u32);
        EXPECT_EQ(fresh(get_int32_dec), row.dec);
        EXPECT_EQ(fresh(get_int64), row.i64);
    }
    const Cfg cfg = parse_text("n=1\n");
    EXPECT_EQ(get_int32(cfg.get(), 7, "m"), 7);
    errno = ERANGE; // left by whatever came before
    EXPECT_EQ(get_int32(cfg.get(), 7, "n"), 7);
    EXPECT_EQ(get_int64(cfg.get(), 7, "n"), 7);
    errno = EINVAL;
    EXPECT_EQ(get_uint32(cfg.get(), 7, "n"), 1U);
}

TEST_F(CfgQuery, SwitchesKnowTheirWords)
{
    const std::pair<const char *, int> rows[] = {
        {"on", 1},       {"enabled", 1},     {"1", 1},   {"enable", 1},   {"active", 1},
        {"true", 1},     {"off", 0},         {"0", 0},   {"disabled", 0}, {"disable", 0},
        {"inactive", 0}, {"false", 0},       {"yes", 9}, {"", 9},         {"tru", 9},
        {"truer", 9},    {"\t Enabled ", 1}, {"OFF", 0}, {"\ron", 9},     {"01", 9}};
    for (const auto &[word, state] : rows) {
        const Cfg cfg = parse_text(std::string("s=") + word + "\n");
        EXPECT_EQ(get_bool(cfg.get(), 9, "s"), state) << word;
    }
    EXPECT_EQ(get_bool(nullptr, 9, "s"), 9);
}

TEST_F(CfgQuery, KeysMatchExactlyOrByTheirBeginning)
{
    const Cfg cfg = parse_text("radio.1=a\nRadio.1=b\nradio.10=c\nvlan.1=d\nradio.1.x=e\n");
    EXPECT_EQ(taken(get_cfg_it(cfg.get(), 1, "RADIO.%d", 1)),
              (List{{"radio.1", "a"}, {"Radio.1", "b"}}));
    EXPECT_EQ(taken(get_cfg_it(cfg.get(), 0, "radio.%d", 1)),
              (List{{"radio.1", "a"}, {"radio.10", "c"}, {"radio.1.x", "e"}}));
    EXPECT_EQ(get_cfg_it(cfg.get(), 1, "radio"), nullptr);
    EXPECT_EQ(get_cfg_key_count(cfg.get(), 0, "radio."), 3U);
    EXPECT_EQ(get_cfg_key_count(cfg.get(), 1, "radio.1"), 2U);
    EXPECT_EQ(get_cfg_count(cfg.get()), 5U);
    EXPECT_EQ(get_cfg_count(nullptr), 0U);

    // A list of matches is a list like any other.
    const CfgIt radios(get_cfg_it(cfg.get(), 0, "radio."));
    EXPECT_EQ(get_cfg_section_count(radios.get(), nullptr, nullptr, "radio."), 2U);
    EXPECT_STREQ(get_value(radios.get(), "none", "vlan.1"), "none");
}

TEST_F(CfgQuery, SectionsArePrefixIndexAndPostfix)
{
    const Cfg cfg = parse_text("vlan.10.id=a\nvlan.2.id=b\nvlan.1.ID=a\nvlan.x.id=a\nvlan.3.id2=a\n"
                               "vlan.0x10=a\nvlan.1abc=b\nvlan.4=a\nvlan.=a\nVlan.5=a\nvlan. -6=a\n"
                               "vlan7=a\nvlan.2.id.x=a\nvlan.8z.id=c\n");
    const struct {
        const char *postfix;
        const char *value;
        const char *prefix;
        std::vector<std::string> keys;
    } rows[] = {
        {".id", nullptr, "vlan.", {"vlan.1.ID", "vlan.2.id", "vlan.8z.id", "vlan.10.id"}},
        {".id", "a", "vlan.", {"vlan.1.ID", "vlan.10.id"}},
        {".id", "A", "vlan.", {}},
        {".id.x", nullptr, "vlan.", {"vlan.2.id.x"}},
        {nullptr, nullptr, "vlan.", {"vlan. -6", "vlan.0x10", "vlan.1abc", "vlan.4"}},
        {nullptr, "b", "vlan.", {"vlan.1abc"}},
        {nullptr, nullptr, "radio.", {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.prefix) + (row.postfix ? row.postfix : ""));
        std::vector<std::string> keys;
        for (const auto &entry :
             taken(get_cfg_section(cfg.get(), row.postfix, row.value, "%s", row.prefix)))
            keys.push_back(entry.first);
        EXPECT_EQ(keys, row.keys);
        EXPECT_EQ(get_cfg_section_count(cfg.get(), row.postfix, row.value, "%s", row.prefix),
                  row.keys.size());
    }
    EXPECT_THAT(logged(), IsEmpty());

    EXPECT_EQ(taken(get_cfg_section(cfg.get(), nullptr, nullptr, "v%s", "lan")),
              (List{{"vlan7", "a"}}));
    EXPECT_THAT(logged(),
                ElementsAre("[warn ] cfg.process_cfg_section(): deprecated prefix doesn't "
                            "end with '.': 'v%s' => 'vlan'"));
    EXPECT_EQ(get_cfg_section(cfg.get(), "id", nullptr, "vlan."), nullptr);
    EXPECT_EQ(get_cfg_section_count(cfg.get(), "", nullptr, "vlan."), 0U);
    EXPECT_THAT(logged(),
                ElementsAre("[error] cfg.process_cfg_section(): postfix must start with '.': 'id'",
                            "[error] cfg.process_cfg_section(): postfix must start with '.': ''"));
}

TEST_F(CfgQuery, SectionSortKeepsTheOrderOfEqualKeys)
{
    std::string text;
    for (int i = 0; i < 300; ++i)
        text +=
            "s." + std::to_string(i * 7 % 50) + (i % 3 ? ".v=" : ".V=") + std::to_string(i) + "\n";
    const Cfg cfg = parse_text(text);
    List expected = model::of(cfg.get());
    std::stable_sort(expected.begin(), expected.end(), [](const auto &a, const auto &b) {
        return model::compare(a.first, b.first) < 0;
    });
    EXPECT_EQ(taken(get_cfg_section(cfg.get(), ".v", nullptr, "s.")), expected);
}

TEST_F(CfgQuery, EnabledCountTakesTrueWordsOnly)
{
    const Cfg cfg = parse_text("w.1.status=Enabled\nw.2.status= on\nw.3.status=off\nw.4.status=1\n"
                               "w.5.status=yes\nw.6.other=1\n");
    EXPECT_EQ(get_cfg_section_enabled_count(cfg.get(), ".status", "w."), 2U);
    EXPECT_EQ(get_cfg_section_enabled_count(cfg.get(), "status", "w."), 0U);
}

TEST_F(CfgQuery, KeysAreTakenApart)
{
    const struct {
        const char *key;
        int n;
        int index;
    } rows[] = {
        {"radio.2.vap.5.ssid", 1, 2},
        {"radio.2.vap.5.ssid", 2, 5},
        {"radio.2.vap.5.ssid", 3, -1},
        {"radio.2", 0, -1},
        {"radio.2", INT_MIN, -1},
        {"3.a.0.4", 1, 4},
        {"a.0x10.010", 1, 16},
        {"a.0x10.010", 2, 8},
        {"a.99999999999999999999.7", 1, 7},
        {"a.4294967296.7", 1, 7},
        {"none", 1, -1},
        {"", 1, -1},
        {"a..5x", 1, 5},
    };
    for (const auto &row : rows)
        EXPECT_EQ(get_cfg_key_idx(row.key, row.n), row.index) << row.key << " " << row.n;

    EXPECT_STREQ(get_key_element("a.b.c", 0), "a.b.c");
    EXPECT_STREQ(get_key_element("a.b.c", 2), "c");
    EXPECT_STREQ(get_key_element("a.b.", 2), "");
    EXPECT_EQ(get_key_element("a.b.c", 3), nullptr);
}

TEST_F(CfgQuery, DifferenceListsChangedThenRemoved)
{
    const Cfg before =
        parse_text("a=1\nb=2\nb=3\ngone=4\ngone=5\nx.comment=old\ncomment=1\nc.Comment=1\n");
    const Cfg after = parse_text("new=9\nB=2\nb=7\nA=10\nx.comment=new\n");
    EXPECT_EQ(taken(get_cfg_diff_it(before.get(), after.get())), (List{{"new", "9"},
                                                                       {"b", "7"},
                                                                       {"A", "10"},
                                                                       {"gone", "4"},
                                                                       {"gone", "5"},
                                                                       {"comment", "1"},
                                                                       {"c.Comment", "1"}}));
    EXPECT_EQ(get_cfg_diff_it(nullptr, nullptr), nullptr);
    EXPECT_EQ(get_cfg_count(CfgIt(get_cfg_diff_it(nullptr, after.get())).get()), 4U);
    const Cfg same = parse_text("a=1\nb=2\n");
    EXPECT_EQ(get_cfg_diff_it(same.get(), same.get()), nullptr);
}

TEST_F(CfgQuery, IteratorListsAreJoinedAndCollected)
{
    const Cfg cfg = parse_text("a=1\nb=2\n");
    cfg_entry *first = get_cfg_it(cfg.get(), 1, "a");
    cfg_entry *second = get_cfg_it(cfg.get(), 1, "b");
    cfg_entry *none = nullptr;
    EXPECT_EQ(cfg_it_append(first, nullptr), first);
    EXPECT_EQ(cfg_it_append(first, &none), first);
    EXPECT_EQ(CfgIt(cfg_it_append(nullptr, &second))->key, cfg->next->key);
    EXPECT_EQ(second, nullptr);
    second = get_cfg_it(cfg.get(), 1, "b");
    const CfgIt both(cfg_it_append(first, &second));
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(model::of(both.get()), model::of(cfg.get()));

    cfg_collector broken = {both.get(), nullptr};
    EXPECT_EQ(append_cfg_match_cb(cfg.get(), &broken), -1);
    EXPECT_THAT(logged(), ElementsAre("[error] cfg.append_cfg_match_cb(): invalid ctx state"));
}
