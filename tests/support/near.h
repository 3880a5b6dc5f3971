// Three-component vectors compared component by component.
#pragma once

#include <gtest/gtest.h>

#include "view/vector.h"

namespace kestralum::testing {

inline void expect_near(const view::Vec3& a, const view::Vec3& b, double tolerance = 1e-12) {
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(a[k], b[k], tolerance) << "component " << k;
}

}  // namespace kestralum::testing
