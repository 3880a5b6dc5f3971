#include "mesh/vol_groups.h"

#include <map>
#include <string>
#include <unordered_map>

#include "model/token_reader.h"

namespace kestralum {

namespace {

using Names = std::map<std::int32_t, std::string>;

// Walks the sections between those that are read already.
class VolSections {
public:
    VolSections(const VolText& file, const Progress& progress)
        : file_(file), progress_(progress), reader_(file.text.substr(0, 0)) {}

    void walk() {
        std::size_t begin = 0;
        for (const auto& [skip_begin, skip_end] : file_.read) {
            walk_part(file_.text.substr(begin, skip_begin - begin));
            begin = skip_end;
        }
        walk_part(file_.text.substr(begin));
    }

    Names materials, boundaries;
    std::map<std::int32_t, std::vector<std::array<std::int32_t, 4>>> faces;  // corners by boundary number

private:
    void walk_part(std::string_view text) {
        reader_ = TokenReader(text, file_.comment_lines);
        for (std::string_view word = reader_.next(); !word.empty(); word = reader_.next()) {
            if (word == "endmesh" || progress_.cancelled()) return;
            if (word.starts_with("surfaceelements")) {
                const std::int64_t more = word.ends_with("gi") ? 1 : word.ends_with("uv") ? 2 : 0;
                if (!read_faces(more)) faces.clear();
            } else if (word == "materials") {
                read_names(materials);
            } else if (word == "bcnames") {
                read_names(boundaries);
            } else if (word == "cd2names" || word == "cd3names") {
                Names others;
                read_names(others);
            }
        }
    }
    // Surface, boundary, the two domains, node count, nodes, and `more` numbers per node: of triangles on the
    // geometry, or of parameters.
    bool read_faces(std::int64_t more) {
        const auto count = reader_.next_int32();
        if (!count) return false;
        for (std::int32_t s = 0; s < *count; ++s) {
            if (progress_.cancelled() || !reader_.next_int32()) return false;
            const auto boundary = reader_.next_int32();
            if (!boundary || !reader_.skip(2)) return false;
            const auto nodes = reader_.next_int32();
            if (!nodes || (*nodes != 3 && *nodes != 6 && *nodes != 4 && *nodes != 8)) return false;
            const std::int32_t corners = *nodes % 3 == 0 ? 3 : 4;
            std::array<std::int32_t, 4> corner{};
            for (std::int32_t k = 0; k < corners; ++k) {
                const auto node = reader_.next_int32();
                if (!node || *node < 1 || *node > file_.node_num) return false;
                corner[k] = *node;
            }
            if (!reader_.skip(*nodes - corners + more * *nodes)) return false;
            faces[*boundary].push_back(corner);
        }
        return !parse_double(reader_.peek());  // else the records are longer than they should be
    }
    // Number and name each; words that are no next number belong to the name before.
    void read_names(Names& names) {
        const auto count = reader_.next_int32();
        if (!count) return;
        std::string* last = nullptr;
        for (std::int32_t k = 0; k < *count;) {
            const std::string_view word = reader_.next();
            if (word.empty() || word == "endmesh" || progress_.cancelled()) return;
            if (const auto number = parse_int32(word)) {
                const std::string_view name = reader_.next();
                if (name.empty()) return;
                last = &(names[*number] = name);
                ++k;
            } else if (last) {
                last->append("_").append(word);
            } else {
                return;
            }
        }
    }

    const VolText& file_;
    const Progress& progress_;
    TokenReader reader_;
};

// The name of a number; null where it has none, or the one that Netgen gives where the user gave none.
const std::string* known_name(const Names& names, std::int32_t number) {
    const auto named = names.find(number);
    return named != names.end() && named->second != "default" ? &named->second : nullptr;
}

// Groups of one sort by number; those with the same name are one.
class NamedGroups {
public:
    NamedGroups(const Names& names, const char* others, std::vector<RawGroup>& groups)
        : names_(names), others_(others), groups_(groups) {}

    RawGroup& of(std::int32_t number) {
        const std::string* const known = known_name(names_, number);
        const std::string name = known ? *known : others_ + std::to_string(number);
        const auto [place, added] = places_.try_emplace(name, groups_.size());
        if (added) groups_.emplace_back().name = name;
        return groups_[place->second];
    }

private:
    const Names& names_;
    const std::string others_;
    std::vector<RawGroup>& groups_;
    std::unordered_map<std::string, std::size_t> places_;
};

}  // namespace

std::vector<RawGroup> find_vol_groups(const VolText& file, const Progress& progress) {
    VolSections sections(file, progress);
    sections.walk();
    std::map<std::int32_t, std::vector<std::int32_t>> domains;
    for (std::size_t e = 0; e < file.domains.size(); ++e) {
        if (e % 4096 == 0 && progress.cancelled()) return {};
        domains[file.domains[e]].push_back(static_cast<std::int32_t>(e));
    }
    std::vector<RawGroup> groups;
    NamedGroups bodies(sections.materials, "domain_", groups);
    for (const auto& [number, elements] : domains) {
        if (domains.size() == 1 && !known_name(sections.materials, number)) break;
        std::vector<std::int32_t>& to = bodies.of(number).elements;
        to.insert(to.end(), elements.begin(), elements.end());
    }
    NamedGroups faces(sections.boundaries, "face_", groups);
    for (const auto& [number, corners] : sections.faces) {
        std::vector<std::array<std::int32_t, 4>>& to = faces.of(number).corners;
        to.insert(to.end(), corners.begin(), corners.end());
    }
    if (progress.cancelled()) return {};
    return groups;
}

}  // namespace kestralum
