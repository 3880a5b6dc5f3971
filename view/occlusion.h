// How much of the sky the places of a surface see: corners and hollows are darker, which shows shape where
// colours do not.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "view/surface.h"

namespace kestralum::view {

// Per vertex (as many as `coordinates` has places, × 3, m) the share of rays from it, over the half space of
// its mean normal and weighted by the cosine to it, that leave the surface behind within a fifth of its
// extent: 1 open, 0 shut (Zhukov, Iones and Kronin, 1998). The surface is taken as the cells of a grid that
// it passes through; what is smaller than a cell, a hundredth of the extent, does not count. 1 for vertices
// that no triangle has.
std::vector<float> open_shares(const Surface& surface, std::span<const double> coordinates);

}  // namespace kestralum::view
