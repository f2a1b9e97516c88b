#include <zorv/version.h>

static_assert(ZORV_VERSION_MAJOR == PROJECT_MAJOR);
static_assert(ZORV_VERSION_MINOR == PROJECT_MINOR);
static_assert(ZORV_VERSION_PATCH == PROJECT_PATCH);

const char zorv_git_hash[] = "zorv_git_hash=<" ZORV_SOURCE_HASH ">";
const char zorv_git_tag[] = "zorv_git_tag=<" ZORV_SOURCE_TAG ">";
