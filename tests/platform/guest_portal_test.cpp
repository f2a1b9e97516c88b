#include <zorv/guest_portal.h>

#include "support/device.h"

namespace {

constexpr char kPortals[] = "/var/run/guest/portal/";

class GuestPortal : public Device {
protected:
    GuestPortal() { guest_portal_set_init(&set_); }
    ~GuestPortal() override { guest_portal_set_clear(&set_); }

    static void write(const std::string &portal, const std::string &list, std::string_view text)
    {
        file(kPortals + portal + "/" + list, text);
    }

    guest_portal_set set_; // NOLINT(misc-non-private-member-variables-in-classes): of the tests
};

} // namespace

TEST_F(GuestPortal, ItemsAreFoundOnlyWhole)
{
    const struct {
        std::string_view text;
        const char *item;
        int found;
    } rows[] = {
        {"aa:bb\ncc:dd\n", "cc:dd", 1},
        {"aa:bb\ncc:dd\n", "c:dd", 0},
        {"aa:bb\ncc:dd\n", "AA:BB", 0},
        {"aa:bb\ncc:dd\n", "", 0},
        {"aa:bb\ncc:dd\n", nullptr, 0},
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
        {std::string_view("aa\0bb\ncc", 8), "aa", 0}, // a NUL ends what is read of a line
        {std::string_view("aa\0\ncc\n", 7), "aacc", 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + " " + (row.item ? row.item : "NULL"));
        write("hotel", "authorized", row.text);
        guest_portal portal;
        guest_portal_init(&portal);
        guest_portal_read(&portal, "hotel");
        EXPECT_EQ(guest_portal_is_auth(&portal, row.item), row.found);
        EXPECT_EQ(guest_portal_has_device(&portal, "aa"), 0);
        guest_portal_clear(&portal);
        EXPECT_EQ(portal.authorized, nullptr);
        EXPECT_EQ(guest_portal_is_auth(&portal, row.item), 0);
    }
    EXPECT_EQ(guest_portal_is_auth(nullptr, "aa"), 0);
    EXPECT_EQ(guest_portal_has_device(nullptr, "aa"), 0);
}

TEST_F(GuestPortal, LinesOfAnyLengthAreReadWhole)
{
    const std::string item(126, 'a'), longer(1000, 'b');
    write("hotel", "devnames", item + "\n" + longer + "\n" + longer + "x");
    guest_portal portal;
    guest_portal_init(&portal);
    guest_portal_read(&portal, "hotel");
    EXPECT_EQ(guest_portal_has_device(&portal, item.c_str()), 1);
    EXPECT_EQ(guest_portal_has_device(&portal, longer.c_str()), 1);
    EXPECT_EQ(guest_portal_has_device(&portal, (longer + "x").c_str()), 1);
    EXPECT_EQ(guest_portal_has_device(&portal, (longer + "\n" + longer).c_str()), 0);
    guest_portal_clear(&portal);
}

TEST_F(GuestPortal, FilesAreThoseOfTheFullName)
{
    const std::string name(40, 'n');
    write(name, "vlans", "7");
    libzorv_log_level = 8;
    guest_portal portal;
    guest_portal_init(&portal);
    guest_portal_read(&portal, name.c_str());
    EXPECT_EQ(portal.name, name.substr(0, 31));
    EXPECT_NE(portal.vlans, nullptr);
    EXPECT_EQ(portal.devnames, nullptr);
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
    EXPECT_EQ(guest_portal_set_count(&set_), 0U);
    guest_portal_set_read(&set_);
    EXPECT_THAT(logged(), ElementsAre("[error] guest_portals.guest_portal_set_read(): Couldn't "
                                      "open guest dir /var/run/guest/portal"));
    must_run("mkdir -p /var/run/guest/portal");
    guest_portal_set_read(&set_);
    EXPECT_EQ(guest_portal_set_count(&set_), 0U);

    for (const auto *name : {"A", "B"}) {
        const auto portal = static_cast<guest_portal *>(malloc(sizeof(guest_portal)));
        write(name, "vlans", "10,20");
        write(name, "devnames", std::string("wlan0\nwlan") + name);
        guest_portal_init(portal);
        guest_portal_read(portal, name);
        guest_portal_set_add(&set_, portal);
    }
    EXPECT_STREQ(set_.next->name, "B");
    EXPECT_STREQ(set_.prev->name, "A");
    EXPECT_EQ(set_.next->next, set_.prev);
    EXPECT_EQ(set_.prev->prev, set_.next);
    EXPECT_STREQ(guest_portal_from_vlan(&set_, 20)->name, "B");
    EXPECT_STREQ(guest_portal_from_device(&set_, "wlan0")->name, "B");
    EXPECT_STREQ(guest_portal_from_device(&set_, "wlanA")->name, "A");
    EXPECT_STREQ(guest_portal_from_name(&set_, "A")->name, "A");
    EXPECT_EQ(guest_portal_from_name(&set_, "a"), nullptr);
    EXPECT_EQ(guest_portal_from_name(&set_, nullptr), nullptr);
    for (const int vlan : {2, 0, -1, -10, 2147483647, -2147483647 - 1})
        EXPECT_EQ(guest_portal_from_vlan(&set_, vlan), nullptr);

    guest_portal_set_read(&set_); // adds to the set
    EXPECT_EQ(guest_portal_set_count(&set_), 4U);
    guest_portal_set_clear(&set_);
    EXPECT_EQ(guest_portal_set_count(&set_), 0U);
    EXPECT_EQ(guest_portal_from_name(&set_, "A"), nullptr);

    guest_portal_set_add(&set_, nullptr);
    guest_portal_set_add(nullptr, nullptr);
    guest_portal_set_read(nullptr);
    guest_portal_set_clear(nullptr);
    EXPECT_EQ(guest_portal_set_count(nullptr), 0U);
    EXPECT_EQ(guest_portal_from_device(nullptr, "wlan0"), nullptr);
}

TEST_F(GuestPortal, WhateverLiesInTheFolder)
{
    file(kPortals + std::string("plain"), "10\n");
    write("folder", "vlans/authorized", "");
    must_run("ln -s /dev/zero /var/run/guest/portal/folder/authorized;"
             "ln -s none /var/run/guest/portal/dangling; mkdir /var/run/guest/portal/.hidden;"
             "head -c 100000 /bin/sh > /var/run/guest/portal/.hidden/vlans");
    guest_portal_set_read(&set_);
    EXPECT_EQ(guest_portal_set_count(&set_), 4U);
    EXPECT_EQ(guest_portal_from_vlan(&set_, 10), nullptr);
    const guest_portal *plain = guest_portal_from_name(&set_, "plain");
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->authorized, nullptr);
    EXPECT_EQ(plain->devnames, nullptr);
    EXPECT_EQ(plain->vlans, nullptr);
    EXPECT_NE(guest_portal_from_name(&set_, ".hidden"), nullptr);
    EXPECT_EQ(guest_portal_is_auth(guest_portal_from_name(&set_, "folder"), "x"), 0);
}

TEST_F(GuestPortal, SixtyFourPortals)
{
    for (int i = 0; i < 64; ++i) {
        const std::string number = std::to_string(i), name = "p" + number;
        write(name, "authorized", "client-" + number);
        write(name, "devnames", std::string("wlan").append(number).append(",eth0.").append(number));
        write(name, "vlans", number);
    }
    guest_portal_set_read(&set_);
    EXPECT_EQ(guest_portal_set_count(&set_), 64U);
    for (int i = 0; i < 64; ++i) {
        const std::string number = std::to_string(i);
        const guest_portal *portal = guest_portal_from_vlan(&set_, i);
        ASSERT_NE(portal, nullptr);
        EXPECT_EQ(guest_portal_from_device(&set_, ("eth0." + number).c_str()), portal);
        EXPECT_EQ(guest_portal_from_name(&set_, ("p" + number).c_str()), portal);
        EXPECT_EQ(guest_portal_is_auth(portal, ("client-" + number).c_str()), 1);
    }
}
