// URLs and JSON helpers seen from inside: when memory runs short, and answers no resolver gives.
#include <zorv/json.h>

#include <cstring>

#include <jansson.h>
#include <sys/socket.h>

#include "core/own.h"
#include "net/url_address.h"
#include "support/allocation.h"
#include "support/device.h"

using testing::MatchesRegex;
using zorv::Closer;
using zorv::File;
using zorv::Json;

namespace {

using Url = std::unique_ptr<url, Closer<url_destroy>>;

using NetInside = Device;

// The next message without priority, time and tag; empty when there is none.
std::string message()
{
    const std::string line = Device::syslogged();
    const size_t tag_end = line.rfind(": ");
    return tag_end == std::string::npos ? line : line.substr(tag_end + 2);
}

} // namespace

TEST_F(NetInside, AUrlIsMadeWholeOrNotAtAll)
{
    start_syslog();
    libzorv_log_use_syslog = 0; // url_parse() and url_copy() speak to it themselves
    long n = 0;
    Url record;
    while (!record) {
        fail_allocation(++n);
        record.reset(url_parse("https://u@h/p"));
        if (!record) {
            EXPECT_THAT(message(), MatchesRegex("url_parse:[0-9]+ url oom\n"));
        }
    }
    EXPECT_GT(n, 6);
    fail_allocations_off();
    Url copy;
    for (n = 0; !copy;) {
        fail_allocation(++n);
        copy.reset(url_copy(record.get()));
        if (!copy) {
            EXPECT_THAT(message(), MatchesRegex("url_copy:[0-9]+ url oom\n"));
        }
    }
    EXPECT_GT(n, 6);
    fail_allocation(1);
    EXPECT_EQ(url_parse("nothing:"), nullptr); // says nothing of memory that it does not need
    fail_allocations_off();
    EXPECT_EQ(message(), "");
    EXPECT_THAT(logged(), IsEmpty());

    fail_allocation(1);
    EXPECT_EQ(url_encode("ab"), nullptr);
    EXPECT_THAT(logged(),
                ElementsAre(MatchesRegex(
                    "\\[error\\] libzorv.url_encode\\(\\): [0-9]+: malloc\\(7\\) failed")));
}

TEST_F(NetInside, TheLastInternetAddressDecides)
{
    sockaddr_storage large = {};
    sockaddr_in v4 = {AF_INET, 0, {0x01010101}, {}};
    addrinfo other = {0, AF_UNIX, 0, 0, sizeof large, nullptr, nullptr, nullptr};
    other.ai_addr = reinterpret_cast<sockaddr *>(&large);
    addrinfo oversize = other;
    oversize.ai_family = AF_INET6;
    char name[] = "name";
    oversize.ai_canonname = name;
    addrinfo good = {0,       AF_INET, 0, 0, sizeof v4, reinterpret_cast<sockaddr *>(&v4),
                     nullptr, nullptr};

    const Url record(url_parse("h"));
    EXPECT_EQ(zorv::take_answer(*record, nullptr), -6);
    EXPECT_EQ(zorv::take_answer(*record, &other), -6);
    EXPECT_EQ(record->addr.ai_addrlen, 0U);
    EXPECT_THAT(logged(), IsEmpty());

    oversize.ai_next = &good;
    good.ai_next = &other;
    EXPECT_EQ(zorv::take_answer(*record, &oversize), 0);
    EXPECT_EQ(record->addr.ai_addr, reinterpret_cast<sockaddr *>(&record->storage));
    EXPECT_EQ(memcmp(&record->storage, &v4, sizeof v4), 0);
    EXPECT_EQ(record->addr.ai_next, nullptr);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv.url_resolve(): Oversize sockaddr: 128 vs 28"));

    good.ai_next = &oversize;
    oversize.ai_next = nullptr;
    EXPECT_EQ(zorv::take_answer(*record, &good), -2);
    EXPECT_EQ(record->addr.ai_addr, nullptr);
    EXPECT_EQ(record->addr.ai_canonname, nullptr);
    EXPECT_EQ(record->addr.ai_next, nullptr);
    char text[INET6_ADDRSTRLEN] = "kept";
    EXPECT_EQ(url_addr_ntop(record.get(), text, sizeof text), 0);
    EXPECT_STREQ(text, "kept");
    logged();
}

TEST_F(NetInside, JsonHelpersReportMemoryThatRunsShort)
{
    json_set_alloc_funcs(malloc, free);
    const Json json(json_loads(R"({"list":[1]})", 0, nullptr));
    long *numbers = nullptr;
    size_t count = 5;
    fail_allocation(1);
    EXPECT_EQ(zorv_json_read_array(json.get(), "list", &numbers, &count), -1);
    EXPECT_EQ(count, 5U);
    for (const long n : {1, 2, 3}) { // the array, its table, its element
        fail_allocation(n);
        EXPECT_EQ(zorv_json_append_array(json.get(), "new", 1), -1);
        fail_allocation(n);
        EXPECT_EQ(zorv_json_maybe_append_array(json.get(), "new", 1), -1);
    }
    file("/tmp/core", "foo");
    const File stream(fopen("/tmp/core", "re"));
    fail_allocation(1);
    EXPECT_EQ(json_object_load_file_base64(json.get(), "core", stream.get()), -1);
    fail_allocations_off();
    EXPECT_STREQ(zorv_json_get_str(json.get(), "core", "none"), "");

    const std::string at = "[error] libzorv_util.";
    const std::string array = at + "zorv_json_append_array(): Failed to allocate json array";
    const std::string series = at + "zorv_json_maybe_append_array(): Failed to allocate json array";
    EXPECT_THAT(logged(), ElementsAre(at + "zorv_json_read_array(): Failed to allocate memory",
                                      array, series, array, series, array, series,
                                      at + "load_file_base64(): 626: malloc(5) failed"));
}
