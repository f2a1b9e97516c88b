// What is odd stands in tables; everything else is asked at random, of the library and of a model.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <tuple>

#include <zorv/cfg.h>

#include "cfg/natural.h"
#include "core/own.h"
#include "support/device.h"

using namespace zorv;

namespace {

using Config = std::unique_ptr<cfg_entry, Closer<free_cfg>>;
using Matches = std::unique_ptr<cfg_entry, Closer<free_cfg_it>>;
using Record = std::pair<std::string, std::string>; // key and value
using List = std::vector<Record>;

Config parse_text(std::string_view text)
{
    Device::file("/tmp/system.cfg", text);
    return Config(parse("/tmp/system.cfg"));
}

List list_of(const cfg_entry *entry)
{
    List list;
    for (; entry; entry = entry->next)
        list.emplace_back(entry->key, entry->value);
    return list;
}

List taken(cfg_entry *matches)
{
    return list_of(Matches(matches).get());
}

// The answers as a page of plain code: slow, and easy to check against the header.
namespace model {

// Natural order, character by character; for numbers of at most 19 digits.
std::vector<unsigned long long> order(const std::string &key)
{
    std::vector<unsigned long long> ranks;
    for (const char *c = key.c_str(); *c; ++c)
        ranks.push_back(is_digit(*c) ? 256 + strtoull(c, nullptr, 10) : lower(*c));
    return ranks;
}

template <class Test>
List filter(const List &list, Test test)
{
    List result;
    std::copy_if(list.begin(), list.end(), std::back_inserter(result), test);
    return result;
}

List equal(const List &list, const std::string &key)
{
    return filter(list,
                  [&](auto &record) { return !strcasecmp(record.first.c_str(), key.c_str()); });
}

// A null postfix stands for none.
List section(const List &list, const std::string &prefix, const char *postfix)
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
    std::stable_sort(result.begin(), result.end(), [](auto &left, auto &right) {
        return order(left.first) < order(right.first);
    });
    return result;
}

List difference(const List &before, const List &after)
{
    List result;
    for (const auto &[key, value] : after)
        if (const List old = equal(before, key); old.empty() || old[0].second != value)
            result.emplace_back(key, value);
    for (const auto &[key, value] : before)
        if (equal(after, key).empty())
            result.emplace_back(key, value);
    return filter(result, [](auto &record) { return !record.first.ends_with(".comment"); });
}

} // namespace model

// Texts from few pieces, so that equal and nearly equal keys come up all the time.
class Random {
public:
    const char *one_of(std::initializer_list<const char *> words)
    {
        return words.begin()[engine_() % words.size()];
    }

    std::string key()
    {
        if (engine_() % 3 == 0)
            return one_of({"vlan.", "vlan.", "vlan.0x", "vlan. +", "vlan.-", "vlan. x"}) +
                   std::to_string(engine_() % 200) + one_of({".id", ".ID", ".a", "", "b"});
        std::string text;
        for (size_t n = engine_() % 6; n > 0; --n)
            text += one_of({"vlan", "VLAN", "Radio", ".", ".", "1", "01", "10", "2", "0x1", "-",
                            "a", "Z", "_", "\xc4", ".comment"});
        return text;
    }

    // A file, and what is in it.
    std::pair<std::string, List> config()
    {
        List list;
        std::string text = one_of({"# misc\n", ""});
        bool misc = !text.empty();
        for (size_t lines = engine_() % 120; lines > 0; --lines) {
            const std::string name = key(), value = one_of({"0", "1", "2"});
            if (engine_() % 100 == 0)
                text += (misc = true, "# misc\n");
            text += one_of({"", "", " ", " \t", "# note\n", "\n", "\r\n", "no value\n"}) + name +
                    one_of({" =", "="}) + value + "\n";
            const auto same = std::find_if(list.begin(), list.end(), [&](auto &earlier) {
                return misc && !strcasecmp(earlier.first.c_str(), name.c_str());
            });
            if (same == list.end())
                list.emplace_back(name, value);
            else
                same->second = value;
        }
        return {text, list};
    }

private:
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    std::mt19937 engine_{20};
};

using Cfg = Device;

TEST_F(Cfg, LinesBecomeEntriesAsTheFirmwareWroteThem)
{
    const std::string wide(100000, 'w'), long_line = wide + "=" + wide + "\n";
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"# CFG Start\n#a=1\n\n\r\njust words\n #b=1\n", "#b=1\n"}, // only the first column counts
        {" \t radio.1.mode\t = ap \n\va\v=1\n", "radio.1.mode= ap \n\va\v=1\n"},
        {"a=b=c\na=1\r\nA=2\n=1\n  =2\nkey=\n", "a=b=c\na=1\r\nA=2\n=1\n=2\nkey=\n"},
        {"a=1\nx=10", "a=1\nx=1\n"}, // any last character is taken for the newline
        {"a=1\nx=", "a=1\nx=\n"},
        {{"a=bc\0d\nb=\0\nc=1\na\0=1\nd=2\n", 24}, "a=b\nb=\nc=1\nd=2\n"},
        {long_line, long_line},
        {"# misc\na=1\nb=1\nA=2\nv.1=a\nv.01=b\n", "a=2\nb=1\nv.1=a\nv.01=b\n"},
        {"a=1\na=2\nb=3\n# miscellany\na=4\nc=5\n", "a=4\na=2\nb=3\nc=5\n"},
        {"a=1\n#misc\n # misc\na=2\n", "a=1\na=2\n"},
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
    EXPECT_EQ(parse_stream(nullptr), nullptr);
    EXPECT_EQ(parse("/tmp/none.cfg"), nullptr);
    EXPECT_EQ(parse("/tmp"), nullptr); // opens, and cannot be read
    EXPECT_THAT(logged(), IsEmpty());
}

// The rest of the natural order is the model's.
TEST_F(Cfg, NumbersOfAnyLengthHaveTheirOrder)
{
    const std::string eights(23, '8'), nines(22, '9'), text = "18446744073709551615";
    EXPECT_EQ(compare_keys(nines.c_str(), eights.c_str()), -1);
    EXPECT_EQ(compare_keys(eights.c_str(), ("0" + nines).c_str()), 1);
    EXPECT_EQ(compare_keys(text.c_str(), "18446744073709551616"), -1);
    EXPECT_EQ(compare_keys(text.c_str(), std::string(text).c_str()), 0);
    EXPECT_EQ(compare_keys(text.c_str(), nullptr), 1);
    EXPECT_EQ(compare_keys(nullptr, ""), -1);
    EXPECT_EQ(compare_keys(nullptr, nullptr), 0);
}

TEST_F(Cfg, EverythingAgreesWithTheModel)
{
    libzorv_log_level = 0;
    Random random;
    for (int i = 0; i < 400; ++i) {
        const auto [text, list] = random.config();
        const auto [changed_text, changed_list] = random.config();
        SCOPED_TRACE(text + "----\n" + changed_text);
        const Config cfg = parse_text(text), changed = parse_text(changed_text);
        ASSERT_EQ(list_of(cfg.get()), list);
        ASSERT_EQ(get_cfg_count(cfg.get()), list.size());
        ASSERT_EQ(taken(get_cfg_diff_it(cfg.get(), changed.get())),
                  model::difference(list, changed_list));
        for (int question = 0; question < 20; ++question) {
            const std::string key = random.key(), other = random.key();
            SCOPED_TRACE(key);
            const auto left = model::order(key), right = model::order(other);
            ASSERT_EQ(compare_keys(key.c_str(), other.c_str()), left < right ? -1 : left > right)
                << other;

            List want = model::equal(list, key);
            ASSERT_EQ(taken(get_cfg_it(cfg.get(), 1, "%s", key.c_str())), want);
            ASSERT_EQ(get_cfg_key_count(cfg.get(), 1, "%s", key.c_str()), want.size());
            ASSERT_EQ(get_value(cfg.get(), "none", "%s", key.c_str()),
                      want.empty() ? "none" : want[0].second);
            want = model::filter(list, [&](auto &record) { return record.first.starts_with(key); });
            ASSERT_EQ(taken(get_cfg_it(cfg.get(), 0, "%s", key.c_str())), want);
            ASSERT_EQ(get_cfg_key_count(cfg.get(), 0, "%s", key.c_str()), want.size());

            const char *const prefix = random.one_of({"vlan.", "vlan.1.", "", key.c_str()});
            const char *const postfix = random.one_of({".id", ".a", ".2.a", nullptr});
            want = model::section(list, prefix, postfix);
            ASSERT_EQ(taken(get_cfg_section(cfg.get(), postfix, nullptr, "%s", prefix)), want);
            want = model::filter(want, [](auto &record) { return record.second == "1"; });
            ASSERT_EQ(get_cfg_section_count(cfg.get(), postfix, "1", "%s", prefix), want.size());
            ASSERT_EQ(get_cfg_section_enabled_count(cfg.get(), postfix, "%s", prefix), want.size());
        }
    }
}

// A value as int32, uint32, int32_dec, int64, switch and escaped; 7 where it is none.
TEST_F(Cfg, ValuesAreReadAsStrtolAndTheShellReadThem)
{
    const std::pair<const char *, const char *> rows[] = {
        {"0x1F", "31 31 0 31 7 0x1F"},
        {"010", "8 8 10 8 7 010"},
        {"12ms", "12 12 12 12 7 12ms"},
        {" -1", "-1 4294967295 -1 -1 7  -1"},
        {"4294967298", "2 2 2 4294967298 7 4294967298"},
        {"9223372036854775808", "7 0 7 7 7 9223372036854775808"},
        {"99999999999999999999", "7 7 7 7 7 99999999999999999999"},
        {"", "7 7 7 7 7 "},
        {"1", "1 1 1 1 1 1"},
        {"0", "0 0 0 0 0 0"},
        {"\t Enabled ", "7 7 7 7 1 \t Enabled "},
        {"tru", "7 7 7 7 7 tru"},
        {"truer", "7 7 7 7 7 truer"},
        {"\ron", "7 7 7 7 7 \ron"},
        {"`id` \"$HOME\" \\", "7 7 7 7 7 \\`id\\` \\\"\\$HOME\\\" \\\\"},
        {"it's <fine>; #!", "7 7 7 7 7 it's <fine>; #!"},
    };
    for (const auto &[value, want] : rows) {
        const Config cfg = parse_text("n=" + std::string(value) + "\n");
        std::string got;
        const auto add = [&](auto get) {
            errno = 0;
            got += std::to_string(get(cfg.get(), 7, "%s", "n")) + " ";
        };
        add(get_int32);
        add(get_uint32);
        add(get_int32_dec);
        add(get_int64);
        add(get_bool);
        EXPECT_EQ(got + get_esc_value(cfg.get(), "none", "%s", "n"), want);
    }
    for (const std::string word : {"on", "enabled", "enable", "active", "true"})
        EXPECT_EQ(get_bool(parse_text("s=" + word + "\n").get(), 9, "s"), 1) << word;
    for (const std::string word : {"oFF", "disabled", "disable", "inactive", "false"})
        EXPECT_EQ(get_bool(parse_text("s=" + word + "\n").get(), 9, "s"), 0) << word;
}

TEST_F(Cfg, LookupHasItsFallbackAndItsMemory)
{
    const std::string longer(128, 'a');
    const Config cfg = parse_text("n=1\nvalue=$\n" + longer.substr(1) + "=x\n" + longer + "=y\n");
    EXPECT_EQ(get_value(cfg.get(), nullptr, "no.%d", 1), nullptr);
    EXPECT_EQ(get_value(nullptr, nullptr, "n"), nullptr);
    EXPECT_STREQ(get_value(cfg.get(), nullptr, "%s", longer.c_str() + 1), "x");
    EXPECT_STREQ(get_value(cfg.get(), nullptr, "%s", longer.c_str()), "y");
    errno = ERANGE; // left by whatever came before
    EXPECT_EQ(get_int32(cfg.get(), 7, "n"), 7);
    EXPECT_EQ(get_int64(cfg.get(), 7, "n"), 7);
    errno = EINVAL;
    EXPECT_EQ(get_uint32(cfg.get(), 7, "n"), 1U);
    EXPECT_EQ(get_int32(cfg.get(), 7, "m"), 7);
    EXPECT_EQ(get_bool(cfg.get(), 9, "m"), 9);
    EXPECT_STREQ(get_esc_value(cfg.get(), "none", "m"), "none");
    EXPECT_STREQ(get_esc_value(cfg.get(), "none", "%s%c%s", "va", 'l', "ue"), "\\$");

    cfg_entry *const value = cfg->next;
    EXPECT_EQ(esc_value(cfg.get()), cfg->value);
    EXPECT_EQ(esc_value(value), esc_value(value));
    const Matches match(get_cfg_it(cfg.get(), 1, "value")); // has one of its own
    EXPECT_EQ(match->escaped, nullptr);
    EXPECT_STREQ(esc_value(match.get()), "\\$");
    EXPECT_NE(esc_value(match.get()), esc_value(value));
    EXPECT_EQ(esc_value(Matches(get_cfg_it(cfg.get(), 1, "n")).get()), cfg->value);
}

TEST_F(Cfg, SectionsWantTheirDots)
{
    const Config cfg = parse_text("vlan.1.on= on\nvlan.2.on=On\nvlan.-=on\nvlan.=on\nvlan7=a\n");
    EXPECT_EQ(get_cfg_section_enabled_count(cfg.get(), ".on", "vlan."), 1U); // blanks count here
    EXPECT_EQ(get_cfg_section_count(cfg.get(), ".on", "ON", "vlan."), 0U);
    EXPECT_EQ(get_cfg_section_count(cfg.get(), nullptr, nullptr, "vlan."), 0U);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(get_cfg_section_count(cfg.get(), nullptr, nullptr, "v%s", "lan"), 1U);
    EXPECT_EQ(get_cfg_section(cfg.get(), "on", nullptr, "vlan."), nullptr);
    EXPECT_EQ(get_cfg_section_count(cfg.get(), "", nullptr, "vlan."), 0U);
    const std::string in = " cfg.process_cfg_section(): ", must = "postfix must start with '.': ";
    EXPECT_THAT(
        logged(),
        ElementsAre("[warn ]" + in + "deprecated prefix doesn't end with '.': 'v%s' => 'vlan'",
                    "[error]" + in + must + "'on'", "[error]" + in + must + "''"));
}

// A key's first and second index and what is behind its second dot.
TEST_F(Cfg, KeysAreTakenApart)
{
    const std::tuple<const char *, int, int, const char *> rows[] = {
        {"radio.2.vap.5.ssid", 2, 5, "vap.5.ssid"},
        {"3.a.0.4", 4, -1, "0.4"}, // neither the first word nor 0 is an index
        {"a.0x10.010", 16, 8, "010"},
        {"a.99999999999999999999.7", 7, -1, "7"},
        {"a.4294967296.7", 7, -1, "7"}, // cut to 32 bits it is 0
        {"a..5x", 5, -1, "5x"},
        {"a.b", -1, -1, nullptr},
    };
    for (const auto &[key, first, second, rest] : rows) {
        EXPECT_EQ(get_cfg_key_idx(key, 1), first) << key;
        EXPECT_EQ(get_cfg_key_idx(key, 2), second) << key;
        EXPECT_EQ(get_cfg_key_idx(key, INT_MIN), -1) << key;
        EXPECT_STREQ(get_key_element(key, 2), rest);
        EXPECT_EQ(get_key_element(key, 0), key);
    }
}

TEST_F(Cfg, IteratorListsAreJoinedAndCollected)
{
    const Config cfg = parse_text("a=1\nb=2\n");
    cfg_entry *list = nullptr, *first = get_cfg_it(cfg.get(), 1, "a");
    EXPECT_EQ(cfg_it_append(first, nullptr), first);
    EXPECT_EQ(cfg_it_append(first, &list), first);
    const Matches both(cfg_it_append(nullptr, &first));
    EXPECT_EQ(first, nullptr);
    list = get_cfg_it(cfg.get(), 1, "b");
    EXPECT_EQ(cfg_it_append(both.get(), &list), both.get());
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(list_of(both.get()), list_of(cfg.get()));

    cfg_collector broken = {both.get(), nullptr};
    EXPECT_EQ(append_cfg_match_cb(cfg.get(), &broken), -1);
    EXPECT_THAT(logged(), ElementsAre("[error] cfg.append_cfg_match_cb(): invalid ctx state"));
}

} // namespace
