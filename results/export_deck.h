// The conditions of a model in an input deck beside whole supports and nodal forces: rigid elements as *RIGID
// BODY with a reference and a rotation node each, springs as SPRING1 and SPRING2 elements, directions that
// are held and ties as *BOUNDARY and *EQUATION.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "results/export_text.h"

namespace kestralum {

class RigidDeck {
public:
    // `names`: of the deck's sets.
    RigidDeck(const ExportJob& job, ExportNames& names);

    // Nodes, sets, bodies, springs, and equations for rotations that are held about a skew direction.
    const std::string& definition() const { return definition_; }
    // Data lines of *BOUNDARY; of *CLOAD in a load case.
    const std::string& supports() const { return supports_; }
    std::string loads(const ConditionCase& of_case) const;
    // Per node: a rigid element has it.
    std::vector<char> members() const;
    // Numbers that are taken.
    std::int32_t last_node() const { return last_node_; }
    std::int32_t last_element() const { return last_element_; }

private:
    struct Body {
        std::int32_t reference, rotation;   // numbers of the nodes
        std::vector<std::int32_t> carried;  // numbers of further nodes that move with it
    };
    std::int32_t add_node(const Vec3& place);
    void add_body(const RigidMotion& motion);
    void hold(const RigidMotion& motion, const Body& body);
    void add_springs(const RigidSprings& springs, ExportNames& names);
    void add_spring(std::int32_t first, std::int32_t second, int freedom, double stiffness,
                    const std::string& name);

    const ExportJob& job_;
    std::int32_t last_node_, last_element_;
    std::vector<Body> bodies_;
    std::string nodes_, springs_;
    std::string definition_, supports_;
};

// factor · values = what each load case wants, solved for one of the values.
struct LinearRow {
    std::vector<double> factor;
    std::vector<double> wanted;  // per case
    std::size_t solved = 0;      // its factor is 1, and 0 in the other rows
};
// By Gauss-Jordan elimination; the rows must be independent.
void solve_rows(std::vector<LinearRow>& rows);

// Supports with options, their springs, and ties.
class SupportDeck {
public:
    // Numbers nodes and elements on behind the last ones.
    SupportDeck(const ExportJob& job, ExportNames& names, std::int32_t last_node, std::int32_t last_element);

    const std::string& definition() const { return definition_; }  // nodes, equations, springs
    const std::string& supports() const { return supports_; }      // data lines of *BOUNDARY
    // Data lines of *BOUNDARY that a load case moves what is held by; empty where nothing is moved in any.
    std::string moved(std::size_t of_case) const;

private:
    void hold(std::span<const HeldNode> held, std::size_t first);
    void tie(const TiedMotion& tied);
    void add_springs(ExportNames& names);

    struct Moved {
        std::string place;  // node, direction, direction
        std::vector<double> wanted;
    };
    const ExportJob& job_;
    std::int32_t last_node_, last_element_;
    std::vector<Moved> moved_;
    std::string definition_, supports_;
};

}  // namespace kestralum
