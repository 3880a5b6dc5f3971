#include "app/mesher/step_names.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <unordered_map>

namespace kestralum {

namespace {

// "#12 = KEYWORD(ARGUMENTS);"
struct Entity {
    std::string_view keyword, arguments;
};
using Entities = std::unordered_map<std::int64_t, Entity>;

constexpr std::string_view blanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Position of the first of `wanted` outside strings, from `at` on.
std::size_t find_outside(std::string_view text, std::string_view wanted, std::size_t at) {
    for (bool quoted = false; at < text.size(); ++at) {
        if (text[at] == '\'') quoted = !quoted;  // a doubled apostrophe opens again at once
        if (!quoted && wanted.find(text[at]) != std::string_view::npos) return at;
    }
    return std::string_view::npos;
}

// The entities of the keywords that lead from a representation to its faces, and the representations in
// order.
void find_entities(std::string_view text, Entities& entities, std::vector<std::int64_t>& representations) {
    for (std::size_t at = 0, end; (end = find_outside(text, ";", at)) != std::string_view::npos;
         at = end + 1) {
        const std::string_view statement = trimmed(text.substr(at, end - at));
        const std::size_t equals = statement.find('='), open = statement.find('(');
        if (!statement.starts_with('#') || equals == std::string_view::npos ||
            open == std::string_view::npos || open < equals || !statement.ends_with(')'))
            continue;
        std::int64_t id = 0;
        std::from_chars(statement.data() + 1, statement.data() + equals, id);
        const Entity entity{trimmed(statement.substr(equals + 1, open - equals - 1)),
                            statement.substr(open + 1, statement.size() - open - 2)};
        const auto known = {"MANIFOLD_SOLID_BREP",
                            "BREP_WITH_VOIDS",
                            "CLOSED_SHELL",
                            "ADVANCED_FACE",
                            "FACE_SURFACE",
                            "ORIENTED_CLOSED_SHELL",
                            "ADVANCED_BREP_SHAPE_REPRESENTATION"};
        if (std::ranges::find(known, entity.keyword) == std::end(known)) continue;
        if (entity.keyword.ends_with("REPRESENTATION")) representations.push_back(id);
        entities.emplace(id, entity);
    }
}

// References "#12" in a text, in order.
std::vector<std::int64_t> references(std::string_view text) {
    std::vector<std::int64_t> found;
    for (std::size_t at = 0; (at = find_outside(text, "#", at)) != std::string_view::npos; ++at) {
        std::int64_t id = 0;
        std::from_chars(text.data() + at + 1, text.data() + text.size(), id);
        found.push_back(id);
    }
    return found;
}

void append_utf8(std::uint32_t code, std::string& text) {
    const auto add = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | code >> 6);
        add(0x80 | (code & 0x3F));
    } else {
        add(0xE0 | code >> 12);
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

// The string that the arguments begin with; letters beyond ASCII stand as \X2\hhhh…\X0\ in the file.
std::string name_of(std::string_view arguments) {
    arguments = trimmed(arguments);
    std::string name;
    if (!arguments.starts_with('\'')) return name;
    constexpr std::string_view wide = "\\X2\\", wide_end = "\\X0\\";
    for (std::size_t at = 1; at < arguments.size(); ++at) {
        if (arguments[at] == '\'' && !arguments.substr(at + 1).starts_with('\'')) break;
        if (arguments.substr(at).starts_with(wide)) {
            at += wide.size();
            for (; at + 4 <= arguments.size() && !arguments.substr(at).starts_with(wide_end); at += 4) {
                std::uint32_t code = 0;
                std::from_chars(&arguments[at], &arguments[at] + 4, code, 16);
                append_utf8(code, name);
            }
            at += wide_end.size() - 1;
            continue;
        }
        at += arguments[at] == '\'';
        name += arguments[at];
    }
    return name == "NONE" ? std::string() : std::string(trimmed(name));
}

const Entity* find(const Entities& entities, std::int64_t id) {
    const auto at = entities.find(id);
    return at == entities.end() ? nullptr : &at->second;
}

void add_faces(const Entities& entities, const Entity& shell, StepBody& body) {
    const bool oriented = shell.keyword == "ORIENTED_CLOSED_SHELL";
    for (const std::int64_t id : references(shell.arguments)) {
        const Entity* entity = find(entities, id);
        if (!entity) continue;
        if (oriented && entity->keyword == "CLOSED_SHELL")  // an oriented one of itself would never end
            add_faces(entities, *entity, body);
        else if (entity->keyword.ends_with("FACE") || entity->keyword == "FACE_SURFACE")
            body.faces.push_back(name_of(entity->arguments));
    }
}

}  // namespace

std::vector<StepBody> read_step_names(std::string_view text) {
    Entities entities;
    std::vector<std::int64_t> representations;
    find_entities(text, entities, representations);
    std::vector<StepBody> bodies;
    for (const std::int64_t representation : representations)
        for (const std::int64_t item : references(find(entities, representation)->arguments)) {
            const Entity* solid = find(entities, item);
            if (!solid || (solid->keyword != "MANIFOLD_SOLID_BREP" && solid->keyword != "BREP_WITH_VOIDS"))
                continue;
            StepBody& body = bodies.emplace_back();
            body.name = name_of(solid->arguments);
            for (const std::int64_t shell : references(solid->arguments))
                if (const Entity* entity = find(entities, shell);
                    entity && entity->keyword.ends_with("SHELL"))
                    add_faces(entities, *entity, body);
            const auto& faces = body.faces;
            if (faces.size() > 1 && std::ranges::all_of(faces, [&](const auto& f) { return f == faces[0]; }))
                std::ranges::fill(body.faces, std::string());
        }
    return bodies;
}

}  // namespace kestralum
