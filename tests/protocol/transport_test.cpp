#include <zorv/protocol.h>

#include <cstring>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/device.h"
#include "support/enter.h"

namespace {

constexpr char kSite[] = "/var/run/zorv_protocol.info";
constexpr char kAddress[] = "/var/run/ipready.br0";
constexpr char kKeyLine[] = "pluvo.key=000102030405060708090a0b0c0d0e0f\n";
constexpr char kGroupLine[] = "pluvo.mcip=239.255.90.90\n";
constexpr char kInit[] = "zorv_protocol.zorv_protocol_init(): ";

std::string info(const std::string &message)
{
    return "[info ] " + (kInit + message);
}

std::string error(const std::string &message)
{
    return "[error] " + (kInit + message);
}

bool is_reset()
{
    zorv_protocol_ctrl_t reset{};
    reset.fd = -1;
    return memcmp(&zorv_protocol_ctrl, &reset, sizeof reset) == 0;
}

class Transport : public Device {
protected:
    Transport()
    {
        file("/proc/zorvhal/system.info", "systemid=e517\nserialno=02A0F1000007 and more\n");
        file(kSite, std::string(kKeyLine) + kGroupLine);
    }
};

TEST_F(Transport, StartsReset)
{
    EXPECT_TRUE(is_reset());
    zorv_protocol_deinit();
    EXPECT_TRUE(is_reset());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Transport, KeyOnly)
{
    file(kSite, kKeyLine);
    ASSERT_EQ(zorv_protocol_init(0), 0);
    EXPECT_THAT(logged(), ElementsAre(info("ZORV_DEVICE[02:a0:f1:00:00:07]"), info("no pluvo.mcip"),
                                      info("zorv_protocol init done")));
    EXPECT_EQ(zorv_protocol_ctrl.ready_a, 1u);
    EXPECT_EQ(zorv_protocol_ctrl.ready_b, 1u);
    EXPECT_EQ(zorv_protocol_ctrl.fd, -1);
    EXPECT_EQ(memcmp(zorv_protocol_ctrl.device, "\x02\xa0\xf1\0\0\x07", 6), 0);
    EXPECT_EQ(zorv_protocol_ctrl.key[15], 15);
    EXPECT_EQ(zorv_protocol_send("x", 1, 1, 1, 1), -1);
    EXPECT_THAT(logged(),
                ElementsAre("[error] zorv_protocol.zorv_protocol_send(): failed to send "
                            "message (method: 1, type: 1, len: 56), Bad file descriptor"));
    EXPECT_EQ(zorv_protocol_send("", UINT32_MAX, 1, 1, 1), -1);
    EXPECT_THAT(logged(), Contains("[error] zorv_protocol.zorv_protocol_send(): fill_zorv_payload "
                                   "fail"));
    zorv_protocol_deinit();
    EXPECT_TRUE(is_reset());
    remove("/proc/zorvhal/system.info");
    ASSERT_EQ(zorv_protocol_init(0), 0);
    EXPECT_THAT(logged(), Contains(info("ZORV_DEVICE[00:00:00:00:00:00]")));
}

TEST_F(Transport, FailedInitSaysWhyAndEndsReset)
{
    const std::string digits = "000102030405060708090a0b0c0d0e0f";
    const struct {
        const char *what;
        std::string site; // empty for no file
        std::string why;
    } kCases[] = {
        {"no file", "", "Unable to access /var/run/zorv_protocol.info: No such file or directory"},
        {"nothing in it", "# pluvo\n", "Unable to parse /var/run/zorv_protocol.info"},
        {"neither", "a=b\n", "no pluvo.key"},
        {"no group", kKeyLine, "no pluvo.mcip"},
        {"short key", "pluvo.key=" + digits.substr(1) + "\npluvo.mcip=x\n",
         "pluvo.key invalid len 31"},
        {"long key", "pluvo.key=0" + digits + "\npluvo.mcip=x\n", "pluvo.key invalid len 33"},
        {"bad group", kKeyLine + std::string("pluvo.mcip=site\n"), "pluvo.mcip=site is not valid"},
    };
    const int open_before = open_descriptors();
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.what);
        remove(kSite);
        if (!row.site.empty())
            file(kSite, row.site);
        EXPECT_EQ(zorv_protocol_init(1), -1);
        EXPECT_THAT(logged(), ElementsAre(info("ZORV_DEVICE[02:a0:f1:00:00:07]"), error(row.why),
                                          error("could not start zorv-protocol")));
        EXPECT_TRUE(is_reset());
    }
    EXPECT_EQ(open_descriptors(), open_before);
}

TEST_F(Transport, ATakenPort)
{
    const int other = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(48000);
    check(bind(other, reinterpret_cast<const sockaddr *>(&any), sizeof any), "bind");
    EXPECT_EQ(zorv_protocol_init(1), -1);
    EXPECT_THAT(logged(), Contains(error("unable to bind zorv socket, Address already in use")));
    EXPECT_TRUE(is_reset());
    close(other);
}

TEST_F(Transport, WithoutAnAddressTheSocketWaits)
{
    const int open_before = open_descriptors();
    for (const char *address : {"", "\n", "0.0.0.0\n", "soon\n"}) {
        SCOPED_TRACE(address);
        file(kAddress, address);
        ASSERT_EQ(zorv_protocol_init(1), 0);
        EXPECT_THAT(logged(), ElementsAre(info("ZORV_DEVICE[02:a0:f1:00:00:07]"),
                                          info("mcast_ip is 239.255.90.90"),
                                          info("zorv_protocol init done")));
        EXPECT_EQ(zorv_protocol_ctrl.own_address, 0u);
        EXPECT_EQ(zorv_protocol_ctrl.group_address, inet_addr("239.255.90.90"));
        sockaddr_in bound{};
        socklen_t size = sizeof bound;
        getsockname(zorv_protocol_ctrl.fd, reinterpret_cast<sockaddr *>(&bound), &size);
        EXPECT_EQ(ntohs(bound.sin_port), 48000);
        EXPECT_EQ(bound.sin_addr.s_addr, INADDR_ANY);
        zorv_protocol_deinit();
        EXPECT_THAT(logged(), ElementsAre(StartsWith(
                                  "[error] zorv_protocol.zorv_multicast_socket_deinit(): unable to "
                                  "drop membership, ")));
        EXPECT_TRUE(is_reset());
    }
    EXPECT_EQ(open_descriptors(), open_before);
}

} // namespace
