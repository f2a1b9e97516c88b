// The transcripts of zorvctl, each a test: what a script sees of the program.
#include "support/transcript.h"

#include "support/device.h"

namespace {

constexpr char kFolder[] = ZORV_SOURCE_DIR "/tests/tools/";

struct Zorvctl : Device, testing::WithParamInterface<std::string> {};

} // namespace

TEST_P(Zorvctl, Transcript)
{
    kernel_processes();
    make_bridge();
    const std::string path = kFolder + GetParam() + ".t";
    run_steps(path, read_steps(split(read(path)), 1), "tools/unit.sh");
}

INSTANTIATE_TEST_SUITE_P(, Zorvctl, testing::ValuesIn(names_in(kFolder, ".t")),
                         [](const auto &test) { return test.param; });
