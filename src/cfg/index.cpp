#include "cfg/index.h"

#include <bit>
#include <cstring>

#include <sys/auxv.h>

#include "cfg/match.h"
#include "cfg/natural.h"

namespace zorv {
namespace {

constexpr size_t kFewest = 64; // slots of the smallest table
constexpr size_t kBatch = 16;  // entries whose slots are fetched at the same time

// SipHash with one round a word and three at the end, of a text in lower case.
class Hash {
public:
    explicit Hash(const uint64_t (&secret)[2])
        : a_(secret[0] ^ 0x736f6d6570736575), b_(secret[1] ^ 0x646f72616e646f6d),
          c_(secret[0] ^ 0x6c7967656e657261), d_(secret[1] ^ 0x7465646279746573)
    {
    }

    uint64_t of(const char *text, size_t length)
    {
        for (size_t done = 0; done < length; done += sizeof(uint64_t)) {
            const size_t rest = length - done;
            uint64_t word = 0;
            memcpy(&word, text + done, rest < sizeof word ? rest : sizeof word);
            add(lower_word(word));
        }
        add(length);
        c_ ^= 0xff;
        for (int i = 0; i < 3; ++i)
            mix();
        return a_ ^ b_ ^ c_ ^ d_;
    }

private:
    // The ASCII capitals of eight bytes at once: in each byte, bit 7 comes out of a carry.
    static uint64_t lower_word(uint64_t word)
    {
        constexpr uint64_t kOnes = 0x0101010101010101;
        const uint64_t ascii = word & 0x7f * kOnes;
        const uint64_t from_a = ascii + (0x80 - 'A') * kOnes;
        const uint64_t past_z = ascii + (0x7f - 'Z') * kOnes;
        const uint64_t capital = (from_a ^ past_z) & ~word & 0x80 * kOnes;
        return word | capital >> 2;
    }

    void add(uint64_t word)
    {
        d_ ^= word;
        mix();
        a_ ^= word;
    }

    void mix()
    {
        a_ += b_;
        c_ += d_;
        b_ = std::rotl(b_, 13) ^ a_;
        d_ = std::rotl(d_, 16) ^ c_;
        a_ = std::rotl(a_, 32);
        c_ += b_;
        a_ += d_;
        b_ = std::rotl(b_, 17) ^ c_;
        d_ = std::rotl(d_, 21) ^ a_;
        c_ = std::rotl(c_, 32);
    }

    uint64_t a_, b_, c_, d_;
};

} // namespace

KeyIndex::KeyIndex(const cfg_entry *list) : list_(list)
{
    // The kernel's sixteen random bytes for this process; zeros on a kernel without them.
    if (const unsigned long random = getauxval(AT_RANDOM))
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel hands over an address so.
        memcpy(secret_, reinterpret_cast<const void *>(random), sizeof secret_);
    const size_t count = get_cfg_count(list);
    if (!resize(std::bit_ceil(count < kFewest / 2 ? kFewest : 2 * count)))
        return;
    add_list();
    is_unique_ = used_ == count;
}

const cfg_entry *KeyIndex::find(const char *key, const cfg_entry *guess) const
{
    if (is_unique_ && guess && equal_keys(guess->key, key))
        return guess;
    if (capacity_ > 0)
        return slot(hash_of(key), key).entry;
    return find_entry(list_, key);
}

const cfg_entry *KeyIndex::find_or_add(const cfg_entry *entry)
{
    if (capacity_ == 0)
        return find(entry->key);
    const uint64_t hash = hash_of(entry->key);
    Slot &place = slot(hash, entry->key);
    if (place.entry)
        return place.entry;
    place = {hash, entry};
    if (++used_ > capacity_ / 2 && !resize(2 * capacity_)) {
        slots_.reset();
        capacity_ = 0;
    }
    return nullptr;
}

uint64_t KeyIndex::hash_of(const char *key) const
{
    return Hash(secret_).of(key, strlen(key));
}

// In batches, so that the memory of all slots of one is on its way at the same time.
void KeyIndex::add_list()
{
    const cfg_entry *entry = list_;
    while (entry) {
        Slot batch[kBatch];
        size_t count = 0;
        for (; entry && count < kBatch; entry = entry->next) {
            batch[count] = {hash_of(entry->key), entry};
            __builtin_prefetch(&slots_[batch[count++].hash & (capacity_ - 1)], 1);
        }
        for (size_t i = 0; i < count; ++i) {
            Slot &place = slot(batch[i].hash, batch[i].entry->key);
            if (place.entry)
                continue;
            place = batch[i];
            ++used_;
        }
    }
}

// The slot of the key, or the free one where it belongs.
KeyIndex::Slot &KeyIndex::slot(uint64_t hash, const char *key) const
{
    size_t i = hash & (capacity_ - 1);
    while (slots_[i].entry && !(slots_[i].hash == hash && equal_keys(slots_[i].entry->key, key)))
        i = (i + 1) & (capacity_ - 1);
    return slots_[i];
}

bool KeyIndex::resize(size_t capacity)
{
    const auto slots = static_cast<Slot *>(calloc(capacity, sizeof(Slot)));
    if (!slots)
        return false;
    for (size_t old = 0; old < capacity_; ++old) {
        if (!slots_[old].entry)
            continue;
        size_t i = slots_[old].hash & (capacity - 1);
        while (slots[i].entry)
            i = (i + 1) & (capacity - 1);
        slots[i] = slots_[old];
    }
    slots_.reset(slots);
    capacity_ = capacity;
    return true;
}

} // namespace zorv
