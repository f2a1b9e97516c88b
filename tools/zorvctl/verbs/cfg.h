// cfg.h - what the verbs of the family cfg share.
#ifndef ZORVCTL_CFG_H
#define ZORVCTL_CFG_H

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include <zorv/cfg.h>

#include "base/cli.h"
#include "core/own.h"

namespace ctl {

using Config = std::unique_ptr<cfg_entry, zorv::Closer<free_cfg>>;
using Matches = std::unique_ptr<cfg_entry, zorv::Closer<free_cfg_it>>; // of a Config that lives on

// Reads a whole configuration; an empty one is NULL. Without the memory for all of it throws.
Config parse_text(std::string text);

// The same from a file; "-" is the standard input.
Config load(const std::string &path);

// Equal for keys that the library takes as equal: those that differ in case at most.
std::string folded(std::string_view key);

// What a lookup of each key gives, by folded key; borrowed.
using FirstValues = std::unordered_map<std::string, std::string_view>;
FirstValues first_values(const cfg_entry *cfg);

// One source file each.
extern const Verb kCfgApply[1];
extern const Verb kCfgDiff[1];
extern const Verb kCfgGet[1];
extern const Verb kCfgLint[1];
extern const Verb kCfgQueries[3]; // list, count, section
extern const Verb kCfgSet[2];     // set, unset

} // namespace ctl

#endif
