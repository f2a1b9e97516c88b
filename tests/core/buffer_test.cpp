

#include "support/device.h"

using Buffer = Device;
using Owned = std::unique_ptr<buffer, decltype(&buffer_destroy)>;

// Offsets of reading and writing, capacity, and runs of the unread bytes: "0 4 8 abb 5*\0".
static std::string shown(buffer *b)
{
    const uint8_t *const data = b->data(b);
    std::ostringstream text;
    text << data - b->storage->data << ' ' << b->storage->write_offset << ' ' << b->capacity(b);
    for (size_t i = 0, run; i < b->length(b); i += run) {
        for (run = 1; i + run < b->length(b) && data[i + run] == data[i];)
            ++run;
        text << ' ' << run << static_cast<char>(data[i] ? data[i] : '.');
    }
    return text.str();
}

TEST_F(Buffer, GrowsByWholeStepsAndKeepsItsOddities)
{
    // Steps, each a letter and a number, with a buffer of 8 bytes.
    const std::pair<const char *, const char *> rows[] = {
        {"a8 b4096 a1", "0 4105 8200 8a 4096b 1a"},
        {"f7 f3 f0", "0 10 4104 10f"}, // the NUL needs room
        {"a3 r3 b0 w0 r3 f4", "0 4 8 4f"},
        {"a3 r3 z0 w0", "0 0 8"},
        {"a5 b3 r6 p1", "6 7 8 1b"},
        {"a5 p9 b1", "0 1 8 1b"},
        {"a3 b3 c0 a1 z2", "0 3 4104 1a 2. 3b 3."}, // a copy is written over
        {"a5000 r2 e0 z8", "0 8 8 8."},
        {"a9 i3 b3", "0 3 3 3b"},
    };
    for (const auto &[steps, want] : rows) {
        Owned b(buffer_create2(8), buffer_destroy);
        std::istringstream words(steps);
        char step;
        for (size_t n = 0; words >> step >> n;) {
            std::string bytes(n, step);
            if (step == 'a' || step == 'b')
                EXPECT_EQ(b->append(b.get(), bytes.data(), n), n);
            else if (step == 'f')
                EXPECT_EQ(b->printf(b.get(), "%s", bytes.c_str()), static_cast<int>(n));
            else if (step == 'z')
                EXPECT_NE(b->append_zero(b.get(), n), nullptr);
            else if (step == 'p')
                buffer_pop(b.get(), static_cast<int>(n));
            else if (step == 'r')
                EXPECT_EQ(b->read(b.get(), n % 2 ? bytes.data() : nullptr, n), n) << bytes;
            else if (step == 'w')
                b->rewind(b.get());
            else if (step == 'c')
                b.reset(b->clone(b.get()));
            else if (step == 'i')
                EXPECT_EQ(b->init(b.get(), n), 0); // new storage in place of the old
            else
                b->reset(b.get());
        }
        EXPECT_EQ(shown(b.get()), want) << steps;
    }
}

TEST_F(Buffer, HasItsLimits)
{
    EXPECT_EQ(buffer_create2(4194305), nullptr);
    EXPECT_EQ(Owned(buffer_create2(4194304), buffer_destroy)->storage->capacity, 4194304U);
    buffer *const b = buffer_create();
    b->append(b, "abc", 3);
    EXPECT_EQ(b->append(b, nullptr, 5), 0U);
    for (const size_t n : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 4096}) {
        EXPECT_EQ(b->append(b, "x", n), 0U);
        EXPECT_EQ(b->append_zero(b, n), nullptr);
    }
    EXPECT_EQ(b->printf(b, "%lc", static_cast<wint_t>(0xD800)), 0); // no such character
    buffer_pop(b, -5);
    EXPECT_EQ(b->send(b, -1, 0), -1);
    b->read(b, nullptr, 3);
    b->rewind(b); // a drained buffer has kept its bytes, too
    EXPECT_EQ(shown(b), "0 3 4096 1a 1b 1c");
    EXPECT_NE(b->append_zero(b, 4194304), nullptr);
    EXPECT_EQ(b->clone(b), nullptr);
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const ssize_t sent = b->send(b, pair[0], MSG_DONTWAIT); // what is not taken is kept
    EXPECT_EQ(b->length(b), static_cast<size_t>(4194307 - sent));

    b->reset(b);
    buffer_fill(b, 2); // 110 bytes a pass
    const std::string digits = "12345678901234567890123456789012345678901234567890";
    const std::string line = digits + digits.substr(0, 39) + "\n" + std::string(10, '\0');
    EXPECT_EQ(std::string(reinterpret_cast<char *>(b->data(b)), b->length(b)),
              "0001-0100 " + line + "0101-0200 " + line);
    buffer_destroy(b);
}
