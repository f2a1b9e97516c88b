// environment.h - the unit's cloud environment, which the library takes for production when it
// cannot read what it is.
#ifndef ZORVCTL_ENVIRONMENT_H
#define ZORVCTL_ENVIRONMENT_H

#include "base/ask.h"
#include "platform/build_facts.h"
#include "platform/config_files.h"

namespace ctl {

// Asks what depends on it; throws when a file that tells it cannot be read.
template <class Question>
auto ask_environment(Question question)
{
    for (const char *const path : {zorv::kSystemCfg, zorv::kManagementCfg, zorv::kBuildProperties})
        expect_readable(path);
    return ask_twice("the cloud environment", question);
}

} // namespace ctl

#endif
