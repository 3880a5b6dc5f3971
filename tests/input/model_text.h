// A model file that uses every section, and a digest of what a store holds.
#pragma once

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "model/model_store.h"

namespace kestralum::test {

// A bar with a block on it.
inline const std::string model_text = R"(material_info
  STEEL 7.8*1000 2.06e11 0.3
  ALU   2700     7e10    0.33
%
mode_num 6 %
iteration 20 %
parameter
  mm 0.001
  L  200*mm
  P  -2*500
%
part_info
  BAR   blue  STEEL RECT  L   20*mm 10*mm 0 0 0   4 2 1 0 0 0   0 0 0      0 0 0
  BLOCK brown ALU   RECT  100 20    10    0 0 0   2 2 1 0 0 0   0 0 10     0 0 0 parent=BAR unit=mm
%
boundary_condition
  CLAMP plane  x  0 0  0 0  0 0
  SIDE  area   y  0 L  0 0  0 10*mm
  BOX   volume z  0 5*mm  0 5*mm  0 5*mm
%
apply_force
  TIP  node z P     L 20*mm 10*mm
  PUSH area x 500   L L  0 20*mm  0 10*mm
  LOST node y 1     L 20*mm 11*mm
%
rigid_element
  HEAD area  L 0 0   L L  0 20*mm  0 10*mm
  RING round 0 0 0   1*mm 2*mm 3*mm  5*mm 2 4*mm
%
rigid_force
  RF1 HEAD ry 3.5
  RF2 RING n  -P
%
rigid_combine
  RC HEAD RING 1e6 2e6 3e6 10 20 30
%
END
)";

inline std::vector<std::string> tokens_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> tokens;
    for (std::string token; stream >> token;) tokens.push_back(token);
    return tokens;
}

inline std::string joined(const std::vector<std::string>& tokens) {
    std::string text;
    for (const std::string& token : tokens) text += token + "\n";
    return text;
}

// Everything a reader may change, so that "unchanged" is one comparison.
inline std::string digest(const ModelStore& s) {
    std::ostringstream out;
    out.precision(17);
    for (const auto& m : s.materials)
        out << m.id << m.name << ' ' << m.density << ' ' << m.young << ' ' << m.poisson << ' '
            << m.shear_modulus << ' ' << m.yield_stress << ' ' << m.hardening << '\n';
    for (const auto& p : s.parameters) out << p.id << p.name << '=' << p.value << '=' << p.expression << '\n';
    for (const auto* parts : {&s.parts, &s.parts_o})
        for (const auto& p : *parts) {
            out << p.id << p.name << p.material_id << p.type_name << p.parent_index << p.unit_factor;
            for (double v : p.size) out << ' ' << v;
            for (double v : p.origin) out << ' ' << v;
            out << '\n';
        }
    for (const auto& b : s.boundary_conditions) {
        out << b.id << b.name << static_cast<int>(b.kind) << b.axis;
        for (double v : b.box) out << ' ' << v;
    }
    for (const auto& f : s.forces)
        out << f.id << f.name << static_cast<int>(f.kind) << f.axis << f.value << f.node;
    for (const auto& e : s.rigid_elements) out << e.id << e.name << e.region[3];
    for (const auto& f : s.rigid_forces) out << f.id << f.name << f.element << f.value;
    for (const auto& c : s.rigid_combines)
        out << c.id << c.name << c.element[0] << c.element[1] << c.stiffness[5];
    out << s.mode_count << ' ' << s.iteration_limit << ' ' << s.mesh.node_num() << ' ' << s.mesh.element_num()
        << ' ' << s.mesh.dof_num << ' ' << s.mesh.max_length << ' ' << s.results.mode_vec.size() << ' '
        << s.results.n_freq.size() << '\n';
    const AnalysisControl& c = s.control;
    out << c.d_time << ' ' << c.end_time << ' ' << c.output_frequency << ' ' << c.c_alfa << ' '
        << c.gravity_axis << ' ' << c.gravity_sign << c.plastic << c.element_contact;
    return out.str();
}

}  // namespace kestralum::test
