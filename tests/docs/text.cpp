#include "docs/text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

constexpr char kRoot[] = ZORV_SOURCE_DIR "/";

// "<!-- KEY: VALUE -->"
void read_mark(const std::string &line, Block &block)
{
    const size_t colon = line.find(": ");
    if (!line.starts_with("<!-- ") || !line.ends_with(" -->") || colon == std::string::npos)
        return;
    block.mark = line.substr(5, colon - 5);
    block.value = line.substr(colon + 2, line.size() - colon - 6);
}

void add_code_spans(const std::string &line, std::vector<std::string> &spans)
{
    for (size_t begin = line.find('`'); begin != std::string::npos;) {
        const size_t end = line.find('`', begin + 1);
        if (end == std::string::npos)
            return; // goes on in the next line
        spans.push_back(line.substr(begin + 1, end - begin - 1));
        begin = line.find('`', end + 1);
    }
}

} // namespace

std::vector<std::string> text_names()
{
    std::vector<std::string> names = {"README.md"};
    for (const auto &entry : std::filesystem::directory_iterator(std::string(kRoot) + "docs"))
        if (entry.path().extension() == ".md")
            names.push_back("docs/" + entry.path().filename().string());
    std::sort(names.begin() + 1, names.end());
    return names;
}

Text read_text(const std::string &name)
{
    std::ifstream file(kRoot + name);
    if (!file)
        throw std::runtime_error("no " + name);
    Text text;
    Block *open = nullptr;
    std::string line, before;
    for (int number = 1; std::getline(file, line); before = line, ++number) {
        if (line.starts_with("```") && !open) {
            text.blocks.push_back({number, line.substr(3), "", "", {}});
            open = &text.blocks.back();
            read_mark(before, *open);
        } else if (line == "```") {
            open = nullptr;
        } else if (open) {
            open->lines.push_back(line);
        } else {
            add_code_spans(line, text.code_spans);
            if (line.starts_with("    ") && before.empty())
                text.indented.push_back(number);
        }
    }
    if (open)
        throw std::runtime_error(name + " ends within a block");
    return text;
}
