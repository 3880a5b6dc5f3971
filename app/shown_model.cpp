#include "app/shown_model.h"

#include "elements/constraints.h"
#include "model/model_store.h"

namespace kestralum {

void ShownModel::model_changed() {
    const ModelStore& store = model_store();
    fixed_nodes_.clear();
    for (const BoundaryCondition& record : store.boundary_conditions) {
        const auto nodes = select_nodes(record, store.mesh);
        fixed_nodes_.insert(fixed_nodes_.end(), nodes.begin(), nodes.end());
    }
    drawing.set_pick({});
    drawing.mesh_changed();
}

view::SceneTables ShownModel::tables() const {
    const ModelStore& store = model_store();
    return {.mesh = store.mesh,
            .results = store.results,
            .control = store.control,
            .ana_type = store.ana_type,
            .parts = store.parts,
            .parts_o = store.parts_o,
            .forces = store.forces,
            .rigid_elements = store.rigid_elements,
            .rigid_forces = store.rigid_forces,
            .walls = store.explicit_tables.walls,
            .contacts = store.explicit_tables.contacts,
            .parameters = store.parameters,
            .fixed_nodes = fixed_nodes_};
}

view::Scene ShownModel::box() const {
    return tables().box();
}

void ShownModel::fit(const view::gl::TextPainter& texts) {
    drawing.update(tables(), state);
    view::Margins margins;
    const auto bar = view::gl::shown_bar(drawing.picture(), state, tables().ana_type);
    margins.right = view::gl::bar_width(bar, camera, texts);
    if (state.result_ready && state.shows(view::ViewFlag::text))
        margins.bottom = 2.6 * texts.height(view::gl::TextSize::large);
    const auto points = view::gl::extent_points(drawing.picture(), tables(), state);
    view::fit_points(camera, box(), points, margins);
}

std::string ShownModel::pick(double x, double y) {
    const view::SceneTables shown = tables();
    drawing.update(shown, state);
    const view::Picture& picture = drawing.picture();
    std::vector<double> places;
    picture.place(shown, state.phase, places);
    const auto found = view::pick_node(view::unproject(camera, box(), x, y), picture.outside(), places,
                                       view::pixel_slack(camera, 5));
    drawing.set_pick(found);
    if (!found) return "";
    return view::status_text(*found, shown.mesh, picture.vector(), picture.values(), state.contour);
}

}  // namespace kestralum
