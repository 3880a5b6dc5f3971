// PETSc's objects as values that give back what they hold, and its errors.
//
// An error inside PETSc leaves ranks waiting for each other: it ends all of them with one line.
#pragma once

#include <petscksp.h>

#include <span>
#include <utility>

namespace kestralum {

// Ends the program on every rank where `code` is an error.
void must(PetscErrorCode code);

// Starts and ends PETSc and SLEPc; `options` of PETSc come from the environment alone (PETSC_OPTIONS).
class PetscSession {
public:
    PetscSession();
    ~PetscSession();
    PetscSession(const PetscSession&) = delete;
    PetscSession& operator=(const PetscSession&) = delete;
};

// Owns one object. `reset()` gives a place to make one in.
template <typename T, PetscErrorCode (*destroy)(T*)>
class PetscOwner {
public:
    PetscOwner() = default;
    ~PetscOwner() { release(); }
    PetscOwner(PetscOwner&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    PetscOwner& operator=(PetscOwner&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    operator T() const { return object_; }
    T* reset() {
        release();
        return &object_;
    }
    void release() {
        if (object_) must(destroy(&object_));
        object_ = nullptr;
    }

private:
    T object_ = nullptr;
};

// The values of this rank.
void set_values(Vec vector, std::span<const double> values);
void get_values(Vec vector, std::span<double> values);

using PetscVec = PetscOwner<Vec, VecDestroy>;
using PetscMat = PetscOwner<Mat, MatDestroy>;
using PetscKsp = PetscOwner<KSP, KSPDestroy>;

}  // namespace kestralum
