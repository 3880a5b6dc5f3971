#include "solver/ordering.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <vector>

namespace kestralum {

std::int32_t measure_band(const Mesh& mesh) {
    std::int32_t band = 0;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto nodes = mesh.element(e);
        const auto [low, high] = std::minmax_element(nodes.begin(), nodes.end());
        band = std::max(band, 3 * (*high - *low) + 3);
    }
    return band;
}

namespace {

// The point that distances are measured from.
std::array<double, 3> sub_origin(const Mesh& mesh, std::string_view method) {
    const auto& box = mesh.size_info;
    const std::array<double, 3> extent{box[3] - box[0], box[4] - box[1], box[5] - box[2]};
    const double longest = mesh.max_length;
    std::size_t axis = 0;
    if (method == "LMAX") {
        if (extent[1] == longest) axis = 1;
        if (extent[2] == longest) axis = 2;
    } else if (method == "LY") {
        axis = 1;
    } else if (method == "LZ") {
        axis = 2;
    }
    std::array<double, 3> origin{box[0], box[1], box[2]};
    origin[axis] -= 100 * longest;
    return origin;
}

// The counter lines of a loop that is long over.
void count_up_to(std::int64_t n, Progress& progress) {
    for (std::int64_t i = 0; i < n && progress.lines_wanted() && !progress.cancelled(); ++i)
        progress.counter(i, n);
}

}  // namespace

void renumber_nodes(Mesh& mesh, std::span<const std::int32_t> new_number) {
    for (std::vector<std::int32_t>* numbers : {&mesh.connectivity, &mesh.surface_facets})
        for (std::int32_t& c : *numbers) c = new_number[node_index(c)] + 1;
    std::vector<double> moved(mesh.coordinates.size());
    for (std::size_t n = 0; n < new_number.size(); ++n)
        std::copy_n(&mesh.coordinates[3 * n], 3, &moved[3 * std::size_t(new_number[n])]);
    mesh.coordinates = std::move(moved);
}

std::vector<std::int32_t> reorder_nodes(Mesh& mesh, std::string_view method, Progress& progress) {
    progress.print("Reordering Node Numbers\n");
    const auto origin = sub_origin(mesh, method);
    progress.print("Sub-origin: %e,%e,%e\n", origin[0], origin[1], origin[2]);

    const std::size_t nodes = mesh.node_num();
    struct Place {
        double distance;
        std::int32_t node;
    };
    std::vector<Place> order(nodes);
    for (std::size_t n = 0; n < nodes; ++n) {
        const double* x = &mesh.coordinates[3 * n];
        const double dx = x[0] - origin[0], dy = x[1] - origin[1], dz = x[2] - origin[2];
        order[n] = {std::sqrt(dx * dx + dy * dy + dz * dz), static_cast<std::int32_t>(n)};
    }
    // distance, then the old number: the order that a stable sort by distance gives
    std::sort(order.begin(), order.end(), [](const Place& a, const Place& b) {
        return a.distance != b.distance ? a.distance < b.distance : a.node < b.node;
    });
    count_up_to(mesh.node_num(), progress);

    std::vector<std::int32_t> new_number(nodes);
    for (std::size_t k = 0; k < nodes; ++k) new_number[order[k].node] = static_cast<std::int32_t>(k);
    renumber_nodes(mesh, new_number);
    count_up_to(mesh.element_num(), progress);
    count_up_to(mesh.node_num(), progress);
    progress.print("Complete Reordering Node Numbers\n");
    return new_number;
}

Ordering order_nodes(Mesh& mesh, std::string_view ordering_type, Progress& progress) {
    Ordering out;
    out.node_of.resize(mesh.node_num());
    std::iota(out.node_of.begin(), out.node_of.end(), 0);
    const auto reorder = [&](const char* method) {
        if (progress.cancelled()) return;
        const std::vector<std::int32_t> number = reorder_nodes(mesh, method, progress);
        for (std::int32_t& n : out.node_of) n = number[n];
    };
    const std::int32_t d0 = measure_band(mesh);
    progress.print("diag_num=%d\n", d0);
    constexpr std::array<const char*, 3> methods{"LX", "LY", "LZ"};
    std::array<std::int32_t, 3> band{d0, d0, d0};
    bool any = false;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (ordering_type != "LALL" && ordering_type != methods[axis]) continue;
        any = true;
        reorder(methods[axis]);
        band[axis] = measure_band(mesh);
        progress.print("%s: diag_num=%d\n\n", methods[axis], band[axis]);
    }
    if (any) {
        std::size_t best = 0;
        if (band[1] < band[best]) best = 1;
        if (band[2] < band[best]) best = 2;
        reorder(methods[best]);
        progress.print("Ordering: min_direc=%s\n", methods[best]);
    }
    if (ordering_type == "LMAX") {
        reorder("LMAX");
        progress.print("Ordering: min_direc=LMAX\n");
    }
    out.diag_num = measure_band(mesh);
    progress.print("diag_num=%d\n\n", out.diag_num);
    return out;
}

}  // namespace kestralum
