// What is odd stands in tables; everything else is asked at random, of the library and of a model.

#include "cfg/natural.h"
#include "core/own.h"
#include "support/device.h"

using namespace zorv;

using Config = std::unique_ptr<cfg_entry, Closer<free_cfg>>;
using Matches = std::unique_ptr<cfg_entry, Closer<free_cfg_it>>;
using Record = std::pair<std::string, std::string>; // key and value
using List = std::vector<Record>;

static Config parse_text(std::string_view text)
{
    Device::file("/tmp/system.cfg", text);
    return Config(parse("/tmp/system.cfg"));
}

static List list_of(const cfg_entry *entry)
{
    List list;
    for (; entry; entry = entry->next)
        list.emplace_back(entry->key, entry->value);
    return list;
}

static List taken(cfg_entry *matches)
{
    return list_of(Matches(matches).get());
}

// The library's answers as plain code: slow, and easy to check against the header. The first one is
// the natural order, character by character; for numbers of at most 19 digits.
static std::vector<unsigned long long> order(const std::string &key)
{
    std::vector<unsigned long long> ranks;
    for (const char *c = key.c_str(); *c; ++c)
        ranks.push_back(is_digit(*c) ? 256 + strtoull(c, nullptr, 10) : lower(*c));
    return ranks;
}

static List filter(List list, const std::function<bool(Record &)> &test)
{
    std::erase_if(list, std::not_fn(test));
    return list;
}

static List equal(const List &list, const std::string &key)
{
    return filter(list, [&](auto &r) { return !strcasecmp(r.first.c_str(), key.c_str()); });
}

// A null postfix stands for none.
static List section(const List &list, const std::string &prefix, const char *postfix)
{
    List result = filter(list, [&](auto &record) {
        if (!record.first.starts_with(prefix))
            return false;
        const char *const index = record.first.c_str() + prefix.size();
        const char *const rest = strchr(index, '.');
        char *end;
        strtol(index, &end, 0);
        return end != index && (postfix && rest ? !strcasecmp(rest, postfix) : postfix == rest);
    });
    std::ranges::stable_sort(result, {}, [](auto &record) { return order(record.first); });
    return result;
}

static List difference(const List &before, const List &after)
{
    List result;
    for (const Record &record : after)
        if (const List old = equal(before, record.first);
            old.empty() || old[0].second != record.second)
            result.push_back(record);
    for (const Record &record : before)
        if (equal(after, record.first).empty())
            result.push_back(record);
    return filter(result, [](auto &record) { return !record.first.ends_with(".comment"); });
}

// Texts from few pieces, so that equal and nearly equal keys come up all the time.
// NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same texts in every run
static std::mt19937 g_random(20);

static const char *one_of(std::initializer_list<const char *> words)
{
    return words.begin()[g_random() % words.size()];
}

static std::string random_key()
{
    if (g_random() % 3 == 0)
        return one_of({"vlan.", "vlan.", "vlan.0x", "vlan. +", "vlan.-", "vlan. x"}) +
               std::to_string(g_random() % 200) + one_of({".id", ".ID", ".a", "", "b"});
    std::string text;
    for (size_t n = g_random() % 6; n > 0; --n)
        text += one_of({"vlan", "VLAN", "Radio", ".", ".", "1", "01", "10", "2", "0x1", "-", "a",
                        "Z", "_", "\xc4", ".comment"});
    return text;
}

// A file, and what is in it.
static std::pair<std::string, List> random_config()
{
    List list;
    std::string text = one_of({"# misc\n", ""});
    for (size_t lines = g_random() % 120; lines > 0; --lines) {
        const std::string name = random_key(), value = one_of({"0", "1", "2"});
        if (g_random() % 100 == 0)
            text += "# misc\n";
        text += one_of({"", "", " ", " \t", "# note\n", "\n", "\r\n", "no value\n"}) + name +
                one_of({" =", "="}) + value + "\n";
        const bool misc = text.find("# misc") != text.npos;
        auto same = std::find_if(misc ? list.begin() : list.end(), list.end(), [&](auto &record) {
            return !strcasecmp(record.first.c_str(), name.c_str());
        });
        if (same == list.end())
            same = list.insert(same, {name, ""});
        same->second = value;
    }
    return {text, list};
}

using Cfg = Device;

TEST_F(Cfg, LinesBecomeEntriesAsTheFirmwareWroteThem)
{
    const std::pair<std::string, std::string> rows[] = {
        {"# CFG Start\n#a=1\n\n\r\njust words\n #b=1\n", "#b=1\n"}, // only the first column counts
        {" \t radio.1.mode\t = ap \n\va\v=1\n", "radio.1.mode= ap \n\va\v=1\n"},
        // Any character ends a line.
        {"a=b=c\nA=2\r\n=1\n  =2\nx=10", "a=b=c\nA=2\r\n=1\n=2\nx=1\n"},
        {"a=1\nx=", "a=1\nx=\n"},
        {{"a=bc\0d\nb=\0\nc=1\na\0=1\nd=2\n", 24}, "a=b\nb=\nc=1\nd=2\n"},
        {"a=1\n#misc\n # misc\na=2\n# miscellany\na=3\nv.1=a\nv.01=b\n",
         "a=3\na=2\nv.1=a\nv.01=b\n"},
    };
    for (const auto &[text, want] : rows) {
        const Config cfg = parse_text(text);
        EXPECT_EQ(save_cfg(cfg.get(), "/tmp/saved"), 0);
        EXPECT_EQ(read("/tmp/saved"), "# CFG Start\n" + want);
        testing::internal::CaptureStdout();
        print_cfg(cfg.get());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), want);
    }
    EXPECT_EQ(save_cfg(nullptr, "/tmp/none/saved"), -1);
    EXPECT_EQ(parse("/tmp/none.cfg"), nullptr);
}

TEST_F(Cfg, EverythingAgreesWithTheModel)
{
    libzorv_log_level = 0;
    for (int i = 0; i < 400; ++i) {
        const auto [text, list] = random_config();
        const auto [changed_text, changed_list] = random_config();
        SCOPED_TRACE(text + "----\n" + changed_text);
        const Config cfg = parse_text(text), changed = parse_text(changed_text);
        ASSERT_EQ(list_of(cfg.get()), list);
        ASSERT_EQ(get_cfg_count(cfg.get()), list.size());
        ASSERT_EQ(taken(get_cfg_diff_it(cfg.get(), changed.get())), difference(list, changed_list));
        for (int question = 0; question < 20; ++question) {
            const std::string key = random_key(), other = random_key();
            SCOPED_TRACE(key);
            const auto left = order(key), right = order(other);
            const int rank = left < right ? -1 : left > right;
            ASSERT_EQ(compare_keys(key.c_str(), other.c_str()), rank) << other;

            List want = equal(list, key);
            ASSERT_EQ(taken(get_cfg_it(cfg.get(), 1, "%s", key.c_str())), want);
            ASSERT_EQ(get_cfg_key_count(cfg.get(), 1, "%s", key.c_str()), want.size());
            ASSERT_EQ(get_value(cfg.get(), "none", "%s", key.c_str()),
                      want.empty() ? "none" : want[0].second);
            want = filter(list, [&](auto &record) { return record.first.starts_with(key); });
            ASSERT_EQ(taken(get_cfg_it(cfg.get(), 0, "%s", key.c_str())), want);

            const char *const prefix = one_of({"vlan.", "vlan.1.", "", key.c_str()});
            const char *const postfix = one_of({".id", ".a", ".2.a", nullptr});
            want = section(list, prefix, postfix);
            ASSERT_EQ(taken(get_cfg_section(cfg.get(), postfix, nullptr, "%s", prefix)), want);
            want = filter(want, [](auto &record) { return record.second == "1"; });
            ASSERT_EQ(get_cfg_section_count(cfg.get(), postfix, "1", "%s", prefix), want.size());
        }
    }
}

// A value as uint32, int32, int32_dec, int64, switch and escaped; 7 where it is none.
TEST_F(Cfg, ValuesAreReadAsStrtolAndTheShellReadThem)
{
    const std::pair<const char *, const char *> rows[] = {
        {"0x1F", "31 31 0 31 7 0x1F"},
        {" -1ms", "4294967295 -1 -1 -1 7  -1ms"},
        {"4294967298", "2 2 2 4294967298 7 4294967298"},
        {"9223372036854775808", "0 7 7 7 7 9223372036854775808"},
        {"\t Enabled ", "7 7 7 7 1 \t Enabled "},
        {"truer", "7 7 7 7 7 truer"},
        {"`id` \"$HOME\" \\'<;#", "7 7 7 7 7 \\`id\\` \\\"\\$HOME\\\" \\\\'<;#"},
    };
    for (const auto &[value, want] : rows) {
        const Config cfg = parse_text("n=" + std::string(value) + "\n");
        std::ostringstream got;
        errno = 0;
        got << get_uint32(cfg.get(), 7, "n") << ' ' << get_int32(cfg.get(), 7, "n") << ' '
            << get_int32_dec(cfg.get(), 7, "%s", "n") << ' ' << get_int64(cfg.get(), 7, "n") << ' '
            << get_bool(cfg.get(), 7, "n") << ' ' << get_esc_value(cfg.get(), "none", "%s", "n");
        EXPECT_EQ(got.str(), want);
    }
    for (const std::string word : {"1", "on", "enabled", "enable", "active", "true"})
        EXPECT_EQ(get_bool(parse_text("s=" + word + "\n").get(), 9, "s"), 1) << word;
    for (const std::string word : {"0", "oFF", "disabled", "disable", "inactive", "false"})
        EXPECT_EQ(get_bool(parse_text("s=" + word + "\n").get(), 9, "s"), 0) << word;

    const std::string longer(128, 'a');
    const Config cfg = parse_text("n=1\nvalue=$\n" + longer.substr(1) + "=x\n" + longer + "=y\n");
    EXPECT_STREQ(get_value(cfg.get(), nullptr, "%s", longer.c_str() + 1), "x");
    EXPECT_STREQ(get_value(cfg.get(), nullptr, "%s", longer.c_str()), "y");
    errno = ERANGE; // left by whatever came before
    EXPECT_EQ(get_int32(cfg.get(), 7, "n"), 7);
    errno = EINVAL;
    EXPECT_EQ(get_uint32(cfg.get(), 7, "n"), 1U);
    EXPECT_EQ(get_int32(cfg.get(), 7, "m"), 7);
    EXPECT_EQ(get_bool(cfg.get(), 9, "m"), 9);
    EXPECT_STREQ(get_esc_value(cfg.get(), "none", "m"), "none");

    EXPECT_EQ(esc_value(cfg->next), esc_value(cfg->next));
    const Matches match(get_cfg_it(cfg.get(), 1, "va%s", "lue"));
    EXPECT_EQ(match->escaped, nullptr); // it has one of its own
    EXPECT_STREQ(esc_value(match.get()), "\\$");
    EXPECT_EQ(esc_value(Matches(get_cfg_it(cfg.get(), 1, "n")).get()), cfg->value);
}

TEST_F(Cfg, ListsAreJoinedKeysComparedAndBadOrdersLogged)
{
    const Config cfg = parse_text("vlan.1.on= on\nvlan.2.on=On\nvlan.-=on\nvlan.=on\nvlan7=a\n");
    EXPECT_EQ(get_cfg_section_enabled_count(cfg.get(), ".on", "vlan."), 1U); // blanks count here
    EXPECT_EQ(get_cfg_section_count(cfg.get(), ".on", "ON", "vlan."), 0U);
    cfg_entry *list = nullptr, *first = get_cfg_it(cfg.get(), 0, "vlan.");
    EXPECT_EQ(cfg_it_append(first, &list), first);
    const Matches all(cfg_it_append(nullptr, &first));
    EXPECT_EQ(first, nullptr);
    list = get_cfg_it(cfg.get(), 1, "vlan7");
    EXPECT_EQ(cfg_it_append(all.get(), &list), all.get());
    EXPECT_EQ(list_of(all.get()), list_of(cfg.get()));
    EXPECT_THAT(logged(), IsEmpty());

    EXPECT_EQ(get_cfg_section_count(cfg.get(), nullptr, nullptr, "v%s", "lan"), 1U);
    EXPECT_EQ(get_cfg_section(cfg.get(), "on", nullptr, "vlan."), nullptr);
    cfg_collector broken = {all.get(), nullptr};
    EXPECT_EQ(append_cfg_match_cb(cfg.get(), &broken), -1);
    const std::string lines[] = {
        "[warn ] cfg.process_cfg_section(): deprecated prefix doesn't end with '.': 'v%s' => "
        "'vlan'",
        "[error] cfg.process_cfg_section(): postfix must start with '.': 'on'",
        "[error] cfg.append_cfg_match_cb(): invalid ctx state"};
    EXPECT_THAT(logged(), testing::ElementsAreArray(lines));

    // The model knows shorter numbers.
    EXPECT_EQ(compare_keys("9999999999999999999999", "88888888888888888888888"), -1);
    EXPECT_EQ(compare_keys("18446744073709551615", "18446744073709551616"), -1);
    EXPECT_EQ(compare_keys("", nullptr), 1);
    EXPECT_EQ(compare_keys(nullptr, nullptr), 0);

    // A key's first and second index and what is behind its second dot.
    const std::tuple<const char *, int, int, const char *> rows[] = {
        {"radio.2.vap.5.ssid", 2, 5, "vap.5.ssid"},
        {"3.a.0.4", 4, -1, "0.4"}, // neither the first word nor 0 is an index
        {"a.0x10.010x", 16, 8, "010x"},
        {"a.4294967296.7", 7, -1, "7"}, // cut to 32 bits it is 0
        {"a.b", -1, -1, nullptr},
    };
    for (const auto &[key, one, two, rest] : rows) {
        EXPECT_EQ(get_cfg_key_idx(key, 1), one) << key;
        EXPECT_EQ(get_cfg_key_idx(key, 2), two) << key;
        EXPECT_STREQ(get_key_element(key, 2), rest);
    }
}
