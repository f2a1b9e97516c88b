// cfg.h - what the verbs of the family cfg share.
#ifndef ZORVCTL_CFG_H
#define ZORVCTL_CFG_H

#include <memory>
#include <string>
#include <string_view>

#include <zorv/cfg.h>

#include "base/cli.h"
#include "core/own.h"

namespace ctl {

using Config = std::unique_ptr<cfg_entry, zorv::Closer<free_cfg>>;
using Matches = std::unique_ptr<cfg_entry, zorv::Closer<free_cfg_it>>; // of a Config that lives on

Config parse_text(std::string text);

// Reads a configuration; an empty one is NULL, one that cannot be read throws.
Config load(const std::string &path);

// Equal for keys that the library takes as equal: those that differ in case at most.
std::string folded(std::string_view key);

// One source file each.
extern const Verb kCfgApply[1];
extern const Verb kCfgDiff[1];
extern const Verb kCfgLint[1];
extern const Verb kCfgQueries[4]; // get, list, count, section

} // namespace ctl

#endif
