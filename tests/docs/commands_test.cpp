// What the README and the manual show is so: each command runs, each piece of code is the file's.
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "docs/text.h"
#include "support/device.h"

namespace {

using testing::AnyOf;

class Manual : public Device, public testing::WithParamInterface<std::string> {
protected:
    // An access point after set-up, with what an installed library and zorvctl put there.
    Manual()
    {
        kernel_processes();
        must_run("for path in /run/kernel-proc/[a-z]*; do"
                 "  [ -e /proc/${path##*/} ] || ln -s $path /proc/; done");
        file("/proc/zorvhal/system.info",
             "vendorid=1f3d\nsystemid=7e8b\nserialno=02a0f3000007\nboardrevision=3\n"
             "eth0.macaddr=02:a0:f3:00:00:07\n");
        file("/proc/zorvhal/board", "bomrev=2e8ff\n");
        file("/proc/zorvhal/status/IsDefault", "false\n");
        file("/var/run/zorv_protocol.info",
             "pluvo.key=000102030405060708090a0b0c0d0e0f\npluvo.mcip=239.255.90.90\n");
        file("/usr/etc/.version", "6.6.55\n");
        file("/usr/etc/.build", "15189\n");
        script("/etc/syswrapper.sh", "#!/bin/sh\ncat\n");
        must_run("cmake -DCMAKE_INSTALL_PREFIX=/usr/local -P " ZORV_BUILD_DIR
                 "/src/cmake_install.cmake >/dev/null && ln -s " ZORVCTL
                 " /usr/local/bin/zorvctl &&"
                 "mkdir /tmp/work && cp " ZORV_SOURCE_DIR "/examples/system.cfg /tmp/work &&"
                 "cp /tmp/work/system.cfg /tmp");
    }
};

// In the folder where the reader is.
Device::Outcome shell(const std::string &command)
{
    return Device::run("cd /tmp/work && export PKG_CONFIG_PATH=/usr/local/lib/pkgconfig"
                       " LD_LIBRARY_PATH=/usr/local/lib; " +
                       command);
}

// Puts the pieces of files together, in the reader's folder.
std::map<std::string, std::string> write_pieces(const Text &text)
{
    std::map<std::string, std::string> files;
    for (const auto &block : text.blocks) {
        if (block.mark != "file")
            continue;
        std::string &whole = files[block.value];
        whole += whole.empty() ? "" : "\n";
        for (const auto &line : block.lines)
            whole += line + "\n";
    }
    for (const auto &[path, whole] : files)
        Device::file("/tmp/work/" + path.substr(path.rfind('/') + 1), whole);
    return files;
}

// A path with a folder is one of the tree's.
void check_pieces(const std::map<std::string, std::string> &files)
{
    for (const auto &[path, whole] : files) {
        if (path.find('/') == std::string::npos)
            continue;
        std::ifstream source(std::string(ZORV_SOURCE_DIR "/") + path);
        std::ostringstream content;
        content << source.rdbuf();
        EXPECT_EQ(whole, content.str()) << path;
    }
}

// "COMMAND   # exit status N"
int expected_status(const std::string &command)
{
    const size_t at = command.rfind("# exit status ");
    return at == std::string::npos ? 0 : std::stoi(command.substr(at + 14));
}

// Commands of a block of `sh`; a backslash at its end continues a line.
std::vector<std::string> commands(const Block &block)
{
    std::vector<std::string> found(1);
    for (const auto &line : block.lines) {
        found.back() += line;
        if (line.ends_with('\\'))
            found.back().back() = ' ';
        else
            found.emplace_back();
    }
    found.pop_back();
    return found;
}

// A block of `console`: "$ COMMAND" and what it prints, where a line "..." stands for any number of
// lines.
std::vector<std::pair<std::string, std::vector<std::string>>> session(const Block &block)
{
    std::vector<std::pair<std::string, std::vector<std::string>>> steps;
    for (const auto &line : block.lines) {
        if (line.starts_with("$ "))
            steps.push_back({line.substr(2), {}});
        else if (!steps.empty())
            steps.back().second.push_back(line);
    }
    return steps;
}

bool is_shown(const std::string &output, const std::vector<std::string> &shown)
{
    std::string pattern;
    for (const auto &line : shown)
        pattern +=
            line == "..."
                ? "(?:.*\n)*?"
                : std::regex_replace(line, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)") + "\n";
    return std::regex_match(output, std::regex(pattern));
}

void run_commands(const Block &block)
{
    for (const auto &command : commands(block)) {
        const auto outcome = shell(command);
        EXPECT_EQ(outcome.status, expected_status(command)) << command << "\n"
                                                            << outcome.output << outcome.errors;
    }
}

void run_session(const Block &block)
{
    for (const auto &[command, shown] : session(block)) {
        const auto outcome = shell(command + " 2>&1");
        EXPECT_TRUE(is_shown(outcome.output, shown)) << command << "\n" << outcome.output;
    }
}

void expect_no_command(const Block &block)
{
    EXPECT_THAT(block.language, AnyOf("text", "c", "cpp", "cmake", "mermaid"));
    const std::regex command(R"(^(\$ )?(zorvctl|zorv-sim|cc|cmake|\./run) .*)");
    for (const auto &line : block.lines)
        EXPECT_FALSE(std::regex_match(line, command)) << line;
}

// In running text, what is no placeholder is there.
void check_verbs(const Text &text)
{
    const std::regex words("zorvctl((?: [a-z][a-z0-9-]*){1,2})(?: .*)?");
    for (const auto &span : text.code_spans) {
        std::smatch match;
        if (!std::regex_match(span, match, words))
            continue;
        const std::string verb = "zorvctl" + match[1].str();
        EXPECT_THAT(shell(verb + " --no-such-option").errors,
                    HasSubstr("(see: " + verb + " --help)"));
    }
}

} // namespace

// Each test of a text costs a device; so there is one.
TEST_P(Manual, ShowsWhatIsSo)
{
    const Text text = read_text(GetParam());
    EXPECT_THAT(text.indented, IsEmpty()) << "a block without a fence";
    check_pieces(write_pieces(text));
    for (const auto &block : text.blocks) {
        SCOPED_TRACE("block at line " + std::to_string(block.line));
        if (block.mark == "not run") {
            EXPECT_GT(block.value.size(), 10U) << "what keeps it from running?";
        } else if (block.mark == "run") {
            EXPECT_EQ(block.value, "site"); // site.sh runs it
        } else if (block.language == "sh") {
            run_commands(block);
        } else if (block.language == "console") {
            run_session(block);
        } else {
            expect_no_command(block);
        }
    }
    check_verbs(text);
}

// A family that is new has its place in the picture and in the table below it.
TEST(Architecture, ShowsEveryFamily)
{
    const Text text = read_text("docs/architecture.md");
    std::string picture;
    for (const auto &line : text.blocks.at(0).lines)
        picture += line + "\n";
    for (const auto &entry : std::filesystem::directory_iterator(ZORV_SOURCE_DIR "/include/zorv")) {
        const std::string family = entry.path().stem();
        if (family == "api" || family == "zorv")
            continue;
        EXPECT_TRUE(std::regex_search(picture, std::regex("\\b" + family + "\\b"))) << family;
        EXPECT_THAT(text.code_spans, Contains(family + ".h"));
    }
}

INSTANTIATE_TEST_SUITE_P(Texts, Manual, testing::ValuesIn(text_names()), [](const auto &text) {
    return std::regex_replace(text.param.substr(text.param.rfind('/') + 1), std::regex("\\W"), "_");
});
