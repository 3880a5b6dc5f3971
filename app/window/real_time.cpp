#include "app/window/real_time.h"

#include "analysis/explicit/explicit_analysis.h"

namespace kestralum {

namespace {

constexpr RealTimeDriver explicit_analysis{begin_explicit, advance_explicit, drop_explicit,
                                           [] { return static_cast<int>(explicit_frame()); }, 100};

const RealTimeDriver*& driver_in_force() {
    static const RealTimeDriver* driver = &explicit_analysis;
    return driver;
}

}  // namespace

const RealTimeDriver* real_time_driver() {
    return driver_in_force();
}

void set_real_time_driver(const RealTimeDriver* driver) {
    driver_in_force() = driver;
}

}  // namespace kestralum
