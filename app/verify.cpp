#include "app/verify.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <utility>

#include "app/orders/orders.h"
#include "app/verify_page.h"
#include "app/verify_peer.h"
#include "app/verify_pictures.h"
#include "model/format.h"
#include "model/paths.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

// "le10_hex  stress_d  -5.38e+06 ..." and whatever follows the verdict, without blanks at its end.
void print_row(const std::string& row, Progress& progress) {
    progress.summary("%s\n", row.substr(0, row.find_last_not_of(' ') + 1).c_str());
}

// `text` in lines of at most 118 letters behind `head`.
void print_folded(const std::string& head, const std::string& text, Progress& progress) {
    constexpr std::size_t most = 118;
    std::string line = head, indent(head.size(), ' ');
    bool first = true;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        if (!first && line.size() + 1 + end - at > most) {
            print_row(line, progress);
            line = indent;
            first = true;
        }
        line += (first ? "" : " ") + text.substr(at, end - at);
        first = false;
        at = end + 1;
    }
    print_row(line, progress);
}

// "1 case", "2 cases"
std::string counted(std::size_t number, const char* what) {
    return formatted("%zu %s%s", number, what, number == 1 ? "" : "s");
}

struct Totals {
    std::array<int, 4> of{};  // by verdict
    int operator[](Verdict verdict) const { return of[static_cast<std::size_t>(verdict)]; }
    void add(const CaseOutcome& outcome) {
        if (!outcome.fault.empty())
            of[static_cast<std::size_t>(Verdict::missed)] += static_cast<int>(outcome.is->checks.size());
        for (const CheckOutcome& check : outcome.checks) ++of[static_cast<std::size_t>(check.verdict)];
    }
};

void print_case(const CaseOutcome& outcome, Progress& progress) {
    const char* const name = outcome.is->name.c_str();
    if (!outcome.fault.empty()) progress.summary("%-28s %-16s MISSED: %s\n", name, "", outcome.fault.c_str());
    std::string seconds = formatted("%8.2f", outcome.seconds);
    for (const CheckOutcome& one : outcome.checks) {
        const char* const check = one.check->name.c_str();
        if (!one.fault.empty())
            progress.summary("%-28s %-16s MISSED: %s\n", name, check, one.fault.c_str());
        else
            print_row(formatted("%-28s %-16s %20s %14.6g %10s  %-6s %10s %s", name, check,
                                target_text(one).c_str(), one.got, error_text(one).c_str(),
                                word_of(one.verdict), tolerance_text(one).c_str(), seconds.c_str()),
                      progress);
        seconds.clear();
    }
    for (const std::string& note : outcome.notes) print_folded("  note: ", note, progress);
    if (!outcome.is->weak.empty()) print_folded("  weak: ", outcome.is->weak, progress);
}

void print_list(const VerifySelection& selection, Progress& progress) {
    for (const auto& [one, judged] : selection.cases) {
        if (!judged) continue;
        print_row(formatted("%-28s %-16s %-5s %s", one->name.c_str(), one->analysis.c_str(),
                            one->is_long ? "long" : "", one->title.c_str()),
                  progress);
        if (!one->source.empty()) print_folded("    ", one->source, progress);
    }
    progress.summary("%s\n", counted(selection.judged, "case").c_str());
}

void print_totals(const VerifySelection& selection, const Totals& totals, Progress& progress) {
    progress.summary("%s: %d checks met, %d missed, %d shown\n", counted(selection.judged, "case").c_str(),
                     totals[Verdict::met], totals[Verdict::missed],
                     totals[Verdict::shown] + totals[Verdict::weak]);
    if (totals[Verdict::weak] > 0)
        progress.summary("%d of those shown are of formulations that are known to be bad there\n",
                         totals[Verdict::weak]);
    if (selection.left_out > 0)
        progress.summary("%s left out\n", counted(selection.left_out, "long case").c_str());
}

// The day in Greenwich.
std::string today() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    return formatted("%04d-%02d-%02d", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

// False with a line where a page cannot come to stand there: better said before the cases run than behind
// them.
bool can_be_written(const std::string& page, Progress& progress) {
    const std::string folder = paths::directory_of(paths::to_platform(page));
    std::error_code none;
    const bool is_folder = std::filesystem::is_directory(paths::to_platform(page), none);
    if (!is_folder && ::access(folder.empty() ? "." : folder.c_str(), W_OK) == 0) return true;
    progress.error("%s cannot be written: %s", page.c_str(), std::strerror(is_folder ? EISDIR : errno));
    return false;
}

// False with a line where it cannot be written.
bool write_page(const VerifyOptions& options, std::span<const CaseOutcome> outcomes, int left_out,
                const std::vector<OrdersRow>& orders_rows, Progress& progress) {
    VerifyPage page{paths::to_platform(options.file_name),
                    today(),
                    left_out,
                    {},
                    families_of(outcomes),
                    orders_chapter(orders_rows)};
    std::vector<PictureOrder> orders;
    for (const VerifyFamily& family : page.families) {
        const VerifyCase& one = family.drawn();
        orders.push_back({one.model_file, one.analysis, one.picture});
    }
    DrawnPictures pictures = draw_pictures(orders, options.log_folder, progress);
    if (progress.cancelled()) return false;
    page.no_pictures = pictures.why_none;
    std::size_t drawn = 0;
    for (std::size_t k = 0; k < page.families.size(); ++k) {
        page.families[k].png = std::move(pictures.png[k]);
        drawn += !page.families[k].png.empty();
        if (page.families[k].png.empty() && page.no_pictures.empty())
            progress.summary("note: %s: the window program has drawn no picture: %s\n",
                             page.families[k].name.c_str(), pictures.faults[k].c_str());
    }
    if (!page.no_pictures.empty()) progress.summary("note: no pictures: %s\n", page.no_pictures.c_str());
    const std::string html = verify_html(page);
    const std::string fault = write_whole(
        options.report, options.log_folder, [&](TextOutput& file) { file.write(html); }, progress);
    if (!fault.empty()) progress.error("%s", fault.c_str());
    if (fault.empty())
        progress.summary("%-22s %s, %s, %s\n", "page", options.report.c_str(),
                         counted(page.families.size(), "problem").c_str(), counted(drawn, "picture").c_str());
    return fault.empty();
}

VerifyStatus stopped(Progress& progress) {
    progress.error("stopped on request");
    return VerifyStatus::cancelled;
}

// "ok", "MISSED", or what is not judged.
void print_peer(const VerifyCase& one, const PeerOutcome& outcome, Progress& progress) {
    if (!outcome.fault.empty()) {
        progress.summary("%-28s %s: %s\n", one.name.c_str(), outcome.left_out ? "left out" : "MISSED",
                         outcome.fault.c_str());
        return;
    }
    const bool judged = outcome.limit > 0;
    const char* const verdict = !judged ? "shown" : outcome.difference <= outcome.limit ? "ok" : "MISSED";
    print_row(
        formatted("%-28s %-26s %8zu %12.1e %8s  %-6s  %s", one.name.c_str(), outcome.elements.c_str(),
                  outcome.compared, outcome.difference,
                  judged ? formatted("%.0e", outcome.limit).c_str() : "", verdict, outcome.note.c_str()),
        progress);
}

// Takes the words `orders` and `orders-ANALYSIS` out of the names, unless a case has the name: the analyses
// whose observed orders are wanted, "" for all.
std::vector<std::string> take_orders(std::span<const VerifyCase> cases, std::vector<std::string>& names) {
    std::vector<std::string> analyses;
    const std::string_view word = orders_word;
    std::erase_if(names, [&](const std::string& name) {
        if (!name.starts_with(word) || (name.size() > word.size() && name[word.size()] != '-') ||
            std::ranges::find(cases, name, &VerifyCase::name) != cases.end())
            return false;
        analyses.push_back(name.substr(std::min(name.size(), word.size() + 1)));
        return true;
    });
    return analyses;
}

VerifyStatus verify_with_ccx(const VerifySelection& selection, const VerifyOptions& options,
                             const Settings& settings, Progress& progress) {
    const std::string ccx = find_ccx();
    if (ccx.empty()) {
        progress.error("--peer: CalculiX is not installed: there is no ccx on the path");
        return VerifyStatus::bad_input;
    }
    int met = 0, missed = 0, shown = 0, left_out = 0;
    print_row(formatted("%-28s %-26s %8s %12s %8s", "case", "elements", "compared", "difference", "limit"),
              progress);
    for (const auto& [one, judged] : selection.cases) {
        if (!judged) continue;
        const PeerOutcome outcome = compare_with_ccx(ccx, *one, settings, options.log_folder, progress);
        if (progress.cancelled()) return stopped(progress);
        print_peer(*one, outcome, progress);
        const bool good = outcome.fault.empty() && outcome.difference <= outcome.limit;
        ++(outcome.left_out                              ? left_out
           : outcome.fault.empty() && outcome.limit == 0 ? shown
           : good                                        ? met
                                                         : missed);
    }
    progress.summary("%s agree%s with CalculiX, %d missed, %d shown, %d left out\n",
                     counted(met, "case").c_str(), met == 1 ? "s" : "", missed, shown, left_out);
    return missed == 0 ? VerifyStatus::all_met : VerifyStatus::some_missed;
}

// False where a stop was asked for.
bool run_cases(const VerifySelection& selection, const VerifyOptions& options, const Settings& settings,
               Progress& progress, Totals& totals, std::vector<CaseOutcome>& outcomes) {
    VerifyRunner runner(settings, options.log_folder);
    std::string source;
    print_row(formatted("%-28s %-16s %20s %14s %10s  %-6s %10s %8s", "case", "check", "target", "got",
                        "error", "", "tolerance", "seconds"),
              progress);
    for (const auto& [one, judged] : selection.cases) {
        CaseOutcome outcome = runner.run(*one, progress);
        if (progress.cancelled()) return false;
        if (!judged) continue;
        if (one->source != source && !one->source.empty()) print_folded("  source: ", one->source, progress);
        source = one->source;
        print_case(outcome, progress);
        totals.add(outcome);
        outcomes.push_back(std::move(outcome));
    }
    print_totals(selection, totals, progress);
    return true;
}

}  // namespace

VerifyStatus verify(const VerifyOptions& options, const Settings& settings, Progress& progress) {
    Remarks remarks;
    const std::vector<VerifyCase> cases = read_verify_cases(options.file_name, remarks);
    for (const std::string& error : remarks.errors) progress.error("%s", error.c_str());
    if (!remarks.ok()) return VerifyStatus::bad_input;
    VerifyChoice choice = options.choice;
    const std::vector<std::string> orders = take_orders(cases, choice.names);
    const bool orders_alone = !orders.empty() && choice.names.empty() && choice.only.empty();
    if (!orders.empty() && (options.ccx || options.list)) {
        progress.error("%s does not go with %s", orders_word, options.ccx ? "--peer" : "--list");
        return VerifyStatus::bad_input;
    }
    for (const std::string& analysis : orders)
        if (!has_orders(analysis)) {
            progress.error("%s-%s: there are %s-static, -eigen, -nonlinear and -explicit", orders_word,
                           analysis.c_str(), orders_word);
            return VerifyStatus::bad_input;
        }
    const VerifySelection selection = orders_alone ? VerifySelection{} : select_cases(cases, choice);
    if (!selection.error.empty()) {
        progress.error("%s: %s", options.file_name.c_str(), selection.error.c_str());
        return VerifyStatus::bad_input;
    }
    if (options.list) {
        print_list(selection, progress);
        return VerifyStatus::all_met;
    }
    if (options.ccx) return verify_with_ccx(selection, options, settings, progress);
    if (!options.report.empty() && !can_be_written(options.report, progress)) return VerifyStatus::bad_input;
    Totals totals;
    std::vector<CaseOutcome> outcomes;
    if (!orders_alone && !run_cases(selection, options, settings, progress, totals, outcomes))
        return stopped(progress);
    std::vector<OrdersRow> rows;
    bool found = true;
    if (!orders.empty()) print_orders_head(progress);
    for (const std::string& analysis : orders)
        found = found && find_orders({options.log_folder, choice.quick, analysis}, settings, progress, rows);
    if (progress.cancelled()) return stopped(progress);
    if (!orders.empty()) print_orders_totals(rows, progress);
    if (!found) return VerifyStatus::some_missed;
    if (!options.report.empty() && !write_page(options, outcomes, selection.left_out, rows, progress))
        return progress.cancelled() ? stopped(progress) : VerifyStatus::no_page;
    return totals[Verdict::missed] == 0 && std::ranges::all_of(rows, reaches_theory)
               ? VerifyStatus::all_met
               : VerifyStatus::some_missed;
}

}  // namespace kestralum
