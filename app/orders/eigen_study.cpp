// Natural frequencies of the cube between rollers on all faces. Its modes are u_x = A sin(lπx) cos(mπy)
// cos(nπz) and so on: one of compression, ω = c_p π|k| with k = (l, m, n), and those of shear across k, ω =
// c_s π|k|, as many as k has entries beside one that are not zero.
#include <algorithm>
#include <cmath>

#include "app/orders/study.h"

namespace kestralum {

namespace {

// The lowest `count`, Hz.
std::vector<double> exact_frequencies(std::size_t count) {
    const Material m = study_material();
    const Lame moduli = lame_of(m);
    const double c_p = std::sqrt((moduli.lambda + 2 * moduli.mu) / m.density),
                 c_s = std::sqrt(moduli.mu / m.density);
    std::vector<double> out;
    constexpr int most = 4;
    for (int i = 1; i < (most + 1) * (most + 1) * (most + 1); ++i) {
        const std::array k{i % (most + 1), i / (most + 1) % (most + 1), i / (most + 1) / (most + 1)};
        const double length = std::hypot(k[0], k[1], k[2]);
        out.push_back(c_p * length / 2);
        const auto zeros = std::ranges::count(k, 0);
        for (auto shear = zeros; shear < 2; ++shear) out.push_back(c_s * length / 2);
    }
    std::ranges::sort(out);
    out.resize(count);
    return out;
}

}  // namespace

bool study_eigen(Study& study) {
    const std::vector<double> exact = exact_frequencies(5);
    const MeshSizes sizes =
        study.options.coarse ? MeshSizes{{6, 9}, {5, 8}} : MeshSizes{{4, 8, 16}, {4, 8, 12}};
    const auto quantities = [](const StudyElement& of) {
        return std::vector<Quantity>{{"frequency", 2.0 * of.degree}};
    };
    return for_meshes(study, "eigen", sizes, quantities,
                      [&](const StudyElement& of, const Mesh& mesh, std::span<double> errors) {
                          Model model = cube_model(mesh, of.form, study_material());
                          model.mode_count = static_cast<std::int32_t>(exact.size());
                          SupportOptions roller;
                          for (std::size_t c = 0; c < 3; ++c) {
                              roller.fixed = {c == 0, c == 1, c == 2};
                              constexpr const char* faces[] = {"x", "y", "z"};
                              model.boundary_conditions.push_back(support_of(faces[c], roller));
                          }
                          const auto run = study.analyse("eigen-lanczos", model, study.settings);
                          if (!run || run->results.size() < exact.size()) return false;
                          errors[0] = 0;
                          for (std::size_t k = 0; k < exact.size(); ++k)
                              errors[0] += std::abs(run->results[k]->n_freq / exact[k] - 1) /
                                           static_cast<double>(exact.size());
                          return true;
                      });
}

}  // namespace kestralum
