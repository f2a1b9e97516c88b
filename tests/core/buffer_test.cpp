#include <zorv/buffer.h>

#include <memory>
#include <random>
#include <string>

#include <sys/socket.h>

#include "support/device.h"

namespace {

using Owned = std::unique_ptr<buffer, decltype(&buffer_destroy)>;

Owned make(size_t size = 4096)
{
    return {buffer_create2(size), buffer_destroy};
}

// A buffer as the header tells it.
struct Model {
    std::string data; // the storage, as long as its capacity
    size_t initial = data.size(), read = 0, write = 0, length = 0;

    void append(const std::string &bytes)
    {
        if (length == 0)
            read = write = 0;
        if (bytes.size() > data.size() - std::max(write, read + length))
            data.resize(data.size() + (bytes.size() + 4095) / 4096 * 4096);
        data.replace(write, bytes.size(), bytes);
        write += bytes.size();
        length += bytes.size();
    }
};

std::string shown(const Model &m)
{
    return testing::PrintToString(std::tuple(m.read, m.write, m.length, m.data.size(), m.initial)) +
           m.data.substr(0, std::max(m.write, m.read + m.length));
}

std::string shown(const Owned &b)
{
    const buffer_storage &s = *b->storage;
    const auto read = static_cast<size_t>(b->data(b.get()) - s.data);
    const std::string data(reinterpret_cast<char *>(s.data), b->capacity(b.get()));
    return shown(Model{data, s.initial_capacity, read, s.write_offset, b->length(b.get())});
}

} // namespace

using Buffer = Device;

TEST_F(Buffer, DoesWhatTheModelDoes)
{
    std::mt19937 random; // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure is to come again
    constexpr size_t kSizes[] = {0, 1, 4095, 4096, 4097, 10000};
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    Owned b = make();
    Model m{std::string(4096, '\0')};
    for (int i = 0; i < 20000; ++i) {
        const auto action = random() % 12;
        const size_t n = random() % 4 == 0 ? kSizes[random() % 6] : random() % 50;
        SCOPED_TRACE(testing::Message() << i << ": action " << action << " of " << n);
        std::string bytes(n, static_cast<char>('!' + i % 90));
        if (action <= 2) {
            EXPECT_EQ(b->append(b.get(), bytes.data(), n), n);
            if (n > 0)
                m.append(bytes);
        } else if (action == 3) {
            EXPECT_EQ(b->printf(b.get(), "%s", bytes.c_str()), static_cast<int>(n));
            m.append(bytes + '\0');
            --m.write;
            --m.length;
        } else if (action == 4) {
            const void *const place = b->append_zero(b.get(), n);
            EXPECT_EQ(place, b->storage->data + b->storage->write_offset - n);
            m.append(std::string(n, '\0'));
        } else if (action == 5) {
            buffer_pop(b.get(), static_cast<int>(n));
            m.write -= std::min(n, m.write);
            m.length -= std::min(n, m.length);
        } else if (action <= 7) {
            const std::string want = m.data.substr(m.read, std::min(n, m.length));
            EXPECT_EQ(b->read(b.get(), action == 6 ? bytes.data() : nullptr, n), want.size());
            EXPECT_TRUE(action == 7 || bytes.starts_with(want));
            m.read += want.size();
            m.length -= want.size();
        } else if (action == 8) {
            b->rewind(b.get());
            m.read = 0;
            m.length = m.write;
        } else if (action == 9) { // of the first bytes, and the next are written over them
            b.reset(b->clone(b.get()));
            const size_t length = m.length;
            m.data.resize(length == 0 ? 4096 : m.data.size());
            m = {m.data.replace(length, m.data.npos, m.data.size() - length, '\0')};
            m.length = length;
        } else if (action == 10 && n % 2 == 0) {
            b->reset(b.get());
            m = {std::string(m.initial, '\0')};
            m.write = b->storage->write_offset = m.initial; // show all of it
        } else if (n % 2 == 0) {
            EXPECT_EQ(b->init(b.get(), n), 0); // new storage in place of the old
            m = {std::string(n, '\0')};
        } else {
            const ssize_t sent = b->send(b.get(), pair[0], MSG_DONTWAIT);
            bytes.resize(m.length);
            EXPECT_EQ(recv(pair[1], bytes.data(), m.length, MSG_DONTWAIT),
                      m.length > 0 ? sent : -1);
            EXPECT_EQ(bytes.substr(0, m.length), m.data.substr(m.read, m.length));
            m.read += m.length;
            m.length = 0;
        }
        ASSERT_EQ(shown(b), shown(m));
    }
}

TEST_F(Buffer, HasItsLimits)
{
    EXPECT_EQ(make(4194305), nullptr);
    EXPECT_EQ(make(4194304)->storage->capacity, 4194304U);
    EXPECT_EQ(Owned(buffer_create(), buffer_destroy)->storage->initial_capacity, 4096U);
    buffer_destroy(nullptr);

    const Owned b = make();
    b->append(b.get(), "abc", 3);
    const std::string before = shown(b);
    EXPECT_EQ(b->append(b.get(), nullptr, 5), 0U);
    for (const size_t n : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 4096}) {
        EXPECT_EQ(b->append(b.get(), "x", n), 0U);
        EXPECT_EQ(b->append_zero(b.get(), n), nullptr);
    }
    EXPECT_EQ(b->printf(b.get(), "%lc", static_cast<wint_t>(0xD800)), 0); // no such character
    buffer_pop(b.get(), -5);
    buffer_fill(b.get(), -1);
    EXPECT_EQ(b->send(b.get(), -1, 0), -1);
    EXPECT_EQ(b->send(b.get(), 0, 0), -1); // no socket
    EXPECT_EQ(shown(b), before);
    b->read(b.get(), nullptr, 3);
    EXPECT_EQ(b->append(b.get(), "x", SIZE_MAX), 0U);
    b->rewind(b.get()); // a drained buffer has kept its bytes, too
    EXPECT_EQ(shown(b), before);
    b->append_zero(b.get(), 4194304);
    EXPECT_EQ(b->clone(b.get()), nullptr);
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const auto sent = static_cast<size_t>(b->send(b.get(), pair[0], MSG_DONTWAIT));
    EXPECT_EQ(b->length(b.get()), 4194307 - sent); // what a socket does not take is kept
}

TEST_F(Buffer, TestDataIs110BytesAPass)
{
    const Owned b = make();
    buffer_fill(b.get(), 2);
    const std::string digits = "12345678901234567890123456789012345678901234567890";
    const std::string line = digits.substr(0, 39) + "\n" + std::string(10, '\0');
    EXPECT_EQ(std::string(reinterpret_cast<char *>(b->data(b.get())), b->length(b.get())),
              "0001-0100 " + digits + line + "0101-0200 " + digits + line);
}
