// hash and base64 of the real program.
#include <string_view>

#include "support/device.h"

using testing::HasSubstr;

namespace {

class ZorvctlCrypto : public Device {
protected:
    ZorvctlCrypto()
    {
        kernel_proc(); // for the sanitizers of zorvctl
        must_run("mkdir -p /tmp/work && ln -s " ZORVCTL " /usr/local/bin/zorvctl");
    }

    static Outcome sh(const std::string &command) { return run("cd /tmp/work && " + command); }
};

} // namespace

TEST_F(ZorvctlCrypto, HashPrintsWhatAChecksumToolReads)
{
    file("/tmp/work/abc", "abc");
    must_run("head -c 1000000 /dev/zero | tr '\\0' a >/tmp/work/million");
    EXPECT_EQ(sh("zorvctl hash abc million && printf abc | zorvctl hash -").output,
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  abc\n"
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0  million\n"
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  -\n");
    EXPECT_EQ(sh("zorvctl hash abc million | sha256sum -c --status").status, 0);
    EXPECT_EQ(sh("zorvctl hash --json abc").output,
              "{\"digests\":[{\"file\":\"abc\",\"sha256\":"
              "\"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\"}]}\n");
    EXPECT_THAT(sh("zorvctl hash --help").output, HasSubstr("Example:\n  zorvctl hash "));
}

TEST_F(ZorvctlCrypto, HashRefusesWhatItCannotDigest)
{
    file("/tmp/work/abc", "abc");
    must_run("truncate -s 512M /tmp/work/large && truncate -s 3 /tmp/work/zeros");
    const struct {
        const char *arguments, *code;
        int status;
    } rows[] = {
        {"", "usage", 2},
        {"abc missing", "io", 5},
        {".", "io", 5},
        {"large", "too-large", 5},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = sh(std::string("zorvctl hash --json ") + row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_THAT(outcome.output, HasSubstr(std::string("{\"error\":{\"code\":\"") + row.code));
    }
}

TEST_F(ZorvctlCrypto, Base64GoesBothWays)
{
    using namespace std::literals;
    file("/tmp/work/bytes", "\xfb\xff\0"sv);
    EXPECT_EQ(sh("zorvctl base64 encode bytes").output, "+/8A\n");
    EXPECT_EQ(sh("printf '\\373\\377' | zorvctl base64 encode --url").output, "-_8\n");
    EXPECT_EQ(sh("zorvctl base64 encode bytes | zorvctl base64 decode - | cmp - bytes").status, 0);
    EXPECT_EQ(sh("zorvctl base64 encode --json bytes").output,
              "{\"file\":\"bytes\",\"base64\":\"+/8A\"}\n");
    EXPECT_EQ(
        sh("head -c 1000 " ZORVCTL " >b && base64 b | zorvctl base64 decode | cmp - b").status, 0);
    EXPECT_EQ(sh("printf '' | zorvctl base64 decode --json").output,
              "{\"file\":\"-\",\"size\":0,\"hex\":\"\"}\n");
}

TEST_F(ZorvctlCrypto, Base64OfAnotherTextIsAFailure)
{
    const struct {
        const char *text, *hex; // no hex: not Base64
    } rows[] = {
        {"+/8=", "fbff"},     {"-_8", "fbff"},    {"Zm9v\\r\\nYmE=\\n", "666f6f6261"},
        {"Zm9vY", nullptr},   {"Zm9v!", nullptr}, {"Zm8=Zm8=", nullptr},
        {"Zm9v\\0", nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const Outcome outcome =
            sh(std::string("printf -- '") + row.text + "' | zorvctl base64 decode --url --json");
        EXPECT_EQ(outcome.status, row.hex ? 0 : 5);
        EXPECT_THAT(outcome.output, row.hex ? HasSubstr(std::string("\"hex\":\"") + row.hex + "\"")
                                            : HasSubstr("not-base64"));
    }
}
