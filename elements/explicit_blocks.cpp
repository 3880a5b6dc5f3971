#include "elements/explicit_blocks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "elements/element_type.h"
#include "elements/plasticity.h"

namespace kestralum {

namespace {

// Every third bit of the result is one of the 21 low ones of v.
std::uint64_t spread_bits(std::uint64_t v) {
    v = (v | v << 32) & 0x1f00000000ffff;
    v = (v | v << 16) & 0x1f0000ff0000ff;
    v = (v | v << 8) & 0x100f00f00f00f00f;
    v = (v | v << 4) & 0x10c30c30c30c30c3;
    return (v | v << 2) & 0x1249249249249249;
}

}  // namespace

std::vector<std::int32_t> element_order(const Mesh& mesh) {
    const std::size_t per_element = mesh.node_per_element();
    const std::size_t elements = mesh.element_num();
    std::array<double, 3> low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        for (std::size_t c = 0; c < 3; ++c) {
            low[c] = std::min(low[c], mesh.node(n)[c]);
            high[c] = std::max(high[c], mesh.node(n)[c]);
        }
    double extent = 0;
    for (std::size_t c = 0; c < 3; ++c) extent = std::max(extent, high[c] - low[c]);
    constexpr double most = (1 << 21) - 1;
    const double scale = extent > 0 ? most / extent : 0;
    std::vector<std::uint64_t> code(elements);
    for (std::size_t e = 0; e < elements; ++e) {
        for (std::size_t c = 0; c < 3; ++c) {
            double sum = 0;
            for (std::size_t i = 0; i < per_element; ++i)
                sum += mesh.node(
                    static_cast<std::int32_t>(node_index(mesh.connectivity[e * per_element + i])))[c];
            const double place = scale * (sum / static_cast<double>(per_element) - low[c]);
            code[e] |= spread_bits(static_cast<std::uint64_t>(std::clamp(place, 0.0, most))) << c;
        }
    }
    std::vector<std::int32_t> order(elements);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::int32_t a, std::int32_t b) { return code[a] < code[b]; });
    return order;
}

namespace {

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
    node_num_ = mesh.node_num();
    make_chunks(node_num_, options.chunk_elements);
}

void ElementBlocks::make_chunks(std::int32_t node_num, int elements) {
    const std::int64_t W = lanes_, per_element = nodes_per_element_, slots = std::ssize(order_);
    chunk_blocks_ = std::max<std::int64_t>(1, elements / W);
    chunks_.resize(static_cast<std::size_t>((blocks_ + chunk_blocks_ - 1) / chunk_blocks_));
    const auto slot_nodes = [&](std::int64_t slot, auto visit) {
        for (std::int64_t i = 0; i < per_element; ++i) {
            const std::int64_t at = (slot / W * per_element + i) * W + slot % W;
            visit(nodes_[at], at);
        }
    };
    const auto of_chunk = [&](std::int64_t c, auto visit) {
        const std::int64_t last = std::min(slots, (c + 1) * chunk_blocks_ * W);
        for (std::int64_t slot = c * chunk_blocks_ * W; slot < last; ++slot) slot_nodes(slot, visit);
    };
    // chunks of each node: none, one or several
    constexpr std::int64_t none = -1, several = -2;
    const auto chunks = std::ssize(chunks_);
    std::vector<std::int64_t> chunk_of(node_num, none);
    for (std::int64_t c = 0; c < chunks; ++c)
        of_chunk(c, [&](std::int32_t n, std::int64_t) {
            chunk_of[n] = chunk_of[n] == none || chunk_of[n] == c ? c : several;
        });
    places_.resize(nodes_.size());
    std::vector<std::int32_t> place(node_num, -1), border_count(node_num, 0);
    for (std::int64_t c = 0; c < chunks; ++c) {
        Chunk& chunk = chunks_[c];
        chunk.first_node = std::ssize(chunk_nodes_);
        for (const bool own : {true, false}) {
            const auto first = std::ssize(chunk_nodes_);
            of_chunk(c, [&](std::int32_t n, std::int64_t) {
                if (place[n] >= 0 || (chunk_of[n] != several) != own) return;
                place[n] = 0;
                chunk_nodes_.push_back(n);
            });
            std::sort(chunk_nodes_.begin() + first, chunk_nodes_.end());
            for (auto k = first; k < std::ssize(chunk_nodes_); ++k) place[chunk_nodes_[k]] = chunk.all++;
            if (own) chunk.own = chunk.all;
        }
        of_chunk(
            c, [&](std::int32_t n, std::int64_t at) { places_[at] = static_cast<std::uint16_t>(place[n]); });
        for (std::int32_t k = 0; k < chunk.all; ++k) {
            const std::int32_t n = chunk_nodes_[chunk.first_node + k];
            place[n] = -1;
            border_count[n] += k >= chunk.own;
        }
        most_places_ = std::max(most_places_, chunk.all + 1);
    }
    for (std::int64_t slot = slots; slot < blocks_ * W; ++slot)
        slot_nodes(slot, [&](std::int32_t, std::int64_t at) {
            places_[at] = static_cast<std::uint16_t>(chunks_.back().all);
        });
    partial_.assign(4 * chunk_nodes_.size(), 0.0);
    border_start_.assign(1, 0);
    std::vector<std::int64_t> next(node_num, -1);
    for (std::int32_t n = 0; n < node_num; ++n) {
        if (chunk_of[n] == none) empty_nodes_.push_back(n);
        if (border_count[n] == 0) continue;
        border_nodes_.push_back(n);
        next[n] = border_start_.back();
        border_start_.push_back(border_start_.back() + border_count[n]);
    }
    border_.resize(static_cast<std::size_t>(border_start_.back()));
    for (std::int64_t c = 0; c < chunks; ++c)
        for (std::int32_t k = chunks_[c].own; k < chunks_[c].all; ++k) {
            const std::int64_t at = chunks_[c].first_node + k;
            border_[next[chunk_nodes_[at]]++] = at;
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

void ElementBlocks::set_viscosity(std::span<const double> linear, std::span<const double> quadratic) {
    const std::size_t W = lanes_, slots = least_.size();
    if (viscous_.empty()) {
        viscous_.resize(2 * slots);
        viscous_pressure_.assign(nodes_per_element_ == 10 ? 4 * slots : slots, 0.0);
        viscous_work_.assign(slots, 0.0);
        viscous_rate_.assign(slots, 0.0);
    }
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const std::size_t e = order_[std::min(slot, order_.size() - 1)], at = slot / W * 2 * W + slot % W;
        viscous_[at] = is_removed(e) ? 0 : linear[e];
        viscous_[at + W] = is_removed(e) ? 0 : quadratic[e];
    }
}

double ElementBlocks::viscous_energy() const {
    double sum = 0;
    for (std::size_t slot = 0; slot < order_.size() && !viscous_work_.empty(); ++slot)
        sum += viscous_work_[slot];
    return sum;
}

double ElementBlocks::largest_compression(std::span<const double> weight) const {
    double largest = 0;
    for (std::size_t slot = 0; slot < order_.size() && !viscous_rate_.empty(); ++slot)
        if (!is_removed(order_[slot]))
            largest = std::max(largest, weight[order_[slot]] * viscous_rate_[slot]);
    return largest;
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

bool ElementBlocks::sum_chunk(std::int64_t c, const double* x, const double* du, double* R) {
    const Chunk& chunk = chunks_[c];
    thread_local LineDoubles sums;
    sums.resize(4 * static_cast<std::size_t>(most_places_));
    std::fill_n(sums.begin(), 4 * static_cast<std::size_t>(chunk.all + 1), 0.0);
    const auto pointer_to = [](LineDoubles& values) { return values.empty() ? nullptr : values.data(); };
    KernelArrays arrays{nodes_.data(),
                        x,
                        du,
                        material_.data(),
                        stress_.data(),
                        alpha_.data(),
                        places_.data(),
                        sums.data(),
                        energy_.data(),
                        least_.data()};
    arrays.general = {pointer_to(back_), pointer_to(thermal_step_), pointer_to(heat_), kinematic_.data(),
                      segments_.data()};
    const std::int64_t first = c * chunk_blocks_, last = std::min(blocks_, first + chunk_blocks_);
    kernel_(arrays, first, last);
    if (!viscous_.empty()) {
        arrays.viscous = {viscous_.data(), viscous_pressure_.data(), viscous_work_.data(),
                          viscous_rate_.data(), per_step_};
        set_->viscosity[nodes_per_element_ == 8 ? 0 : nodes_per_element_ == 4 ? 1 : 2](arrays, first, last);
    }
    const std::int32_t* nodes = chunk_nodes_.data() + chunk.first_node;
    for (std::int32_t k = 0; k < chunk.own; ++k) {
        const double* sum = sums.data() + 4 * static_cast<std::ptrdiff_t>(k);
        double* force = R + 4 * static_cast<std::ptrdiff_t>(nodes[k]);
        for (int i = 0; i < 4; ++i) force[i] = sum[i];
    }
    std::copy(sums.data() + 4 * static_cast<std::ptrdiff_t>(chunk.own),
              sums.data() + 4 * static_cast<std::ptrdiff_t>(chunk.all),
              partial_.data() + 4 * (chunk.first_node + chunk.own));
    int inverted = 0;
    for (std::int64_t k = first * lanes_; k < last * lanes_; ++k) inverted |= !(least_[k] > 0);
    return inverted == 0;
}

void ElementBlocks::gather_borders(double* R, int threads) const {
    const auto nodes = std::ssize(border_nodes_);
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1)
    for (std::int64_t k = 0; k < nodes; ++k) {
        double sum[4] = {0, 0, 0, 0};
        for (std::int64_t j = border_start_[k]; j < border_start_[k + 1]; ++j)
            for (std::size_t c = 0; c < 4; ++c) sum[c] += partial_[4 * border_[j] + c];
        double* force = R + 4 * static_cast<std::ptrdiff_t>(border_nodes_[k]);
        for (int i = 0; i < 4; ++i) force[i] = sum[i];
    }
    for (const std::int32_t n : empty_nodes_) std::fill_n(R + 4 * static_cast<std::ptrdiff_t>(n), 4, 0.0);
}

bool ElementBlocks::evaluate(const double* x, const double* du, double* R, int threads) {
    const auto chunks = std::ssize(chunks_);
    int inverted = 0;
    if (!removed_.empty() && std::ranges::find(removed_, 0) == removed_.end()) {
        for (std::int32_t n = 0; n < node_num_; ++n)
            std::fill_n(R + 4 * static_cast<std::ptrdiff_t>(n), 4, 0.0);
        return true;
    }
// taken as threads come free: on a busy machine one of them may be held up
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads) if (threads > 1) reduction(| : inverted)
    for (std::int64_t c = 0; c < chunks; ++c) {
        const FlushSubnormals flush;
        inverted |= !sum_chunk(c, x, du, R);
    }
    gather_borders(R, threads);
    if (!removed_.empty() && first_least_.empty()) first_least_ = least_;
    return inverted == 0;
}

std::int32_t ElementBlocks::first_inverted() const {
    std::int32_t first = -1;
    for (std::size_t slot = 0; slot < order_.size(); ++slot)
        if (!(least_[slot] > 0) && !is_removed(order_[slot]) && (first < 0 || order_[slot] < first))
            first = order_[slot];
    return first;
}

double ElementBlocks::energy(int kind) const {
    double sum = 0;
    const std::size_t W = lanes_;
    for (std::size_t slot = 0; slot < order_.size(); ++slot)
        sum += energy_[(2 * (slot / W) + static_cast<std::size_t>(kind)) * W + slot % W];
    return sum;
}

double ElementBlocks::heat_of_all() const {
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

void ElementBlocks::allow_removal() {
    removed_.assign(order_.size(), 0);
    slot_of_.resize(order_.size());
    for (std::size_t slot = 0; slot < order_.size(); ++slot)
        slot_of_[order_[slot]] = static_cast<std::int32_t>(slot);
}

void ElementBlocks::find_worn(std::span<const double> limit, int threads, std::vector<std::int32_t>& strained,
                              std::vector<std::int32_t>& thin) const {
    const std::size_t W = lanes_, points = points_;
    const auto slots = std::ssize(order_);
    std::vector<char> worn(order_.size(), 0);
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1)
    for (std::int64_t slot = 0; slot < slots; ++slot) {
        const std::size_t e = order_[slot];
        if (removed_[e] || !(limit[e] < std::numeric_limits<double>::infinity())) continue;
        double sum = 0;
        for (std::size_t p = 0; p < points && !alpha_.empty(); ++p)
            sum += alpha_[(std::size_t(slot) / W * points + p) * W + std::size_t(slot) % W];
        const bool is_thin = !first_least_.empty() && !(least_[slot] > 0.5 * first_least_[slot]);
        worn[e] = sum >= static_cast<double>(points) * limit[e] ? 1 : is_thin ? 2 : 0;
    }
    for (std::size_t e = 0; e < worn.size(); ++e)
        if (worn[e]) (worn[e] == 1 ? strained : thin).push_back(static_cast<std::int32_t>(e));
}

void ElementBlocks::copy_element(std::int32_t e, double* stress, double* pressure) const {
    const std::size_t W = lanes_, points = points_, slot = slot_of_[e];
    const std::size_t viscous_points = viscous_pressure_.size() / least_.size();
    for (std::size_t p = 0; p < points; ++p) {
        for (std::size_t c = 0; c < 6; ++c)
            stress[6 * p + c] = stress_[stress_at(slot, static_cast<int>(p)) + c * W];
        const std::size_t q = viscous_points > 1 ? p : 0;
        pressure[p] =
            viscous_points > 0 ? viscous_pressure_[(slot / W * viscous_points + q) * W + slot % W] : 0;
    }
}

double ElementBlocks::take_energy(std::int32_t e, double viscous) {
    const std::size_t W = lanes_, slot = slot_of_[e], at = slot / W * 2 * W + slot % W;
    double taken = std::exchange(energy_[at], 0.0);
    energy_[at + W] = 0;
    if (!heat_.empty()) {
        taken += heat_[slot];
        heat_gone_ += std::exchange(heat_[slot], 0.0);
    }
    if (!viscous_work_.empty()) viscous_work_[slot] += viscous;
    return taken;
}

void ElementBlocks::remove(std::span<const std::int32_t> elements) {
    for (const std::int32_t e : elements) removed_[e] = 1;
    pass_over_removed();
}

// An element that is out is computed as a rigid one on the nodes of one that is not, and its forces go
// nowhere.
void ElementBlocks::pass_over_removed() {
    const std::size_t W = lanes_, per_element = nodes_per_element_, points = points_;
    std::size_t model = 0;
    while (model < order_.size() && removed_[order_[model]]) ++model;
    const bool some_stay = model < order_.size();  // evaluate() computes nothing otherwise
    for (std::size_t slot = 0; slot < least_.size(); ++slot) {
        const std::size_t e = order_[std::min(slot, order_.size() - 1)], b = slot / W, lane = slot % W;
        if (!removed_[e]) continue;
        const Chunk& chunk = chunks_[b / static_cast<std::size_t>(chunk_blocks_)];
        for (std::size_t i = 0; some_stay && i < per_element; ++i) {
            const std::size_t at = (b * per_element + i) * W + lane;
            nodes_[at] = nodes_[(model / W * per_element + i) * W + model % W];
            places_[at] = static_cast<std::uint16_t>(chunk.all);
        }
        const double values[] = {0, 0, 1};  // λ, G, H
        for (std::size_t c = 0; c < 3; ++c) material_[(4 * b + (c < 2 ? c : 3)) * W + lane] = values[c];
        for (std::size_t p = 0; p < points; ++p)
            for (std::size_t c = 0; c < 6; ++c) {
                const std::size_t at = ((b * points + p) * 6 + c) * W + lane;
                stress_[at] = 0;
                if (!back_.empty()) back_[at] = 0;
            }
        if (!kinematic_.empty()) kinematic_[slot] = 1;
        if (viscous_.empty()) continue;
        const std::size_t viscous_points = viscous_pressure_.size() / least_.size();
        viscous_[2 * b * W + lane] = viscous_[(2 * b + 1) * W + lane] = 0;
        for (std::size_t p = 0; p < viscous_points; ++p)
            viscous_pressure_[(b * viscous_points + p) * W + lane] = 0;
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
    return (order_.size() + nodes_.size() + chunk_nodes_.size() + border_nodes_.size()) *
               sizeof(std::int32_t) +
           places_.size() * sizeof(std::uint16_t) + chunks_.size() * sizeof(Chunk) +
           (border_start_.size() + border_.size()) * sizeof(std::int64_t) +
           (material_.size() + stress_.size() + alpha_.size() + partial_.size() + energy_.size() +
            least_.size() + kinematic_.size() + back_.size() + 2 * thermal_.size() + heat_.size() +
            viscous_.size() + viscous_pressure_.size() + viscous_work_.size() + viscous_rate_.size()) *
               sizeof(double);
}

}  // namespace kestralum
