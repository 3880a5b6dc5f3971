#include "input/analysis_info_reader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <span>

#include "input/explicit_sections.h"
#include "input/record_fields.h"
#include "model/console.h"
#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

class ControlFile {
public:
    ControlFile(std::string_view text, const ModelStore& store, InputRemarks& remarks)
        : tokens_(text),
          fields_(store.parameters, remarks),
          remarks_(remarks),
          control_(store.control),
          materials_(store.materials),
          parameters_(store.parameters),
          parts_(store.parts),
          tables_(store.explicit_tables) {}

    // The header is a label and the word "explicit".
    bool header() {
        tokens_.next();
        return tokens_.next() == "explicit";
    }

    // Everything behind the header, up to the token given back: END, no keyword, or the end of the file.
    Token read();

    // Tables that this file does not name stay as an earlier model had them.
    void tell_kept_tables() {
        auto tell = [&](std::string_view key, std::size_t records) {
            if (records > 0 && std::find(seen_.begin(), seen_.end(), key) == seen_.end())
                remarks_.notice("no " + std::string(key) +
                                "; the records of the earlier model stay in force");
        };
        tell("RIGID_WALL", tables_.walls.size());
        tell("INITIAL_VELOCITY", tables_.initial_velocities.size());
        tell("VELOCITY_INPUT", tables_.velocity_inputs.size());
        tell("ELEMENT_CONTACT", tables_.contacts.size());
    }

    void move_into(ModelStore& store) noexcept {
        store.control = control_;
        store.materials = std::move(materials_);
        store.explicit_tables = std::move(tables_);
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
        console::print(echo, place);
    }

    void d_time(std::string_view key) { read_number(key, control_.d_time, "  d_time=%.3e\n"); }
    void end_time(std::string_view key) { read_number(key, control_.end_time, "  end_time=%.3e\n"); }
    void c_alfa(std::string_view key) { read_number(key, control_.c_alfa, "  C_alfa=%.3e\n"); }

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
        console::print("  out_inc=%d\n", control_.output_frequency);
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
        console::print(echo_word, std::string(token->text).c_str());
        console::print(echo_value, place ? 1 : 0);
    }

    void plastic(std::string_view key) {
        read_switch(key, control_.plastic, "  Plastic=%s\n", "  plastic_analysis=%d\n");
    }
    void element_contact(std::string_view key) {
        read_switch(key, control_.element_contact, "  Element_contact=%s\n", "  element_contact=%d\n");
    }

    void material_extra_info(std::string_view key);
    void rigid_wall(std::string_view key) { read_walls(section(key), parameters_, remarks_, tables_.walls); }
    void initial_velocity(std::string_view key) {
        read_initial_velocities(section(key), parameters_, parts_, remarks_, tables_.initial_velocities);
    }
    void velocity_input(std::string_view key) {
        read_velocity_inputs(section(key), parameters_, parts_, remarks_, tables_.velocity_inputs);
    }
    void contact(std::string_view key) {
        read_contacts(section(key), parameters_, parts_, remarks_, tables_.contacts);
    }
    TableSection section(std::string_view key);
    void comment(std::string_view) {}

    TokenReader tokens_;
    RecordFields fields_;
    InputRemarks& remarks_;
    AnalysisControl control_;
    std::vector<Material> materials_;
    std::span<const Parameter> parameters_;
    std::span<const Part> parts_;
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
    {"%", &ControlFile::comment},
};

Token ControlFile::read() {
    for (;;) {
        const Token token = next();
        if (token.text.empty()) return token;
        console::print("%s\n", std::string(token.text).c_str());
        const Row* found = nullptr;
        for (const Row& row : rows)
            if (!found && token.text.starts_with(row.key)) found = &row;
        if (!found) return token;
        (this->*found->take)(found->key);
    }
}

TableSection ControlFile::section(std::string_view key) {
    seen_.push_back(key);
    TableSection out{key, {}, next()};
    for (; !out.closing.text.empty() && !out.closing.text.starts_with('%'); out.closing = next())
        out.tokens.push_back(out.closing);
    return out;
}

void ControlFile::material_extra_info(std::string_view key) {
    constexpr std::size_t record_length = 4;
    const TableSection table = section(key);
    const auto records = records_of(table, record_length, remarks_);
    console::print("  mat_info_num=%zu\n", records.size());
    for (const std::span<const Token> tokens : records) {
        const std::string name = fields_.name(tokens[0], material_text_width);
        double constants[3];  // G, Sy, Sd
        for (std::size_t c = 0; c < 3; ++c)
            constants[c] = fields_.number_where(
                tokens[1 + c], [](double v) { return v >= 0; }, "a constant of at least 0 Pa");
        bool known = false;
        for (Material& material : materials_) {
            if (material.name != name) continue;
            known = true;
            material.shear_modulus = constants[0];
            material.yield_stress = constants[1];
            material.hardening = constants[2];
        }
        if (known)
            console::print("%s:G=%.3e, Sy=%.3e, Sd=%.3e\n", name.c_str(), constants[0], constants[1],
                           constants[2]);
        else
            remarks_.notice(tokens[0], "no material of this name; its constants are passed over");
    }
}

bool differs_from_start(const AnalysisControl& c) {
    const AnalysisControl start;
    return c.d_time != start.d_time || c.end_time != start.end_time ||
           c.output_frequency != start.output_frequency || c.c_alfa != start.c_alfa ||
           c.gravity_axis != start.gravity_axis || c.gravity_sign != start.gravity_sign ||
           c.plastic != start.plastic || c.element_contact != start.element_contact;
}

AnalysisInfoStatus read_control_text(std::string_view text, ModelStore& store, InputRemarks& remarks,
                                     AnalysisInfoReport& report) {
    ControlFile file(text, store, remarks);
    if (!file.header()) {
        remarks.notice("the second token is not explicit; the file is passed over");
        return AnalysisInfoStatus::not_control;
    }
    const Token end = file.read();
    report.end_token = end.text;
    report.end_token_number = end.number;
    report.ended_at_end = end.text.empty() || end.text.starts_with("END");
    if (!remarks.ok()) return AnalysisInfoStatus::wrong;
    file.tell_kept_tables();
    file.move_into(store);
    return AnalysisInfoStatus::read;
}

}  // namespace

int last_dot(std::string_view model_file_name) {
    const std::size_t dot = model_file_name.rfind('.');
    if (dot == std::string_view::npos) return -1;
    return static_cast<int>(dot) > paths::last_separator(model_file_name) ? static_cast<int>(dot) : -1;
}

std::string analysis_info_file_name(std::string_view model_file_name) {
    const int dot = last_dot(model_file_name);
    return std::string(dot < 0 ? model_file_name : model_file_name.substr(0, static_cast<std::size_t>(dot))) +
           ".ana";
}

AnalysisInfoReport read_analysis_info(ModelStore& store) {
    AnalysisInfoReport report;
    report.file_name = analysis_info_file_name(store.model_file_name);
    console::print("  n_=%d\n", last_dot(store.model_file_name));
    console::print("analysis_info_file_name:%s\n", report.file_name.c_str());
    InputRemarks remarks(report.file_name, report.remarks);
    try {
        std::string text, reason;
        if (!paths::read_text(report.file_name, text, reason)) {
            console::print("FILE OPEN ERROR\n");
            if (differs_from_start(store.control))
                remarks.notice(reason + "; the settings of the earlier model stay in force");
            return report;
        }
        console::print("ANALYSIS INFO FILE OPEN !!\n");
        report.status = read_control_text(text, store, remarks, report);
        console::print("FILE CLOSE !!\n");
    } catch (const std::bad_alloc&) {
        remarks.error("not enough memory to read it");
        report.status = AnalysisInfoStatus::wrong;
    }
    remarks.close();
    return report;
}

AnalysisInfoReport read_analysis_info_file() {
    AnalysisInfoReport report = read_analysis_info(model_store());
    print_remarks(report.remarks);
    return report;
}

}  // namespace kestralum
