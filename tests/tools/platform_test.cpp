// What zorvctl says of the unit: the record, the reasons, the hardware.
#include "tools/zorvctl.h"

namespace {

constexpr char kInfo[] = "/proc/zorvhal/system.info";

using ZorvctlPlatform = ZorvctlUnit;

} // namespace

TEST_F(ZorvctlPlatform, TheBoardComesWithItsReasons)
{
    expect(0, "no /proc/zorvhal/system.info", "board");
    file(kInfo, "vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\nboardrevision=3\n");
    file("/proc/zorvhal/board", "bomrev=2e8ff\n");
    const std::string text = ctl("board").output, json = ctl("board --json").output;
    for (const char *line : {"\ncpu_mac           02:a0:f3:00:00:07\n",
                             "vendor 0x1f3d, system id 0x7e8b: a row of the board table",
                             "\nnewest address block  2.3.6    yes     the unit's is 02:a0:f3\n",
                             "    1    9        9  Main    alone in its group\n"})
        EXPECT_THAT(text, HasSubstr(line));
    for (
        const char *member :
        {R"("main_port":9)", R"("firmware_minimum":"2.3.6")", R"("bom_revision":"0x0002e8ff")",
         R"("cpuid":null)",
         R"({"rule":"table row","version":"2.0.0","raised":true,"reason":"the row of Tarn Console"})"})
        EXPECT_THAT(json, HasSubstr(member));

    const std::pair<const char *, const char *> unknown[] = {
        {"", "an id is missing in system.info: the default record"},
        {"vendorid=1f3e\nsystemid=7e8b\n", "another vendor: the default record"},
        {"vendorid=1f3d\nsystemid=7e8c\n", "no row of the board table: the default record"},
    };
    for (const auto &[info, reason] : unknown) {
        file(kInfo, info);
        expect(0, reason, "board");
    }
}

TEST_F(ZorvctlPlatform, AClassIsAQuestionForScripts)
{
    expect(1, "", "model is_gen2");
    expect(1, "{\"class\":\"is_gen2\",\"holds\":false}\n", "model is_gen2 --json");
    expect(2, "", "model is_gen9");
    expect(0, "is_router_to_mesh     no\n", "model");
}

TEST_F(ZorvctlPlatform, HardwareIsShownOrUnavailable)
{
    expect(3, "", "hw eeprom");
    expect(3, "", "hw pci");
    file("/tmp/work/EEPROM", "\x02\xA0" + std::string(65534, '\xFF'));
    EXPECT_EQ(ctl("hw eeprom").output, "00000000: 02 a0 ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"
                                       "00000010: ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"
                                       "*\n");
    expect(0, "{\"size\":65536,\"file\":\"saved\"}\n", "hw eeprom --json --output saved");
    EXPECT_EQ(run("cmp /tmp/work/EEPROM /tmp/work/saved").status, 0);
    expect(5, "", "hw eeprom --output /dev/full");

    file("/proc/bus/pci/devices", "01fd\t8086abcd\t10\n");
    expect(1, "", "hw pci");
    expect(0, "01:1f.5  8086    abcd", "hw pci --vendor 8086");
    expect(2, "", "hw pci --vendor 18086");
}

TEST_F(ZorvctlPlatform, NumbersHaveAMeanAndOutliers)
{
    EXPECT_EQ(run("echo 1 x | zorvctl avg").status, 2);
    expect(1, "", "avg < /dev/null");
    EXPECT_EQ(run("echo 10 10 10 10 10 1000 10 10 10 10 10 | zorvctl avg --json").output,
              "{\"count\":11,\"mean\":100,\"kept\":10,\"mean_of_kept\":10,\"outliers\":[1000]}\n");
}
