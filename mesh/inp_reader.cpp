#include <algorithm>
#include <limits>

#include "mesh/inp_deck.h"
#include "mesh/inp_sets.h"
#include "mesh/word_counts.h"

namespace kestralum {

namespace {

// Indices are 32-bit, coordinates are three per node.
constexpr std::size_t most_items = std::numeric_limits<std::int32_t>::max() / 10 - 1;

// What makes or moves nodes and elements by rules of its own: passing it over would give another mesh.
constexpr std::string_view generators[] = {"SYSTEM", "NGEN", "NFILL", "NCOPY", "NMAP", "ELGEN", "ELCOPY"};

class InpReader {
public:
    InpReader(InpLines& lines, InpDeck& deck) : lines_(lines), deck_(deck), sets_(lines, deck) {}

    bool read(const std::string& file, Remarks& remarks) {
        InpKeyword keyword;
        while (lines_.next_keyword(keyword))
            if (!take(keyword)) return false;
        if (!lines_.error().empty() || lines_.stopped()) return false;
        if (!(owner_ == InpOwner{}))
            return lines_.fail_at_end(owner_.instance < 0 ? "*END PART" : "*END INSTANCE");
        if (!flats_.empty())
            remarks.notices.push_back(file +
                                      "elements that are no solids serve groups only: " + flats_.listed());
        if (!passed_.empty())
            remarks.notices.push_back(file + "passed over, being no part of the mesh: " + passed_.listed());
        return true;
    }

private:
    bool fail(std::string_view token, std::string_view expected) { return lines_.fail(token, expected); }
    InpBody& body() { return deck_.bodies[owner_.body]; }

    bool take(const InpKeyword& keyword) {
        const std::string& word = keyword.word;
        if (std::find(std::begin(generators), std::end(generators), word) != std::end(generators))
            return fail(keyword.shown, "nodes and elements with all their numbers and coordinates");
        if (word == "NODE") return read_nodes(keyword);
        if (word == "ELEMENT") return read_elements(keyword);
        if (word == "NSET") return sets_.read_set(keyword, InpSetKind::nodes, owner_);
        if (word == "ELSET") return sets_.read_set(keyword, InpSetKind::elements, owner_);
        if (word == "SURFACE" && is_inp_surface(keyword)) return sets_.read_surface(keyword, owner_);
        if (word == "PART") return begin_part(keyword);
        if (word == "INSTANCE") return begin_instance(keyword);
        if (word == "ENDPART" || word == "ENDINSTANCE") {
            if (owner_ == InpOwner{} || (owner_.instance < 0) != (word == "ENDPART"))
                return fail(keyword.shown, "its beginning before it");
            owner_ = {};
        } else if (word != "HEADING" && word != "ASSEMBLY" && word != "ENDASSEMBLY" && word != "ENDSTEP") {
            passed_.add(keyword.shown, 1);
        }
        return true;
    }

    bool outside_instance(const InpKeyword& keyword) {
        return owner_.instance < 0 ||
               fail(keyword.shown, "*END INSTANCE (the mesh of an instance is its part's)");
    }

    bool read_nodes(const InpKeyword& keyword) {
        const std::string* const system = keyword.find("SYSTEM");
        if (system && upper_case(*system) != "R") return fail(*system, "SYSTEM=R, right-angled coordinates,");
        const std::string* const set = keyword.find("NSET");
        if (!outside_instance(keyword)) return false;
        const InpPlace place = lines_.place();
        if (!lines_.open_input(keyword)) return false;
        InpBody& to = body();
        const auto first = static_cast<std::int32_t>(to.node_number.size());
        std::string_view line;
        while (lines_.next_data(line)) {
            InpFields fields(line);
            std::int32_t number = 0;
            if (!fields.next_integer(number) || number < 1) return fail(fields.token(), "a node number");
            for (int k = 0; k < 3; ++k) {
                double value = 0;
                if (!fields.next_number(value)) return fail(fields.token(), "a coordinate");
                to.coordinates.push_back(value);
            }
            if (to.node_number.size() >= most_items) return fail(fields.token(), "fewer nodes");
            to.node_number.push_back(number);
            to.node_line.push_back(lines_.place().line);
            note_file(to.node_blocks, to.node_number.size());
        }
        add_block(set, InpSetKind::nodes, InpEntry::What::nodes, first, to.node_number.size(), place);
        return lines_.sound();
    }
    // The last of `count` items was read from the present file.
    void note_file(std::vector<InpBody::Block>& blocks, std::size_t count) {
        const auto end = static_cast<std::int32_t>(count);
        const std::int32_t file = lines_.place().file;
        if (blocks.empty() || blocks.back().file != file) blocks.push_back({end - 1, end, file});
        blocks.back().last = end;
    }
    void add_block(const std::string* set, InpSetKind kind, InpEntry::What what, std::int32_t first,
                   std::size_t last, const InpPlace& place) {
        if (!set || set->empty()) return;
        InpEntry entry{what};
        entry.first = first;
        entry.last = static_cast<std::int32_t>(last);
        entry.place = place;
        deck_.entries.emplace_back(deck_.add_set(kind, owner_, *set), entry);
    }

    bool read_elements(const InpKeyword& keyword) {
        const std::string* const word = lines_.needed(keyword, "TYPE", "TYPE= with an element type");
        if (!word || !outside_instance(keyword)) return false;
        const InpType type = inp_type(upper_case(*word));
        const std::string* const set = keyword.find("ELSET");
        const InpPlace place = lines_.place();
        if (!lines_.open_input(keyword)) return false;
        if (type.role == InpType::Role::surface || type.role == InpType::Role::line) {
            const auto first = static_cast<std::int32_t>(body().flats.size());
            if (!read_flats(type)) return false;
            const std::size_t last = body().flats.size();
            if (last > std::size_t(first)) flats_.add(upper_case(*word), std::int64_t(last) - first);
            add_block(set, InpSetKind::elements, InpEntry::What::flats, first, last, place);
        } else {
            const auto first = static_cast<std::int32_t>(body().element_number.size());
            if (!read_solids(type, *word)) return false;
            add_block(set, InpSetKind::elements, InpEntry::What::solids, first, body().element_number.size(),
                      place);
        }
        return lines_.sound();
    }
    bool read_solids(const InpType& type, const std::string& word) {
        InpBody& to = body();
        const std::span<const int> order = inp_node_order(type.kind);
        std::string_view line;
        while (lines_.next_data(line)) {
            const InpPlace place = lines_.place();
            InpFields fields(line);
            std::int32_t number = 0;
            if (!read_element_number(fields, to, number) || !fits(type, word, number)) return false;
            std::array<std::int32_t, 27> nodes;
            if (!read_element_nodes(fields, type.nodes, nodes)) return false;
            if (!fields.at_end()) return fail(fields.next(), "the end of the line");
            for (int k = 1; k < type.nodes; ++k)
                if (std::find(nodes.begin(), nodes.begin() + k, nodes[k]) != nodes.begin() + k)
                    return lines_.refuse(place, "element " + std::to_string(number) + " has node " +
                                                    std::to_string(nodes[k]) + " twice");
            to.element_number.push_back(number);
            to.element_line.push_back(place.line);
            for (const int from : order) to.element_nodes.push_back(nodes[from]);
            note_file(to.element_blocks, to.element_number.size());
        }
        return true;
    }
    bool read_element_number(InpFields& fields, const InpBody& to, std::int32_t& number) {
        if (!fields.next_integer(number) || number < 1) return fail(fields.token(), "an element number");
        return to.element_number.size() + to.flats.size() < most_items ||
               fail(fields.token(), "fewer elements");
    }
    // All solids of a file are of one kind that the program has.
    bool fits(const InpType& type, const std::string& word, std::int32_t number) {
        using Role = InpType::Role;
        if (type.role == Role::solid && deck_.type.role == Role::solid && type.kind == deck_.type.kind)
            return true;
        const std::string begin = "element " + std::to_string(number) + " is ";
        if (type.role == Role::unknown)
            return lines_.refuse(lines_.place(), begin + "of type " + word +
                                                     ", which is not known: C3D4, "
                                                     "C3D8, C3D10 and their variants are read");
        if (type.role == Role::foreign_solid)
            return lines_.refuse(lines_.place(), begin + type.words + " (" + word +
                                                     "): C3D4, C3D8, C3D10 and "
                                                     "their variants are read");
        if (deck_.type.role == Role::solid)
            return lines_.refuse(lines_.place(), begin + type.words + " (" + word +
                                                     "), the ones before are of "
                                                     "type " +
                                                     deck_.type_word + ": a part has one kind");
        deck_.type = type;
        deck_.type_word = word;
        return true;
    }
    // Node numbers of one element; it goes on in the next line after a comma at the end of a line.
    bool read_element_nodes(InpFields& fields, int count, std::array<std::int32_t, 27>& nodes) {
        const auto expected = [&](int k) {
            return "node " + std::to_string(k + 1) + " of the element's " + std::to_string(count);
        };
        for (int k = 0; k < count; ++k) {
            if (fields.at_end()) {
                if (!fields.after_comma()) return fail("", expected(k));
                std::string_view line;
                if (!lines_.next_data(line)) return lines_.fail_at_end(expected(k));
                fields = InpFields(line);
            }
            if (!fields.next_integer(nodes[k]) || nodes[k] < 1) return fail(fields.token(), expected(k));
        }
        return true;
    }
    bool read_flats(const InpType& type) {
        InpBody& to = body();
        std::string_view line;
        while (lines_.next_data(line)) {
            InpFields fields(line);
            InpBody::Flat flat{0, {}, lines_.place().line, type.corners};
            std::array<std::int32_t, 27> nodes;
            if (!read_element_number(fields, to, flat.number)) return false;
            if (!read_element_nodes(fields, type.nodes, nodes)) return false;
            std::copy_n(nodes.begin(), std::min(std::size_t(type.nodes), flat.nodes.size()),
                        flat.nodes.begin());
            to.flats.push_back(flat);
            note_file(to.flat_blocks, to.flats.size());
        }
        return true;
    }

    bool begin_part(const InpKeyword& keyword) {
        const std::string* const name = lines_.needed(keyword, "NAME", "NAME=");
        if (!name) return false;
        if (!(owner_ == InpOwner{})) return fail(keyword.shown, "the end of the part or instance before it");
        if (deck_.find_body(*name) >= 0) return fail(*name, "a name that no part before has");
        owner_ = {deck_.add_body(*name), -1};
        return true;
    }
    bool begin_instance(const InpKeyword& keyword) {
        const std::string* const name = lines_.needed(keyword, "NAME", "NAME=");
        const std::string* const part = name ? lines_.needed(keyword, "PART", "PART=") : nullptr;
        if (!part) return false;
        if (!(owner_ == InpOwner{})) return fail(keyword.shown, "the end of the part or instance before it");
        if (deck_.find_instance(*name) >= 0) return fail(*name, "a name that no instance before has");
        const std::int32_t of = deck_.find_body(*part);
        if (of < 0) return fail(*part, "the name of a part");
        const std::int32_t number = deck_.add_instance(*name, of);
        owner_ = {of, number};
        InpInstance& instance = deck_.instances[number];
        std::string_view line;
        if (!lines_.next_data(line)) return lines_.sound();
        if (!read_numbers(line, instance.shift)) return false;
        if (!lines_.next_data(line)) return lines_.sound();
        std::array<double, 7> turn;
        if (!read_numbers(line, turn)) return false;
        instance.axis_begin = {turn[0], turn[1], turn[2]};
        instance.axis_end = {turn[3], turn[4], turn[5]};
        instance.angle = turn[6];
        if (instance.angle != 0 && !(norm(minus(instance.axis_end, instance.axis_begin)) > 0))
            return fail(line, "two different points of the axis and the angle");
        return true;
    }
    template <std::size_t N>
    bool read_numbers(std::string_view line, std::array<double, N>& values) {
        InpFields fields(line);
        for (double& value : values)
            if (!fields.next_number(value)) return fail(fields.token(), std::to_string(N) + " numbers");
        return fields.at_end() || fail(fields.next(), "the end of the line");
    }

    InpLines& lines_;
    InpDeck& deck_;
    InpSetReader sets_;
    InpOwner owner_;
    WordCounts passed_, flats_;
};

}  // namespace

bool read_inp_deck(InpLines& lines, std::string_view file_name, InpDeck& deck, Remarks& remarks) {
    return InpReader(lines, deck).read("file " + std::string(file_name) + ": ", remarks);
}

}  // namespace kestralum
