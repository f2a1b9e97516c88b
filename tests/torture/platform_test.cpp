// What comes of it when the kernel or memory fails: mostly the neutral value, without a word, as
// documented.

#include "platform/rows.h"
#include "support/json.h"
#include "support/torture.h"

TEST_F(Torture, Platform)
{
    file("/proc/zorvhal/system.info", "vendorid=1f3d\nsystemid=7e8b\n");
    file("/tmp/flag", "1\n");
    static const std::string axes = "/sys/bus/i2c/devices/1-0018/iio:device0/in_accel_";
    for (const std::string axis : {"x", "y", "z"})
        file(axes + axis + "_raw", "7\n");
    file("/proc/mtd", "mtd0: 0 0 \"EEPROM\"\n");
    file("/dev/mtd0", std::string(65536, 'e'));
    file("/run/guest/portal/hotel/vlans", std::string(4095, '1') + "\n7");
    file("/sys/class/net/br0/brif/eth0/port_no", "1\n");
    file("/sys/class/net/br0/brforward", std::string("123456\1", 7) + std::string(17, '\0'));
    const auto eeprom = [] {
        buffer *const image = zorv_read_eeprom();
        buffer_destroy(image);
        return shown(image != nullptr);
    };
    const auto portals = [] {
        guest_portal_set set;
        guest_portal_set_init(&set);
        guest_portal_set_read(&set);
        const bool is_there = guest_portal_from_vlan(&set, 7) != nullptr;
        guest_portal_set_clear(&set);
        return shown(is_there);
    };
    torture({
        {"fdb_foreach",
         [] {
             int visits = 0;
             const fdb_callback count = [](void *user, const fdb_record *, const char *) {
                 ++*static_cast<int *>(user);
             };
             fdb_foreach(nullptr, nullptr, count, &visits);
             return shown(visits);
         },
         {"0: *: *"}},
        {"eeprom", eeprom, {"0"}},
        {"board", [] { return shown(get_board() && pluvo_get_board(0x7E8E)); }, {"0"}},
        {"flag", [] { return shown(system_set_value("/tmp/flag", "1")); }, {"-1"}},
        {"accelerometer", // whole or none
         [] {
             const Json status(prepare_accelerometer_status());
             settle();
             return dumped(status.get());
         },
         {"", "{*\"x\":*,\"y\":*,\"z\":*}"}},
        {.name = "portals",
         .scenario = portals,
         .outcomes = {"0: guest_portal_set_read: Couldn't*", "0: fill_portal_buffer_file: *", "0"},
         .messages = {"fill_portal_buffer_file: Couldn't read all of "}},
    });
}

TEST_F(Torture, PlatformNetwork)
{
    kernel_proc();
    make_bridge();
    must_run("ip route add default via 192.0.2.254 dev br0");
    static uint8_t mac[6] = {0x02, 0xa0, 0xf1, 0, 0, 1};
    static uint32_t number;
    static char text[16];
    torture({
        {"status",
         [] {
             dev_status s = {};
             const int rc = fill_dev_status("br0", &s);
             return shown(rc, +s.hwaddr[0], s.ipaddr != 0, s.netmask != 0, s.flags & 1, s.speed);
         },
         {"-* 0 0 0 0 0", "0 0 1 1 1 10000", "0 2 0 1 1 10000", "0 2 1 0 1 10000",
          "0 2 1 1 0 10000", "0 2 1 1 1 0"}},
        {"gateway", [] { return shown(get_gateway(text, &number, 16)); }, {"-1"}},
        {"addresses", // as documented, the first that answers counts: br0 when eth0 cannot be asked
         [] {
             const int rc = devifindex_get_hwaddr(reinterpret_cast<int *>(&number), mac);
             return shown(rc, devhwaddr_get(mac) == 0 ? shown_mac(mac) : "none");
         },
         {"-1 2:*", "-10 2:*", "-11 2:*", "* none", "* 2:a0:f1:0:0:1"}},
        {"forget",
         [] { return shown(fdb_delneigh(mac, "eth0")); },
         {"-*: fdb_delneigh: -# on line #"}},
    });
}
