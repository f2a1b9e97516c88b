// What the README and the manual show is so: each command runs, each piece of code is the file's.

#include "support/transcript.h"

#include "support/device.h"

constexpr char kTree[] = ZORV_SOURCE_DIR "/", kPages[] = ZORV_SOURCE_DIR "/docs/";

// A fenced block. A comment "<!-- MARK -->" on the line above it is its mark:
//
//   file: PATH        the block is a piece of that file
//   run: PLACE        its commands are for another place: a site (tests/sim), or a bare Debian root
//                     in which packages or the tree are installed (scripts/try-tree)
//   not run: REASON   its commands are not for the tests
struct Block {
    int line; // of its fence
    std::string language, mark;
    std::vector<std::string> lines;
};

using Page = std::vector<Block>;

static Page read_page(const std::string &path)
{
    Page page;
    bool open = false;
    int number = 0;
    std::string mark; // the line before
    for (const auto &line : split(Device::read(path))) {
        ++number;
        if (!line.starts_with("```")) {
            if (open)
                page.back().lines.push_back(line);
        } else if ((open = !open)) {
            mark = mark.starts_with("<!-- ") ? mark.substr(5, mark.size() - 9) : "";
            page.push_back({number, line.substr(3), mark, {}});
        }
        mark = line;
    }
    EXPECT_FALSE(open) << path << " ends within a block";
    return page;
}

// Puts the pieces of files together, in the reader's folder. A path with a folder is one of the
// tree's.
static void write_pieces(const Page &page)
{
    std::map<std::string, std::string> files;
    for (const auto &block : page)
        for (size_t i = 0; block.mark.starts_with("file: ") && i < block.lines.size(); ++i) {
            std::string &whole = files[block.mark.substr(6)];
            whole += (i || whole.empty() ? "" : "\n") + block.lines[i] + "\n";
        }
    for (const auto &[path, whole] : files) {
        Device::file("/tmp/work/" + path.substr(path.rfind('/') + 1), whole);
        EXPECT_EQ(whole, path.find('/') == path.npos ? whole : Device::read(kTree + path)) << path;
    }
}

static std::vector<Step> steps_of(const Page &page)
{
    std::vector<Step> steps;
    for (const auto &[number, language, mark, lines] : page) {
        if (mark.starts_with("run: ") || mark.starts_with("not run: "))
            continue;
        // Commands of `sh` may go on behind a backslash, and may end in "# exit status N".
        for (size_t i = 0; language == "sh" && i < lines.size(); ++i) {
            Step step = {number + 1 + static_cast<int>(i), lines[i], {"..."}};
            while (step.command.ends_with('\\'))
                step.command += "\n" + lines[++i];
            std::smatch match;
            if (std::regex_search(step.command, match, std::regex("# exit status ([0-9]+)$")))
                step.shown.push_back("[" + match[1].str() + "]");
            steps.push_back(step);
        }
        if (language == "console") {
            for (const auto &step : read_steps(lines, number + 1))
                steps.push_back({step.line, step.command + "\n:", step.shown});
        } else if (language != "sh") { // has no command in it
            EXPECT_THAT(lines, testing::Each(testing::Not(testing::MatchesRegex(
                                   R"((\$ )?(zorvctl|zorv-sim|cc|cmake|\./run) .*)"))));
        }
    }
    return steps;
}

static std::vector<std::string> page_names()
{
    auto names = names_in(kPages, ".md");
    names.emplace_back("../README");
    return names;
}

struct Manual : Device, testing::WithParamInterface<std::string> {};

// Each test of a page costs a device, an access point after set-up; so there is one.
TEST_P(Manual, ShowsWhatIsSo)
{
    kernel_processes();
    const std::string path = kPages + GetParam() + ".md";
    const Page page = read_page(path);
    write_pieces(page);
    run_steps(path, steps_of(page), "docs/reader.sh");
    // A family that is new has its place in both forms of the picture and in the table below it.
    for (const auto &family : names_in(ZORV_SOURCE_DIR "/include/zorv", ".h"))
        if (GetParam() == "architecture" && family != "api" && family != "zorv") {
            EXPECT_THAT(read(kPages + GetParam() + ".svg"),
                        testing::ContainsRegex("\\b" + family + "\\b"));
            EXPECT_THAT(read(path),
                        testing::ContainsRegex(" " + family + " .*`" + family + "[.]h`"));
        }
}

INSTANTIATE_TEST_SUITE_P(, Manual, testing::ValuesIn(page_names()), [](const auto &page) {
    return std::regex_replace(page.param, std::regex("\\W+"), "_");
});
