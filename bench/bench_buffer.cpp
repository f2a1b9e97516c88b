// Appending to a byte queue and draining it, against GLib's GByteArray and libevent's evbuffer;
// texts are printed to a GString instead.
#include "ratio.h"

#include <algorithm>
#include <vector>

#include <event2/buffer.h>
#include <glib.h>
#include <zorv/buffer.h>

namespace {

constexpr size_t kPiece = 1400; // a packet's worth, what network code reads at a time
constexpr char kFormat[] = "%s.%ld.status=%s\n";

// The three queues behind one face. All begin with what they are created with by default.
class Zorv {
public:
    Zorv() : queue_(buffer_create()) {}
    ~Zorv() { buffer_destroy(queue_); }
    void append(const char *bytes, size_t n) { queue_->append(queue_, bytes, n); }
    size_t drain(char *out, size_t n) { return queue_->read(queue_, out, n); }
    void print(const char *name, long i) { queue_->printf(queue_, kFormat, name, i, "up"); }
    void clear() { queue_->read(queue_, nullptr, SIZE_MAX); }

private:
    buffer *queue_;
};

class Glib {
public:
    Glib() : queue_(g_byte_array_new()) {}
    ~Glib() { g_byte_array_free(queue_, TRUE); }
    void append(const char *bytes, size_t n)
    {
        g_byte_array_append(queue_, reinterpret_cast<const guint8 *>(bytes), static_cast<guint>(n));
    }
    size_t drain(char *out, size_t n)
    {
        const size_t count = std::min<size_t>(n, queue_->len);
        std::copy_n(queue_->data, count, out);
        g_byte_array_remove_range(queue_, 0, static_cast<guint>(count));
        return count;
    }

private:
    GByteArray *queue_;
};

class Evbuffer {
public:
    Evbuffer() : queue_(evbuffer_new()) {}
    ~Evbuffer() { evbuffer_free(queue_); }
    void append(const char *bytes, size_t n) { evbuffer_add(queue_, bytes, n); }
    size_t drain(char *out, size_t n)
    {
        const int count = evbuffer_remove(queue_, out, n);
        return count > 0 ? static_cast<size_t>(count) : 0;
    }
    void print(const char *name, long i) { evbuffer_add_printf(queue_, kFormat, name, i, "up"); }
    void clear() { evbuffer_drain(queue_, SIZE_MAX); }

private:
    evbuffer *queue_;
};

class GlibText {
public:
    GlibText() : text_(g_string_new(nullptr)) {}
    ~GlibText() { g_string_free(text_, TRUE); }
    void print(const char *name, long i) { g_string_append_printf(text_, kFormat, name, i, "up"); }
    void clear() { g_string_truncate(text_, 0); }

private:
    GString *text_;
};

// A new queue takes `size` bytes piece by piece.
template <class Queue>
void append(benchmark::State &state, long size)
{
    const std::vector<char> piece(kPiece, 'x');
    for ([[maybe_unused]] const auto _ : state) {
        Queue queue;
        for (size_t left = static_cast<size_t>(size); left > 0; left -= std::min(left, kPiece))
            queue.append(piece.data(), std::min(left, kPiece));
        benchmark::DoNotOptimize(queue);
    }
}

// Two that grow by turns: neither is at the end of the heap all the time.
template <class Queue>
void append_by_turns(benchmark::State &state, long size)
{
    const std::vector<char> piece(kPiece, 'x');
    for ([[maybe_unused]] const auto _ : state) {
        Queue queues[2];
        for (size_t left = static_cast<size_t>(size); left > 0; left -= std::min(left, kPiece))
            for (Queue &queue : queues)
                queue.append(piece.data(), std::min(left, kPiece));
        benchmark::DoNotOptimize(queues);
    }
}

// A queue that lives on takes `size` lines and is emptied.
template <class Queue>
void print(benchmark::State &state, long size)
{
    Queue queue;
    for ([[maybe_unused]] const auto _ : state) {
        for (long i = 0; i < size; ++i)
            queue.print("wireless", i);
        queue.clear();
    }
}

// A queue that lives on takes `size` bytes piece by piece and gives them away again.
template <class Queue>
void append_and_drain(benchmark::State &state, long size)
{
    std::vector<char> piece(kPiece, 'x');
    Queue queue;
    for ([[maybe_unused]] const auto _ : state) {
        for (size_t left = static_cast<size_t>(size); left > 0; left -= std::min(left, kPiece))
            queue.append(piece.data(), std::min(left, kPiece));
        size_t drained = 0;
        while (const size_t n = queue.drain(piece.data(), kPiece))
            drained += n;
        if (drained != static_cast<size_t>(size))
            state.SkipWithError("bytes were lost");
    }
}

template <class Queue>
void add_queue(const char *who)
{
    bench::add("append", {1400, 65536, 1048576}, who, append<Queue>);
    bench::add("append by turns", {1400, 65536, 1048576}, who, append_by_turns<Queue>);
    bench::add("append and drain", {1400, 65536, 1048576}, who, append_and_drain<Queue>);
}

} // namespace

void register_benches()
{
    add_queue<Zorv>("zorv");
    add_queue<Glib>("GByteArray");
    add_queue<Evbuffer>("evbuffer");
    bench::add("printf", {1, 100}, "zorv", print<Zorv>);
    bench::add("printf", {1, 100}, "GString", print<GlibText>);
    bench::add("printf", {1, 100}, "evbuffer", print<Evbuffer>);
}
