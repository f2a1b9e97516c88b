#include <zorv/status.h>

#include <cstring>
#include <string_view>

#include <zorv/file.h>

#include "core/text_tools.h"
#include "platform/build_facts.h"
#include "platform/config_files.h"

using namespace zorv;

namespace {

enum Environment { kProduction, kStage, kDev };

constexpr int kReleaseTag = 1; // of read_scm_reftype()

// A value as both files hold it, up to 7 characters.
class Setting {
public:
    Setting(const char *key, const char *fallback)
    {
        freadvalue(kSystemCfg, key, text_, sizeof text_, "");
        if (*text_ == '\0')
            freadvalue(kManagementCfg, key, text_, sizeof text_, fallback);
    }
    bool is(const char *word) const { return strcmp(text_, word) == 0; }
    bool begins_with(std::string_view word) const { return zorv::begins_with(text_, word); }

private:
    char text_[8];
};

} // namespace

int get_kelo_env()
{
    const Setting environment("mgmt.kelo.env", "prod");
    if (environment.is("dev"))
        return kDev;
    return environment.is("stage") ? kStage : kProduction;
}

int get_kelo_env_limit_prod()
{
    const int environment = get_kelo_env();
    const bool is_release = read_scm_reftype() == kReleaseTag;
    const Setting force("mgmt.kelo.env.force", "0");
    if (force.is("1") || force.begins_with("enable"))
        return environment;
    return environment == kProduction && !is_release ? kDev : environment;
}
