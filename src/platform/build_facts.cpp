#include "platform/build_facts.h"

#include <cstring>

#include <zorv/file.h>

namespace zorv {

namespace {

constexpr struct {
    char word[8];
    int type;
} kRefTypes[] = {
    {"atag", 1}, // annotated: what releases are built from
    {"branch", 2},
};

} // namespace

int read_scm_reftype()
{
    char word[16];
    freadvalue(kBuildProperties, "scm_reftype", word, sizeof word, "unknown");
    for (const auto &row : kRefTypes)
        if (strcmp(word, row.word) == 0)
            return row.type;
    return 0;
}

} // namespace zorv
