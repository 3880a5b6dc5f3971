#include "elements/explicit_blocks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "elements/element_type.h"
#include "elements/plasticity.h"

namespace kestralum {

namespace {

// Elements by their smallest node, so that neighbours in memory share nodes.
std::vector<std::int32_t> element_order(const Mesh& mesh) {
    const std::size_t per_element = mesh.node_per_element();
    const std::size_t elements = mesh.element_num();
    std::vector<std::int32_t> least(elements), order(elements);
    for (std::size_t e = 0; e < elements; ++e) {
        const auto first = mesh.connectivity.begin() + static_cast<std::ptrdiff_t>(e * per_element);
        least[e] = *std::min_element(first, first + static_cast<std::ptrdiff_t>(per_element));
    }
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::int32_t a, std::int32_t b) { return least[a] < least[b]; });
    return order;
}

// The law that all points take: the general one where a material or the heat wants it.
PointLaw law_of(std::span<const Material> materials, const BlockOptions& options) {
    if (options.heated) return PointLaw::general;
    if (!options.plastic) return PointLaw::elastic;
    const bool plain =
        std::ranges::all_of(materials, [](const Material& m) { return j2_material(m, true).is_plain(); });
    return plain ? PointLaw::plastic : PointLaw::general;
}

ForceKernel choose_kernel(const KernelSet& set, ElementKind kind, PointLaw point_law,
                          const BlockOptions& options) {
    const auto law = static_cast<std::size_t>(point_law);
    if (kind == ElementKind::hexahedron) {
        if (options.mean_dilatation && options.plastic)
            return set.mean_once_yielded[point_law == PointLaw::general];
        if (options.form == HexahedronForm::mean_dilatation) return set.mean_dilatation[law];
        if (options.form == HexahedronForm::enhanced) return set.enhanced[law];
    }
    return set.kernel[static_cast<std::size_t>(kind)][law];
}

constexpr std::int64_t chunk_blocks = 32;  // blocks that a thread takes at a time

}  // namespace

ElementBlocks::ElementBlocks(const Mesh& mesh, std::span<const Part> parts,
                             std::span<const Material> materials, const BlockOptions& options)
    : set_(&kernel_set(options.widest)),
      kernel_(choose_kernel(*set_, mesh.element_type, law_of(materials, options), options)),
      lanes_(set_->lanes),
      nodes_per_element_(mesh.node_per_element()),
      points_(element_type(mesh.element_type).points),
      order_(element_order(mesh)) {
    const auto W = static_cast<std::size_t>(lanes_),
               per_element = static_cast<std::size_t>(nodes_per_element_),
               points = static_cast<std::size_t>(points_);
    const std::size_t elements = order_.size(), blocks = (elements + W - 1) / W;
    blocks_ = static_cast<std::int64_t>(blocks);
    nodes_.resize(blocks * per_element * W);
    material_.resize(blocks * 4 * W);
    stress_.assign(blocks * points * 6 * W, 0.0);
    const bool general = law_of(materials, options) == PointLaw::general;
    if (options.plastic || general) alpha_.assign(blocks * points * W, 0.0);
    force_.assign(blocks * per_element * 3 * W, 0.0);
    energy_.assign(blocks * 2 * W, 0.0);
    least_.assign(blocks * W, 1.0);
    for (std::size_t slot = 0; slot < blocks * W; ++slot) {
        const std::size_t e = order_[std::min(slot, elements - 1)];
        const std::size_t b = slot / W, lane = slot % W;
        for (std::size_t i = 0; i < per_element; ++i)
            nodes_[(b * per_element + i) * W + lane] =
                static_cast<std::int32_t>(node_index(mesh.connectivity[e * per_element + i]));
        const Part& part = parts[mesh.p_ele_part_id[e]];
        const J2Material<double> m = j2_material(materials[part.material_id], options.plastic);
        const bool rigid = !options.rigid.empty() && options.rigid[e] != 0;
        const std::array<double, 4> elastic{m.bulk - 2.0 / 3.0 * m.shear, m.shear, m.yield, m.hardening};
        const std::array<double, 4> values = rigid ? std::array<double, 4>{0, 0, m.yield, 1} : elastic;
        for (std::size_t c = 0; c < 4; ++c) material_[(4 * b + c) * W + lane] = values[c];
    }
    for (const Material& m : materials) laws_.push_back(j2_material(m, options.plastic));
    if (general) set_general(parts, mesh, options);
    // the places of each node, by element: the sum's order does not depend on the blocks' order
    gather_start_.assign(static_cast<std::size_t>(mesh.node_num()) + 1, 0);
    for (std::int32_t n : mesh.connectivity) ++gather_start_[n];
    std::partial_sum(gather_start_.begin(), gather_start_.end(), gather_start_.begin());
    gather_.resize(mesh.connectivity.size());
    std::vector<std::size_t> slot_of(elements);
    for (std::size_t slot = 0; slot < elements; ++slot) slot_of[order_[slot]] = slot;
    std::vector<std::int64_t> next(gather_start_.begin(), gather_start_.end() - 1);
    for (std::size_t e = 0; e < elements; ++e)
        for (std::size_t i = 0; i < per_element; ++i) {
            const std::size_t n = node_index(mesh.connectivity[e * per_element + i]);
            const std::size_t b = slot_of[e] / W, lane = slot_of[e] % W;
            gather_[next[n]++] = static_cast<std::int32_t>((b * per_element + i) * W + lane);
        }
}

void ElementBlocks::set_general(std::span<const Part> parts, const Mesh& mesh, const BlockOptions& options) {
    const std::size_t slots = least_.size();
    const bool hardens = std::ranges::any_of(laws_, [](const PlasticMaterial& m) { return m.kinematic > 0; });
    if (hardens) back_.assign(stress_.size(), 0.0);
    if (options.heated) {
        thermal_.assign(alpha_.size(), 0.0);
        thermal_step_ = thermal_;
        heat_.assign(slots, 0.0);
    }
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const std::size_t e = order_[std::min(slot, order_.size() - 1)];
        const PlasticMaterial& law = laws_[parts[mesh.p_ele_part_id[e]].material_id];
        const bool rigid = !options.rigid.empty() && options.rigid[e] != 0;
        kinematic_.push_back(rigid ? 1 : law.kinematic);  // a rigid point has no G to divide by
        segments_.push_back(law.curve.data());
    }
}

void ElementBlocks::set_thermal(std::span<const double> strain, int threads) {
    const std::size_t W = lanes_, points = points_;
    const auto slots = static_cast<std::int64_t>(least_.size());
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1)
    for (std::int64_t slot = 0; slot < slots; ++slot) {
        const std::size_t e = order_[std::min(std::size_t(slot), order_.size() - 1)];
        for (std::size_t p = 0; p < points; ++p) {
            const std::size_t at = (std::size_t(slot) / W * points + p) * W + std::size_t(slot) % W;
            thermal_step_[at] = strain[e * points + p] - thermal_[at];
            thermal_[at] = strain[e * points + p];
        }
    }
}

namespace {

// Waves fade ahead of their front into subnormal numbers, which processors compute slowly: here they are 0.
class FlushSubnormals {
public:
#ifdef __x86_64__
    FlushSubnormals() : former_(__builtin_ia32_stmxcsr()) {
        __builtin_ia32_ldmxcsr(former_ | 0x8040);
    }
    ~FlushSubnormals() {
        __builtin_ia32_ldmxcsr(former_);
    }
#else
    FlushSubnormals() = default;
#endif
    FlushSubnormals(const FlushSubnormals&) = delete;
    FlushSubnormals& operator=(const FlushSubnormals&) = delete;

private:
    [[maybe_unused]] unsigned former_ = 0;
};

}  // namespace

bool ElementBlocks::evaluate(const double* x, const double* du, int threads) {
    const auto pointer_to = [](LineDoubles& values) { return values.empty() ? nullptr : values.data(); };
    KernelArrays arrays{
        nodes_.data(), x, du, material_.data(), stress_.data(), alpha_.data(), force_.data(), energy_.data(),
        least_.data()};
    arrays.general = {pointer_to(back_), pointer_to(thermal_step_), pointer_to(heat_), kinematic_.data(),
                      segments_.data()};
    const std::int64_t chunks = (blocks_ + chunk_blocks - 1) / chunk_blocks;
    int inverted = 0;
// taken as threads come free: on a busy machine one of them may be held up
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads) if (threads > 1) reduction(| : inverted)
    for (std::int64_t c = 0; c < chunks; ++c) {
        const FlushSubnormals flush;
        const std::int64_t first = c * chunk_blocks, last = std::min(blocks_, first + chunk_blocks);
        kernel_(arrays, first, last);
        for (std::int64_t k = first * lanes_; k < last * lanes_; ++k) inverted |= !(least_[k] > 0);
    }
    return inverted == 0;
}

std::int32_t ElementBlocks::first_inverted() const {
    std::int32_t first = -1;
    for (std::size_t slot = 0; slot < order_.size(); ++slot)
        if (!(least_[slot] > 0) && (first < 0 || order_[slot] < first)) first = order_[slot];
    return first;
}

void ElementBlocks::gather_forces(double* R, int threads) const {
    const auto nodes = static_cast<std::int64_t>(gather_start_.size()) - 1;
    const double* force = force_.data();
    const std::int32_t W = lanes_, mask = W - 1;  // lanes are a power of two
#pragma omp parallel for schedule(dynamic, 2048) num_threads(threads) if (threads > 1)
    for (std::int64_t n = 0; n < nodes; ++n) {
        double sum[3] = {0, 0, 0};
        for (std::int64_t k = gather_start_[n]; k < gather_start_[static_cast<std::size_t>(n) + 1]; ++k) {
            const std::int32_t place = gather_[k];
            const double* f = force + 3 * static_cast<std::int64_t>(place & ~mask) + (place & mask);
            sum[0] += f[0];
            sum[1] += f[W];
            sum[2] += f[2 * W];
        }
        double* r = R + 4 * n;
        r[0] = sum[0];
        r[1] = sum[1];
        r[2] = sum[2];
    }
}

double ElementBlocks::energy(int kind) const {
    double sum = 0;
    const std::size_t W = lanes_;
    for (std::size_t slot = 0; slot < order_.size(); ++slot)
        sum += energy_[(2 * (slot / W) + static_cast<std::size_t>(kind)) * W + slot % W];
    return sum;
}

double ElementBlocks::heat_work() const {
    double sum = 0;
    for (std::size_t slot = 0; slot < order_.size() && !heat_.empty(); ++slot) sum += heat_[slot];
    return sum;
}

std::size_t ElementBlocks::stress_at(std::size_t slot, int point) const {
    const std::size_t W = lanes_;
    return ((slot / W) * static_cast<std::size_t>(points_) + static_cast<std::size_t>(point)) * 6 * W +
           slot % W;
}

void ElementBlocks::copy_stresses(std::vector<double>& stress, std::vector<double>& plastic_strain) const {
    const auto W = static_cast<std::size_t>(lanes_), points = static_cast<std::size_t>(points_);
    stress.resize(order_.size() * points * 6);
    plastic_strain.resize(alpha_.empty() ? 0 : order_.size() * points);
    for (std::size_t slot = 0; slot < order_.size(); ++slot) {
        const std::size_t e = order_[slot];
        for (std::size_t p = 0; p < points; ++p) {
            const std::size_t from = stress_at(slot, static_cast<int>(p));
            for (std::size_t c = 0; c < 6; ++c) stress[6 * (e * points + p) + c] = stress_[from + c * W];
            if (!alpha_.empty())
                plastic_strain[e * points + p] = alpha_[((slot / W) * points + p) * W + slot % W];
        }
    }
}

void ElementBlocks::set_stresses(std::span<const double> stress) {
    const auto W = static_cast<std::size_t>(lanes_), points = static_cast<std::size_t>(points_);
    for (std::size_t slot = 0; slot < static_cast<std::size_t>(blocks_) * W; ++slot) {
        const std::size_t e = order_[std::min(slot, order_.size() - 1)];
        for (std::size_t p = 0; p < points; ++p)
            for (std::size_t c = 0; c < 6; ++c)
                stress_[stress_at(slot, static_cast<int>(p)) + c * W] = stress[6 * (e * points + p) + c];
    }
}

std::size_t ElementBlocks::bytes() const {
    return (order_.size() + nodes_.size() + gather_.size()) * sizeof(std::int32_t) +
           gather_start_.size() * sizeof(std::int64_t) +
           (material_.size() + stress_.size() + alpha_.size() + force_.size() + energy_.size() +
            least_.size() + kinematic_.size() + back_.size() + 2 * thermal_.size() + heat_.size()) *
               sizeof(double);
}

}  // namespace kestralum
