#include "results/export_text.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace kestralum {

namespace {

bool is_plain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '-';
}

std::string without(std::string text, std::size_t at) {
    return text.erase(at, 1);
}

// "-0.012" as "-.012", "1.5e-07" as "1.5e-7", "2e+07" as "2.e7": with a point, without which CalculiX takes
// the stiffness of a spring for something else.
std::string as_field(std::string text) {
    if (text.find('.') == std::string::npos) text.insert(std::min(text.find('e'), text.size()), 1, '.');
    if (text.starts_with("0.") && text.size() > 2) text = without(text, 0);
    if (text.starts_with("-0.") && text.size() > 3) text = without(text, 1);
    const std::size_t e = text.find('e');
    if (e == std::string::npos) return text;
    if (text[e + 1] == '+') text = without(text, e + 1);
    const std::size_t digits = e + 1 + (text[e + 1] == '-');
    return text[digits] == '0' && digits + 1 < text.size() ? without(text, digits) : text;
}

}  // namespace

std::string ExportNames::legal(const std::string& name) const {
    std::string out = name.substr(0, rule_ == Rule::deck ? 80 : 127);
    for (char& c : out)
        if (rule_ == Rule::deck ? !is_plain(c) : static_cast<unsigned char>(c) < ' ' || c == '"' || c == 127)
            c = '_';
    if (out.empty() ||
        (rule_ == Rule::deck && !std::isalpha(static_cast<unsigned char>(out[0])) && out[0] != '_'))
        out = "_" + out.substr(0, 79);
    return out;
}

std::string ExportNames::once(const std::string& name) {
    const auto key = [&](std::string text) {
        if (rule_ == Rule::deck)
            for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    };
    std::string out = name;
    for (int twin = 2; !taken_.insert(key(out)).second; ++twin) {
        const std::string number = "_" + std::to_string(twin);
        out = name.substr(0, 80 - number.size()) + number;
    }
    return out;
}

std::string ExportNames::take(const char* what, const std::string& name) {
    const std::string form = legal(name), out = once(form);
    if (out != name)
        notices_.push_back(std::string(what) + " \"" + name + "\" is written as \"" + out + "\": " +
                           (out != form ? "another name is the same" : "the format has no such names"));
    return out;
}

std::string ExportNames::take_own(const std::string& name) {
    return once(legal(name));
}

void append_exact(std::string& text, double value) {
    char digits[32];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

void append_field(std::string& text, double value) {
    constexpr std::size_t width = 20;
    char digits[400];  // of 1e-308 with all its zeros
    const auto field = [&](auto... form) {
        return as_field({digits, std::to_chars(digits, digits + sizeof digits, value, form...).ptr});
    };
    std::string out = field();
    if (out.size() > width) out = field(std::chars_format::fixed);
    for (int precision = 16; out.size() > width; --precision)
        out = field(std::chars_format::scientific, precision);
    text += out;
}

std::vector<std::int32_t> solid_nodes(const Mesh& mesh) {
    std::vector<char> used(mesh.node_num(), 0);
    for (const std::int32_t node : mesh.connectivity) used[node_index(node)] = 1;
    std::vector<std::int32_t> nodes;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (used[n]) nodes.push_back(n);
    return nodes;
}

bool put_export(const ExportJob& job, const std::function<std::string()>& write) {
    // seen before the file is opened: what it was made of may lack the rest
    const std::string trouble = job.progress.cancelled() ? "stopped on request" : write();
    if (!trouble.empty()) job.remarks.errors.push_back(trouble);
    return trouble.empty();
}

bool write_export(const ExportJob& job, const std::function<void(TextOutput&)>& fill) {
    return put_export(job, [&] { return write_whole(job.file, "log", fill, job.progress); });
}

}  // namespace kestralum
