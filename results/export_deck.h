// The rigid elements of a model in an input deck: *RIGID BODY with a reference and a rotation node each,
// springs between them as SPRING2 elements.
#pragma once

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
    // Data lines of *BOUNDARY and *CLOAD.
    const std::string& supports() const { return supports_; }
    const std::string& loads() const { return loads_; }
    // Per node: a rigid element has it.
    std::vector<char> members() const;

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
    std::string definition_, supports_, loads_;
};

}  // namespace kestralum
