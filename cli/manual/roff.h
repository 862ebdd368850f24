/// A manual page in the making, for man(7).
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Text as it is, whatever is in it, on one line of the page.
std::string roff_plain(std::string_view text);
std::string roff_bold(std::string_view text);
std::string roff_italic(std::string_view text);
/// Prose: what people type in it ('zpd send', --home) is bold, as are other pages: zpd.conf(5).
std::string roff_prose(std::string_view text);

/// What is added to it is plain text, save where it is said to be roff.
class manual_page_t {
  public:
    /// `about` is what the name is: "send cards to phones".
    manual_page_t(std::string_view title, int number, const std::vector<std::string>& names, std::string_view about);

    void section(std::string_view name);
    void subsection(const std::string& roff);
    void paragraph(std::string_view text);
    /// A line that stands alone.
    void line(const std::string& roff);
    void item(const std::string& roff, std::string_view text);
    /// Lines as they are.
    void literal(const std::vector<std::string>& lines);

    const std::string& text() const { return text_; }

  private:
    /// Parts what follows from what stands there, unless a heading does.
    void part();

    std::string text_;
};
