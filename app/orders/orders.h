// Observed orders of convergence against manufactured and closed solutions, of every element and formulation
// on distorted meshes of a unit cube (Roache, Verification and Validation in Computational Science and
// Engineering, 1998): each row is an analysis run as a model would be, on meshes or with time steps made
// finer, and its error against the exact answer.
//
// find_orders() computes the rows and tells each as it is found, orders_chapter() makes a part of a page of
// them.
#pragma once

#include <string>
#include <vector>

#include "model/progress.h"
#include "model/settings.h"

namespace kestralum {

struct OrdersRow {
    std::string analysis;     // static eigen nonlinear explicit
    std::string element;      // hexahedron tetrahedron4 tetrahedron10
    std::string formulation;  // full enhanced mean-dilatation; of tetrahedra full
    std::string mesh;  // smooth: nodes moved by a smooth map; random: by random numbers of a fixed seed;
                       // regular: cubes
    std::string quantity;
    std::vector<double> h;      // cell size (m), of explicit rows the time step over the stable one
    std::vector<double> error;  // relative to the size of the exact answer
    std::vector<double> order;  // between each h and the next
    double expected = 0;        // of theory; 0: the answer is met to rounding on every mesh
};

inline constexpr double order_share = 0.9;       // of theory's order that the last one is to reach
inline constexpr double rounding_error = 1e-10;  // of rows that are met to rounding

// Whether a row is as theory has it, within the band. Not where it has no numbers.
bool reaches_theory(const OrdersRow& row);

struct OrdersOptions {
    std::string log_folder;  // exists; the analyses write their files there
    bool coarse = false;     // two meshes instead of three, and random ones only
    std::string only;        // analyses whose names begin so; empty: all
};

// Whether an analysis that has orders begins so.
bool has_orders(const std::string& name);

// The head of the table that the rows are lines of.
void print_orders_head(Progress& progress);

// A line for each row as it is found: what, its errors, its orders, theory, "ok" or "below".
// False, told as an error, where an analysis fails or none has the name, and where a stop was asked for;
// `rows` then has what was done.
bool find_orders(const OrdersOptions& options, const Settings& settings, Progress& progress,
                 std::vector<OrdersRow>& rows);

// How many rows there are, and how many below theory.
void print_orders_totals(const std::vector<OrdersRow>& rows, Progress& progress);

// The rows as a chapter of a page, HTML: a table, and for each analysis, kind of mesh and quantity a drawing
// of the error over the size on logarithmic axes with a line of theory's slope; none of what is met to
// rounding. Empty without rows.
std::string orders_chapter(const std::vector<OrdersRow>& rows);

}  // namespace kestralum
