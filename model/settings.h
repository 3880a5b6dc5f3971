// The machine-dependent settings, read once at start from "setting\setting.txt".
#pragma once

#include <cstdint>
#include <string>

namespace kestralum {

struct Settings {
    double memory_size = 0;   // MB: in-core budget of the factorization
    double free_hd_size = 0;  // MB: disk budget of the factor
    double view_fovy = 0;     // kept and echoed only
    double view_c_znear = 0;
    double view_c_zfar = 0;
    std::string ordering_type;         // LX LY LZ LALL LMAX
    double c_eigen_shift = 0;          // factor on the eigen analyses' shift
    std::int32_t div_memory_size = 0;  // divides the memory budget
    std::int32_t nl_static = 0;        // 0 stop, 1 go_on after an unconverged increment
    double nl_conv = 0;                // convergence tolerance of the force iteration
    std::int32_t n_threads = 0;        // threads of every parallel loop
    std::string solver = "auto";       // auto skyline sparse iterative
    double solver_tolerance = 1e-10;   // of the iterative solver's residual, ‖F - K u‖ / ‖F‖

    // Team size for a parallel region: n_threads, at least 1.
    int threads() const { return n_threads < 1 ? 1 : n_threads; }
    bool operator==(const Settings&) const = default;
};

}  // namespace kestralum
