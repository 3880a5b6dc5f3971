// The elements of a mesh in the kernels' blocks: connectivity, material, stress state and forces, and
// the lists through which each node gathers its forces in a fixed order.
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
};

class ElementBlocks {
public:
    // Elements are put in the order of their smallest nodes; the last block is filled up with copies
    // whose forces and energies nobody gathers. All stresses start at 0.
    ElementBlocks(const Mesh& mesh, std::span<const Part> parts, std::span<const Material> materials,
                  const BlockOptions& options);

    // Stresses and element forces of the configuration x reached by du (node × 4, m). False when a point
    // of some element has a volume that is not positive; first_inverted() tells the element.
    bool evaluate(const double* x, const double* du, int threads);
    std::int32_t first_inverted() const;  // 0-based, -1 = none

    // The thermal strains (element × point) of the next evaluate(): what they change since the last call acts
    // there. With `heated` only.
    void set_thermal(std::span<const double> strain, int threads);

    // Σ of the element forces at each node: R, node × 4, N.
    void gather_forces(double* R, int threads) const;

    // Work done on the points so far and its plastic part, J: on the strains less the thermal ones, whose
    // work is -∫ σ:dε_thermal.
    double internal_energy() const { return energy(0) + heat_work(); }
    double plastic_energy() const { return energy(1); }
    double heat_work() const;

    // Stresses, in the mesh's order of elements, and equivalent plastic strains (element × point; empty
    // when elastic).
    void copy_stresses(std::vector<double>& stress, std::vector<double>& plastic_strain) const;
    // Sets every point's stress (element × point × 6), for tests of forces and rotations.
    void set_stresses(std::span<const double> stress);

    // What the next evaluate() builds on.
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(stress_, alpha_, energy_, back_, thermal_, thermal_step_, heat_);
    }

    const char* kernel_name() const { return set_->name; }
    std::size_t bytes() const;

private:
    double energy(int kind) const;
    void set_general(std::span<const Part> parts, const Mesh& mesh, const BlockOptions& options);
    std::size_t stress_at(std::size_t slot, int point) const;

    const KernelSet* set_;
    ForceKernel kernel_;
    int lanes_, nodes_per_element_, points_;
    std::int64_t blocks_ = 0;
    std::vector<std::int32_t> order_;  // slot -> element; a slot is block · lanes + lane
    std::vector<std::int32_t> nodes_;  // block × local node × lane
    LineDoubles material_, stress_, alpha_, force_, energy_, least_;
    // of the general law
    std::vector<PlasticMaterial> laws_;  // of the model's materials
    std::vector<const HardeningSegment*> segments_;
    LineDoubles kinematic_, back_, thermal_, thermal_step_, heat_;
    std::vector<std::int64_t> gather_start_;  // node_num + 1
    std::vector<std::int32_t> gather_;  // places (block · nodes + local node) · lanes + lane, by element
};

}  // namespace kestralum
