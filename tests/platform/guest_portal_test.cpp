

#include "platform/rows.h"

using GuestPortal = Device;
using namespace std::string_literals;

static const std::string kPortals = "/var/run/guest/portal/";

TEST_F(GuestPortal, ListsAreReadWholeAndItemsFoundOnlyWhole)
{
    libzorv_log_level = 8;
    // Names are kept cut, files are those of the whole; a piece is all that one read gives.
    const std::string name(40, 'n'), path = kPortals + name, piece(126, 'a'), b(1000, 'b');
    file(path + "/devnames", "wlan0");
    const auto found = [&] { // those of the items that are authorized
        std::string text;
        guest_portal portal;
        guest_portal_init(&portal);
        guest_portal_read(&portal, name.c_str());
        EXPECT_EQ(portal.name, name.substr(0, 31));
        for (const std::string &item : {"cc:dd"s, "c:dd"s, "AA:BB"s, ""s, "aa"s, "aaa"s, "aacc"s,
                                        "20"s, "2"s, "10,20"s, ","s, piece, b, b + "x"})
            text += guest_portal_is_auth(&portal, item.c_str()) ? "[" + item + "]" : "";
        guest_portal_clear(&portal);
        EXPECT_EQ(portal.authorized, nullptr);
        EXPECT_THAT(logged(), Contains("[debug] guest_portals.fill_portal_buffer_file(): "
                                       "Couldn't open " +
                                       path + "/vlans"));
        return text;
    };
    expect_rows(path + "/authorized", found,
                {"aa:bb\ncc:dd\n => [cc:dd]", "xaa,aaa,aa => [aa][aaa]", " aa,aa  => ",
                 "10,20 => [20][10,20]", "110,20 => [20]", ",, => [,]", " => ",
                 "aa\0bb\ncc => [aacc]"s, "(none) => ",
                 piece + "\n" + b + "\n" + b + "x => [" + piece + "][" + b + "][" + b + "x]"});
}

TEST_F(GuestPortal, TheSetFindsThePortalThatWasReadLast)
{
    guest_portal_set set;
    guest_portal_set_init(&set);
    guest_portal_set_read(&set);
    EXPECT_EQ(with_log(""), " [error] guest_portals.guest_portal_set_read(): Couldn't open guest "
                            "dir /var/run/guest/portal");
    for (const std::string name : {"A", "B"}) {
        const auto portal = static_cast<guest_portal *>(malloc(sizeof(guest_portal)));
        file(kPortals + name + "/vlans", "10,0,20");
        file(kPortals + name + "/devnames", "wlan0\nwlan" + name);
        guest_portal_init(portal);
        guest_portal_read(portal, name.c_str());
        guest_portal_set_add(&set, portal);
    }
    const auto name_of = [](const guest_portal *p) { return p ? p->name : "none"; };
    std::string found = shown(name_of(set.next), name_of(set.next->next), name_of(set.prev),
                              name_of(set.prev->prev), "");
    for (const char *device : {"wlan0", "wlanA", "wlan", ""})
        found += shown(name_of(guest_portal_from_device(&set, device)), "");
    for (const int vlan : {20, 0, 2, -1, INT_MAX})
        found += shown(name_of(guest_portal_from_vlan(&set, vlan)), "");
    for (const char *name : {"A", "a", static_cast<const char *>(nullptr)})
        found += shown(name_of(guest_portal_from_name(&set, name)), "");
    EXPECT_EQ(found, "B A A B B A none none B B none none none A none none ");

    // What else lies in the folder; the set grows.
    file(kPortals + "plain", "10\n");
    must_run("cd /var/run/guest/portal; mkdir -p .hidden/vlans; ln -s none dangling;"
             "ln -s /dev/zero .hidden/authorized");
    guest_portal_set_read(&set);
    EXPECT_EQ(guest_portal_set_count(&set), 7U);
    guest_portal_set_clear(&set);
    EXPECT_EQ(guest_portal_set_count(&set), 0U);
}
