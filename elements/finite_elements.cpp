#include "elements/finite_elements.h"

#include <algorithm>

#include "elements/enhanced_hexahedron.h"
#include "elements/finite_forms.h"

namespace kestralum {

namespace {

bool gather(const Mesh& mesh, std::span<const double> u, const ElementType& type, std::int32_t e,
            FiniteElementState& out) {
    if (!evaluate_points(type, mesh, e, out.points)) return false;
    const std::int32_t* element = mesh.element(e).data();
    for (int i = 0; i < type.nodes; ++i) {
        const double* from = u.data() + 3 * node_index(element[i]);
        std::copy(from, from + 3, out.u.data() + 3 * i);
    }
    return true;
}

}  // namespace

void displacement_gradient(int nodes, const double* u, const double* dN, double* H) {
    std::fill(H, H + 9, 0.0);
    for (int i = 0; i < nodes; ++i)
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) H[3 * r + c] += u[3 * i + r] * dN[3 * i + c];
}

void push_gradients(int nodes, const double* dN, const std::array<double, 9>& Fi, double* dn) {
    for (int i = 0; i < nodes; ++i)
        for (int c = 0; c < 3; ++c)
            dn[3 * i + c] = dN[3 * i] * Fi[c] + dN[3 * i + 1] * Fi[3 + c] + dN[3 * i + 2] * Fi[6 + c];
}

void add_point_stiffness(int nodes, const double* dn, const FiniteResponse& at, double w, double* ke) {
    const int size = 3 * nodes;
    const double* c = at.tangent.data();
    const auto& t = at.tau;
    double cB[most_nodes][6][3];  // c Bj
    double tn[most_nodes][3];     // τ∇Nj
    for (int j = 0; j < nodes; ++j) {
        const double x = w * dn[3 * j], y = w * dn[3 * j + 1], z = w * dn[3 * j + 2];
        for (int m = 0; m < 6; ++m) {
            const double* row = c + 6 * m;
            cB[j][m][0] = row[0] * x + row[3] * y + row[5] * z;
            cB[j][m][1] = row[3] * x + row[1] * y + row[4] * z;
            cB[j][m][2] = row[5] * x + row[4] * y + row[2] * z;
        }
        tn[j][0] = t[0] * x + t[3] * y + t[5] * z;
        tn[j][1] = t[3] * x + t[1] * y + t[4] * z;
        tn[j][2] = t[5] * x + t[4] * y + t[2] * z;
    }
    for (int i = 0; i < nodes; ++i) {
        const double x = dn[3 * i], y = dn[3 * i + 1], z = dn[3 * i + 2];
        for (int j = i; j < nodes; ++j) {
            double* block = ke + 3 * i * size + 3 * j;
            const auto& s = cB[j];
            const double geometric = x * tn[j][0] + y * tn[j][1] + z * tn[j][2];
            for (int k = 0; k < 3; ++k) {
                block[k] += x * s[0][k] + y * s[3][k] + z * s[5][k];
                block[size + k] += x * s[3][k] + y * s[1][k] + z * s[4][k];
                block[2 * size + k] += x * s[5][k] + y * s[4][k] + z * s[2][k];
                block[k * size + k] += geometric;
            }
        }
    }
}

void add_point_forces(int nodes, const double* dn, const std::array<double, 6>& t, double w, double* f) {
    for (int i = 0; i < nodes; ++i) {
        const double x = w * dn[3 * i], y = w * dn[3 * i + 1], z = w * dn[3 * i + 2];
        f[3 * i] += t[0] * x + t[3] * y + t[5] * z;
        f[3 * i + 1] += t[3] * x + t[1] * y + t[4] * z;
        f[3 * i + 2] += t[5] * x + t[4] * y + t[2] * z;
    }
}

void store_response(FiniteBody& body, std::size_t point, const FiniteResponse& response) {
    body.current[point] = response.state;
    body.trial[point] = response.trial;
    for (std::size_t c = 0; c < 6; ++c) body.stress[6 * point + c] = response.tau[c] / response.J;
}

namespace {

HexahedronForm form_of(const FiniteBody& body) {
    return body.mesh.element_type == ElementKind::hexahedron ? body.form : HexahedronForm::full;
}

bool update_element(FiniteBody& body, const ElementType& type, std::int32_t e) {
    FiniteElementState state;
    if (!gather(body.mesh, body.u, type, e, state)) return false;
    if (form_of(body) == HexahedronForm::enhanced) return update_enhanced(body, state, e);
    if (form_of(body) == HexahedronForm::mean_dilatation) return update_mean_dilatation(body, state, e);
    double* f = body.element_force.data() + static_cast<std::ptrdiff_t>(e) * 3 * type.nodes;
    std::fill(f, f + 3 * type.nodes, 0.0);
    for (int p = 0; p < type.points; ++p) {
        const std::size_t at = first_point(type, e) + p;
        const double* dN = state.points.dN.data() + 3 * type.nodes * p;
        double H[9], dn[3 * most_nodes];
        displacement_gradient(type.nodes, state.u.data(), dN, H);
        FiniteResponse response;
        if (!finite_response(material_of(body, e), H, body.committed[at], false, response)) return false;
        store_response(body, at, response);
        push_gradients(type.nodes, dN, response.F_inverse, dn);
        add_point_forces(type.nodes, dn, response.tau, state.points.weight[p], f);
    }
    return true;
}

}  // namespace

void FiniteBody::start() {
    const ElementType& type = element_type(mesh.element_type);
    const std::size_t points = first_point(type, mesh.element_num());
    u.assign(mesh.coordinates.size(), 0.0);
    committed.assign(points, {});
    current.assign(points, {});
    trial.assign(points, {});
    stress.assign(6 * points, 0.0);
    const bool enhanced = form_of(*this) == HexahedronForm::enhanced;
    committed_internal.assign(enhanced ? std::size_t(mesh.element_num()) * enhanced_modes : 0, 0.0);
    current_internal = committed_internal;
    element_force.assign(static_cast<std::size_t>(mesh.element_num()) * 3 * type.nodes, 0.0);
}

void FiniteBody::set_thermal(std::span<const double> strain) {
    for (std::size_t p = 0; p < strain.size(); ++p) committed[p].thermal = strain[p];
}

void FiniteBody::commit() {
    committed = current;
    committed_internal = current_internal;
}

namespace {

bool full_tangent(const FiniteBody& body, const ElementType& type, const FiniteElementState& state,
                  std::int32_t e, double* ke) {
    for (int p = 0; p < type.points; ++p) {
        const double* dN = state.points.dN.data() + 3 * type.nodes * p;
        double H[9], dn[3 * most_nodes];
        displacement_gradient(type.nodes, state.u.data(), dN, H);
        FiniteResponse response;
        const std::size_t at = first_point(type, e) + p;
        if (!finite_response(material_of(body, e), H, body.committed[at], true, response, &body.trial[at]))
            return false;
        push_gradients(type.nodes, dN, response.F_inverse, dn);
        add_point_stiffness(type.nodes, dn, response, state.points.weight[p], ke);
    }
    return true;
}

}  // namespace

bool finite_stiffness(const FiniteBody& body, std::int32_t e, double* ke) {
    const ElementType& type = element_type(body.mesh.element_type);
    const int size = 3 * type.nodes;
    std::fill(ke, ke + size * size, 0.0);
    if (body.is_rigid(e)) return true;
    FiniteElementState state;
    if (!gather(body.mesh, body.u, type, e, state)) return false;
    const HexahedronForm form = form_of(body);
    const bool sound = form == HexahedronForm::enhanced          ? enhanced_tangent(body, state, e, ke)
                       : form == HexahedronForm::mean_dilatation ? mean_dilatation_tangent(body, state, e, ke)
                                                                 : full_tangent(body, type, state, e, ke);
    if (!sound) return false;
    for (int r = 0; r < size; ++r)
        for (int c = 0; c < r; ++c) ke[r * size + c] = ke[c * size + r];
    return true;
}

std::int32_t update_stresses(FiniteBody& body) {
    const ElementType& type = element_type(body.mesh.element_type);
    const std::int32_t elements = body.mesh.element_num();
    std::int32_t bad = elements;
#pragma omp parallel for schedule(static) num_threads(body.threads) reduction(min : bad)
    for (std::int32_t e = 0; e < elements; ++e)
        if (!body.is_rigid(e) && !update_element(body, type, e)) bad = std::min(bad, e);
    return bad < elements ? bad : -1;
}

std::vector<double> internal_forces(const FiniteBody& body, const NodeElements& node_elements) {
    const ElementType& type = element_type(body.mesh.element_type);
    const std::int32_t nodes = body.mesh.node_num();
    std::vector<double> force(3 * nodes, 0.0);
#pragma omp parallel for schedule(static) num_threads(body.threads)
    for (std::int32_t n = 0; n < nodes; ++n) {
        for (const std::int32_t e : node_elements.of(n)) {
            const auto element = body.mesh.element(e);
            const auto local = std::find(element.begin(), element.end(), n + 1) - element.begin();
            const double* f = body.element_force.data() + 3 * (std::ptrdiff_t(e) * type.nodes + local);
            for (std::size_t c = 0; c < 3; ++c) force[3 * n + c] += f[c];
        }
    }
    return force;
}

namespace {

// Strains at the points of one element (points × 6); returns its volume. body: whose internal strains count;
// null: none have any.
double find_strains(const Mesh& mesh, std::span<const double> u, std::int32_t e, HexahedronForm form,
                    const FiniteBody* body, double* strain) {
    const ElementType& type = element_type(mesh.element_type);
    FiniteElementState state;
    gather(mesh, u, type, e, state);
    double H[9 * most_points], of_form[9 * most_points], Fi[9], volume = 0;
    for (int p = 0; p < type.points; ++p) {
        displacement_gradient(type.nodes, state.u.data(), state.points.dN.data() + 3 * type.nodes * p,
                              H + 9 * p);
        volume += state.points.weight[p] * invert_deformation(H + 9 * p, Fi);
    }
    const double* strained = form == HexahedronForm::full ? H : of_form;
    if (form == HexahedronForm::enhanced) enhanced_gradients(*body, state, e, of_form);
    if (form == HexahedronForm::mean_dilatation) mean_dilatation_gradients(state, of_form);
    for (int p = 0; p < type.points; ++p) logarithmic_strain(strained + 9 * p, strain + 6 * p);
    return volume;
}

void find_strains(const Mesh& mesh, std::span<const double> u, int threads, HexahedronForm form,
                  const FiniteBody* body, PointResults& out) {
    const ElementType& type = element_type(mesh.element_type);
    const std::int32_t elements = mesh.element_num();
    out.strain.resize(6 * first_point(type, elements));
    out.volume.assign(elements, 0.0);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e)
        out.volume[e] = find_strains(mesh, u, e, form, body, &out.strain[6 * first_point(type, e)]);
}

}  // namespace

void logarithmic_strains(const Mesh& mesh, std::span<const double> u, int threads, PointResults& out) {
    find_strains(mesh, u, threads, HexahedronForm::full, nullptr, out);
}

std::vector<float> mean_logarithmic_strains(const Mesh& mesh, std::span<const double> u, int threads) {
    const int points = element_type(mesh.element_type).points;
    std::vector<float> out(6 * std::size_t(mesh.element_num()));
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        double strain[6 * most_points], mean[6]{};
        find_strains(mesh, u, e, HexahedronForm::full, nullptr, strain);
        for (int k = 0; k < 6 * points; ++k) mean[k % 6] += strain[k] / points;
        for (std::size_t c = 0; c < 6; ++c) out[6 * std::size_t(e) + c] = static_cast<float>(mean[c]);
    }
    return out;
}

PointResults finite_point_results(const FiniteBody& body) {
    PointResults out;
    out.stress = body.stress;
    find_strains(body.mesh, body.u, body.threads, form_of(body), &body, out);
    return out;
}

std::array<double, 2> plastic_volume(const FiniteBody& body, std::span<const char> counted) {
    const ElementType& type = element_type(body.mesh.element_type);
    double plastic = 0, all = 0;
    for (std::int32_t e = 0; e < body.mesh.element_num(); ++e) {
        if (!counted.empty() && counted[e] == 0) continue;
        ElementPoints points;
        evaluate_points(type, body.mesh, e, points);
        for (int p = 0; p < type.points; ++p) {
            const double w = points.weight[p];
            all += w;
            if (body.committed[first_point(type, e) + p].alpha > 0) plastic += w;
        }
    }
    return {plastic, all};
}

double plastic_share(const FiniteBody& body) {
    const auto [plastic, all] = plastic_volume(body);
    return all > 0 ? plastic / all : 0;
}

}  // namespace kestralum
