// hash and base64 of the real program.
#include <string_view>

#include "tools/zorvctl.h"

namespace {

using ZorvctlCrypto = Zorvctl;

} // namespace

TEST_F(ZorvctlCrypto, HashPrintsWhatAChecksumToolReads)
{
    file("/tmp/work/abc", "abc");
    const std::string digest = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    EXPECT_EQ(ctl("hash abc - <abc").output, digest + "  abc\n" + digest + "  -\n");
    must_run("head -c 1000000 /dev/zero >/tmp/work/million");
    EXPECT_EQ(run("cd /tmp/work && zorvctl hash abc million | sha256sum -c --status").status, 0);
    expect(0, R"({"digests":[{"file":"abc","sha256":")" + digest + "\"}]}\n", "hash --json abc");

    must_run("truncate -s 512M /tmp/work/large");
    expect(2, "{\"error\":{\"code\":\"usage\"", "hash --json");
    expect(5, "{\"error\":{\"code\":\"io\"", "hash --json abc missing");
    expect(5, "{\"error\":{\"code\":\"io\"", "hash --json .");
    expect(5, "{\"error\":{\"code\":\"too-large\"", "hash --json large");
}

TEST_F(ZorvctlCrypto, Base64GoesBothWays)
{
    using namespace std::literals;
    file("/tmp/work/bytes", "\xfb\xff\0"sv);
    EXPECT_EQ(ctl("base64 encode bytes").output, "+/8A\n");
    EXPECT_EQ(ctl("base64 encode --url bytes").output, "-_8A\n");
    expect(0, "{\"file\":\"bytes\",\"base64\":\"+/8A\"}\n", "base64 encode --json bytes");
    EXPECT_EQ(run("head -c 1000 " ZORVCTL " >/tmp/b && base64 /tmp/b | zorvctl base64 decode | "
                  "cmp - /tmp/b")
                  .status,
              0);
    expect(0, "{\"file\":\"-\",\"size\":0,\"hex\":\"\"}\n", "base64 decode --json </dev/null");
    const struct {
        const char *text, *hex; // no hex: not Base64
    } rows[] = {
        {"+/8=", "fbff"},   {"-_8", "fbff"},       {"Zm9v\\r\\nYmE=\\n", "666f6f6261"},
        {"Zm9vY", nullptr}, {"Zm8=Zm8=", nullptr}, {"Zm9v\\0", nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const Outcome outcome =
            run(std::string("printf -- '") + row.text + "' | zorvctl base64 decode --url --json");
        EXPECT_EQ(outcome.status, row.hex ? 0 : 5);
        EXPECT_THAT(outcome.output, testing::HasSubstr(row.hex ? row.hex : "not-base64"));
    }
}
