// The elements of a mesh in the kernels' blocks: connectivity, material and stress state.
//
// Blocks stand in chunks of neighbours. A thread takes a chunk at a time and sums the forces at its nodes in
// a few kilobytes of its own; nodes of one chunk alone have their force then, those at its border gather the
// sums of their chunks afterwards, in the order of the chunks. So an element's forces never go to memory, and
// the bytes are the same for any number of threads.
#pragma once

#include <cstdint>
#include <new>
#include <span>
#include <vector>

#include "elements/explicit_kernel.h"
#include "elements/plasticity.h"
#include "elements/stresses.h"
#include "model/mesh.h"

namespace kestralum {

// Storage on cache lines.
template <typename T>
struct LineAllocator {
    using value_type = T;
    static constexpr std::align_val_t line{64};
    LineAllocator() = default;
    template <typename U>
    LineAllocator(const LineAllocator<U>&) {}
    T* allocate(std::size_t n) {
        if (n > std::size_t(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(::operator new(n * sizeof(T), line));
    }
    void deallocate(T* p, std::size_t) { ::operator delete(p, line); }
    friend bool operator==(const LineAllocator&, const LineAllocator&) { return true; }
};
using LineDoubles = std::vector<double, LineAllocator<double>>;

struct BlockOptions {
    bool plastic = false;          // materials with a yield stress yield
    bool mean_dilatation = false;  // plastic hexahedra: in elements that have yielded, before that `full`
    int widest = 8;                // lanes at most
    std::span<const char>
        rigid{};  // per element: it moves as a rigid body and has no stress; empty: none does
    HexahedronForm form = HexahedronForm::full;  // of hexahedra
    bool heated = false;                         // set_thermal() will be called
    int chunk_elements = 512;                    // of a chunk: the sums at its nodes stay in the first cache
};

// Elements by the place of their centres on a Z-order curve (Morton, 1966): neighbours in memory share nodes,
// and a run of elements is a compact body with few nodes at its border.
std::vector<std::int32_t> element_order(const Mesh& mesh);

class ElementBlocks {
public:
    // Elements are put in element_order(); the last block is filled up with copies whose forces and energies
    // nobody gathers. All stresses start at 0.
    ElementBlocks(const Mesh& mesh, std::span<const Part> parts, std::span<const Material> materials,
                  const BlockOptions& options);

    // Stresses of the configuration x reached by du (node × 4, m), and R, node × 4: Σ of the element forces
    // at each node, N, and 0. False when a point of some element has a volume that is not positive;
    // first_inverted() tells the element.
    bool evaluate(const double* x, const double* du, double* R, int threads);
    std::int32_t first_inverted() const;  // 0-based, -1 = none

    // The thermal strains (element × point) of the next evaluate(): what they change since the last call acts
    // there. With `heated` only.
    void set_thermal(std::span<const double> strain, int threads);

    // Bulk viscosity of the next evaluate(), per element: ρ c b1 l (Pa·s) and ρ (b2 l)² (Pa·s^2).
    void set_viscosity(std::span<const double> linear, std::span<const double> quadratic);
    // The step that leads to the next evaluate(), s, for bulk viscosity; 0: none does.
    void set_step(double step) { per_step_ = step > 0 ? 1 / step : 0; }
    double viscous_energy() const;  // dissipated so far, J
    // The largest of weight × fastest compression (1/s) in the last evaluate(); weight: per element.
    double largest_compression(std::span<const double> weight) const;

    // Elements can be taken out from here on, and nothing else changes by it.
    void allow_removal();
    // Of the last evaluate(), of those with a finite limit (per element) that are not out: whose points' mean
    // equivalent plastic strain has reached it, and those of the others with a point of less than half of the
    // volume that it had in the first evaluate().
    void find_worn(std::span<const double> limit, int threads, std::vector<std::int32_t>& strained,
                   std::vector<std::int32_t>& thin) const;
    // Stresses (points × 6) and viscous pressures (points) of one element, N/m^2.
    void copy_element(std::int32_t e, double* stress, double* pressure) const;
    // What has been done on the element so far, J, which does not count in the sums of energies from here on;
    // `viscous` is added to what viscosity has dissipated.
    double take_energy(std::int32_t e, double viscous);
    // The elements have neither stress nor stiffness from here on; their nodes may go anywhere.
    void remove(std::span<const std::int32_t> elements);
    bool is_removed(std::size_t e) const { return !removed_.empty() && removed_[e] != 0; }

    // Work done on the points so far and its plastic part, J: on the strains less the thermal ones, whose
    // work is -∫ σ:dε_thermal.
    double internal_energy() const { return energy(0) + heat_of_all(); }
    double plastic_energy() const { return energy(1); }
    double heat_work() const { return heat_of_all() + heat_gone_; }

    // Stresses, in the mesh's order of elements, and equivalent plastic strains (element × point; empty
    // when elastic).
    void copy_stresses(std::vector<double>& stress, std::vector<double>& plastic_strain) const;
    // Sets every point's stress (element × point × 6), for tests of forces and rotations.
    void set_stresses(std::span<const double> stress);

    // What the next evaluate() builds on.
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(stress_, alpha_, energy_, back_, thermal_, thermal_step_, heat_);
        if (!viscous_.empty()) archive(viscous_, viscous_pressure_, viscous_work_, viscous_rate_);
        if (removed_.empty()) return;
        archive(removed_, least_, heat_gone_);
        pass_over_removed();
    }

    const KernelSet& kernels() const { return *set_; }
    const char* kernel_name() const { return set_->name; }
    std::size_t bytes() const;

private:
    // A chunk's own nodes, which no other one has, come first; those of its border follow.
    struct Chunk {
        std::int64_t first_node = 0;    // in chunk_nodes_
        std::int32_t own = 0, all = 0;  // nodes
    };
    double energy(int kind) const;
    double heat_of_all() const;
    void pass_over_removed();
    void make_chunks(std::int32_t node_num, int elements);
    bool sum_chunk(std::int64_t c, const double* x, const double* du, double* R);
    void gather_borders(double* R, int threads) const;
    void set_general(std::span<const Part> parts, const Mesh& mesh, const BlockOptions& options);
    std::size_t stress_at(std::size_t slot, int point) const;

    const KernelSet* set_;
    ForceKernel kernel_;
    int lanes_, nodes_per_element_, points_;
    std::int64_t blocks_ = 0;
    std::vector<std::int32_t> order_;  // slot -> element; a slot is block · lanes + lane
    std::vector<std::int32_t> nodes_;  // block × local node × lane
    LineDoubles material_, stress_, alpha_, energy_, least_;
    // of the general law
    std::vector<PlasticMaterial> laws_;  // of the model's materials
    std::vector<const HardeningSegment*> segments_;
    LineDoubles kinematic_, back_, thermal_, thermal_step_, heat_;
    // of bulk viscosity; empty: none acts
    LineDoubles viscous_, viscous_pressure_, viscous_work_, viscous_rate_;
    double per_step_ = 0;
    // of elements that can be taken out; empty: none can
    std::vector<char> removed_;          // per element
    std::vector<std::int32_t> slot_of_;  // of each element
    LineDoubles first_least_;            // least_ of the first evaluate()
    double heat_gone_ = 0;               // heat's work on elements that are out, J
    std::int32_t node_num_ = 0;
    std::int64_t chunk_blocks_ = 1;
    std::vector<Chunk> chunks_;
    std::vector<std::int32_t> chunk_nodes_;  // 0-based
    std::vector<std::uint16_t> places_;      // block × local node × lane: in the chunk's nodes
    std::int32_t most_places_ = 0;           // of a chunk, with one for the copies
    LineDoubles partial_;                    // as chunk_nodes_, × 4: the sums of a chunk at its border
    // nodes of several chunks, and their places in partial_ by chunk
    std::vector<std::int32_t> border_nodes_;
    std::vector<std::int64_t> border_start_, border_;
    std::vector<std::int32_t> empty_nodes_;  // of no element
};

}  // namespace kestralum
