// Answers that no resolver gives.
#include "net/url_address.h"
#include "support/device.h"

using NetInside = Device;

TEST_F(NetInside, TheLastInternetAddressDecides)
{
    sockaddr_in v4 = {AF_INET, 0, {0x01010101}, {}};
    sockaddr_storage large = {};
    char name[] = "name";
    const auto entry = [](int family, auto &address, char *canonical) {
        return addrinfo{0,         family,         0,
                        0,         sizeof address, reinterpret_cast<sockaddr *>(&address),
                        canonical, nullptr};
    };
    addrinfo good = entry(AF_INET, v4, nullptr), other = entry(AF_UNIX, large, nullptr);
    addrinfo oversize = entry(AF_INET6, large, name);
    const std::pair<std::vector<addrinfo *>, int> rows[] = {
        {{nullptr}, -6},
        {{&other}, -6},
        {{&oversize, &good, &other}, 0},
        {{&good, &oversize}, -2},
    };
    for (const auto &[list, result] : rows) {
        SCOPED_TRACE(result);
        for (size_t i = 0; i + 1 < list.size(); ++i)
            list[i]->ai_next = list[i + 1];
        if (list.back())
            list.back()->ai_next = nullptr;
        url record = {};
        EXPECT_EQ(zorv::take_answer(record, list.front()), result);
        EXPECT_EQ(record.addr.ai_addr,
                  result == 0 ? reinterpret_cast<sockaddr *>(&record.storage) : nullptr);
        EXPECT_EQ(record.addr.ai_addrlen == 0, result == -6);
        EXPECT_FALSE(record.addr.ai_canonname || record.addr.ai_next);
        char text[INET6_ADDRSTRLEN] = "kept";
        EXPECT_EQ(url_addr_ntop(&record, text, sizeof text), 0);
        EXPECT_STREQ(text, result == 0 ? "1.1.1.1" : "kept");
        EXPECT_EQ(logged().size(), list.size() == 1 ? 0U : 1U);
    }
}
