// The configuration store against inih, whose handler stores every line in a list as ours does, and
// against GLib's GKeyFile. Files are read and written on the same disk, without syncing, by all.
#include "ratio.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <glib.h>
#include <ini.h>
#include <unistd.h>
#include <zorv/cfg.h>

namespace {

constexpr char kGroup[] = "cfg"; // GKeyFile cannot do without one; the others take it for no entry

constexpr long kShuffled = 7919; // a prime: steps through the keys in no order

struct FreeCfg {
    void operator()(cfg_entry *list) const { free_cfg(list); }
};
using Cfg = std::unique_ptr<cfg_entry, FreeCfg>;

struct FreeCfgIt {
    void operator()(cfg_entry *list) const { free_cfg_it(list); }
};
using CfgIt = std::unique_ptr<cfg_entry, FreeCfgIt>;

struct FreeGlib {
    void operator()(GKeyFile *file) const { g_key_file_free(file); }
    void operator()(char *text) const { g_free(text); }
    void operator()(char **texts) const { g_strfreev(texts); }
};
using KeyFile = std::unique_ptr<GKeyFile, FreeGlib>;
using GlibText = std::unique_ptr<char, FreeGlib>;
using GlibTexts = std::unique_ptr<char *, FreeGlib>;

std::string key_of(long i)
{
    static const char *const fields[] = {"ssid", "status", "security", "vlan"};
    return "wireless." + std::to_string(i / 4 + 1) + "." + fields[i % 4];
}

// A file of the bench, gone with the process.
class BenchFile {
public:
    BenchFile(long entries, bool misc, int changed, long stride = 1)
        : path_("/tmp/bench_cfg." + std::to_string(getpid()))
    {
        std::ofstream out(path_);
        out << "[" << kGroup << "]\n" << (misc ? "# misc\n" : "");
        for (int round = 0; round <= (misc ? 1 : 0); ++round) // in a misc region, every key twice
            for (long i = 0; i < entries / (misc ? 2 : 1); ++i)
                out << key_of(i * stride % entries) << "=value "
                    << (i % 10 == 0 ? changed + round : i) << "\n";
    }
    BenchFile(const BenchFile &) = delete;
    BenchFile &operator=(const BenchFile &) = delete;
    ~BenchFile() { unlink(path_.c_str()); }
    const char *path() const { return path_.c_str(); }

private:
    std::string path_;
};

KeyFile load_key_file(const char *path)
{
    KeyFile file(g_key_file_new());
    g_key_file_load_from_file(file.get(), path, G_KEY_FILE_NONE, nullptr);
    return file;
}

// What a program makes of inih's calls: the same list that ours is, with or without replacing.
struct IniList {
    cfg_entry *head = nullptr;
    cfg_entry *tail = nullptr;
    bool replaces = false;
    std::unordered_map<std::string, cfg_entry *> known;
};

int store_ini(void *user, const char *, const char *name, const char *value)
{
    auto &list = *static_cast<IniList *>(user);
    if (list.replaces) {
        const auto [found, is_new] = list.known.try_emplace(name, nullptr);
        if (!is_new) {
            free(found->second->value);
            found->second->value = strdup(value);
            return 1;
        }
        found->second = static_cast<cfg_entry *>(calloc(1, sizeof(cfg_entry)));
        (list.tail ? list.tail->next : list.head) = found->second;
        list.tail = found->second;
    } else {
        const auto entry = static_cast<cfg_entry *>(calloc(1, sizeof(cfg_entry)));
        (list.tail ? list.tail->next : list.head) = entry;
        list.tail = entry;
    }
    list.tail->key = strdup(name);
    list.tail->value = strdup(value);
    return 1;
}

// ---- Parsing, to the list and back to nothing ----

template <bool Misc>
void parse_zorv(benchmark::State &state, long size)
{
    const BenchFile file(size, Misc, 0);
    for ([[maybe_unused]] const auto _ : state) {
        const Cfg cfg(parse(file.path()));
        if (!cfg)
            state.SkipWithError("nothing parsed");
    }
}

template <bool Misc>
void parse_ini(benchmark::State &state, long size)
{
    const BenchFile file(size, Misc, 0);
    for ([[maybe_unused]] const auto _ : state) {
        IniList list;
        list.replaces = Misc;
        ini_parse(file.path(), store_ini, &list);
        const Cfg cfg(list.head);
        if (!cfg)
            state.SkipWithError("nothing parsed");
    }
}

template <bool Misc>
void parse_glib(benchmark::State &state, long size)
{
    const BenchFile file(size, Misc, 0);
    for ([[maybe_unused]] const auto _ : state)
        load_key_file(file.path());
}

// ---- Saving ----

void save_zorv(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0);
    const Cfg cfg(parse(file.path()));
    for ([[maybe_unused]] const auto _ : state)
        save_cfg(cfg.get(), file.path());
}

void save_glib(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0);
    const KeyFile keys = load_key_file(file.path());
    for ([[maybe_unused]] const auto _ : state) {
        gsize length = 0;
        const GlibText text(g_key_file_to_data(keys.get(), &length, nullptr));
        FILE *out = fopen(file.path(), "we");
        fwrite(text.get(), 1, length, out);
        fclose(out);
    }
}

// ---- Lookup of a formatted key, all over the file ----

void lookup_zorv(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0);
    const Cfg cfg(parse(file.path()));
    long i = 0;
    for ([[maybe_unused]] const auto _ : state) {
        i = (i + kShuffled) % (size / 4);
        if (!get_value(cfg.get(), nullptr, "wireless.%ld.ssid", i + 1))
            state.SkipWithError("not found");
    }
}

void lookup_list(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0);
    IniList list;
    ini_parse(file.path(), store_ini, &list);
    const Cfg cfg(list.head);
    long i = 0;
    for ([[maybe_unused]] const auto _ : state) {
        i = (i + kShuffled) % (size / 4);
        char key[64];
        snprintf(key, sizeof key, "wireless.%ld.ssid", i + 1);
        const cfg_entry *entry = cfg.get();
        while (entry && strcasecmp(entry->key, key) != 0)
            entry = entry->next;
        if (!entry)
            state.SkipWithError("not found");
    }
}

void lookup_glib(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0);
    const KeyFile keys = load_key_file(file.path());
    long i = 0;
    for ([[maybe_unused]] const auto _ : state) {
        i = (i + kShuffled) % (size / 4);
        char key[64];
        snprintf(key, sizeof key, "wireless.%ld.ssid", i + 1);
        const GlibText value(g_key_file_get_value(keys.get(), kGroup, key, nullptr));
        if (!value)
            state.SkipWithError("not found");
    }
}

// ---- A section, sorted by its numbers ----

template <long Stride>
void section_zorv(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0, Stride);
    const Cfg cfg(parse(file.path()));
    for ([[maybe_unused]] const auto _ : state) {
        const CfgIt list(get_cfg_section(cfg.get(), ".ssid", nullptr, "wireless."));
        if (get_cfg_count(list.get()) != static_cast<uint32_t>((size + 3) / 4))
            state.SkipWithError("wrong section");
    }
}

template <long Stride>
void section_glib(benchmark::State &state, long size)
{
    const BenchFile file(size, false, 0, Stride);
    const KeyFile keys = load_key_file(file.path());
    for ([[maybe_unused]] const auto _ : state) {
        const GlibTexts all(g_key_file_get_keys(keys.get(), kGroup, nullptr, nullptr));
        std::vector<const char *> section;
        for (char **key = all.get(); *key; ++key)
            if (g_str_has_prefix(*key, "wireless.") && g_str_has_suffix(*key, ".ssid"))
                section.push_back(*key);
        std::stable_sort(section.begin(), section.end(),
                         [](const char *a, const char *b) { return strverscmp(a, b) < 0; });
        if (section.size() != static_cast<size_t>((size + 3) / 4))
            state.SkipWithError("wrong section");
    }
}

// ---- Difference, a tenth of the values changed ----

void difference_zorv(benchmark::State &state, long size)
{
    Cfg before, after;
    before.reset(parse(BenchFile(size, false, 1).path()));
    after.reset(parse(BenchFile(size, false, 2).path()));
    for ([[maybe_unused]] const auto _ : state) {
        const CfgIt list(get_cfg_diff_it(before.get(), after.get()));
        if (get_cfg_count(list.get()) != static_cast<uint32_t>(size / 10))
            state.SkipWithError("wrong difference");
    }
}

void difference_glib(benchmark::State &state, long size)
{
    const KeyFile before = load_key_file(BenchFile(size, false, 1).path());
    const KeyFile after = load_key_file(BenchFile(size, false, 2).path());
    for ([[maybe_unused]] const auto _ : state) {
        std::vector<std::string> list;
        const GlibTexts added(g_key_file_get_keys(after.get(), kGroup, nullptr, nullptr));
        for (char **key = added.get(); *key; ++key) {
            const GlibText now(g_key_file_get_value(after.get(), kGroup, *key, nullptr));
            const GlibText then(g_key_file_get_value(before.get(), kGroup, *key, nullptr));
            if (!then || strcmp(now.get(), then.get()) != 0)
                list.emplace_back(*key);
        }
        const GlibTexts removed(g_key_file_get_keys(before.get(), kGroup, nullptr, nullptr));
        for (char **key = removed.get(); *key; ++key)
            if (!g_key_file_has_key(after.get(), kGroup, *key, nullptr))
                list.emplace_back(*key);
        if (list.size() != static_cast<size_t>(size / 10))
            state.SkipWithError("wrong difference");
    }
}

template <class Work>
void add(const char *family, const char *who, Work work)
{
    bench::add(family, {100, 1000, 10000, 100000}, who, work);
}

} // namespace

void register_benches()
{
    add("parse", "zorv", parse_zorv<false>);
    add("parse", "inih", parse_ini<false>);
    add("parse", "GKeyFile", parse_glib<false>);
    add("misc region", "zorv", parse_zorv<true>);
    add("misc region", "inih+hash map", parse_ini<true>);
    add("misc region", "GKeyFile", parse_glib<true>);
    add("save", "zorv", save_zorv);
    add("save", "GKeyFile", save_glib);
    add("lookup", "zorv", lookup_zorv);
    add("lookup", "list, strcasecmp", lookup_list);
    add("lookup", "GKeyFile", lookup_glib);
    add("section", "zorv", section_zorv<1>);
    add("section", "GKeyFile", section_glib<1>);
    add("section, shuffled", "zorv", section_zorv<kShuffled>);
    add("section, shuffled", "GKeyFile", section_glib<kShuffled>);
    add("difference", "zorv", difference_zorv);
    add("difference", "GKeyFile", difference_glib);
}
