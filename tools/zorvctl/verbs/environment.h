// environment.h - the unit's cloud environment, which the library takes for production when nothing
// else can be read.
#ifndef ZORVCTL_ENVIRONMENT_H
#define ZORVCTL_ENVIRONMENT_H

#include "base/ask.h"
#include "platform/build_facts.h"
#include "platform/config_files.h"

namespace ctl {

// Throws io_failure() when one of the files that tell it cannot be read.
inline void expect_environment()
{
    for (const char *const path : {zorv::kSystemCfg, zorv::kManagementCfg, zorv::kBuildProperties})
        expect_readable(path);
}

} // namespace ctl

#endif
