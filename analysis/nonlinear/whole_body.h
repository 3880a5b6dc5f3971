// The body of a nonlinear run in one process.
#pragma once

#include <memory>

#include "analysis/nonlinear/newton_body.h"
#include "elements/finite_elements.h"
#include "solver/sparse.h"
#include "system/assembly.h"

namespace kestralum {

class WholeBody : public NewtonBody {
public:
    // Borrows all; the body is at rest.
    WholeBody(Job& job, FiniteBody& body, const Freedoms& freedoms);

    bool goes_on() override { return job_.goes_on(); }
    bool prepare() override;
    bool assemble(const LoadSet* loads, double factor, Progress& lines) override;
    bool plan() override;
    std::vector<double> diagonal() const override { return diagonal_of(constrained_); }
    std::span<double> border(std::span<const RigidState> states) override;
    bool factor() override;
    bool solve(std::span<double> x) override { return factor_->solve(job_, x); }
    std::vector<double> resistance(const std::vector<double>& moved) const override;
    bool count_negative(std::int64_t& negative) override;
    std::string free_motion() override;
    bool await_file() override { return !factor_ || factor_->await_file(job_); }

    bool update_stresses() override;
    std::vector<double> internal_forces() const override;
    bool set_heat(const LoadSet& loads, double factor) override;
    void commit() override { body_.commit(); }
    void restart() override { body_.restart(); }

    bool store(std::shared_ptr<Frame> frame, IncrementReport& increment) override;
    std::vector<double> mises() const override;
    ElementForces element_forces() const override;
    void find_largest() override { report_largest(job_, *job_.run.results.back()); }

    // K at rest without the supported degrees of freedom.
    const SparseKM& stiffness() const { return constrained_; }

private:
    Job& job_;
    FiniteBody& body_;
    const Freedoms& freedoms_;
    const RigidSystem& rigid_;
    NodeNeighbours neighbours_;
    // K of all degrees of freedom, of those that no support holds, and of those on no rigid body either
    SparseKM full_, constrained_, reduced_;
    SparseKM mapped_;  // full_ through the constraint map, where there is one
    std::vector<std::int64_t> kept_,
        kept_free_;      // per entry of constrained_ and reduced_: its place in full_ or mapped_
    DofNumbering free_;  // numbering of reduced_
    std::vector<std::int32_t> equation_;  // per row of constrained_: row of reduced_, -1 = member
    Border border_;
    std::unique_ptr<BorderedFactor> factor_;
};

}  // namespace kestralum
