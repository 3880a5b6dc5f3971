#include "app/verify_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "app/html_text.h"
#include "app/program_commit.h"
#include "app/svg_chart.h"
#include "model/format.h"
#include "model/paths.h"
#include "model/run.h"
#include "model/token_reader.h"
#include "model/xml_text.h"

namespace kestralum {

namespace {

struct Count {
    std::array<std::size_t, 4> of{};
    std::size_t operator[](Verdict verdict) const { return of[static_cast<std::size_t>(verdict)]; }
};

Count count_of(const VerifyFamily& family) {
    Count out;
    for (const CaseOutcome* one : family.cases) {
        if (!one->fault.empty()) out.of[static_cast<std::size_t>(Verdict::missed)] += one->is->checks.size();
        for (const CheckOutcome& check : one->checks) ++out.of[static_cast<std::size_t>(check.verdict)];
    }
    return out;
}

// "12 met, 1 missed, 3 shown"
std::string words_of(const Count& count) {
    std::string out = formatted("%zu met", count[Verdict::met]);
    if (count[Verdict::missed] > 0) out += formatted(", %zu missed", count[Verdict::missed]);
    if (count[Verdict::shown] > 0) out += formatted(", %zu shown", count[Verdict::shown]);
    if (count[Verdict::weak] > 0) out += formatted(", %zu weak", count[Verdict::weak]);
    return out;
}

std::string paragraph(const std::string& text) {
    return "<p>" + xml_escaped(text) + "</p>\n";
}

// The comments that a model file begins with: words that begin with "%", with "_" for blanks.
std::string leading_comments(const std::string& model_file) {
    std::string text, unread, out;
    if (!paths::read_text(model_file, text, unread)) return {};
    TokenReader tokens(text);
    for (std::string_view token = tokens.next(); token.size() > 1 && token.starts_with('%');
         token = tokens.next())
        out += (out.empty() ? "" : " ") + std::string(token.substr(1));
    std::ranges::replace(out, '_', ' ');
    return out;
}

// Each text once, in the order in which they come.
std::vector<std::string> each_once(const VerifyFamily& family, std::string VerifyCase::*text) {
    std::vector<std::string> out;
    for (const CaseOutcome* one : family.cases)
        if (const std::string& t = one->is->*text; !t.empty() && std::ranges::count(out, t) == 0)
            out.push_back(t);
    return out;
}

std::string head(const VerifyPage& page) {
    Count all;
    std::size_t cases = 0;
    for (const VerifyFamily& family : page.families) {
        const Count count = count_of(family);
        for (std::size_t k = 0; k < all.of.size(); ++k) all.of[k] += count.of[k];
        cases += family.cases.size();
    }
    HtmlTable table({});
    const std::string commit = *program_commit ? std::string(", commit ") + program_commit : std::string();
    table.add({"Program", std::string("KESTRALUM ") + program_version + commit});
    table.add({"Date", page.date});
    if (cases > 0) table.add({"Cases", formatted("%zu, of ", cases) + page.cases_file});
    if (page.left_out > 0) table.add({"Left out", formatted("%d long cases", page.left_out)});
    if (cases > 0) table.add({"Checks", words_of(all)});
    if (!page.no_pictures.empty()) table.add({"Pictures", "none: " + page.no_pictures});
    return "<h1>Verification of KESTRALUM</h1>\n" + table.html() +
           paragraph(
               "Each problem has a published or worked-out answer and is computed with the elements and "
               "formulations that apply, on more than one mesh where that tells something. A check is ok "
               "where its value differs from the target by no more than the tolerance, and MISSED "
               "otherwise. The error is value minus target, over the size of the target: of a negative "
               "target, a value that is too large in size has a negative error. Values that are shown only "
               "are not judged; a weak one belongs to a formulation "
               "that is known to be bad at the problem, and stands here with its error.");
}

std::string contents(const VerifyPage& page) {
    std::string out = html_heading("Contents") + "<ol>\n";
    for (std::size_t k = 0; k < page.families.size(); ++k)
        out += formatted("<li><a href=\"#problem%zu\">", k + 1) + xml_escaped(page.families[k].name) +
               "</a>: " + words_of(count_of(page.families[k])) + "</li>\n";
    if (!page.orders.empty()) out += "<li><a href=\"#orders\">Observed orders</a></li>\n";
    return out + "</ol>\n";
}

std::string checks(const VerifyFamily& family) {
    HtmlTable table(
        {"Case", "Elements", "Degrees of freedom", "Check", "Target", "Got", "Error", "Tolerance", ""});
    for (const CaseOutcome* one : family.cases) {
        if (!one->fault.empty())
            table.add({one->is->name, "", "", "", "", "", "", "", "MISSED: " + one->fault});
        std::string name = one->is->name, elements = one->elements, dofs = std::to_string(one->dof_num);
        for (const CheckOutcome& check : one->checks) {
            const std::string got = check.fault.empty() ? formatted("%.6g", check.got) : "";
            table.add({std::exchange(name, {}), std::exchange(elements, {}), std::exchange(dofs, {}),
                       check.check->name, target_text(check), got, error_text(check), tolerance_text(check),
                       check.fault.empty() ? word_of(check.verdict) : "MISSED: " + check.fault},
                      5);
        }
    }
    return table.html();
}

// The error of one check over the number of unknowns, a curve per kind of element.
std::string convergence_of(const VerifyFamily& family, const std::string& check_name) {
    std::vector<LogCurve> curves;
    for (const CaseOutcome* one : family.cases)
        for (const CheckOutcome& check : one->checks) {
            if (check.check->name != check_name || !check.fault.empty() || !std::isfinite(check.error()))
                continue;
            auto curve = std::ranges::find(curves, one->elements, &LogCurve::name);
            if (curve == curves.end()) curve = curves.insert(curves.end(), {one->elements, {}});
            curve->points.emplace_back(static_cast<double>(one->dof_num), 100 * std::abs(check.error()));
        }
    for (LogCurve& curve : curves) std::ranges::sort(curve.points);
    if (std::ranges::none_of(curves, [](const LogCurve& curve) { return curve.points.size() > 1; }))
        return {};
    const std::string chart = svg_log_chart(curves, "degrees of freedom", "error of " + check_name + " [%]");
    return chart.empty() ? chart : "<figure>\n" + chart + "</figure>\n";
}

std::string convergence(const VerifyFamily& family) {
    std::vector<std::string> names;
    for (const CaseOutcome* one : family.cases)
        for (const VerifyCheck& check : one->is->checks)
            if (check.plotted && std::ranges::count(names, check.name) == 0) names.push_back(check.name);
    std::string out;
    for (const std::string& name : names) out += convergence_of(family, name);
    return out;
}

std::string section(const VerifyFamily& family, std::size_t number) {
    std::string out =
        formatted("<h2 id=\"problem%zu\">%zu ", number, number) + xml_escaped(family.name) + "</h2>\n";
    std::string sources;
    for (const std::string& source : each_once(family, &VerifyCase::source))
        sources += (sources.empty() ? "" : "; ") + source;
    if (!sources.empty()) out += paragraph("Source: " + sources);
    if (!family.words.empty()) out += paragraph(family.words);
    HtmlTable titles({"Case", "Computed as", "Analysis", "Model"});
    for (const CaseOutcome* one : family.cases)
        titles.add({one->is->name, one->is->title, one->is->analysis, paths::base_name(one->is->model_file)});
    out += titles.html();
    if (!family.png.empty()) out += html_figure(base64(family.png), family.drawn().title);
    out += checks(family);
    for (const std::string& why : each_once(family, &VerifyCase::weak))
        out += paragraph("Weak: " + why + ".");
    return out + convergence(family);
}

}  // namespace

const VerifyCase& VerifyFamily::drawn() const {
    const auto asked =
        std::ranges::find_if(cases, [](const CaseOutcome* one) { return !one->is->picture.empty(); });
    return *(asked == cases.end() ? cases.front() : *asked)->is;
}

std::vector<VerifyFamily> families_of(std::span<const CaseOutcome> outcomes) {
    std::vector<VerifyFamily> out;
    for (const CaseOutcome& one : outcomes) {
        const std::string& name = !one.is->family.empty()  ? one.is->family
                                  : !one.is->title.empty() ? one.is->title
                                                           : one.is->name;
        auto family = std::ranges::find(out, name, &VerifyFamily::name);
        if (family == out.end())
            family = out.insert(out.end(), {.name = name, .cases = {}, .words = {}, .png = {}});
        family->cases.push_back(&one);
    }
    for (VerifyFamily& family : out) family.words = leading_comments(family.drawn().model_file);
    return out;
}

std::string verify_html(const VerifyPage& page) {
    std::string body = head(page) + contents(page);
    for (std::size_t k = 0; k < page.families.size(); ++k) body += section(page.families[k], k + 1);
    return html_page("Verification of KESTRALUM", body + page.orders);
}

}  // namespace kestralum
