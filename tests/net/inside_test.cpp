// Answers that no resolver gives.
#include "net/url_address.h"
#include "support/device.h"

using NetInside = Device;

TEST_F(NetInside, TheLastInternetAddressDecides)
{
    sockaddr_in v4 = {AF_INET, 0, {0x01010101}, {}};
    sockaddr_storage large = {};
    char name[] = "name";
    addrinfo other = {0, AF_UNIX, 0, 0, sizeof v4, nullptr, nullptr, nullptr}, good = other;
    good.ai_family = AF_INET;
    good.ai_addr = reinterpret_cast<sockaddr *>(&v4);
    addrinfo oversize = {0, AF_INET6, 0, 0, sizeof large, good.ai_addr, name, &good};
    const std::tuple<addrinfo *, addrinfo *, int, const char *> rows[] = {
        {nullptr, nullptr, -6, "kept"},
        {&other, nullptr, -6, "kept"},
        {&oversize, &other, 0, "1.1.1.1"}, // oversize, good, other
        {&oversize, &oversize, -2, "kept"},
    };
    for (const auto &[first, last, result, address] : rows) {
        url record = {};
        good.ai_next = last == &oversize ? nullptr : last;
        oversize.ai_next = last == &oversize ? nullptr : &good;
        EXPECT_EQ(zorv::take_answer(record, first), result);
        EXPECT_EQ(record.addr.ai_addr,
                  result == 0 ? reinterpret_cast<sockaddr *>(&record.storage) : nullptr);
        EXPECT_FALSE(record.addr.ai_canonname || record.addr.ai_next);
        char text[INET6_ADDRSTRLEN] = "kept";
        url_addr_ntop(&record, text, sizeof text);
        EXPECT_STREQ(text, address);
        EXPECT_EQ(logged().size(), first == &oversize ? 1U : 0U);
    }
}
