// What cannot be seen from outside: the order of keys itself, the index against the plain model,
// and every single allocation that may fail.
#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <random>

#include "cfg/index.h"
#include "cfg/model.h"
#include "cfg/natural.h"
#include "support/allocation.h"
#include "support/device.h"

using namespace zorv;

namespace {

using Cfg = std::unique_ptr<cfg_entry, Closer<free_cfg>>;
using CfgIt = std::unique_ptr<cfg_entry, Closer<free_cfg_it>>;

Cfg parse_text(const std::string &text)
{
    const File stream(fmemopen(const_cast<char *>(text.data()), text.size(), "r"));
    return Cfg(parse_stream(stream.get()));
}

// Texts from few pieces, so that equal and nearly equal keys come up all the time.
class Random {
public:
    size_t below(size_t bound) { return engine_() % bound; }

    std::string key()
    {
        static const std::vector<std::string> pieces = {"vlan", "VLAN", "Radio", ".",      ".",
                                                        "1",    "01",   "10",    "2",      "a",
                                                        "Z",    "_",    "\xc4",  "comment"};
        std::string text;
        for (size_t n = below(6); n > 0; --n)
            text += pieces[below(pieces.size())];
        return text;
    }

    std::string config(size_t lines)
    {
        static const std::vector<std::string> odd = {"# note\n", "\n", "\r\n", "no value\n",
                                                     "# misc\n"};
        std::string text = below(2) == 0 ? "# misc\n" : ""; // half of them without duplicates
        for (; lines > 0; --lines) {
            if (below(20) == 0)
                text.append(odd[below(odd.size())]);
            else
                text.append(" ")
                    .append(key())
                    .append(" =")
                    .append(std::to_string(below(3)))
                    .append("\n");
        }
        return text;
    }

private:
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    std::mt19937 engine_{20};
};

} // namespace

using CfgInside = Device;

TEST_F(CfgInside, NaturalOrderPutsNumbersByValueBehindEverythingElse)
{
    const std::string big(40, '9'), huge(41, '8');
    const char *const ascending[] = {"",
                                     "!",
                                     "a",
                                     "a.b",
                                     "a.\xc4",
                                     "a.2",
                                     "a.2b",
                                     "a.02",
                                     "a.10",
                                     "a.10.x",
                                     "a.010",
                                     "a.18446744073709551615",
                                     "a.18446744073709551616",
                                     "ab",
                                     "vlan.a",
                                     "vlan.0",
                                     "vlan.00",
                                     "vlan.1"};
    for (size_t i = 0; i < std::size(ascending); ++i)
        for (size_t j = 0; j < std::size(ascending); ++j) {
            SCOPED_TRACE(std::string(ascending[i]) + " : " + ascending[j]);
            EXPECT_EQ(compare_keys(ascending[i], std::string(ascending[j]).c_str()),
                      i < j ? -1 : i > j);
        }
    EXPECT_EQ(compare_keys(big.c_str(), huge.c_str()), -1);
    EXPECT_EQ(compare_keys(nullptr, "a"), -1);
    EXPECT_EQ(compare_keys("a", nullptr), 1);
    EXPECT_EQ(compare_keys(nullptr, nullptr), 0);
}

TEST_F(CfgInside, NaturalOrderIsThatOfTheModelAndEqualityOnlyCase)
{
    Random random;
    for (int i = 0; i < 20000; ++i) {
        const std::string a = random.key(), b = random.key();
        SCOPED_TRACE(testing::Message() << a << " : " << b);
        ASSERT_EQ(compare_keys(a.c_str(), b.c_str()), model::compare(a, b));
        ASSERT_EQ(compare_keys(b.c_str(), a.c_str()), -model::compare(a, b));
        ASSERT_EQ(equal_keys(a.c_str(), b.c_str()), model::compare(a, b) == 0);
    }
}

TEST_F(CfgInside, ParserIndexAndDifferenceAgreeWithTheModel)
{
    Random random;
    for (int i = 0; i < 400; ++i) {
        const std::string before = random.config(random.below(120));
        const std::string after = random.config(random.below(120));
        SCOPED_TRACE(testing::Message() << before << "----\n" << after);
        const Cfg from = parse_text(before), to = parse_text(after);
        ASSERT_EQ(model::of(from.get()), model::parse(before));
        ASSERT_EQ(model::of(to.get()), model::parse(after));
        const CfgIt change(get_cfg_diff_it(from.get(), to.get()));
        ASSERT_EQ(model::of(change.get()),
                  model::difference(model::of(from.get()), model::of(to.get())));
    }
}

// With n up to the number of allocations, each fails once; no text is lost or freed twice, as the
// sanitizer build sees.
TEST_F(CfgInside, LackOfMemoryShortensTheConfigurationAndIsLogged)
{
    const std::string text = "radio=ap\nvlan=1\n";
    const char *const lines[] = {"[error] cfg.parse_stream(): 137: calloc(1, 32) failed",
                                 "[error] cfg.parse_stream(): 143: malloc(6) failed",
                                 "[error] cfg.parse_stream(): 149: malloc(3) failed"};
    for (long n = 1; n <= 3; ++n) {
        fail_allocation(n);
        const Cfg cfg = parse_text(text);
        EXPECT_EQ(cfg, nullptr);
        EXPECT_THAT(logged(), testing::ElementsAre(lines[n - 1]));
    }
    fail_allocation(4);
    const Cfg cfg = parse_text(text);
    EXPECT_EQ(model::of(cfg.get()), (model::List{{"radio", "ap"}}));
    logged();
}

TEST_F(CfgInside, MiscRegionWithoutMemoryForItsIndexHasTheSameResult)
{
    std::string text = "a.1=old\n# misc\n";
    for (int i = 0; i < 200; ++i) // enough for the index to grow
        text += "A." + std::to_string(i % 120) + "=" + std::to_string(i) + "\n";
    const model::List whole = model::parse(text);
    const long before = allocations();
    parse_text(text);
    const long count = allocations() - before;
    int same = 0;
    for (long n = 1; n <= count; ++n) {
        fail_allocation(n);
        const Cfg cfg = parse_text(text);
        fail_allocations_off();
        const bool complained = !logged().empty();
        same += !complained;
        EXPECT_TRUE(complained || model::of(cfg.get()) == whole) << n;
    }
    EXPECT_EQ(same, 3); // the index at its making and at two growths; everything else is logged
}

TEST_F(CfgInside, LackOfMemoryCutsListsAndLeavesTheFallback)
{
    const Cfg cfg = parse_text("a.1=x\na.2=\"\na.3=x\na.comment=1\n");
    const Cfg other = parse_text("a.1=y\n");
    const auto failing = [](long n, auto call) {
        fail_allocation(n);
        auto result = call();
        fail_allocations_off();
        return result;
    };
    const struct {
        const char *name;
        long n;
        size_t left;
        const char *line;
        cfg_entry *(*call)(const cfg_entry *, const cfg_entry *);
    } rows[] = {
        {"iterator", 2, 1, "append_cfg_match_cb(): 311",
         [](const cfg_entry *c, const cfg_entry *) { return get_cfg_it(c, 0, "a."); }},
        {"section", 3, 2, "append_cfg_match_cb(): 311",
         [](const cfg_entry *c, const cfg_entry *) {
             return get_cfg_section(c, nullptr, nullptr, "a.");
         }},
        {"changed", 3, 2, "get_cfg_diff_it(): 790",
         [](const cfg_entry *c, const cfg_entry *o) { return get_cfg_diff_it(c, o); }},
        {"removed", 4, 2, "get_cfg_diff_it(): 812",
         [](const cfg_entry *c, const cfg_entry *o) { return get_cfg_diff_it(c, o); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const CfgIt list(failing(row.n, [&] { return row.call(cfg.get(), other.get()); }));
        EXPECT_EQ(get_cfg_count(list.get()), row.left);
        EXPECT_THAT(logged(), testing::ElementsAre(std::string("[error] cfg.") + row.line +
                                                   ": calloc(1, 32) failed"));
    }

    for (long n = 1; n <= 2; ++n) { // either index of the difference
        const CfgIt list(failing(n, [&] { return get_cfg_diff_it(cfg.get(), other.get()); }));
        EXPECT_EQ(model::of(list.get()), (model::List{{"a.1", "y"}, {"a.2", "\""}, {"a.3", "x"}}));
    }
    EXPECT_THAT(logged(), IsEmpty());

    EXPECT_STREQ(failing(1, [&] { return get_esc_value(cfg.get(), "no", "a.2"); }), "no");
    EXPECT_THAT(logged(), testing::ElementsAre("[error] cfg.esc_value(): 507: malloc(3) failed"));
    EXPECT_STREQ(get_esc_value(cfg.get(), "no", "a.2"), "\\\"");

    const std::string key(200, 'k');
    EXPECT_STREQ(failing(1, [&] { return get_value(cfg.get(), "no", "%s", key.c_str()); }), "no");
    EXPECT_EQ(failing(1, [&] { return get_cfg_key_count(cfg.get(), 0, "%s", key.c_str()); }), 0U);
    EXPECT_EQ(failing(1,
                      [&] {
                          return get_cfg_section_count(cfg.get(), nullptr, nullptr, "%s",
                                                       key.c_str());
                      }),
              0U);
    EXPECT_THAT(logged(), testing::ElementsAre("[error] cfg.vget_value(): OOM",
                                               "[error] cfg.process_cfg_it(): OOM",
                                               "[error] cfg.process_cfg_section(): OOM"));
}

TEST_F(CfgInside, LookupOfAnOrdinaryKeyAllocatesNothing)
{
    const Cfg cfg = parse_text("wireless.1.ssid=x\nwireless.1.status=Enabled\n");
    const long before = allocations();
    EXPECT_STREQ(get_value(cfg.get(), nullptr, "wireless.%d.ssid", 1), "x");
    EXPECT_STREQ(get_esc_value(cfg.get(), nullptr, "wireless.%d.ssid", 1), "x");
    EXPECT_EQ(get_bool(cfg.get(), 0, "wireless.%d.status", 1), 1);
    EXPECT_EQ(get_cfg_section_enabled_count(cfg.get(), ".status", "wireless."), 1U);
    EXPECT_EQ(allocations(), before);
}
