// Before main() of every program: whether a limit of address space leaves the matrix library room to begin.
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// OpenBLAS takes a buffer for each of its threads while it is loaded, before main(), one more for each that
// calls it, and where a limit of address space (ulimit -v) leaves it none it tries for ever. So this runs
// before any library begins: nothing but system calls.
__attribute__((no_sanitize("address", "undefined", "thread"))) void check_address_space(int, char**,
                                                                                        char** environment) {
    constexpr std::size_t buffer = std::size_t(129) << 20;  // bytes
    constexpr std::size_t stack = std::size_t(72) << 20;    // of a thread, with its heap
    constexpr int most_threads = 128;
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
    cpu_set_t processors;
    int threads = ::sched_getaffinity(0, sizeof processors, &processors) == 0 ? CPU_COUNT(&processors) : 1;
    for (char** one = environment; *one; ++one) {
        constexpr char name[] = "OMP_NUM_THREADS=";
        const int wanted =
            std::strncmp(*one, name, sizeof name - 1) == 0 ? std::atoi(*one + sizeof name - 1) : 0;
        if (wanted > 0 && wanted < threads) threads = wanted;
    }
    const std::size_t bytes =
        static_cast<std::size_t>(std::min(threads, most_threads)) * (2 * buffer + stack);
    void* const room = ::mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room != MAP_FAILED) {
        ::munmap(room, bytes);
        return;
    }
    constexpr char line[] =
        "the limit of address space (ulimit -v) is too small: the matrix library takes 330 MB for each "
        "thread, with OMP_NUM_THREADS=1 for one\n";
    (void)!::write(STDERR_FILENO, line, sizeof line - 1);
    ::_exit(1);
}
__attribute__((section(".preinit_array"), used)) void (*const before_libraries)(int, char**,
                                                                                char**) = check_address_space;

}  // namespace
