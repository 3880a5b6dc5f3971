#include "results/export_deck.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"

namespace kestralum {

namespace {

// factor · rotation = 0, solved for one of its components.
struct HeldRotation {
    Vec3 factor;
    std::size_t solved;  // its factor is 1, and 0 in the others
};

// From directions about which a body does not turn, by Gauss-Jordan elimination.
std::vector<HeldRotation> solved_rotations(const std::vector<Vec3>& directions) {
    std::vector<HeldRotation> rows;
    for (const Vec3& direction : directions) rows.push_back({direction, 0});
    for (HeldRotation& row : rows) {
        Vec3& f = row.factor;
        for (std::size_t c = 1; c < 3; ++c)
            if (std::abs(f[c]) > std::abs(f[row.solved])) row.solved = c;
        f = times(1 / f[row.solved], f);
        f[row.solved] = 1;
        for (HeldRotation& other : rows)
            if (&other != &row) other.factor = minus(other.factor, times(other.factor[row.solved], f));
    }
    return rows;
}

void append_number(std::string& text, std::int64_t number, const char* end) {
    append_d(text, number);
    text += end;
}

}  // namespace

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
void RigidDeck::add_body(const RigidMotion& motion) {
    const std::int32_t reference = add_node(motion.point), rotation = add_node(motion.point);
    for (std::size_t c = 0; c < 6; ++c) {
        if (motion.load[c] == 0) continue;
        loads_ += formatted("%d,%zu,", c < 3 ? reference : rotation, c % 3 + 1);
        append_field(loads_, motion.load[c]);
        loads_ += "\n";
    }
    bodies_.push_back({reference, rotation, {}});
}

void RigidDeck::hold(const RigidMotion& motion, const Body& body) {
    if (motion.held) supports_ += formatted("%d,1,3\n", body.reference);
    constexpr double nothing = 1e-12;
    for (const auto& [factor, solved] : solved_rotations(motion.no_turn)) {
        std::string terms;
        int count = 0;
        for (std::size_t k = 0; k < 3; ++k) {  // the first one is eliminated
            const std::size_t c = (solved + k) % 3;
            if (std::abs(factor[c]) <= nothing) continue;
            ++count;
            terms += formatted("%d,%zu,", body.rotation, c + 1);
            append_field(terms, factor[c]);
            terms += ",";
        }
        terms.back() = '\n';
        if (count == 1)
            supports_ += formatted("%d,%zu,%zu\n", body.rotation, solved + 1, solved + 1);
        else
            definition_ += formatted("*EQUATION\n%d\n", count) + terms;
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

}  // namespace kestralum
