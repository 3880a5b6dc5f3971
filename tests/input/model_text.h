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
  ALU   2700     7e10    0.33 alpha=2*1.15e-5
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
set_info
  FREE plane x L
  TOP  plane z 20*mm
%
boundary_condition
  CLAMP plane  x  0 0  0 0  0 0 fix=x ux=1e-3*y*time case=dead
  SIDE  area   y  0 L  0 0  0 10*mm
  BOX   volume z  0 5*mm  0 5*mm  0 5*mm
  BED   set TOP spring=1e9*z spring_normal=2e9
%
apply_force
  TIP  node z P     L 20*mm 10*mm
  PUSH area x 500   L L  0 20*mm  0 10*mm factor=time^2 case=wind
  LOST node y 1     L 20*mm 11*mm
%
load_info
  PRESS pressure    TOP   1e5*x*time factor=2 case=wind
  PULL  traction    FREE  1e5 y P*z
  SHARE force       FREE  1 2 P case=base
  PIN   bearing     TOP   0 0 P
  CRANE remote      FREE  L 0 0  0 0 P  5 0 6
  HOOK  remote      FREE  L 0 0  0 0 P  5 0 6 coupling=rigid case=crane factor=time
  SELF  gravity     0 0 -9.81 case=dead
  SPIN  centrifugal 0 0 0  0 3 4  2*50
  HOT   temperature BLOCK 300+time reference=293
  ALL   temperature all 20
%
load_combination
  ULS 1.35*(base+dead)+1.5*0.9*wind-crane/2
%
tie_info
  GLUE FREE TOP tolerance=0.1*mm
  BOND TOP FREE
%
rigid_element
  HEAD area  L 0 0   L L  0 20*mm  0 10*mm
  RING round 0 0 0   1*mm 2*mm 3*mm  5*mm 2 4*mm
%
rigid_force
  RF1 HEAD ry 3.5
  RF2 RING n  -P case=dead
%
rigid_combine
  RC HEAD RING 1e6 2e6 3e6 10 20 30
%
END
)";

// What a reader may change, so that "unchanged" is one comparison.
inline std::string digest(const Model& m) {
    std::ostringstream out;
    out.precision(17);
    const auto add = [&](const auto&... values) { ((out << values << ' '), ...) << '\n'; };
    for (const auto& a : m.materials)
        add(a.name, a.density, a.young, a.poisson, a.yield_stress, a.hardening, a.expansion, a.kinematic,
            a.hardening_table.size());
    for (const auto& a : m.parameters) add(a.id, a.name, a.value, a.expression);
    for (const auto* parts : {&m.parts, &m.parts_o})
        for (const auto& a : *parts)
            add(a.name, a.material_id, a.type_name, a.parent_index, a.size[0], a.origin[2]);
    for (const auto& a : m.boundary_conditions) add(a.name, static_cast<int>(a.kind), a.axis, a.box[5]);
    for (const auto& a : m.forces) add(a.name, static_cast<int>(a.kind), a.axis, a.value);
    for (const auto& a : m.rigid_elements) add(a.name, a.region[3]);
    for (const auto& a : m.rigid_forces) add(a.name, a.element, a.value);
    for (const auto& a : m.rigid_combines) add(a.name, a.element[0], a.element[1], a.stiffness[5]);
    for (const auto& a : m.sets) add(a.name);
    for (const auto* loads : {&m.loads, &m.rigid_loads})
        for (const auto& a : *loads) add(a.name, a.set_name, a.value.text, a.options.case_name);
    for (const auto& a : m.combinations) add(a.name, a.terms.size());
    for (const auto& a : m.ties) add(a.name, a.master_set);
    add(m.mode_count, m.iteration_limit, static_cast<int>(m.source), m.mesh.node_num(), m.mesh.max_length);
    const AnalysisControl& c = m.control;
    add(c.d_time, c.end_time, c.output_frequency, c.c_alfa, c.gravity_axis, c.gravity_sign, c.plastic,
        c.element_contact, c.nl_halving, c.load_factors.size(), c.load_factor_expression.text,
        m.explicit_tables.walls.size(), m.explicit_tables.contacts.size());
    return out.str();
}

}  // namespace kestralum::testing
