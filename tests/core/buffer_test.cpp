#include <zorv/buffer.h>

#include <memory>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include "support/device.h"

namespace {

using Owned = std::unique_ptr<buffer, decltype(&buffer_destroy)>;

Owned make(size_t size = 4096)
{
    return {buffer_create2(size), buffer_destroy};
}

std::string unread(const Owned &b)
{
    return {reinterpret_cast<char *>(b->data(b.get())), b->length(b.get())};
}

std::string take(const Owned &b, size_t n)
{
    std::string bytes(n, '?');
    bytes.resize(b->read(b.get(), bytes.data(), n));
    return bytes;
}

size_t append(const Owned &b, const std::string &bytes)
{
    return b->append(b.get(), bytes.data(), bytes.size());
}

} // namespace

using Buffer = Device;

TEST_F(Buffer, IsCreatedWithTheGivenSizeUpTo4MiB)
{
    EXPECT_EQ(buffer_create2(4194305), nullptr);
    const Owned largest = make(4194304);
    ASSERT_NE(largest, nullptr);
    EXPECT_EQ(largest->capacity(largest.get()), 4194304U);
    const Owned usual(buffer_create(), buffer_destroy);
    EXPECT_EQ(usual->capacity(usual.get()), 4096U);
    EXPECT_EQ(usual->length(usual.get()), 0U);
    const Owned empty = make(0);
    EXPECT_EQ(empty->capacity(empty.get()), 0U);
    empty->reset(empty.get());
    EXPECT_EQ(append(empty, "x"), 1U);
    EXPECT_EQ(empty->capacity(empty.get()), 4096U);
    empty->reset(empty.get());
    EXPECT_EQ(empty->capacity(empty.get()), 0U);
    buffer_destroy(nullptr);
}

TEST_F(Buffer, GrowsByWholePagesOfTheRequest)
{
    const struct {
        size_t first, then, capacity;
    } rows[] = {{0, 4096, 4096}, {0, 4097, 12288},   {0, 5000, 12288},
                {4096, 1, 8192}, {4000, 4096, 8192}, {1, 1000000, 1007616}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.then);
        const Owned b = make();
        append(b, std::string(row.first, 'a'));
        EXPECT_EQ(append(b, std::string(row.then, 'b')), row.then);
        EXPECT_EQ(b->capacity(b.get()), row.capacity);
        EXPECT_EQ(unread(b), std::string(row.first, 'a') + std::string(row.then, 'b'));
    }
}

TEST_F(Buffer, AppendsOfNothingAndOfTooMuchChangeNothing)
{
    const Owned b = make();
    append(b, "abc");
    EXPECT_EQ(b->append(b.get(), nullptr, 5), 0U);
    EXPECT_EQ(b->append(b.get(), "x", 0), 0U);
    for (const size_t n : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 4096}) {
        EXPECT_EQ(b->append(b.get(), "x", n), 0U);
        EXPECT_EQ(b->append_zero(b.get(), n), nullptr);
    }
    EXPECT_EQ(unread(b), "abc");
    EXPECT_EQ(b->capacity(b.get()), 4096U);
    take(b, 3);
    EXPECT_EQ(b->append(b.get(), "x", SIZE_MAX), 0U);
    b->rewind(b.get()); // a drained buffer has kept its bytes, too
    EXPECT_EQ(unread(b), "abc");
}

TEST_F(Buffer, FormattedTextsJoin)
{
    const Owned b = make();
    EXPECT_EQ(b->printf(b.get(), "%s", "ab"), 2);
    EXPECT_EQ(b->printf(b.get(), "c%d", 4), 2);
    EXPECT_EQ(unread(b), "abc4");
    EXPECT_EQ(b->data(b.get())[4], '\0');
    const std::string large(5000, 'x');
    EXPECT_EQ(b->printf(b.get(), "%s", large.c_str()), 5000);
    EXPECT_EQ(unread(b), "abc4" + large);
    EXPECT_EQ(b->printf(b.get(), "%lc", static_cast<wint_t>(0xD800)), 0);
    EXPECT_EQ(b->length(b.get()), 5004U);
}

TEST_F(Buffer, ReadsFromTheFrontAndStartsAgainWhenEmpty)
{
    const Owned b = make();
    append(b, "abcdef");
    uint8_t *const start = b->data(b.get());
    EXPECT_EQ(take(b, 2), "ab");
    EXPECT_EQ(b->read(b.get(), nullptr, 1), 1U);
    EXPECT_EQ(b->read(b.get(), nullptr, 0), 0U);
    EXPECT_EQ(b->data(b.get()), start + 3);
    EXPECT_EQ(take(b, 10), "def");
    b->rewind(b.get());
    EXPECT_EQ(unread(b), "abcdef");
    EXPECT_EQ(take(b, 10), "abcdef");
    append(b, "new");
    EXPECT_EQ(b->data(b.get()), start);
    EXPECT_EQ(unread(b), "new");
}

TEST_F(Buffer, TakesBackWhatWasWrittenLast)
{
    const Owned b = make();
    append(b, std::string(30, 'a'));
    buffer_pop(b.get(), -5);
    buffer_pop(b.get(), 5);
    EXPECT_EQ(b->length(b.get()), 25U);
    take(b, 20);
    buffer_pop(b.get(), 10); // five of them have been read
    EXPECT_EQ(b->length(b.get()), 0U);
    b->rewind(b.get());
    EXPECT_EQ(b->length(b.get()), 15U);
    buffer_pop(b.get(), 100);
    b->rewind(b.get());
    EXPECT_EQ(b->length(b.get()), 0U);
}

TEST_F(Buffer, ResetShrinksAndClears)
{
    const Owned b = make();
    append(b, std::string(4096, 'a'));
    append(b, "b");
    EXPECT_EQ(b->capacity(b.get()), 8192U);
    b->reset(b.get());
    EXPECT_EQ(b->capacity(b.get()), 4096U);
    EXPECT_EQ(b->length(b.get()), 0U);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(b->data(b.get())), 4096),
              std::string(4096, '\0'));
    append(b, "c");
    EXPECT_EQ(b->init(b.get(), 10), 0); // new storage in place of the old
    EXPECT_EQ(b->capacity(b.get()), 10U);
    EXPECT_EQ(b->length(b.get()), 0U);
}

TEST_F(Buffer, ZerosAreFilledInPlace)
{
    const Owned b = make();
    append(b, "abc");
    buffer_pop(b.get(), 2);
    auto *const place = static_cast<char *>(b->append_zero(b.get(), 4));
    EXPECT_EQ(unread(b), std::string("a\0\0\0\0", 5));
    place[1] = 'x';
    EXPECT_EQ(unread(b), std::string("a\0x\0\0", 5));
}

TEST_F(Buffer, ClonesOfFreshBuffersAreFaithful)
{
    const Owned b = make(100);
    append(b, std::string(200, 'a'));
    const Owned copy(b->clone(b.get()), buffer_destroy);
    EXPECT_EQ(unread(copy), unread(b));
    EXPECT_EQ(copy->capacity(copy.get()), b->capacity(b.get()));
    take(b, 200);
    const Owned fresh(b->clone(b.get()), buffer_destroy);
    EXPECT_EQ(fresh->capacity(fresh.get()), 4096U);
    EXPECT_EQ(fresh->length(fresh.get()), 0U);
    const Owned grown = make();
    append(grown, std::string(4194304, 'a'));
    EXPECT_EQ(grown->clone(grown.get()), nullptr);
}

TEST_F(Buffer, ClonesCopyFromTheStartAndAreOverwritten)
{
    const Owned b = make();
    append(b, "abcdef");
    take(b, 2);
    const Owned copy(b->clone(b.get()), buffer_destroy);
    EXPECT_EQ(unread(copy), "abcd");
    append(copy, "XY");
    EXPECT_EQ(unread(copy), std::string("XYcd\0\0", 6));

    // A full clone whose length grows must not be read past its storage.
    const Owned full = make();
    append(full, std::string(4096, 'a'));
    const Owned over(full->clone(full.get()), buffer_destroy);
    EXPECT_EQ(append(over, std::string(10, 'b')), 10U);
    EXPECT_EQ(unread(over), std::string(10, 'b') + std::string(4086, 'a') + std::string(10, '\0'));
    EXPECT_EQ(take(over, 5000).size(), 4106U);
}

TEST_F(Buffer, SendsWhatIsUnreadAndKeepsWhatWasNotTaken)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const Owned b = make();
    append(b, "abcdef");
    take(b, 1);
    EXPECT_EQ(b->send(b.get(), -1, 0), -1);
    EXPECT_EQ(b->send(b.get(), pair[0], 0), 5);
    EXPECT_EQ(b->length(b.get()), 0U);
    char got[16] = {};
    EXPECT_EQ(recv(pair[1], got, sizeof got, 0), 5);
    EXPECT_STREQ(got, "bcdef");

    const size_t much = 4 << 20; // more than a socket holds
    append(b, std::string(much, 'x'));
    const ssize_t sent = b->send(b.get(), pair[0], MSG_DONTWAIT);
    EXPECT_GT(sent, 0);
    EXPECT_EQ(b->length(b.get()), much - static_cast<size_t>(sent));
    close(pair[1]);
    EXPECT_EQ(b->send(b.get(), pair[0], MSG_NOSIGNAL), -1);
    EXPECT_EQ(b->length(b.get()), much - static_cast<size_t>(sent));
    close(pair[0]);
}

TEST_F(Buffer, TestDataIs110BytesAPass)
{
    const Owned b = make();
    buffer_fill(b.get(), 2);
    const std::string digits = "12345678901234567890123456789012345678901234567890";
    const std::string line = digits.substr(0, 39) + "\n" + std::string(10, '\0');
    EXPECT_EQ(unread(b), "0001-0100 " + digits + line + "0101-0200 " + digits + line);
    buffer_fill(b.get(), -1);
    EXPECT_EQ(b->length(b.get()), 220U);
}
