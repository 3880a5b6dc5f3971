// Text of HTML and SVG: what the pages that the programs write have in common.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kestralum {

// `bytes` in the letters of RFC 4648, section 4.
std::string base64(std::string_view bytes);

// Rows of cells.
class HtmlTable {
public:
    explicit HtmlTable(std::initializer_list<const char*> heads);
    // `numbers`: how many of the last cells are numbers.
    void add(const std::vector<std::string>& cells, std::size_t numbers = 0);
    std::string html() const;  // empty without rows

private:
    std::string text_;
    std::size_t rows_ = 0;
};

// <h2>
std::string html_heading(const std::string& text);

// A PNG picture with its title below.
std::string html_figure(const std::string& png_base64, const std::string& title);

// A whole file with the programs' style; `body` is HTML.
std::string html_page(const std::string& title, const std::string& body);

}  // namespace kestralum
