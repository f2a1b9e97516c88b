// index.h - the first entry of a key in expected constant time, for whoever asks for many keys.
#ifndef ZORV_CFG_INDEX_H
#define ZORV_CFG_INDEX_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include <zorv/cfg.h>

#include "core/own.h"

namespace zorv {

// A hash table beside a list, open addressing, at most half full. The hash is keyed per process, so
// no file can be made to collide. Without memory for the table the list is walked: the same answer,
// later. `./run bench cfg` (difference) wants a table of our own: uthash took two to five times as
// long, behind GLib's table from 100,000 keys on.
class KeyIndex {
public:
    // The list is borrowed; one that is not empty may grow at its end.
    explicit KeyIndex(const cfg_entry *list);

    // Returns the first entry whose key is equal in natural order, or null. The guess, an entry of
    // the list or null, makes it quick where it is right.
    const cfg_entry *find(const char *key, const cfg_entry *guess = nullptr) const;

    // Returns the first entry with the key of this one; where there is none, takes it up, to be
    // appended to the list by the caller, and returns null.
    const cfg_entry *find_or_add(const cfg_entry *entry);

private:
    struct Slot {
        uint64_t hash;
        const cfg_entry *entry; // null: free
    };

    uint64_t hash_of(const char *key) const;
    Slot &slot(uint64_t hash, const char *key) const;
    void add_list();
    bool resize(size_t capacity);

    uint64_t secret_[2] = {}; // the key of the hash
    const cfg_entry *list_;
    bool is_unique_ = false; // no two entries of the list had one key at the beginning
    std::unique_ptr<Slot[], Closer<free>> slots_;
    size_t capacity_ = 0; // a power of two; 0 without a table
    size_t used_ = 0;
};

} // namespace zorv

#endif
