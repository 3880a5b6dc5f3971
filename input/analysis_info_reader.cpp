#include "input/analysis_info_reader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <new>
#include <span>

#include "input/explicit_sections.h"
#include "input/hardening_table.h"
#include "input/record_options.h"
#include "model/paths.h"
#include "model/progress.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

constexpr std::int32_t most_halvings = 20;

class ControlFile {
public:
    ControlFile(std::string_view text, const Model& model, InputRemarks& remarks, Progress& progress)
        : tokens_(text),
          fields_(model.parameters, remarks),
          remarks_(remarks),
          progress_(progress),
          control_(model.control),
          materials_(model.materials),
          parameters_(model.parameters),
          parts_(model.parts),
          mesh_(model.mesh),
          tables_(model.explicit_tables) {}

    // The header is a label and the word "explicit".
    bool header() {
        tokens_.next();
        return tokens_.next() == "explicit";
    }

    // Everything behind the header, up to the token given back: END, no key, or the end of the file. An error
    // where there is no key before it: then this is no control file.
    Token read();

    // Tables that this file does not name stay as an earlier model had them.
    void notice_kept_tables() {
        const auto notice = [&](std::string_view key, std::size_t records) {
            if (records > 0 && std::find(seen_.begin(), seen_.end(), key) == seen_.end())
                remarks_.notice("no " + std::string(key) +
                                "; the records of the earlier model stay in force");
        };
        notice("RIGID_WALL", tables_.walls.size());
        notice("INITIAL_VELOCITY", tables_.initial_velocities.size());
        notice("VELOCITY_INPUT", tables_.velocity_inputs.size());
        notice("ELEMENT_CONTACT", tables_.contacts.size());
        notice("LOAD_FACTORS", control_.load_factors.size());
        notice("LOAD_FACTOR_EXPR", control_.load_factor_expression.given());
    }

    void move_into(Model& model) noexcept {
        model.control = std::move(control_);
        model.materials = std::move(materials_);
        model.explicit_tables = std::move(tables_);
    }

private:
    struct Row {
        std::string_view key;
        void (ControlFile::*take)(std::string_view key);
    };
    static const Row rows[];

    Token next() {
        const std::string_view text = tokens_.next();
        return {text, tokens_.token_number()};
    }

    // The token after a key; an error and nothing where the file ends before it.
    std::optional<Token> value_token(std::string_view key) {
        const Token token = next();
        if (!token.text.empty()) return token;
        remarks_.expected(token, "a value for " + std::string(key));
        return std::nullopt;
    }

    void read_number(std::string_view key, double& place, const char* echo) {
        const auto token = value_token(key);
        if (!token) return;
        const auto value = fields_.evaluate(*token);
        if (!value) return;
        place = *value;
        progress_.print(echo, place);
    }

    void d_time(std::string_view key);
    void step_share(std::string_view key) {
        read_number(
            key, control_.step_share, "  step_share=%.3e\n", [](double v) { return v > 0 && v <= 1; },
            "a share above 0 and at most 1");
    }
    void scaled_step(std::string_view key) {
        read_number(
            key, control_.scaled_step, "  scaled_step=%.3e\n", [](double v) { return v >= 0; },
            "a step of at least 0 s");
    }
    void linear_viscosity(std::string_view key) {
        read_viscosity(key, control_.linear_viscosity, "  linear_viscosity=%.3e\n");
    }
    void quadratic_viscosity(std::string_view key) {
        read_viscosity(key, control_.quadratic_viscosity, "  quadratic_viscosity=%.3e\n");
    }
    void read_viscosity(std::string_view key, double& place, const char* echo) {
        read_number(
            key, place, echo, [](double v) { return v >= 0; }, "a coefficient of at least 0");
    }
    void output_time(std::string_view key) {
        read_number(
            key, control_.output_time, "  output_time=%.3e\n", [](double v) { return v > 0; },
            "a time above 0 s");
    }
    void end_time(std::string_view key) { read_number(key, control_.end_time, "  end_time=%.3e\n"); }
    void c_alfa(std::string_view key) { read_number(key, control_.c_alfa, "  C_alfa=%.3e\n"); }

    // As above, where the value is one that is expected.
    void read_number(std::string_view key, double& place, const char* echo, bool (*good)(double),
                     const char* expected) {
        const auto token = value_token(key);
        if (!token) return;
        const double value = fields_.number_where(*token, good, expected);
        if (!good(value)) return;
        place = value;
        progress_.print(echo, place);
    }

    void output_frequency(std::string_view key) {
        const auto token = value_token(key);
        if (!token) return;
        const auto value = fields_.evaluate(*token);
        if (!value) return;
        if (*value != std::trunc(*value) || std::abs(*value) > std::numeric_limits<std::int32_t>::max()) {
            remarks_.expected(*token, "an integer of at least 1");
            return;
        }
        if (*value < 1) remarks_.notice(*token, "below 1: every step is stored");
        control_.output_frequency = std::max(static_cast<std::int32_t>(*value), 1);
        progress_.print("  out_inc=%d\n", control_.output_frequency);
    }

    void gravity(std::string_view key) {
        const auto token = value_token(key);
        if (!token) return;
        const std::string_view word = token->text;
        if (word == "off") {
            control_.gravity_axis = -1;
        } else if (word.size() == 2 && (word[0] == '+' || word[0] == '-') && word[1] >= 'x' &&
                   word[1] <= 'z') {
            control_.gravity_axis = word[1] - 'x';
            control_.gravity_sign = word[0] == '+' ? 1 : -1;
        } else {
            remarks_.notice(*token, "not +x, -x, +y, -y, +z, -z or off; Gravity stays as it was");
        }
    }

    void read_switch(std::string_view key, bool& place, const char* echo_word, const char* echo_value) {
        const auto token = value_token(key);
        if (!token) return;
        if (token->text == "on" || token->text == "off")
            place = token->text == "on";
        else
            remarks_.notice(*token, "not on or off; " + std::string(key) + " stays as it was");
        progress_.print(echo_word, std::string(token->text).c_str());
        progress_.print(echo_value, place ? 1 : 0);
    }

    void plastic(std::string_view key) {
        read_switch(key, control_.plastic, "  Plastic=%s\n", "  plastic_analysis=%d\n");
    }
    void element_contact(std::string_view key) {
        read_switch(key, control_.element_contact, "  Element_contact=%s\n", "  element_contact=%d\n");
    }

    void nl_halving(std::string_view key) {
        const auto token = value_token(key);
        if (!token) return;
        const auto count = fields_.count(*token, 0);
        if (!count) return;
        if (*count > most_halvings) remarks_.expected(*token, "an integer of 0 to 20");
        control_.nl_halving = *count;
        progress_.print("  nl_halving=%d\n", control_.nl_halving);
    }
    void load_factors(std::string_view key);
    void load_factor_expr(std::string_view key);
    void material_extra_info(std::string_view key);
    void read_constants(const OptionRecord& record);
    void rigid_wall(std::string_view key) {
        read_walls(section(key), parameters_, mesh_, remarks_, tables_.walls, progress_);
    }
    void initial_velocity(std::string_view key) {
        read_initial_velocities(section(key), parameters_, parts_, remarks_, tables_.initial_velocities,
                                progress_);
    }
    void velocity_input(std::string_view key) {
        read_velocity_inputs(section(key), parameters_, parts_, remarks_, tables_.velocity_inputs, progress_);
    }
    void contact(std::string_view key) {
        read_contacts(section(key), parameters_, parts_, mesh_, remarks_, tables_.contacts, progress_);
    }
    TableSection section(std::string_view key);
    void comment(std::string_view) {}

    TokenReader tokens_;
    RecordFields fields_;
    InputRemarks& remarks_;
    Progress& progress_;
    AnalysisControl control_;
    std::vector<Material> materials_;
    std::span<const Parameter> parameters_;
    std::span<const Part> parts_;
    const Mesh& mesh_;
    ExplicitTables tables_;
    std::vector<std::string_view> seen_;  // keys of the tables read
};

// The order matters: a token is compared with the beginnings in turn.
const ControlFile::Row ControlFile::rows[] = {
    {"d_time", &ControlFile::d_time},
    {"end_time", &ControlFile::end_time},
    {"output_frequency", &ControlFile::output_frequency},
    {"C_alfa", &ControlFile::c_alfa},
    {"Gravity", &ControlFile::gravity},
    {"Plastic", &ControlFile::plastic},
    {"Element_contact", &ControlFile::element_contact},
    {"MATERIAL_EXTRA_INFO", &ControlFile::material_extra_info},
    {"RIGID_WALL", &ControlFile::rigid_wall},
    {"INITIAL_VELOCITY", &ControlFile::initial_velocity},
    {"VELOCITY_INPUT", &ControlFile::velocity_input},
    {"ELEMENT_CONTACT", &ControlFile::contact},
    {"step_share", &ControlFile::step_share},
    {"output_time", &ControlFile::output_time},
    {"scaled_step", &ControlFile::scaled_step},
    {"linear_viscosity", &ControlFile::linear_viscosity},
    {"quadratic_viscosity", &ControlFile::quadratic_viscosity},
    {"NL_HALVING", &ControlFile::nl_halving},
    {"LOAD_FACTORS", &ControlFile::load_factors},
    {"LOAD_FACTOR_EXPR", &ControlFile::load_factor_expr},
    {"%", &ControlFile::comment},
};

Token ControlFile::read() {
    for (bool any_key = false;;) {
        const Token token = next();
        if (token.text.empty() || progress_.cancelled()) return token;
        progress_.print("%s\n", std::string(token.text).c_str());
        const Row* found = nullptr;
        for (const Row& row : rows)
            if (!found && token.text.starts_with(row.key)) found = &row;
        if (!found && !any_key && !token.text.starts_with("END"))
            remarks_.expected(token, "a key such as d_time or END");
        if (!found) return token;
        any_key = any_key || found->take != &ControlFile::comment;
        (this->*found->take)(found->key);
    }
}

// A number, or the word that leaves it to the program, where no parameter has that name.
void ControlFile::d_time(std::string_view key) {
    const auto is_auto = [](const Parameter& p) { return p.name == "auto"; };
    if (tokens_.peek() != "auto" || std::ranges::any_of(parameters_, is_auto)) {
        control_.auto_step = false;
        return read_number(key, control_.d_time, "  d_time=%.3e\n");
    }
    next();
    control_.auto_step = true;
    control_.d_time = 0;
    progress_.print("  d_time=auto\n");
}

TableSection ControlFile::section(std::string_view key) {
    seen_.push_back(key);
    TableSection out{key, {}, next()};
    for (; !out.closing.text.empty() && !out.closing.text.starts_with('%') && !progress_.cancelled();
         out.closing = next())
        out.tokens.push_back(out.closing);
    return out;
}

// Each of the two takes the place of the other.
void ControlFile::load_factors(std::string_view key) {
    const TableSection table = section(key);
    control_.load_factors.clear();
    control_.load_factor_expression = {};
    for (const Token& token : table.tokens) control_.load_factors.push_back(fields_.number(token));
    if (table.tokens.empty()) remarks_.expected(table.closing, "a load factor");
    check_section_end(std::string(key), table.closing, 0, 1, remarks_);
    progress_.print("  load_factor_num=%zu\n", control_.load_factors.size());
}

void ControlFile::load_factor_expr(std::string_view key) {
    seen_.push_back(key);
    const auto token = value_token(key);
    if (!token) return;
    control_.load_factors.clear();
    control_.load_factor_expression = field_expression(*token, token->text, FieldOf::time, fields_);
    progress_.write("  load_factor=" + control_.load_factor_expression.text + "\n");
}

void ControlFile::material_extra_info(std::string_view key) {
    static constexpr std::string_view keys[] = {"table=", "kinematic=", "shear=", "erode="};
    const TableSection table = section(key);
    const auto records = records_with_options(
        std::string(key), table.tokens, table.closing, keys, [](auto) { return std::size_t{4}; }, remarks_);
    progress_.print("  mat_info_num=%zu\n", records.size());
    for (const OptionRecord& record : records) read_constants(record);
}

void ControlFile::read_constants(const OptionRecord& record) {
    const std::span<const Token> tokens = record.tokens;
    const RecordOptions options(record.options, fields_);
    const std::string name = fields_.name(tokens[0], material_text_width);
    double constants[3];  // G, Sy, Sd
    for (std::size_t c = 0; c < 3; ++c)
        constants[c] = fields_.number_where(
            tokens[1 + c], [](double v) { return v >= 0; }, "a constant of at least 0 Pa");
    const auto table = read_hardening_table(options);
    const double kinematic = options.number(
        "kinematic=", 0, [](double v) { return v >= 0; }, "a kinematic hardening modulus of at least 0 Pa");
    const double erode = options.number(
        "erode=", 0, [](double v) { return v > 0; }, "a plastic strain above 0");
    const Token* shear = options.find("shear=");
    if (shear && options.value("shear=") != "elastic") remarks_.expected(*shear, "shear=elastic");
    bool known = false;
    for (Material& material : materials_) {
        if (material.name != name) continue;
        known = true;
        material.shear_modulus = constants[0];
        material.yield_stress = constants[1];
        material.hardening = constants[2];
        material.hardening_table = table;
        material.kinematic = kinematic;
        material.erode = erode;
        material.elastic_shear = shear != nullptr;
    }
    if (!known) return remarks_.notice(tokens[0], "no material of this name; its constants are passed over");
    progress_.print("%s:G=%.3e, Sy=%.3e, Sd=%.3e\n", name.c_str(), constants[0], constants[1], constants[2]);
    options.list(progress_);
}

AnalysisInfoStatus read_control_text(std::string_view text, Model& model, InputRemarks& remarks,
                                     AnalysisInfoReport& report, Progress& progress) {
    ControlFile file(text, model, remarks, progress);
    if (!file.header()) {
        remarks.notice("the second token is not explicit; the file is passed over");
        return AnalysisInfoStatus::not_control;
    }
    const Token end = file.read();
    report.end_token = end.text;
    report.end_token_number = end.number;
    report.ended_at_end = end.text.empty() || end.text.starts_with("END");
    if (!remarks.ok() || progress.cancelled()) return AnalysisInfoStatus::wrong;
    file.notice_kept_tables();
    file.move_into(model);
    return AnalysisInfoStatus::read;
}

// Whether a control file has set anything in the model.
bool holds_settings(const Model& model) {
    const ExplicitTables& t = model.explicit_tables;
    return model.control != AnalysisControl{} || !t.walls.empty() || !t.initial_velocities.empty() ||
           !t.velocity_inputs.empty() || !t.contacts.empty();
}

// Whether there is something of this name, readable or not.
bool stands(std::string_view stored) {
    std::error_code ignored;
    return std::filesystem::status(paths::to_platform(stored), ignored).type() !=
           std::filesystem::file_type::not_found;
}

void no_memory(InputRemarks& remarks, AnalysisInfoReport& report) {
    remarks.error("not enough memory to read it");
    report.status = AnalysisInfoStatus::wrong;
}

void end_reading(InputRemarks& remarks, AnalysisInfoReport& report, Progress& progress) {
    remarks.close();
    if (report.status == AnalysisInfoStatus::wrong && progress.cancelled())
        report.remarks.errors = {report.file_name + ": stopped on request"};
    print_remarks(report.remarks, progress);
}

}  // namespace

int last_dot(std::string_view model_file_name) {
    const int dot = static_cast<int>(model_file_name.rfind('.'));  // -1 for npos
    return dot > paths::last_separator(model_file_name) ? dot : -1;
}

std::string analysis_info_file_name(std::string_view model_file_name) {
    const int dot = last_dot(model_file_name);
    return std::string(model_file_name.substr(0, dot)) + ".ana";  // -1: the whole name
}

AnalysisInfoReport read_analysis_info_file(Model& model, Progress& progress) {
    AnalysisInfoReport report;
    report.file_name = analysis_info_file_name(model.model_file_name);
    progress.print("  n_=%d\n", last_dot(model.model_file_name));
    progress.print("analysis_info_file_name:%s\n", report.file_name.c_str());
    InputRemarks remarks(report.file_name, report.remarks);
    std::string text, reason;
    try {
        if (!paths::read_text(report.file_name, text, reason)) {
            progress.print("FILE OPEN ERROR\n");
            if (stands(report.file_name)) {
                report.status = AnalysisInfoStatus::wrong;
                remarks.error("cannot be read: " + reason);
            } else if (holds_settings(model)) {
                remarks.notice(reason + "; the settings of the earlier model stay in force");
            }
        } else {
            progress.print("ANALYSIS INFO FILE OPEN !!\n");
            report.status = read_control_text(text, model, remarks, report, progress);
            progress.print("FILE CLOSE !!\n");
        }
    } catch (const std::bad_alloc&) {
        no_memory(remarks, report);
    }
    end_reading(remarks, report, progress);
    return report;
}

AnalysisInfoReport read_analysis_info_text(Model& model, std::string_view text, Progress& progress) {
    AnalysisInfoReport report;
    report.file_name = analysis_info_file_name(model.model_file_name);
    InputRemarks remarks(report.file_name, report.remarks);
    try {
        report.status = read_control_text(text, model, remarks, report, progress);
    } catch (const std::bad_alloc&) {
        no_memory(remarks, report);
    }
    end_reading(remarks, report, progress);
    return report;
}

}  // namespace kestralum
