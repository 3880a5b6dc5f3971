#include "input/starter_model.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "input/model_sections.h"
#include "mesh/cad_import.h"
#include "model/format.h"
#include "model/paths.h"
#include "model/records.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

namespace fs = std::filesystem;

struct PartEnding {
    std::string_view ending, shape, options;
};
constexpr PartEnding mesh_endings[] = {{".msh", "MSH", "unit=mm"},
                                       {".inp", "INP", "unit=mm"},
                                       {".vol", "VOL", "unit=mm"},
                                       {".stl", "STL", "unit=mm"}};

const std::vector<PartEnding>& part_endings() {
    static const std::vector<PartEnding> all = [] {
        std::vector<PartEnding> endings;
        for (const std::string_view cad : cad_endings) endings.push_back({cad, "STEP", "unit=mm order=2"});
        endings.insert(endings.end(), std::begin(mesh_endings), std::end(mesh_endings));
        return endings;
    }();
    return all;
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Null for any other file, and for one whose name is but an ending.
const PartEnding* part_ending(std::string_view name) {
    std::string base = paths::base_name(name);
    std::ranges::transform(base, base.begin(), lower);
    for (const PartEnding& row : part_endings())
        if (base.size() > row.ending.size() && base.ends_with(row.ending)) return &row;
    return nullptr;
}

// A model file may have any ending: its first word is a section's keyword, which no mesh or CAD file begins
// with.
bool begins_like_a_model(std::string_view name) {
    const paths::File file = paths::open(name, "rb");
    if (!file) return false;
    char text[4096];
    const std::size_t size = std::fread(text, 1, sizeof text, file.get());
    const std::string_view first = TokenReader(std::string_view(text, size)).next();
    return keyword_of(first).has_value();
}

// A word that names a part: no blank, no %, no comma or dot, which set names use; no keyword.
std::string part_name(std::string_view stem) {
    constexpr std::string_view kept = "_-+";
    std::string name;
    for (const char c : stem) {
        const bool letter = (lower(c) >= 'a' && lower(c) <= 'z') || (c >= '0' && c <= '9');
        const bool beyond_ascii = static_cast<unsigned char>(c) >= 0x80;
        name += letter || beyond_ascii || kept.find(c) != std::string_view::npos ? c : '_';
    }
    if (keyword_of(name)) name = "PART_" + name;
    std::size_t length = std::min(name.size(), name_text_width);
    while (length < name.size() && length > 0 && (static_cast<unsigned char>(name[length]) & 0xc0) == 0x80)
        --length;  // not within a letter
    return name.substr(0, length);
}

bool same(const fs::path& a, const fs::path& b) {
    std::error_code ignored;
    return fs::equivalent(a, b, ignored);
}

// How a model beside the part names it. The working folder is looked into first: where that has another file
// of the name, the part's whole path is needed.
std::string path_in_model(const std::string& part_file, std::string& error) {
    std::error_code failed;
    const std::string base = fs::path(part_file).filename().string();
    std::string path = base;
    if (fs::exists(base, failed) && !same(base, part_file)) path = fs::absolute(part_file, failed).string();
    const std::string rename = path == base ? "rename the file"
                                            : "the working folder has another " + base +
                                                  ", so that the whole path " + "is needed; rename the file";
    if (path.find_first_of(" \t\n\v\f\r") != std::string::npos)
        error = "a path in a model file has no blanks: " + rename;
    else if (path.find('\\') != std::string::npos)
        error = "a backslash in a model file parts folders: " + rename;
    else if (path.starts_with('%'))
        error = "a % in a model file begins a comment: " + rename;
    else if (path.size() > field_text_width)
        error = formatted("a path in a model file has at most %zu characters: ", field_text_width) + rename;
    return path;
}

std::string starter_text(const std::string& path, const std::string& stem, const PartEnding& ending) {
    std::string text = "%Model_of_" + path + ",_in_millimetres:_unit=_behind_the_part_says_otherwise.\n";
    if (ending.shape == "STEP")
        text += "%The_elements'_size_is_chosen:_size=5_behind_the_part_makes_edges_of_5_mm.\n";
    if (ending.shape == "STL")
        text += "%A_surface,_to_look_at:_size=5_behind_the_part_fills_it_with_elements_of_5_mm.\n";
    else
        text +=
            "%Next:_click_a_face_in_the_window,_then_View,_Copy_Selection;_paste_what_was_copied_into_set_"
            "info."
            "\n%Shift_and_click_adds_a_face._Model,_Update_Model_reads_this_file_again.\n";
    text +=
        "parameter\n  mm  0.001\n%\n"
        "material_info\n  STEEL  7850  206e9  0.3\n%\n"
        "part_info\n  ";
    text += part_name(stem) + "  gray  STEEL  " + std::string(ending.shape) + "   " + path +
            " 0 0 0 0 0   0 0 0 0 0 0   0 0 0   0 0 0   " + std::string(ending.options) + "\n%\n";
    return text +
           "set_info\n%\n"
           "%Where_it_is_held:_a_line_such_as__CLAMP_set_face_1__with_blanks_for_the_underlines.\n"
           "boundary_condition\n%\n"
           "%What_acts,_in_N:_a_line_such_as__PULL_set_z_-1000_face_2__with_blanks_for_the_underlines.\n"
           "apply_force\n%\n"
           "END\n";
}

// The text of a file that may be a model; none for a large one.
std::optional<std::string> text_of(const fs::path& file) {
    constexpr std::uintmax_t most = 1 << 24;  // bytes
    std::error_code failed;
    std::string text, ignored;
    if (fs::file_size(file, failed) > most || failed || !paths::read_text(file.string(), text, ignored))
        return std::nullopt;
    return text;
}

// Whether a model's text names the part's file behind a shape.
bool imports(const std::string& model, const fs::path& folder, const fs::path& part) {
    TokenReader reader(model);
    std::string_view before;
    for (std::string_view token = reader.next(); !token.empty(); before = token, token = reader.next()) {
        const auto shape = std::ranges::find(part_endings(), before, &PartEnding::shape);
        if (shape == part_endings().end()) continue;
        const std::string path = paths::to_platform(token);
        if (same(path, part) || same(folder / path, part)) return true;
    }
    return false;
}

// Makes a file that is not there yet; 0, or the errno of what failed.
int write_new(const std::string& file, const std::string& text) {
    std::FILE* out = std::fopen(file.c_str(), "wbx");
    if (!out) return errno;
    const bool written = std::fwrite(text.data(), 1, text.size(), out) == text.size();
    int reason = written ? 0 : errno;
    if (std::fclose(out) != 0 && reason == 0) reason = errno;
    if (reason != 0) std::remove(file.c_str());
    return reason;
}

}  // namespace

std::vector<std::string_view> part_file_endings() {
    std::vector<std::string_view> endings;
    for (const PartEnding& row : part_endings()) endings.push_back(row.ending);
    return endings;
}

bool is_part_file(std::string_view name) {
    return part_ending(name) && !begins_like_a_model(name);
}

StarterModel write_starter_model(const std::string& part_file) {
    constexpr int most_models = 999;
    StarterModel out;
    const auto refuse = [&](const std::string& why) {
        return StarterModel{"", "no model was made of " + part_file + ": " + why, ""};
    };
    const PartEnding* ending = part_ending(part_file);
    if (!ending) return refuse("its ending is not that of a mesh or CAD file");
    std::string error;
    const std::string path = path_in_model(part_file, error);
    if (!error.empty()) return refuse(error);
    if (!paths::open(part_file, "rb")) return refuse(std::strerror(errno));
    const fs::path part(part_file), folder = part.parent_path();
    const std::string base = part.filename().string();
    const std::string stem = base.substr(0, base.size() - ending->ending.size());
    const std::string text = starter_text(path, stem, *ending);
    for (int number = 1; number <= most_models; ++number) {
        const std::string name = stem + (number > 1 ? "_" + std::to_string(number) : "") + ".txt";
        out.file = (folder / name).string();
        const int failed = write_new(out.file, text);
        if (failed == 0) {
            out.notice =
                name + " was written, a model of " + base + (out.notice.empty() ? "" : "; ") + out.notice;
            return out;
        }
        if (failed != EEXIST) return refuse(out.file + " cannot be written: " + std::strerror(failed));
        const auto there = text_of(out.file);
        if (there == text) {
            out.notice = name + " was there, a model of " + base;
            return out;
        }
        if (there && imports(*there, folder, part))
            out.notice = (out.notice.empty() ? "models of it before: " : out.notice + ", ") + name;
    }
    return refuse(formatted("%d model files of its name are there", most_models));
}

}  // namespace kestralum
