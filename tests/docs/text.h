// text.h - the Markdown texts of the tree as the tests of the manual see them.
#ifndef ZORV_TESTS_DOCS_TEXT_H
#define ZORV_TESTS_DOCS_TEXT_H

#include <string>
#include <vector>

// A fenced block. A comment "<!-- KEY: VALUE -->" on the line above it is its mark:
//
//   file: PATH        the block is a piece of that file
//   run: site         its commands are for a simulated site: site.sh runs them, not a device
//   not run: REASON   its commands are not for the tests
struct Block {
    int line; // of its fence
    std::string language;
    std::string mark, value; // "" without one
    std::vector<std::string> lines;
};

struct Text {
    std::vector<Block> blocks;
    std::vector<std::string> code_spans; // outside of blocks
    std::vector<int> indented;           // lines that Markdown would take for code without a fence
};

// README.md and docs/*.md, from the root of the tree.
std::vector<std::string> text_names();

Text read_text(const std::string &name);

#endif
