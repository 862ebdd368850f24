#include "cli/manual/roff.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "base/text.h"

namespace {

/// The number of letters at the front that people would type or look up, without quotes; 0 when there are none.
size_t typed_length(std::string_view text) {
    const auto is_name = [](unsigned char letter) {
        return std::isalnum(letter) != 0 || letter == '-' || letter == '.';
    };
    const auto* const end = std::ranges::find_if_not(text, is_name);
    auto length = static_cast<size_t>(end - text.begin());
    if (text.starts_with("--")) {
        return length > 2 ? length : 0;
    }
    const std::string_view rest = text.substr(length);
    const bool is_page = length > 0 && rest.size() >= 3 && rest[0] == '(' &&
                         std::isdigit(static_cast<unsigned char>(rest[1])) != 0 && rest[2] == ')';
    return is_page ? length : 0;
}

}  // namespace

std::string roff_plain(std::string_view text) {
    std::string roff = text.starts_with('.') ? "\\&" : "";
    while (!text.empty()) {
        const base::code_point_t letter = base::first_code_point(text);
        switch (letter.value) {
            case U'\\':
                roff += "\\e";
                break;
            case U'-':
                roff += "\\-";
                break;
            case U'\'':
                roff += "\\(aq";
                break;
            case U'"':
                roff += "\\(dq";
                break;
            case U'`':
                roff += "\\(ga";
                break;
            case U'^':
                roff += "\\(ha";
                break;
            case U'~':
                roff += "\\(ti";
                break;
            default:
                roff += letter.value < 0x80 ? std::string(1, static_cast<char>(letter.value))
                                            : fmt::format("\\[u{:04X}]", static_cast<uint32_t>(letter.value));
        }
        text.remove_prefix(letter.length);
    }
    return roff;
}

std::string roff_bold(std::string_view text) {
    return "\\fB" + roff_plain(text) + "\\fR";
}

std::string roff_italic(std::string_view text) {
    return text.empty() ? std::string() : "\\fI" + roff_plain(text) + "\\fR";
}

std::string roff_prose(std::string_view text) {
    std::string roff;
    size_t plain = 0;  // where what is not written yet begins
    for (size_t at = 0; at < text.size();) {
        const bool begins_word = at == 0 || text[at - 1] == ' ' || text[at - 1] == '(' || text[at - 1] == '\'';
        const size_t quoted = text.substr(at).starts_with("'zpd ") ? text.find('\'', at + 1) : std::string_view::npos;
        const size_t length = quoted != std::string_view::npos ? quoted + 1 - at
                              : begins_word                    ? typed_length(text.substr(at))
                                                               : 0;
        if (length == 0) {
            ++at;
            continue;
        }
        const size_t quote = quoted != std::string_view::npos ? 1 : 0;
        roff += roff_plain(text.substr(plain, at - plain)) + roff_bold(text.substr(at + quote, length - 2 * quote));
        plain = at += length;
    }
    return roff + roff_plain(text.substr(plain));
}

manual_page_t::manual_page_t(std::string_view title, int number, const std::vector<std::string>& names,
                             std::string_view about) {
    std::string upper(title);
    std::ranges::transform(upper, upper.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    text_ = fmt::format(".TH {} {} \"\" \"zpd {}\" ZPD\n.nh\n", roff_plain(upper), number, ZPD_PROGRAM_VERSION);
    section("NAME");
    std::vector<std::string> plain;
    std::ranges::transform(names, std::back_inserter(plain), [](const std::string& name) { return roff_plain(name); });
    line(fmt::format("{} \\- {}", fmt::join(plain, ", "), roff_plain(about)));
}

void manual_page_t::section(std::string_view name) {
    text_ += fmt::format(".SH {}\n", name);
}

void manual_page_t::part() {
    const std::string_view last = std::string_view(text_).substr(text_.rfind('\n', text_.size() - 2) + 1);
    text_ += last.starts_with(".S") ? "" : ".PP\n";
}

void manual_page_t::subsection(const std::string& roff) {
    text_ += fmt::format(".SS {}\n", roff);
}

void manual_page_t::paragraph(std::string_view text) {
    part();
    text_ += roff_prose(text) + "\n";
}

void manual_page_t::line(const std::string& roff) {
    text_ += roff + "\n";
}

void manual_page_t::item(const std::string& roff, std::string_view text) {
    text_ += ".TP\n" + roff + "\n" + roff_prose(text) + "\n";
}

void manual_page_t::literal(const std::vector<std::string>& lines) {
    part();
    text_ += ".RS 2\n.EX\n";
    for (const std::string& one : lines) {
        text_ += roff_plain(one) + "\n";
    }
    text_ += ".EE\n.RE\n";
}
