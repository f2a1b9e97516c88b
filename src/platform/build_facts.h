// build_facts.h - what the build of the firmware left behind about itself.
#ifndef ZORV_PLATFORM_BUILD_FACTS_H
#define ZORV_PLATFORM_BUILD_FACTS_H

namespace zorv {

constexpr char kBuildProperties[] = "/usr/lib/build.properties"; // key=value lines

// What the firmware was built from in source control: 1 a tag, 2 a branch, 0 unknown.
int read_scm_reftype();

} // namespace zorv

#endif
