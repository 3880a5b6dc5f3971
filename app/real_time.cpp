#include "app/real_time.h"

namespace kestralum {

namespace {

const RealTimeDriver*& driver_in_force() {
    static const RealTimeDriver* driver = nullptr;
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
