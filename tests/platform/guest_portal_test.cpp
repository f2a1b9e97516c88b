#include <zorv/guest_portal.h>

#include <climits>

#include "platform/rows.h"

using GuestPortal = Device;
using namespace std::string_literals;

namespace {

const std::string kPortals = "/var/run/guest/portal/";

std::string name_of(const guest_portal *portal)
{
    return portal ? portal->name : "none";
}

} // namespace

TEST_F(GuestPortal, ItemsAreFoundOnlyWhole)
{
    const std::string piece(126, 'a'), b(1000, 'b'); // a piece is all that one read gives
    const std::string items[] = {"cc:dd", "c:dd", "AA:BB", "",          "aa", "aaa",
                                 "aacc",  "20",   "2",     "10,20",     ",",  "a longer one",
                                 piece,   b,      b + "x", b + "\n" + b};
    const auto found = [&items] { // those of the items that are authorized
        std::string text;
        guest_portal portal;
        guest_portal_init(&portal);
        guest_portal_read(&portal, "hotel");
        for (const std::string &item : items) {
            text += guest_portal_is_auth(&portal, item.c_str()) ? "[" + item + "]" : "";
            EXPECT_EQ(guest_portal_has_device(&portal, item.c_str()), 0);
        }
        EXPECT_EQ(guest_portal_is_auth(&portal, nullptr), 0);
        guest_portal_clear(&portal);
        EXPECT_EQ(portal.authorized, nullptr);
        return text;
    };
    expect_rows((kPortals + "hotel/authorized").c_str(), found,
                {"aa:bb\ncc:dd\n => [cc:dd]", "xaa,aaa,aa => [aa][aaa]", "aaaa,aaa => [aaa]",
                 " aa,aa  => ", "10,20 => [20][10,20]", "110,20 => [20]", ",, => [,]", "x => ",
                 " => ", "aa\0bb\ncc => [aacc]"s, "aa\0\ncc\n => [aacc]"s, "(none) => ",
                 piece + "\n" + b + " => [" + piece + "][" + b + "]",
                 b + "\n" + b + "x => [" + b + "][" + b + "x]"});
    EXPECT_EQ(guest_portal_is_auth(nullptr, "aa"), 0);
    EXPECT_EQ(guest_portal_has_device(nullptr, "aa"), 0);
}

TEST_F(GuestPortal, FilesAreThoseOfTheFullName)
{
    const std::string name(40, 'n');
    file(kPortals + name + "/vlans", "7");
    libzorv_log_level = 8;
    guest_portal portal;
    guest_portal_init(&portal);
    guest_portal_read(&portal, name.c_str());
    EXPECT_EQ(portal.name, name.substr(0, 31));
    EXPECT_NE(portal.vlans, nullptr);
    const std::string line = "[debug] guest_portals.fill_portal_buffer_file(): Couldn't open ";
    EXPECT_THAT(logged(), ElementsAre(line + kPortals + name + "/authorized",
                                      line + kPortals + name + "/devnames"));
    guest_portal_clear(&portal);
    guest_portal_read(&portal, std::string(5000, 'n').c_str());
    EXPECT_EQ(portal.vlans, nullptr);
    guest_portal_read(&portal, nullptr);
    guest_portal_read(nullptr, "n");
    guest_portal_clear(nullptr);
    guest_portal_init(nullptr);
}

TEST_F(GuestPortal, TheSetFindsThePortalThatWasReadLast)
{
    guest_portal_set set;
    guest_portal_set_init(&set);
    guest_portal_set_read(&set);
    EXPECT_THAT(logged(), ElementsAre("[error] guest_portals.guest_portal_set_read(): Couldn't "
                                      "open guest dir /var/run/guest/portal"));
    for (const std::string name : {"A", "B"}) {
        const auto portal = static_cast<guest_portal *>(malloc(sizeof(guest_portal)));
        file(kPortals + name + "/vlans", "10,0,20");
        file(kPortals + name + "/devnames", "wlan0\nwlan" + name);
        guest_portal_init(portal);
        guest_portal_read(portal, name.c_str());
        guest_portal_set_add(&set, portal);
    }
    EXPECT_EQ(shown(name_of(set.next), name_of(set.next->next), name_of(set.prev),
                    name_of(set.prev->prev)),
              "B A A B");
    for (const auto &[device, vlan, name] : {std::tuple("wlan0", 20, "B"),
                                             {"wlanB", 10, "B"},
                                             {"wlanB", 0, "B"},
                                             {"w", 2, "none"},
                                             {"wlan", -1, "none"},
                                             {"", -10, "none"},
                                             {"0", INT_MAX, "none"},
                                             {"\n", INT_MIN, "none"}}) {
        EXPECT_EQ(name_of(guest_portal_from_device(&set, device)), name);
        EXPECT_EQ(name_of(guest_portal_from_vlan(&set, vlan)), name);
    }
    EXPECT_EQ(shown(name_of(guest_portal_from_device(&set, "wlanA")),
                    name_of(guest_portal_from_name(&set, "A")),
                    name_of(guest_portal_from_name(&set, "a")),
                    name_of(guest_portal_from_name(&set, nullptr))),
              "A A none none");

    // What else lies in the folder; the set grows.
    file(kPortals + "plain", "10\n");
    file(kPortals + "folder/vlans/authorized", "");
    must_run("cd /var/run/guest/portal; ln -s /dev/zero folder/authorized; ln -s none dangling;"
             "mkdir .hidden; head -c 100000 /bin/sh > .hidden/vlans");
    guest_portal_set_read(&set);
    EXPECT_EQ(guest_portal_set_count(&set), 8U);
    EXPECT_EQ(guest_portal_from_name(&set, "plain")->vlans, nullptr);
    EXPECT_NE(guest_portal_from_name(&set, ".hidden"), nullptr);
    EXPECT_EQ(guest_portal_is_auth(guest_portal_from_name(&set, "folder"), "x"), 0);
    guest_portal_set_clear(&set);
    EXPECT_EQ(guest_portal_set_count(&set), 0U);
    EXPECT_EQ(guest_portal_from_name(&set, "A"), nullptr);

    guest_portal_set_add(&set, nullptr);
    guest_portal_set_add(nullptr, nullptr);
    guest_portal_set_read(nullptr);
    guest_portal_set_clear(nullptr);
    guest_portal_set_init(nullptr);
    EXPECT_EQ(guest_portal_set_count(nullptr), 0U);
    EXPECT_EQ(guest_portal_from_device(nullptr, "wlan0"), nullptr);
}
