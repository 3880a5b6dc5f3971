#include "results/export_deck.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "model/format.h"

namespace kestralum {

namespace {

constexpr double nothing = 1e-12;  // a factor of an equation

void append_number(std::string& text, std::int64_t number, const char* end) {
    append_d(text, number);
    text += end;
}

// The terms of an equation, the solved one first: it is eliminated. `place`: number of the node and direction
// that each factor belongs to.
template <typename Place>
std::string terms_of(const LinearRow& row, int& count, const Place& place) {
    std::string text;
    count = 0;
    for (std::size_t k = 0; k < row.factor.size(); ++k) {
        const std::size_t c = (row.solved + k) % row.factor.size();
        if (std::abs(row.factor[c]) <= nothing) continue;
        ++count;
        text += place(c) + ",";
        append_field(text, row.factor[c]);
        text += ",";
    }
    return text;
}

// Sixteen numbers a line is what a deck takes; four terms are twelve.
std::string wrapped(const std::string& terms) {
    std::string text;
    int numbers = 0;
    for (const char c : terms) {
        text += c;
        if (c == ',' && ++numbers % 12 == 0) text.back() = '\n';
    }
    if (text.back() == ',' || text.back() == '\n') text.pop_back();
    return text + "\n";
}

}  // namespace

void solve_rows(std::vector<LinearRow>& rows) {
    for (LinearRow& row : rows) {
        std::vector<double>& f = row.factor;
        row.solved = 0;
        for (std::size_t c = 1; c < f.size(); ++c)
            if (std::abs(f[c]) > std::abs(f[row.solved])) row.solved = c;
        const double pivot = f[row.solved];
        for (double& value : f) value /= pivot;
        for (double& value : row.wanted) value /= pivot;
        f[row.solved] = 1;
        for (LinearRow& other : rows) {
            if (&other == &row) continue;
            const double share = other.factor[row.solved];
            for (std::size_t c = 0; c < f.size(); ++c) other.factor[c] -= share * f[c];
            for (std::size_t k = 0; k < row.wanted.size(); ++k) other.wanted[k] -= share * row.wanted[k];
            other.factor[row.solved] = 0;
        }
    }
}

RigidDeck::RigidDeck(const ExportJob& job, ExportNames& names)
    : job_(job), last_node_(job.model.mesh.node_num()), last_element_(job.model.mesh.element_num()) {
    const NodalConditions& conditions = job.conditions;
    for (const RigidMotion& motion : conditions.rigid) add_body(motion);
    for (const RigidSprings& springs : conditions.springs) add_springs(springs, names);
    if (bodies_.empty()) return;
    definition_ = "*NODE\n" + nodes_ + springs_;
    for (std::size_t b = 0; b < bodies_.size(); ++b) {
        const RigidMotion& motion = conditions.rigid[b];
        const std::string name = names.take("rigid element", motion.name);
        definition_ += "*NSET, NSET=" + name + "\n";
        std::size_t count = 0;
        for (const std::int32_t n : motion.members)
            append_number(definition_, n + 1, ++count % 10 ? "," : "\n");
        for (const std::int32_t number : bodies_[b].carried)
            append_number(definition_, number, ++count % 10 ? "," : "\n");
        if (definition_.back() == ',') definition_.back() = '\n';
        definition_ += formatted("*RIGID BODY, NSET=%s, REF NODE=%d, ROT NODE=%d\n", name.c_str(),
                                 bodies_[b].reference, bodies_[b].rotation);
        hold(motion, bodies_[b]);
    }
}

std::vector<char> RigidDeck::members() const {
    std::vector<char> in(job_.model.mesh.node_num(), 0);
    for (const RigidMotion& motion : job_.conditions.rigid)
        for (const std::int32_t n : motion.members) in[n] = 1;
    return in;
}

std::int32_t RigidDeck::add_node(const Vec3& place) {
    append_d(nodes_, ++last_node_);
    for (const double x : place) {
        nodes_ += ",";
        append_field(nodes_, x);
    }
    nodes_ += "\n";
    return last_node_;
}

// Forces act on the reference node, moments on the rotation node, whose translations are the body's
// rotations.
std::string RigidDeck::loads(const ConditionCase& of_case) const {
    std::string text;
    for (std::size_t b = 0; b < bodies_.size(); ++b)
        for (std::size_t c = 0; c < 6; ++c) {
            if (of_case.rigid[b][c] == 0) continue;
            text += formatted("%d,%zu,", c < 3 ? bodies_[b].reference : bodies_[b].rotation, c % 3 + 1);
            append_field(text, of_case.rigid[b][c]);
            text += "\n";
        }
    return text;
}

void RigidDeck::add_body(const RigidMotion& motion) {
    const std::int32_t reference = add_node(motion.point), rotation = add_node(motion.point);
    bodies_.push_back({reference, rotation, {}});
}

void RigidDeck::hold(const RigidMotion& motion, const Body& body) {
    if (motion.held) supports_ += formatted("%d,1,3\n", body.reference);
    std::vector<LinearRow> rows;
    for (const Vec3& turn : motion.no_turn) rows.push_back({{0, 0, 0, turn[0], turn[1], turn[2]}, {}});
    for (const auto& held : motion.no_motion) rows.push_back({{held.begin(), held.end()}, {}});
    solve_rows(rows);
    const auto place = [&](std::size_t c) {
        return formatted("%d,%zu", c < 3 ? body.reference : body.rotation, c % 3 + 1);
    };
    for (const LinearRow& row : rows) {
        int count = 0;
        const std::string terms = terms_of(row, count, place);
        if (count == 1)
            supports_ += place(row.solved) + formatted(",%zu\n", row.solved % 3 + 1);
        else
            definition_ += formatted("*EQUATION\n%d\n", count) + wrapped(terms);
    }
}

// Between a node of each body at the springs' place, and between the rotation nodes.
void RigidDeck::add_springs(const RigidSprings& springs, ExportNames& names) {
    std::array<std::int32_t, 2> node{};
    for (std::size_t side = 0; side < 2; ++side) {
        node[side] = add_node(springs.place);
        bodies_[springs.body[side]].carried.push_back(node[side]);
    }
    const Body &first = bodies_[springs.body[0]], &second = bodies_[springs.body[1]];
    constexpr const char* words[] = {"X", "Y", "Z", "RX", "RY", "RZ"};
    for (std::size_t c = 0; c < 6; ++c) {
        if (springs.stiffness[c] == 0) continue;
        const std::string name = names.take_own(springs.name.substr(0, 70) + "_" + words[c]);
        const bool turns = c >= 3;
        add_spring(turns ? first.rotation : node[0], turns ? second.rotation : node[1], int(c % 3) + 1,
                   springs.stiffness[c], name);
    }
}

void RigidDeck::add_spring(std::int32_t first, std::int32_t second, int freedom, double stiffness,
                           const std::string& name) {
    springs_ += "*ELEMENT, TYPE=SPRING2, ELSET=" + name +
                formatted("\n%d,%d,%d\n*SPRING, ELSET=", ++last_element_, first, second) + name +
                formatted("\n%d,%d\n", freedom, freedom);
    append_field(springs_, stiffness);
    springs_ += "\n";
}

SupportDeck::SupportDeck(const ExportJob& job, ExportNames& names, std::int32_t last_node,
                         std::int32_t last_element)
    : job_(job), last_node_(last_node), last_element_(last_element) {
    const std::vector<HeldNode>& held = job.conditions.held;
    for (std::size_t first = 0, end; first < held.size(); first = end) {
        for (end = first; end < held.size() && held[end].node == held[first].node;) ++end;
        hold(std::span(held).subspan(first, end - first), first);
    }
    for (const TiedMotion& tied : job.conditions.ties) tie(tied);
    add_springs(names);
}

// Along an axis by *BOUNDARY, in a skew direction by *EQUATION, with a node of its own for what it moves by.
void SupportDeck::hold(std::span<const HeldNode> held, std::size_t first) {
    const std::int32_t number = held[0].node + 1;
    std::vector<LinearRow> rows;
    for (std::size_t k = 0; k < held.size(); ++k) {
        const Vec3& d = held[k].direction;
        LinearRow& row = rows.emplace_back(LinearRow{{d[0], d[1], d[2]}, {}});
        for (const ConditionCase& one : job_.conditions.cases) row.wanted.push_back(one.held[first + k]);
    }
    solve_rows(rows);
    for (const LinearRow& row : rows) {
        int count = 0;
        const std::string terms =
            terms_of(row, count, [&](std::size_t c) { return formatted("%d,%zu", number, c + 1); });
        const bool moves = std::ranges::any_of(row.wanted, [](double value) { return value != 0; });
        std::string place = formatted("%d,%zu,%zu", number, row.solved + 1, row.solved + 1);
        if (count > 1 && moves) {
            const double* x = job_.model.mesh.node(held[0].node);
            definition_ += formatted("*NODE\n%d", ++last_node_);
            for (std::size_t c = 0; c < 3; ++c) append_field(definition_ += ",", x[c]);
            definition_ += formatted("\n*EQUATION\n%d\n", count + 1) +
                           wrapped(terms + formatted("%d,1,-1.,", last_node_));
            place = formatted("%d,1,1", last_node_);
        } else if (count > 1) {
            definition_ += formatted("*EQUATION\n%d\n", count) + wrapped(terms);
            continue;
        }
        supports_ += place + "\n";
        if (moves) moved_.push_back({place, row.wanted});
    }
}

void SupportDeck::tie(const TiedMotion& tied) {
    for (int c = 1; c <= 3; ++c) {
        std::string terms = formatted("%d,%d,1.,", tied.node + 1, c);
        for (const auto& [node, weight] : tied.weights) {
            terms += formatted("%d,%d,", node + 1, c);
            append_field(terms, -weight);
            terms += ",";
        }
        definition_ += formatted("*EQUATION\n%zu\n", tied.weights.size() + 1) + wrapped(terms);
    }
}

// Those that are alike stand in one set.
void SupportDeck::add_springs(ExportNames& names) {
    struct Alike {
        int first, second;  // directions; 0: the ground
        double stiffness;
        auto operator<=>(const Alike&) const = default;
    };
    std::map<Alike, std::vector<const SpringTerm*>> groups;
    for (const SpringTerm& term : job_.conditions.ground)
        groups[{term.dof % 3 + 1, term.other < 0 ? 0 : term.other % 3 + 1, term.stiffness}].push_back(&term);
    for (const auto& [alike, terms] : groups) {
        const std::string name = names.take_own("SUPPORT_SPRINGS");
        const bool pair = alike.second > 0;
        definition_ +=
            std::string("*ELEMENT, TYPE=") + (pair ? "SPRING2" : "SPRING1") + ", ELSET=" + name + "\n";
        for (const SpringTerm* term : terms) {
            definition_ += formatted("%d,%d", ++last_element_, term->dof / 3 + 1);
            definition_ += pair ? formatted(",%d\n", term->other / 3 + 1) : "\n";
        }
        definition_ += "*SPRING, ELSET=" + name + formatted("\n%d", alike.first) +
                       (pair ? formatted(",%d\n", alike.second) : "\n");
        append_field(definition_, alike.stiffness);
        definition_ += "\n";
    }
}

std::string SupportDeck::moved(std::size_t of_case) const {
    std::string text;
    for (const Moved& held : moved_) {
        text += held.place + ",";
        append_field(text, held.wanted[of_case] + 0.0);  // not -0
        text += "\n";
    }
    return text;
}

}  // namespace kestralum
