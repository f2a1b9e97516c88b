// What comes of it when the kernel or memory fails: mostly the neutral value, without a word, as
// documented.
#include <zorv/board.h>
#include <zorv/bridge.h>
#include <zorv/guest_portal.h>
#include <zorv/hardware.h>
#include <zorv/lock.h>
#include <zorv/status.h>

#include "platform/rows.h"
#include "support/json.h"
#include "support/torture.h"

static constexpr char kInfo[] = "/proc/zorvhal/system.info";

// The locks' own sleep.
extern "C" unsigned sleep(unsigned)
{
    return 0;
}

TEST_F(Torture, Platform)
{
    file(kInfo, "vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f1000007\nboardrevision=7\n");
    file("/proc/zorvhal/board", "bomrev=7\n");
    file("/proc/mtd", "mtd0: 0 0 \"EEPROM\"\n");
    file("/dev/mtd0", std::string(65536, 'e'));
    file("/proc/bus/pci/devices", "0000\t168c003c\t10\n");
    file("/sys/bus/i2c/devices/1-0018/iio:device0/in_accel_x_raw", "7");
    file("/tmp/system.cfg", "ppp.status=enabled\nppp.1.status=enabled\nmgmt.kelo.env=dev\n");
    file("/usr/etc/.version", "6.6.55\n");
    file("/usr/etc/.build", "15189\n");
    file("/var/run/system.internet", "1\n");
    file("/var/run/dhcpc.last_state", "bound\n");
    file("/var/run/report/file", "");
    file("/var/run/guest/portal/hotel/vlans",
         std::string(4095, '1') + "\n" + std::string(300, '2'));
    static pci_entry device;
    static dev_status status;
    static char serial[16] = "";
    torture({
        {"get_board", [] { return shown(get_board() != nullptr); }, {"0"}},
        {"bomrev", [] { return hex(pluvo_get_bomrev()); }, {"0", "ffffffff"}},
        {"revision", [] { return shown(get_boardrevision(kInfo)); }, {"0", "-1"}},
        {"pci", [] { return shown(pci_detect(&device, 1, 0x168C)); }, {"0", "-1"}},
        {"axes", [] { return dumped(Json(prepare_accelerometer_status()).get()); }, {"", "{*}"}},
        {"eeprom",
         [] {
             buffer *const image = zorv_read_eeprom();
             const std::string size = image ? shown(image->length(image)) : "none";
             buffer_destroy(image);
             return size;
         },
         {"none"}},
        {.name = "serial",
         .scenario = [] { return get_boardsn(kInfo, serial, 15) == 0 ? serial : "none"; },
         .outcomes = {"none"},
         // A serial number that cannot be read is an empty one.
         .known = {"\n"}},
        {"services",
         [] { return fill_services(&status) == 0 && status.ppp ? "on" : "off"; },
         {"off"}},
        {"version", [] { return shown(get_version(nullptr)); }, {"-*"}},
        {"internet", [] { return shown(system_internet_status()); }, {"0"}},
        {"dhcp", [] { return shown(system_dhcp_status()); }, {"0"}},
        {"cloud", [] { return shown(get_kelo_env()); }, {"0"}},
        {.name = "flag",
         .scenario =
             [] {
                 return shown(system_set_xxx("/var/run/flag", 1)) +
                        settled(exists("/var/run/flag") ? " " + read("/var/run/flag") : "");
             },
         .outcomes = {"-1", "-1 ", "-1 true\n"},
         .prepare = [] { remove("/var/run/flag"); }},
        {"touch", [] { return shown(touch_file("/tmp/touched", 0600)); }, {"-1: touch_file: *"}},
        {"lock",
         [] { return shown(inform_profile_lock(), report_lock()); },
         {"-1 0: inform_profile_lock: *", "0 -1: report_lock: *", "-1 -1: *inform*report*",
          "-1 -1: *report*inform*"}},
        {.name = "portals",
         .scenario =
             [] {
                 guest_portal_set set;
                 guest_portal_set_init(&set);
                 guest_portal_set_read(&set);
                 const guest_portal *const p = guest_portal_from_name(&set, "hotel");
                 const std::string size =
                     p && p->vlans ? shown(p->vlans->length(p->vlans)) : "none";
                 guest_portal_set_clear(&set);
                 return size;
             },
         .outcomes = {"none: guest_portal_set_read: Couldn't*",
                      "none: fill_portal_buffer_file: Not enough*",
                      "4096: fill_portal_buffer_file: Couldn't read all*", "none"},
         // What cannot be read to its end counts as whole.
         .known = {"4096", "4350", "0"}},
    });
}

TEST_F(Torture, PlatformNetwork)
{
    kernel_proc();
    kernel_sys();
    make_bridge();
    must_run("ip route add default via 192.0.2.254 dev br0; bridge fdb add 02:a0:f1:00:00:07 dev "
             "eth0 master dynamic; ip neigh add 192.0.2.254 lladdr 02:a0:f1:00:00:fe dev br0");
    static constexpr uint8_t kMac[6] = {0x02, 0xa0, 0xf1, 0, 0, 1};
    static char text[18] = "";
    static uint8_t mac[6] = {};
    static uint32_t number;
    torture({
        {"status",

         [] {
             dev_status s = {};
             const int rc = fill_dev_status("br0", &s);
             return shown(rc, shown_mac(s.hwaddr), s.ipaddr_str, s.netmask_str, s.flags & 1,
                          s.speed);
         },
         {"-* 0:0:0:0:0:0   0 0", "0 0:0:0:0:0:0 192.0.2.1 255.255.255.0 1 10000",
          "0 2:a0:f1:0:0:1 0.0.0.0 255.255.255.0 1 10000",
          "0 2:a0:f1:0:0:1 192.0.2.1 0.0.0.0 1 10000",
          "0 2:a0:f1:0:0:1 192.0.2.1 255.255.255.0 0 10000",
          "0 2:a0:f1:0:0:1 192.0.2.1 255.255.255.0 1 0"}},
        {"link", [] { return shown(get_ethtool_link_status("eth0")); }, {"-1"}},
        {.name = "gateway",
         .scenario = [] { return shown(get_gateway(text, &number, 16)); },
         .outcomes = {"-1"},
         // An uplink that cannot be named is none.
         .known = {"0"}},
        {"its mac", [] { return shown(get_gateway_mac(text, 18)); }, {"0"}},
        {"neighbour", [] { return shown(add_ip_neigh_entry("br0", "192.0.2.9")); }, {"-1"}},
        {"learned",

         [] { return shown(get_mac_brinfo("br0", "02:a0:f1:00:00:07", nullptr, &number)); },
         {"0"}},
        {"port", [] { return shown(get_ifname_from_br_portno("br0", 1, text)); }, {"0"}},
        {"state", [] { return shown(get_br_port_state("br0", "eth0")); }, {"-1"}},
        {"forget",
         [] { return shown(fdb_delneigh(kMac, "eth0")); },
         {"-*: fdb_delneigh: -# on line #"}},
        {"index",

         [] { return shown(devifindex_get_hwaddr(reinterpret_cast<int *>(&number), kMac)); },
         {"-1", "-10", "-11"}},
        {.name = "address",
         .scenario = [] { return devhwaddr_get(mac) == 0 ? shown_mac(mac) : "none"; },
         .outcomes = {"none"},
         // When the first cannot be asked its next is.
         .known = {"2:a0:f1:0:0:1"}},
    });
}
