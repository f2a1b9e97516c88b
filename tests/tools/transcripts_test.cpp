// The transcripts of zorvctl, each a test: what a script sees of the program.
#include "support/transcript.h"

namespace {

[[maybe_unused]] const bool kAdded = add_transcripts(
    "Zorvctl", ZORV_SOURCE_DIR "/tests/tools",
    "source=" ZORV_SOURCE_DIR " build=" ZORV_BUILD_DIR "; . $source/tests/tools/unit.sh");

} // namespace
