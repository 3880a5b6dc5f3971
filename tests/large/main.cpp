// The tests run on every rank of an MPI program; the first one tells of them, all of them of what fails.
#include <gtest/gtest.h>
#include <mpi.h>
#include <omp.h>

#include "large/petsc.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// The look for leaks leaves out what MPI takes for itself when it starts, and comes before it unloads its
// components, whose memory has no name to be suppressed by afterwards (tests/lsan_suppressions.txt).
void start_mpi(int& argc, char**& argv) {
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler without_leaks;
#endif
    MPI_Init(&argc, &argv);
}

void end_mpi() {
#ifdef __SANITIZE_ADDRESS__
    __lsan_do_leak_check();
#endif
    MPI_Finalize();
}

}  // namespace

int main(int argc, char** argv) {
    start_mpi(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    omp_set_num_threads(1);
    if (rank > 0) {
        auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
        delete listeners.Release(listeners.default_result_printer());
        class TellFailures : public ::testing::EmptyTestEventListener {
            void OnTestPartResult(const ::testing::TestPartResult& part) override {
                if (part.failed())
                    std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.summary());
            }
        };
        listeners.Append(new TellFailures);
    }
    int failed = 0;
    {
        const kestralum::PetscSession session;
        failed = RUN_ALL_TESTS();
    }
    MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    end_mpi();
    return failed;
}
