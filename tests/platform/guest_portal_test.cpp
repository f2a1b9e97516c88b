#include <zorv/guest_portal.h>

#include <climits>

#include "platform/rows.h"

using GuestPortal = Device;
using namespace std::string_literals;

namespace {

constexpr char kPortals[] = "/var/run/guest/portal/";

std::string name_of(const guest_portal *portal)
{
    return portal ? portal->name : "none";
}

} // namespace

TEST_F(GuestPortal, ItemsAreFoundOnlyWhole)
{
    const std::string piece(126, 'a'), longer(1000, 'b'); // a piece is all that one read gives
    const struct {
        std::string text;
        std::string item;
        int found;
    } kRows[] = {
        {"aa:bb\ncc:dd\n", "cc:dd", 1},
        {"aa:bb\ncc:dd\n", "c:dd", 0},
        {"aa:bb\ncc:dd\n", "AA:BB", 0},
        {"aa:bb\ncc:dd\n", "", 0},
        {"xaa,aaa,aa", "aa", 1}, // the last of three occurrences
        {"aaaa,aaa", "aaa", 1},
        {" aa,aa ", "aa", 0}, // blanks belong to an item
        {"10,20", "20", 1},
        {"10,20", "2", 0},
        {"10,20", "10,20", 1}, // several items in a row
        {"110,20", "10,20", 0},
        {",,", ",", 1},
        {"x", "a longer one", 0},
        {"", "a", 0},
        {"aa\0bb\ncc"s, "aa", 0}, // a NUL ends what is read of a line
        {"aa\0\ncc\n"s, "aacc", 1},
        {piece + "\n" + longer, piece, 1},
        {piece + "\n" + longer + "\n" + longer + "x", longer, 1},
        {longer + "\n" + longer + "x", longer + "x", 1},
        {longer + "\n" + longer + "x", longer + "\n" + longer, 0},
    };
    for (const auto &[text, item, found] : kRows) {
        SCOPED_TRACE(testing::PrintToString(text) + " " + item);
        guest_portal portal;
        guest_portal_init(&portal);
        file(kPortals + "hotel/authorized"s, text);
        guest_portal_read(&portal, "hotel");
        EXPECT_EQ(guest_portal_is_auth(&portal, item.c_str()), found);
        EXPECT_EQ(guest_portal_is_auth(&portal, nullptr), 0);
        EXPECT_EQ(guest_portal_has_device(&portal, item.c_str()), 0);
        guest_portal_clear(&portal);
        EXPECT_EQ(portal.authorized, nullptr);
    }
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
    must_run("mkdir -p /var/run/guest/portal");
    guest_portal_set_read(&set);
    EXPECT_EQ(guest_portal_set_count(&set), 0U);

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
    for (const auto &[device, want] :
         {std::pair("wlan0", "B"), std::pair("wlanA", "A"), {"w", "none"}})
        EXPECT_EQ(name_of(guest_portal_from_device(&set, device)), want);
    for (const char *name : {"A", "B"})
        EXPECT_EQ(name_of(guest_portal_from_name(&set, name)), name);
    EXPECT_EQ(guest_portal_from_name(&set, "a"), nullptr);
    EXPECT_EQ(guest_portal_from_name(&set, nullptr), nullptr);
    for (const int vlan : {20, 10, 0})
        EXPECT_EQ(name_of(guest_portal_from_vlan(&set, vlan)), "B");
    for (const int vlan : {2, -1, -10, INT_MAX, INT_MIN})
        EXPECT_EQ(guest_portal_from_vlan(&set, vlan), nullptr);

    // What else lies in the folder; the set grows.
    file(kPortals + "plain"s, "10\n");
    file(kPortals + "folder/vlans/authorized"s, "");
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
