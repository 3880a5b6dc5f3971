#include "analysis/explicit/explicit_loads.h"

#include <algorithm>
#include <cmath>

#include "elements/element_type.h"
#include "model/format.h"

namespace kestralum {

namespace {

// The first record of a group: what is told of the group is told of it.
std::string first_of(const LoadOptions& options, const Model& model) {
    const auto is_of = [&](const auto& record) {
        return record.options.factor.text == options.factor.text &&
               record.options.case_name == options.case_name;
    };
    for (const AppliedForce& force : model.forces)
        if (is_of(force)) return "force " + force.name;
    for (const Load& load : model.loads)
        if (is_of(load)) return "load " + load.name;
    return "a load";
}

std::string factor_without_value(const std::string& record, const LoadOptions& options, double factor,
                                 double time) {
    return formatted("%s: its factor '%s' is %g at time %.6g", record.c_str(), options.factor.text.c_str(),
                     factor, time);
}

}  // namespace

ExplicitLoads::ExplicitLoads(const Job& job, LoadSet loads, std::span<double> constant) : job_(job) {
    const std::string& load_case = job.options.load_case;
    std::vector<char> changes(constant.size(), 0);
    for (LoadGroup& group : loads.groups) {
        if (!acts_in_case(group.options.case_name, load_case)) continue;
        if (!group.options.factor.varies) {
            const double factor = load_factor(group.options, 0, Growth::whole);
            for (std::size_t d = 0; d < constant.size(); ++d) constant[d] += factor * group.nodal[d];
            continue;
        }
        Group& own = groups_.emplace_back(Group{first_of(group.options, job.model), group.options, {}, {}});
        for (std::size_t d = 0; d < constant.size(); ++d) {
            if (group.nodal[d] == 0) continue;
            own.places.push_back(static_cast<std::int32_t>(4 * (d / 3) + d % 3));
            own.values.push_back(group.nodal[d]);
            changes[d] = 1;
        }
    }
    const Mesh& mesh = job.mesh();
    for (const Load* load : loads.surface) {
        if (!acts_in_case(load->options.case_name, load_case)) continue;
        Surface& own = surface_.emplace_back(Surface{load, "load " + load->name, {}});
        FacePoints points;
        for (const ElementFace& face : faces_of(mesh, *load)) {
            face_points(mesh, face, {}, points);
            own.nodes.insert(own.nodes.end(), points.nodes.node.begin(),
                             points.nodes.node.begin() + points.nodes.count);
        }
        std::ranges::sort(own.nodes);
        own.nodes.erase(std::unique(own.nodes.begin(), own.nodes.end()), own.nodes.end());
        for (const std::int32_t n : own.nodes)
            for (std::size_t c = 0; c < 3; ++c) changes[3 * n + c] = 1;
    }
    for (std::size_t d = 0; d < changes.size(); ++d)
        if (changes[d]) touched_.push_back(static_cast<std::int32_t>(4 * (d / 3) + d % 3));
    if (!surface_.empty()) u_.assign(constant.size(), 0.0);
    nodal_ = u_;
}

bool ExplicitLoads::take_factor(const std::string& record, const LoadOptions& options, double time,
                                double& factor) {
    factor = load_factor(options, time, Growth::whole);
    if (!std::isfinite(factor)) trouble_ = factor_without_value(record, options, factor, time);
    return std::isfinite(factor);
}

bool ExplicitLoads::set(double time, const double* u, double* F, ExplicitTeam* ranks) {
    for (const std::int32_t place : touched_) F[place] = constant_[place];
    bool finite = true;
    double factor = 1;
    for (const Group& group : groups_) {
        if (!take_factor(group.record, group.options, time, factor)) return false;
        for (std::size_t k = 0; k < group.places.size(); ++k) F[group.places[k]] += factor * group.values[k];
    }
    for (const Surface& surface : surface_) {
        if (!take_factor(surface.record, surface.load->options, time, factor)) return false;
        for (const std::int32_t n : surface.nodes)
            for (std::size_t c = 0; c < 3; ++c) {
                u_[3 * n + c] = u[4 * n + c];
                nodal_[3 * n + c] = 0;
            }
        add_surface_load(job_.mesh(), *surface.load, time, u_, nodal_);
        if (ranks) ranks->add_shared(nodal_.data(), 3);
        double sum = 0;  // of 0 · f: not a number where one is not finite
        for (const std::int32_t n : surface.nodes)
            for (std::size_t c = 0; c < 3; ++c) {
                F[4 * n + c] += factor * nodal_[3 * n + c];
                sum += 0 * F[4 * n + c];
            }
        if (sum != 0) {
            trouble_ = formatted("load %s: it has no finite value everywhere on its faces at time %.6g",
                                 surface.load->name.c_str(), time);
            if (!ranks) return false;  // the others wait for what this one has of the next load
            finite = false;
        }
    }
    return finite;
}

void ExplicitLoads::keep(std::span<const std::int32_t> place_of) {
    std::size_t nodes = 0;
    for (const std::int32_t place : place_of) nodes += place >= 0;
    const auto here = [&](std::int32_t place) {
        return place_of[place / 4] < 0 ? -1 : 4 * place_of[place / 4] + place % 4;
    };
    LineDoubles constant(4 * nodes, 0.0);
    for (std::size_t k = 0; k < constant_.size(); ++k)
        if (const std::int32_t at = here(static_cast<std::int32_t>(k)); at >= 0) constant[at] = constant_[k];
    constant_ = std::move(constant);
    for (Group& group : groups_) {
        Group kept{group.record, group.options, {}, {}};
        for (std::size_t k = 0; k < group.places.size(); ++k) {
            const std::int32_t at = here(group.places[k]);
            if (at < 0) continue;
            kept.places.push_back(at);
            kept.values.push_back(group.values[k]);
        }
        group = std::move(kept);
    }
    for (Surface& surface : surface_) {
        std::erase_if(surface.nodes, [&](std::int32_t n) { return place_of[n] < 0; });
        for (std::int32_t& n : surface.nodes) n = place_of[n];
    }
    for (std::int32_t& place : touched_) place = here(place);
    std::erase(touched_, -1);
    if (!u_.empty()) u_.assign(3 * nodes, 0.0);
    nodal_ = u_;
}

double ExplicitLoads::power(const double* F, const double* v, std::int64_t nodes) const {
    double sum = 0;
    for (const std::int32_t place : touched_)
        if (place < 4 * nodes) sum += (F[place] - constant_[place]) * v[place];
    return sum;
}

ExplicitHeat::ExplicitHeat(const Job& job, const LoadSet& loads)
    : job_(job), heatings_(heatings_of(loads, job.model, job.options.load_case)) {
    const Mesh& mesh = job.mesh();
    if (heatings_.empty()) return;
    strain_.assign(std::size_t(mesh.element_num()) * element_type(mesh.element_type).points, 0.0);
    for (const Heating& heating : heatings_) {
        std::vector<double>& fixed = fixed_.emplace_back();
        varies_ = varies_ || heating.load->value.varies || heating.load->options.factor.varies;
        if (heating.load->value.varies) continue;
        fixed.assign(strain_.size(), 0.0);
        add_heating(heating, mesh, 0, 1, 1, fixed);
    }
}

bool ExplicitHeat::set(double time, int threads, ElementBlocks& blocks) {
    if (begun_ && !varies_) {
        blocks.set_thermal(strain_, threads);
        return true;
    }
    begun_ = true;
    std::ranges::fill(strain_, 0.0);
    for (std::size_t h = 0; h < heatings_.size(); ++h) {
        const double factor = load_factor(heatings_[h].load->options, time, Growth::whole);
        if (fixed_[h].empty())
            add_heating(heatings_[h], job_.mesh(), time, factor, threads, strain_);
        else
            for (std::size_t p = 0; p < strain_.size(); ++p) strain_[p] += factor * fixed_[h][p];
    }
    double sum = 0;
    for (const double strain : strain_) sum += 0 * strain;
    if (sum == 0) {
        blocks.set_thermal(strain_, threads);
        return true;
    }
    tell_trouble(time);
    return false;
}

void ExplicitHeat::keep(std::span<const std::int32_t> elements) {
    const std::size_t points = element_type(job_.mesh().element_type).points;
    const auto keep = [&](std::vector<double>& values) {
        std::vector<double> out;
        for (const std::int32_t e : elements) {
            const auto first = values.begin() + static_cast<std::ptrdiff_t>(points) * e;
            out.insert(out.end(), first, first + static_cast<std::ptrdiff_t>(points));
        }
        values = std::move(out);
    };
    keep(strain_);
    for (std::vector<double>& fixed : fixed_)
        if (!fixed.empty()) keep(fixed);
}

void ExplicitHeat::tell_trouble(double time) {
    for (const Heating& heating : heatings_) {
        const LoadOptions& options = heating.load->options;
        const std::string record = "load " + heating.load->name;
        const double factor = load_factor(options, time, Growth::whole);
        if (!std::isfinite(factor)) {
            trouble_ = factor_without_value(record, options, factor, time);
            return;
        }
        std::vector<double> own(strain_.size(), 0.0);
        add_heating(heating, job_.mesh(), time, factor, 1, own);
        if (std::ranges::all_of(own, [](double strain) { return std::isfinite(strain); })) continue;
        trouble_ = formatted("%s: its temperature '%s' has no finite value everywhere at time %.6g",
                             record.c_str(), heating.load->value.text.c_str(), time);
        return;
    }
}

}  // namespace kestralum
