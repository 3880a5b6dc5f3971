#include "app/html_text.h"

#include <algorithm>

#include "model/xml_text.h"

namespace kestralum {

namespace {

constexpr const char* style = R"(
body { font-family: "DejaVu Sans", Arial, sans-serif; font-size: 10.5pt; color: #1a1a1a; max-width: 62em;
       margin: 2em auto; padding: 0 1.5em; line-height: 1.4; }
h1 { font-size: 1.7em; margin-bottom: 0.2em; }
h2 { font-size: 1.2em; border-bottom: 1px solid #999; margin-top: 2em; padding-bottom: 0.15em; }
table { border-collapse: collapse; margin: 0.6em 0; }
th, td { text-align: left; padding: 0.2em 0.9em 0.2em 0; border-bottom: 1px solid #ddd; vertical-align: top; }
td.n { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
pre { font-size: 8.5pt; line-height: 1.35; white-space: pre-wrap; background: #f6f6f6; padding: 0.8em; }
figure { margin: 1em 0; }
figure img, figure svg { max-width: 100%; height: auto; border: 1px solid #ccc; }
figcaption { font-size: 0.92em; color: #444; }
@page { margin: 18mm; }
@media print { body { margin: 0; max-width: none; padding: 0; } h2 { break-after: avoid; }
  figure, tr { break-inside: avoid; } pre { background: none; border: 1px solid #ccc; font-size: 7pt; } }
)";

}  // namespace

std::string base64(std::string_view bytes) {
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t k = 0; k < bytes.size(); k += 3) {
        unsigned group = 0;
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - k);
        for (std::size_t c = 0; c < 3; ++c)
            group = group << 8 | (c < count ? static_cast<unsigned char>(bytes[k + c]) : 0u);
        for (std::size_t c = 0; c < 4; ++c) out += c <= count ? letters[group >> (18 - 6 * c) & 63] : '=';
    }
    return out;
}

HtmlTable::HtmlTable(std::initializer_list<const char*> heads) {
    if (heads.size() == 0) return;
    text_ += "<tr>";
    for (const char* head : heads) text_ += "<th>" + xml_escaped(head) + "</th>";
    text_ += "</tr>\n";
}

void HtmlTable::add(const std::vector<std::string>& cells, std::size_t numbers) {
    text_ += "<tr>";
    for (std::size_t k = 0; k < cells.size(); ++k)
        text_ +=
            (k + numbers >= cells.size() ? "<td class=\"n\">" : "<td>") + xml_escaped(cells[k]) + "</td>";
    text_ += "</tr>\n";
    ++rows_;
}

std::string HtmlTable::html() const {
    return rows_ ? "<table>\n" + text_ + "</table>\n" : std::string();
}

std::string html_heading(const std::string& text) {
    return "<h2>" + xml_escaped(text) + "</h2>\n";
}

std::string html_figure(const std::string& png_base64, const std::string& title) {
    return "<figure><img alt=\"" + xml_escaped(title) + "\" src=\"data:image/png;base64," + png_base64 +
           "\"/>\n<figcaption>" + xml_escaped(title) + "</figcaption></figure>\n";
}

std::string html_page(const std::string& title, const std::string& body) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n<title>" +
           xml_escaped(title) + "</title>\n<style>" + style + "</style>\n</head>\n<body>\n" + body +
           "</body>\n</html>\n";
}

}  // namespace kestralum
