#include <zorv/buffer.h>

#include <memory>
#include <random>
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

size_t append(const Owned &b, const std::string &bytes)
{
    return b->append(b.get(), bytes.data(), bytes.size());
}

// A buffer as the header tells it.
struct Model {
    std::string data; // the storage, as long as its capacity
    size_t initial = data.size(), read = 0, write = 0, length = 0;

    void append(const std::string &bytes)
    {
        const size_t n = bytes.size();
        if (length == 0)
            read = write = 0;
        if (n > data.size() - std::max(write, read + length))
            data.resize(data.size() + (n + 4095) / 4096 * 4096);
        data.replace(write, n, bytes);
        write += n;
        length += n;
    }
    void pop(size_t n)
    {
        write -= std::min(n, write);
        length -= std::min(n, length);
    }
    Model clone() const // of the first bytes, and the next are written over them
    {
        if (length == 0)
            return {std::string(4096, '\0')};
        return {data.substr(0, length) + std::string(data.size() - length, '\0'), data.size(), 0, 0,
                length};
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
    return shown(Model{{reinterpret_cast<char *>(s.data), b->capacity(b.get())},
                       s.initial_capacity,
                       static_cast<size_t>(b->data(b.get()) - s.data),
                       s.write_offset,
                       b->length(b.get())});
}

} // namespace

using Buffer = Device;

TEST_F(Buffer, DoesWhatTheModelDoes)
{
    std::mt19937 random; // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure is to come again
    constexpr size_t kSizes[] = {0, 1, 4095, 4096, 4097, 10000};
    Owned b = make();
    Model model{std::string(4096, '\0')};
    for (int i = 0; i < 20000; ++i) {
        const auto action = random() % 12;
        const size_t n = random() % 4 == 0 ? kSizes[random() % 6] : random() % 50;
        SCOPED_TRACE(testing::Message() << i << ": action " << action << " of " << n);
        std::string bytes(n, static_cast<char>('!' + i % 90));
        if (action <= 2) {
            EXPECT_EQ(append(b, bytes), n);
            if (n > 0)
                model.append(bytes);
        } else if (action == 3) {
            EXPECT_EQ(b->printf(b.get(), "%s", bytes.c_str()), static_cast<int>(n));
            model.append(bytes + '\0'); // which is taken back then
            model.pop(1);
        } else if (action == 4) {
            const void *const place = b->append_zero(b.get(), n);
            EXPECT_EQ(place, b->storage->data + b->storage->write_offset - n);
            model.append(std::string(n, '\0'));
        } else if (action == 5) {
            buffer_pop(b.get(), static_cast<int>(n));
            model.pop(n);
        } else if (action <= 7) {
            const size_t taken = std::min(n, model.length);
            EXPECT_EQ(b->read(b.get(), action == 6 ? bytes.data() : nullptr, n), taken);
            if (action == 6) {
                EXPECT_EQ(bytes.substr(0, taken), model.data.substr(model.read, taken));
            }
            model.read += taken;
            model.length -= taken;
        } else if (action == 8) {
            b->rewind(b.get());
            model.read = 0;
            model.length = model.write;
        } else if (action == 9) {
            b.reset(b->clone(b.get()));
            model = model.clone();
        } else if (n % 2 == 0) {
            if (action == 10) {
                b->reset(b.get());
            } else {
                EXPECT_EQ(b->init(b.get(), n), 0); // new storage in place of the old
            }
            model = {std::string(action == 10 ? model.initial : n, '\0')};
            EXPECT_EQ((std::string{reinterpret_cast<char *>(b->data(b.get())), model.initial}),
                      model.data); // clear all over
        }
        ASSERT_EQ(shown(b), shown(model));
    }
}

TEST_F(Buffer, HasItsLimits)
{
    EXPECT_EQ(make(4194305), nullptr);
    EXPECT_EQ(make(4194304)->storage->capacity, 4194304U);
    EXPECT_EQ(Owned(buffer_create(), buffer_destroy)->storage->initial_capacity, 4096U);
    buffer_destroy(nullptr);

    const Owned b = make();
    append(b, "abc");
    const std::string before = shown(b);
    EXPECT_EQ(b->append(b.get(), nullptr, 5), 0U);
    for (const size_t n : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 4096}) {
        EXPECT_EQ(b->append(b.get(), "x", n), 0U);
        EXPECT_EQ(b->append_zero(b.get(), n), nullptr);
    }
    EXPECT_EQ(b->printf(b.get(), "%lc", static_cast<wint_t>(0xD800)), 0); // no such character
    buffer_pop(b.get(), -5);
    EXPECT_EQ(shown(b), before);
    b->read(b.get(), nullptr, 3);
    EXPECT_EQ(b->append(b.get(), "x", SIZE_MAX), 0U);
    b->rewind(b.get()); // a drained buffer has kept its bytes, too
    EXPECT_EQ(shown(b), before);
    append(b, std::string(4194304, 'a'));
    EXPECT_EQ(b->clone(b.get()), nullptr);
}

TEST_F(Buffer, SendsWhatIsUnreadAndKeepsWhatWasNotTaken)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const Owned b = make();
    append(b, "abcdef");
    b->read(b.get(), nullptr, 1);
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
