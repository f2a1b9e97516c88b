#include <zorv/version.h>

const char zorv_git_hash[] = "zorv_git_hash=<" ZORV_SOURCE_HASH ">";
const char zorv_git_tag[] = "zorv_git_tag=<" ZORV_SOURCE_TAG ">";
