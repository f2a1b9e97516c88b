// What zorvctl says of the unit: the record, the reasons, the hardware.
#include <string>

#include "support/device.h"

using testing::HasSubstr;

namespace {

class ZorvctlPlatform : public Device {
protected:
    ZorvctlPlatform()
    {
        must_run("mkdir -p /tmp/work && ln -s " ZORVCTL " /usr/local/bin/zorvctl");
        kernel_processes();
    }

    static Outcome ctl(const std::string &arguments)
    {
        return run("cd /tmp/work && zorvctl " + arguments);
    }

    static void system_info(const std::string &text) { file("/proc/zorvhal/system.info", text); }
};

} // namespace

TEST_F(ZorvctlPlatform, TheBoardComesWithItsReasons)
{
    system_info("vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\nboardrevision=3\n");
    file("/proc/zorvhal/board", "bomrev=2e8ff\n");
    const Outcome text = ctl("board");
    EXPECT_EQ(text.status, 0);
    EXPECT_THAT(text.output, HasSubstr("\ncpu_mac           02:a0:f3:00:00:07\n"));
    EXPECT_THAT(text.output,
                HasSubstr("vendor 0x1f3d, system id 0x7e8b: a row of the board table"));
    EXPECT_THAT(text.output, HasSubstr("\nnewest address block  2.3.6    yes     the unit's is "
                                       "02:a0:f3\n"));
    EXPECT_THAT(text.output, HasSubstr("    1    9        9  Main    alone in its group\n"));

    const std::string json = ctl("board --json").output;
    for (
        const char *member :
        {R"("name":"Tarn Console")", R"("main_port":9)", R"("poe_budget":170)",
         R"("firmware_minimum":"2.3.6")", R"("bom_revision":"0x0002e8ff")", R"("cpuid":null)",
         R"({"rule":"table row","version":"2.0.0","raised":true,"reason":"the row of Tarn Console"})"})
        EXPECT_THAT(json, HasSubstr(member));
}

TEST_F(ZorvctlPlatform, AnUnknownUnitSaysWhatIsMissing)
{
    const struct {
        const char *info, *reason;
    } kCases[] = {
        {"", "an id is missing in system.info"},
        {"vendorid=1f3e\nsystemid=7e8b\n", "another vendor"},
        {"vendorid=1f3d\nsystemid=7e8c\n", "no row of the board table"},
    };
    EXPECT_THAT(ctl("board").output, HasSubstr("no /proc/zorvhal/system.info"));
    for (const auto &c : kCases) {
        system_info(c.info);
        const std::string output = ctl("board").output;
        EXPECT_THAT(output, HasSubstr("Unknown"));
        EXPECT_THAT(output, HasSubstr(c.reason + std::string(": the default record")));
    }
}

TEST_F(ZorvctlPlatform, AClassIsAQuestionForScripts)
{
    EXPECT_EQ(ctl("model is_gen2").status, 1);
    EXPECT_EQ(ctl("model is_gen2 --json").output, "{\"class\":\"is_gen2\",\"holds\":false}\n");
    EXPECT_EQ(ctl("model is_gen9").status, 2);
    EXPECT_THAT(ctl("model").output, HasSubstr("is_router_to_mesh     no\n"));
}

TEST_F(ZorvctlPlatform, HardwareIsShownOrUnavailable)
{
    EXPECT_EQ(ctl("hw eeprom").status, 3);
    EXPECT_EQ(ctl("hw pci").status, 3);
    file("/tmp/work/EEPROM", "\x02\xA0" + std::string(65534, '\xFF'));
    EXPECT_EQ(ctl("hw eeprom").output, "00000000: 02 a0 ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"
                                       "00000010: ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"
                                       "*\n");
    EXPECT_EQ(ctl("hw eeprom --json --output saved").output,
              "{\"size\":65536,\"file\":\"saved\"}\n");
    EXPECT_EQ(run("cmp /tmp/work/EEPROM /tmp/work/saved").status, 0);
    EXPECT_EQ(ctl("hw eeprom --output /dev/full").status, 5);

    file("/proc/bus/pci/devices", "01fd\t8086abcd\t10\n");
    EXPECT_EQ(ctl("hw pci").status, 1);
    EXPECT_THAT(ctl("hw pci --vendor 8086").output, HasSubstr("01:1f.5  8086    abcd"));
    EXPECT_EQ(ctl("hw pci --vendor 18086").status, 2);
}

TEST_F(ZorvctlPlatform, NumbersHaveAMeanAndOutliers)
{
    EXPECT_EQ(run("echo 1 x | zorvctl avg").status, 2);
    EXPECT_EQ(ctl("avg < /dev/null").status, 1);
    EXPECT_EQ(run("echo 10 10 10 10 10 1000 10 10 10 10 10 | zorvctl avg --json").output,
              "{\"count\":11,\"mean\":100,\"kept\":10,\"mean_of_kept\":10,\"outliers\":[1000]}\n");
}
