// A model file that uses every section, and a digest of what a model holds.
#pragma once

#include <sstream>
#include <string>

#include "model/model.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

namespace kestralum::testing {

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

// Everything a reader may change, so that "unchanged" is one comparison.
inline std::string digest(const Model& s) {
    std::ostringstream out;
    out.precision(17);
    const auto add = [&](const auto&... values) { ((out << values << ' '), ...) << '\n'; };
    const auto add_all = [&](const auto& values) {
        for (double v : values) out << v << ' ';
    };
    for (const auto& m : s.materials)
        add(m.id, m.name, m.density, m.young, m.poisson, m.shear_modulus, m.yield_stress, m.hardening);
    for (const auto& p : s.parameters) add(p.id, p.name, p.value, p.expression);
    for (const auto* parts : {&s.parts, &s.parts_o})
        for (const auto& p : *parts) {
            add(p.id, p.name, p.material_id, p.type_name, p.parent_index, p.unit_factor);
            add_all(p.size);
            add_all(p.origin);
        }
    for (const auto& b : s.boundary_conditions) {
        add(b.id, b.name, static_cast<int>(b.kind), b.axis);
        add_all(b.box);
    }
    for (const auto& f : s.forces) add(f.id, f.name, static_cast<int>(f.kind), f.axis, f.value);
    for (const auto& e : s.rigid_elements) add(e.id, e.name, e.region[3]);
    for (const auto& f : s.rigid_forces) add(f.id, f.name, f.element, f.value);
    for (const auto& c : s.rigid_combines) add(c.id, c.name, c.element[0], c.element[1], c.stiffness[5]);
    const Mesh& mesh = s.mesh;
    add(s.mode_count, s.iteration_limit, static_cast<int>(s.source));
    add(mesh.node_num(), mesh.element_num(), mesh.dof_num(), mesh.max_length);
    const AnalysisControl& c = s.control;
    add(c.d_time, c.end_time, c.output_frequency, c.c_alfa, c.gravity_axis, c.gravity_sign);
    add(c.plastic, c.element_contact);
    return out.str();
}

}  // namespace kestralum::testing
