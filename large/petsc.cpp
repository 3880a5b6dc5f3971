#include "large/petsc.h"

#include <slepceps.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

namespace kestralum {

namespace {

int rank_here() {
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    return rank;
}

// The innermost place tells what is wrong, in its first line; those that called it are silent.
PetscErrorCode tell_once(MPI_Comm, int, const char*, const char*, PetscErrorCode code, PetscErrorType type,
                         const char* text, void*) {
    if (type != PETSC_ERROR_INITIAL) return code;
    const std::string_view all = text ? text : "unknown";
    const std::string line(all.substr(0, all.find('\n')));
    const char* what = nullptr;
    PetscErrorMessage(code, &what, nullptr);
    // an allocation that fails inside PetscMalloc hands over its place in the source in place of a code
    if (code == PETSC_ERR_MEM || !what)
        std::fprintf(stderr, "not enough memory for this model on rank %d\n", rank_here());
    else
        std::fprintf(stderr, "rank %d: the solver library failed: %s (%s)\n", rank_here(), line.c_str(),
                     what);
    std::fflush(stderr);
    return code;
}

}  // namespace

void must(PetscErrorCode code) {
    if (code != 0) MPI_Abort(MPI_COMM_WORLD, 1);
}

void set_values(Vec vector, std::span<const double> values) {
    double* place = nullptr;
    must(VecGetArray(vector, &place));
    std::ranges::copy(values, place);
    must(VecRestoreArray(vector, &place));
}

void get_values(Vec vector, std::span<double> values) {
    const double* place = nullptr;
    must(VecGetArrayRead(vector, &place));
    std::copy_n(place, values.size(), values.begin());
    must(VecRestoreArrayRead(vector, &place));
}

PetscSession::PetscSession() {
    // the program answers signals itself
    PetscOptionsSetValue(nullptr, "-no_signal_handler", "true");
    must(SlepcInitializeNoArguments());
    must(PetscPushErrorHandler(tell_once, nullptr));
}

PetscSession::~PetscSession() {
    SlepcFinalize();
}

}  // namespace kestralum
