#include "cli/manual/footer.h"

#include <algorithm>

namespace {

constexpr std::string_view indent = "  ";
constexpr std::string_view exit_words = "Exit status";

/// Up to the separator, which goes with it.
std::string_view take(std::string_view& text, std::string_view separator) {
    const size_t length = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, length);
    text.remove_prefix(std::min(length + separator.size(), text.size()));
    return taken;
}

std::vector<std::string> lines_of(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        lines.emplace_back(take(text, "\n"));
    }
    return lines;
}

std::vector<std::string> without_indent(std::vector<std::string> lines) {
    for (std::string& line : lines) {
        line.erase(0, line.starts_with(indent) ? indent.size() : 0);
    }
    return lines;
}

/// A name, two blanks or more, and what it means, which may go on in lines that are indented further.
std::vector<footer_t::row_t> rows_of(const std::vector<std::string>& lines) {
    std::vector<footer_t::row_t> rows;
    for (const std::string& line : without_indent(lines)) {
        std::string_view rest = line;
        const std::string_view name = take(rest, indent);
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        if (name.empty() && !rows.empty()) {
            rows.back().meaning += (rows.back().meaning.empty() ? "" : " ") + std::string(rest);
        } else {
            rows.push_back({std::string(name), std::string(rest)});
        }
    }
    return rows;
}

/// Lines that are indented are a table, the others between them run on.
void add_blocks(const std::vector<std::string>& lines, std::vector<footer_t::block_t>& blocks) {
    bool is_first = true;
    for (const std::string& line : lines) {
        const bool is_table = line.starts_with(indent);
        if (is_first || blocks.back().is_table != is_table) {
            blocks.push_back({is_table, {}});
        }
        auto& block = blocks.back().lines;
        if (is_table || block.empty()) {
            block.push_back(is_table ? line.substr(indent.size()) : line);
        } else {
            block.back() += " " + line;
        }
        is_first = false;
    }
}

}  // namespace

footer_t read_footer(std::string_view text) {
    footer_t footer;
    while (!text.empty()) {
        auto lines = lines_of(take(text, "\n\n"));
        if (lines.empty()) {
            continue;
        }
        const std::string heading = lines.front();
        const std::vector<std::string> below(lines.begin() + 1, lines.end());
        if (heading == "Examples:" || heading == "Example:") {
            footer.examples = without_indent(below);
        } else if (heading == "Files:") {
            footer.files = rows_of(below);
        } else if (heading == "Environment:") {
            footer.environment = rows_of(below);
        } else if (heading.starts_with(exit_words)) {
            lines.front().erase(0, heading.find_first_not_of(": ", exit_words.size()));
            std::vector<footer_t::block_t> blocks;
            add_blocks(lines, blocks);
            footer.exit_status = blocks.front().lines.front();
        } else {
            add_blocks(lines, footer.blocks);
        }
    }
    return footer;
}
